#include "app/LocalLoginController.h"

#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Strings.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor {

std::shared_ptr<LocalLoginController> LocalLoginController::singleInstance() {
  static std::shared_ptr<LocalLoginController> instance = std::make_shared<LocalLoginController>();
  return instance;
}

void LocalLoginController::setScreenPort(std::shared_ptr<IScreenPort> port) {
  port_ = std::move(port);
}

std::string LocalLoginController::headerText() const {
  if (!LoginPasswordUtil::getLocalPassword().empty() && !LoginPasswordUtil::getAutoLogin()) {
    return localizedString("LocalLoginPassword");
  }
  std::string path = delegate ? delegate->getFileExplorePwdPath().value_or(std::string()) : "";
  std::size_t b = path.find_first_not_of("/.");
  std::size_t e = path.find_last_not_of("/.");
  return "/" + (b == std::string::npos ? std::string() : path.substr(b, e - b + 1));
}

bool LocalLoginController::viewWillAppear() {
  if (port_) port_->setTitle(headerText());
  return !(delegate && delegate->isUseTouchIDAuthentication());
}

void LocalLoginController::viewWillDisappear() {
  txtField.clear();
}

bool LocalLoginController::LoginSystem() {
  std::unique_lock lock(loginMutex_, std::try_to_lock);
  if (!lock.owns_lock()) return false;
  const std::string input = txtField;
  if (input.empty()) {
    message("PasswordIsError");
    return false;
  }
  if (!check(input)) {
    message("PasswordIsError");
    return false;
  }
  if (delegate) delegate->restoreWindowRootViewController();
  return true;
}

bool LocalLoginController::check(const std::string& input) {
  std::string expected =
      LoginPasswordUtil::getAutoLogin() ? std::string() : LoginPasswordUtil::getLocalPassword();
  if (delegate) {
    if (auto path = delegate->getFileExplorePwdPath()) {
      std::string folder =
          FileManagerUtil::getFilePassword(FileUtil::documentDirectory() + *path).value_or("");
      // The program's own password, when it applies, opens locked folders too.
      if (expected.empty()) expected = folder;
    }
  }
  return FileManagerUtil::isSamePassword(expected, input);
}

void LocalLoginController::exitSystem() {
  if (!port_) return;
  ScreenAlert alert;
  alert.key = "ExitApp";
  alert.text = localizedString("ExitApp");
  alert.buttons = {"Cancel", "OK"};
  port_->showAlert(alert, [](int, const std::vector<std::string>&) {});
}

void LocalLoginController::message(const std::string& key) {
  if (port_) port_->showMessage(key, localizedString(key));
}

}  // namespace harbor

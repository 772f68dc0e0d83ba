#include "app/LockServices.h"

#include "app/ApplicationServices.h"
#include "app/CommonApplication.h"
#include "app/LocalLoginController.h"
#include "filemanager/FileManagerUtil.h"
#include "platform/Log.h"
#include "platform/ScreenPort.h"
#include "platform/Strings.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/TouchIDUtils.h"

namespace harbor {
namespace {

class StoredPasswords : public IPasswordStore {
 public:
  std::string getLocalPassword() override { return LoginPasswordUtil::getLocalPassword(); }
  bool getAutoLogin() override { return LoginPasswordUtil::getAutoLogin(); }
  std::string getFilePassword(const std::string& fullPath) override {
    return FileManagerUtil::getFilePassword(fullPath).value_or(std::string());
  }
  std::optional<std::string> isExistsPasswordInPathComponents(
      const std::string& relativePath) override {
    return FileManagerUtil::getPasswordPathInPathComponents(relativePath);
  }
};

std::function<std::shared_ptr<ViewController>()> loginFactory(CommonApplication& application,
                                                              std::shared_ptr<IScreenPort> port) {
  return [&application, port]() -> std::shared_ptr<ViewController> {
    auto login = LocalLoginController::singleInstance();
    login->delegate = &application;
    login->setScreenPort(port);
    return login;
  };
}

}  // namespace

std::shared_ptr<IPasswordStore> makeStoredPasswordStore() {
  return std::make_shared<StoredPasswords>();
}

void installMissingLockServices(CommonApplication& application) {
  auto& services = ApplicationServices::shared();
  if (!services.passwords) services.passwords = makeStoredPasswordStore();
  if (!services.loginController) services.loginController = loginFactory(application, nullptr);
}

void installLockServices(CommonApplication& application, std::shared_ptr<IScreenPort> port) {
  auto& services = ApplicationServices::shared();
  services.passwords = makeStoredPasswordStore();
  TouchIDUtils::setBiometrics(std::make_shared<NoBiometrics>());
  services.loginController = loginFactory(application, port);
  services.alertMsg = [port](const std::string& text) {
    if (port) port->showMessage({}, text);
  };
}

int warnUnreadablePasswords() {
  int shown = 0;
  auto tell = [&shown](const char* key) {
    const std::string text = localizedString(key);
    HB_LOG("LockServices", text);
    if (auto& alert = ApplicationServices::shared().alertMsg) {
      alert(text);
    } else {
      ScreenPort::shared()->showMessage(key, text);
    }
    ++shown;
  };
  if (LoginPasswordUtil::isUnreadableLocalPassword()) tell("LockPasswordUnreadable");
  if (LoginPasswordUtil::isUnreadableWifiPassword()) tell("WifiPasswordUnreadable");
  return shown;
}

}  // namespace harbor

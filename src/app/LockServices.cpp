#include "app/LockServices.h"

#include "app/ApplicationServices.h"
#include "app/CommonApplication.h"
#include "app/LocalLoginController.h"
#include "filemanager/FileManagerUtil.h"
#include "platform/ScreenPort.h"
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

}  // namespace

void installLockServices(CommonApplication& application, std::shared_ptr<IScreenPort> port) {
  auto& services = ApplicationServices::shared();
  services.passwords = std::make_shared<StoredPasswords>();
  TouchIDUtils::setBiometrics(std::make_shared<NoBiometrics>());
  services.loginController = [&application, port]() -> std::shared_ptr<ViewController> {
    auto login = LocalLoginController::singleInstance();
    login->delegate = &application;
    login->setScreenPort(port);
    return login;
  };
  services.alertMsg = [port](const std::string& text) {
    if (port) port->showMessage({}, text);
  };
}

}  // namespace harbor

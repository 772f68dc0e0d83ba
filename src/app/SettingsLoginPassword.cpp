#include "app/SettingsLoginPassword.h"

#include "filemanager/FileManagerUtil.h"
#include "platform/MainQueue.h"
#include "platform/Strings.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/TouchIDUtils.h"

namespace harbor {
namespace {

PreferenceRow field(const std::string& text, const std::string& content) {
  return {{rowkeys::text, text}, {rowkeys::control, "UITextField"}, {rowkeys::content, content}};
}

PreferenceRow toggle(const std::string& text, const std::string& key, const std::string& event) {
  return {{rowkeys::text, text},
          {rowkeys::control, "UISwitch"},
          {rowkeys::content, key},
          {rowkeys::event, event}};
}

// Biometric replies may come on another thread; screens change on the main one.
void onMain(std::function<void()> work) {
  if (MainQueue::shared().isMainThread()) {
    work();
  } else {
    MainQueue::shared().post(std::move(work));
  }
}

}  // namespace

SettingsLoginPassword::SettingsLoginPassword(std::shared_ptr<IScreenPort> port)
    : port_(std::move(port)) {}

void SettingsLoginPassword::viewDidLoad() {
  wifiPassword = wifiConfirm = LoginPasswordUtil::getWifiPassword();
  localPassword = localConfirm = LoginPasswordUtil::getLocalPassword();
  autoLogin = LoginPasswordUtil::getAutoLogin();
  touchIDAuthentication = TouchIDSettings::isTouchIDAuthentication();
  touchIDAuthenticationFolder = TouchIDSettings::isTouchIDAuthenticationFolder();
}

std::vector<PreferenceSection> SettingsLoginPassword::sections() const {
  PreferenceSection wifi{field("Password", "wifiPassword"), field("Confirm", "wifiConfirm")};
  wifi.front()[rowkeys::sectionTitle] = "WiFi";
  PreferenceSection local{field("Password", "localPassword"), field("Confirm", "localConfirm")};
  local.front()[rowkeys::sectionTitle] = "Local";
  PreferenceSection auth{toggle("Auto Login", keys::System_Local_AutoLogin, "changeAutoLogin:")};
  auth.front()[rowkeys::sectionTitle] = "Authentication";
  auth.front()[rowkeys::detail] = "If it is ON,open app does not verify the password";
  // Biometric switches only where the device has biometrics.
  if (TouchIDUtils::isSupportTouchID()) {
    auth.push_back(toggle("LocalLoginPassword", keys::SystemTouchIDAuthentication,
                          "changeTouchIDAuthentication:"));
    auth.push_back(toggle("Folder", keys::SystemTouchIDAuthenticationFolder,
                          "changeTouchIDAuthenticationFolder:"));
  }
  PreferenceRow clear{{rowkeys::text, "ClearFolderPasswords"},
                      {rowkeys::event, "clearDirectoryPassword:"},
                      {rowkeys::accessoryType, "1"}};
  return {wifi, local, auth, {clear}};
}

void SettingsLoginPassword::savePassword(Sender) {
  if (wifiPassword != wifiConfirm || localPassword != localConfirm) {
    message("PasswordNotEqualConfirm",
            localizedString("Local") + " " + localizedString("PasswordNotEqualConfirm"));
    return;
  }
  const std::string stored = LoginPasswordUtil::getLocalPassword();
  if (stored.empty() || stored == localPassword) {
    savePassword();
    return;
  }
  if (!TouchIDUtils::isSupportTouchID()) {
    openOldPasswordAlert();
    return;
  }
  TouchIDUtils::authentionTouchID([this](bool ok, long) {
    onMain([this, ok] { ok ? savePassword() : openOldPasswordAlert(); });
  });
}

void SettingsLoginPassword::openOldPasswordAlert() {
  askPassword(kOldPasswordTag, "InputOldLocalPassword", [this](bool answered, const auto& text) {
    if (!answered) {
      if (port_) port_->close();
    } else if (!LoginPasswordUtil::isSameLocalPassword(text)) {
      message("PasswordIsError", localizedString("PasswordIsError"));
    } else {
      savePassword();
    }
  });
}

void SettingsLoginPassword::savePassword() {
  LoginPasswordUtil::saveWifiPassword(wifiPassword);
  LoginPasswordUtil::saveLocalPassword(localPassword);
  if (port_) port_->close();
}

void SettingsLoginPassword::clearDirectoryPassword() {
  askPassword(kClearFolderPasswordTag, "InputLocalPassword",
              [this](bool answered, const auto& text) {
                if (!answered) return;
                if (!LoginPasswordUtil::isSameLocalPassword(text)) {
                  message("PasswordIsError", localizedString("PasswordIsError"));
                  return;
                }
                FileManagerUtil::removeAllFilesPassword();
              });
}

void SettingsLoginPassword::changeAutoLogin(bool on) {
  if (!on || LoginPasswordUtil::getLocalPassword().empty()) {
    LoginPasswordUtil::saveAutoLogin(on);
    autoLogin = on;
    return;
  }
  auto ask = [this] {
    askPassword(kAutoLoginTag, "InputLocalPassword", [this](bool answered, const auto& text) {
      if (answered && LoginPasswordUtil::isSameLocalPassword(text)) {
        LoginPasswordUtil::saveAutoLogin(true);
        autoLogin = true;
        return;
      }
      if (answered) message("PasswordIsError", localizedString("PasswordIsError"));
      reload();
    });
  };
  if (!TouchIDUtils::isSupportTouchID()) {
    ask();
    return;
  }
  TouchIDUtils::authentionTouchID([this, ask](bool ok, long) {
    onMain([this, ok, ask] {
      if (!ok) {
        ask();
        return;
      }
      LoginPasswordUtil::saveAutoLogin(true);
      autoLogin = true;
    });
  });
}

void SettingsLoginPassword::changeTouchIDAuthentication(bool on) {
  TouchIDSettings::setTouchIDAuthentication(on);
  touchIDAuthentication = on;
}

void SettingsLoginPassword::changeTouchIDAuthenticationFolder(bool on) {
  TouchIDSettings::setTouchIDAuthenticationFolder(on);
  touchIDAuthenticationFolder = on;
}

void SettingsLoginPassword::askPassword(
    int tag, const std::string& key,
    std::function<void(bool answered, const std::string& text)> then) {
  if (!port_) {
    then(false, {});
    return;
  }
  ScreenAlert alert;
  alert.tag = tag;
  alert.key = key;
  alert.text = localizedString(key);
  alert.buttons = {"Cancel", "OK"};
  alert.fields = {ScreenField{localizedString("Password"), ""}};
  port_->showAlert(alert, [then](int button, const std::vector<std::string>& fields) {
    then(button == 1, fields.empty() ? std::string() : fields.front());
  });
}

void SettingsLoginPassword::message(const std::string& key, const std::string& text) {
  if (port_) port_->showMessage(key, text);
}

void SettingsLoginPassword::reload() {
  // Only the switches: what the user typed stays.
  autoLogin = LoginPasswordUtil::getAutoLogin();
  touchIDAuthentication = TouchIDSettings::isTouchIDAuthentication();
  touchIDAuthenticationFolder = TouchIDSettings::isTouchIDAuthenticationFolder();
  if (reloadData) reloadData();
}

}  // namespace harbor

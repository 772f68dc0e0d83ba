#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/ScreenPort.h"
#include "platform/ScreenPort.h"
#include "prefs/SystemSettings.h"

namespace harbor {

// The password setup screen: the Wi-Fi share's and the program's own
// password, each with a confirmation, and the switches that go with them.
class SettingsLoginPassword : public ViewController {
 public:
  static constexpr int kOldPasswordTag = 1024;
  static constexpr int kClearFolderPasswordTag = 1025;
  static constexpr int kAutoLoginTag = 1026;

  // The Save button, as distinct from the step that stores.
  struct Sender {};

  explicit SettingsLoginPassword(std::shared_ptr<IScreenPort> port);
  std::string className() const override { return "SettingsLoginPassword"; }

  // Fills the fields and switches from what is stored.
  void viewDidLoad();
  std::vector<PreferenceSection> sections() const;

  // Checks both pairs, asks for the old local password when it changes,
  // then stores.
  void savePassword(Sender);
  // Stores both passwords and leaves the screen.
  void savePassword();
  // Asks for the local password, then forgets every folder's password.
  void clearDirectoryPassword();
  void changeAutoLogin(bool on);
  void changeTouchIDAuthentication(bool on);
  void changeTouchIDAuthenticationFolder(bool on);

  // The table shows the stored state again (after a refused switch).
  std::function<void()> reloadData;

  std::string wifiPassword, wifiConfirm;
  std::string localPassword, localConfirm;
  bool autoLogin = false;
  bool touchIDAuthentication = true;
  bool touchIDAuthenticationFolder = true;

 private:
  void openOldPasswordAlert();
  void askPassword(int tag, const std::string& key,
                   std::function<void(bool answered, const std::string& text)> then);
  void message(const std::string& key, const std::string& text);
  void reload();

  std::shared_ptr<IScreenPort> port_;
};

}  // namespace harbor

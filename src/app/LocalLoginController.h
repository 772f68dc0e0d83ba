#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/ILocalLogin.h"
#include "platform/ScreenPort.h"
#include "platform/ScreenPort.h"

namespace harbor {

// The lock screen: one secure field and a Login button. It replaces the
// window's root while a lock applies and puts the root back on the right
// password.
class LocalLoginController : public ViewController {
 public:
  static std::shared_ptr<LocalLoginController> singleInstance();

  std::string className() const override { return "LocalLoginController"; }

  void setScreenPort(std::shared_ptr<IScreenPort> port);

  // "LocalLoginPassword" while the program's own password applies, else "/"
  // and the locked folder on screen.
  std::string headerText() const;
  // Shows the header; answers whether the keyboard opens (not while
  // biometrics are offered).
  bool viewWillAppear();
  // The typed password does not outlive the screen.
  void viewWillDisappear();
  // The Login button. True when the password opened the lock; a second tap
  // while one is being checked is ignored.
  bool LoginSystem();
  // Asks "ExitApp"; the answer changes nothing.
  void exitSystem();

  ILocalLogin* delegate = nullptr;
  std::vector<std::string> labels{"Password"};
  std::vector<std::string> placeholders{"Password"};
  std::string txtField;

 private:
  bool check(const std::string& input);
  void message(const std::string& key);

  std::shared_ptr<IScreenPort> port_;
  std::mutex loginMutex_;  // isSearching
};

}  // namespace harbor

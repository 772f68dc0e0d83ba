#pragma once

#include <functional>
#include <memory>
#include <string>

namespace harbor {

// The platform's biometric service: an availability test and an
// asynchronous yes or no with an error code.
class IBiometrics {
 public:
  // The code of a reply the user cancelled; other codes are failures.
  static constexpr long kUserCancel = -2;
  // The code when no biometric service exists.
  static constexpr long kNotAvailable = -6;

  using Reply = std::function<void(bool success, long errorCode)>;

  virtual ~IBiometrics() = default;
  virtual bool canEvaluatePolicy() = 0;
  // `reply` may come on another thread.
  virtual void evaluatePolicy(const std::string& reason, Reply reply) = 0;
};

// Linux has no biometric service: never available, every request fails.
class NoBiometrics : public IBiometrics {
 public:
  bool canEvaluatePolicy() override { return false; }
  void evaluatePolicy(const std::string&, Reply reply) override {
    if (reply) reply(false, kNotAvailable);
  }
};

class TouchIDUtils {
 public:
  TouchIDUtils() = delete;

  // The provider of this process; NoBiometrics until one is set, and an
  // empty one puts that back.
  static void setBiometrics(std::shared_ptr<IBiometrics> biometrics);
  static std::shared_ptr<IBiometrics> biometrics();

  static bool isSupportTouchID();
  // Asks with the reason "Touch ID Authentication" (localised).
  static void authentionTouchID(IBiometrics::Reply reply);
};

// Whether the lock and locked folders offer biometrics; both default to yes.
class TouchIDSettings {
 public:
  TouchIDSettings() = delete;

  static bool isTouchIDAuthentication();
  static void setTouchIDAuthentication(bool on);
  static bool isTouchIDAuthenticationFolder();
  static void setTouchIDAuthenticationFolder(bool on);
};

}  // namespace harbor

#include "prefs/TouchIDUtils.h"

#include <mutex>

#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {

std::mutex providerMutex;

std::shared_ptr<IBiometrics>& provider() {
  static std::shared_ptr<IBiometrics> p = std::make_shared<NoBiometrics>();
  return p;
}

std::string formatOne(std::string format, const std::string& arg) {
  auto at = format.find("%@");
  if (at != std::string::npos) format.replace(at, 2, arg);
  return format;
}

void saveFlag(const char* key, bool on) {
  UserDefaults::standard().setObject(key, on);
  UserDefaults::standard().synchronize();
}

}  // namespace

void TouchIDUtils::setBiometrics(std::shared_ptr<IBiometrics> biometrics) {
  std::lock_guard lock(providerMutex);
  provider() = biometrics ? std::move(biometrics) : std::make_shared<NoBiometrics>();
}

std::shared_ptr<IBiometrics> TouchIDUtils::biometrics() {
  std::lock_guard lock(providerMutex);
  return provider();
}

bool TouchIDUtils::isSupportTouchID() {
  return biometrics()->canEvaluatePolicy();
}

void TouchIDUtils::authentionTouchID(IBiometrics::Reply reply) {
  const std::string reason =
      formatOne(localizedString("Touch ID %@"), localizedString("Authentication"));
  biometrics()->evaluatePolicy(reason, std::move(reply));
}

bool TouchIDSettings::isTouchIDAuthentication() {
  return UserDefaults::standard().boolForKey(keys::SystemTouchIDAuthentication, true);
}

void TouchIDSettings::setTouchIDAuthentication(bool on) {
  saveFlag(keys::SystemTouchIDAuthentication, on);
}

bool TouchIDSettings::isTouchIDAuthenticationFolder() {
  return UserDefaults::standard().boolForKey(keys::SystemTouchIDAuthenticationFolder, true);
}

void TouchIDSettings::setTouchIDAuthenticationFolder(bool on) {
  saveFlag(keys::SystemTouchIDAuthenticationFolder, on);
}

}  // namespace harbor

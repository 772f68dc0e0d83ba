#include "prefs/LoginPasswordUtil.h"

#include <string_view>

#include "platform/UserDefaults.h"
#include "prefs/AesCipher.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {

// Keeps the stored text from being read at a glance; not a secret from
// someone who holds the program. Shorter than the key: the rest is zeros.
constexpr std::string_view kKeyText = "harbor.login-lock.2f7c1e9a";

}  // namespace

std::string LoginPasswordUtil::encipher(const std::string& clear) {
  static const AesCipher::Key key = AesCipher::keyFromText(kKeyText);
  return AesCipher::encipherToBase64(clear, key, AesCipher::Iv{});
}

std::string LoginPasswordUtil::decipher(const std::string& stored) {
  static const AesCipher::Key key = AesCipher::keyFromText(kKeyText);
  return AesCipher::decipherFromBase64(stored, key, AesCipher::Iv{}).value_or(std::string());
}

void LoginPasswordUtil::savePassword(const std::string& password, const std::string& key) {
  if (password.empty()) {
    removePassword(key);
    return;
  }
  UserDefaults::standard().setObject(key, encipher(password));
  UserDefaults::standard().synchronize();
}

std::string LoginPasswordUtil::getPassword(const std::string& key) {
  std::string stored = UserDefaults::standard().stringForKey(key);
  if (stored.empty()) return {};
  return decipher(stored);
}

bool LoginPasswordUtil::isUnreadablePassword(const std::string& key) {
  std::string stored = UserDefaults::standard().stringForKey(key);
  return !stored.empty() && decipher(stored).empty();
}

bool LoginPasswordUtil::isUnreadableLocalPassword() {
  return isUnreadablePassword(keys::SYSTEM_LOCAL_LOGIN_PASSWORD);
}

bool LoginPasswordUtil::isUnreadableWifiPassword() {
  return isUnreadablePassword(keys::SYSTEM_WIFI_LOGIN_PASSWORD);
}

void LoginPasswordUtil::removePassword(const std::string& key) {
  UserDefaults::standard().removeObjectForKey(key);
  UserDefaults::standard().synchronize();
}

void LoginPasswordUtil::saveLocalPassword(const std::string& password) {
  savePassword(password, keys::SYSTEM_LOCAL_LOGIN_PASSWORD);
}

void LoginPasswordUtil::saveWifiPassword(const std::string& password) {
  savePassword(password, keys::SYSTEM_WIFI_LOGIN_PASSWORD);
}

std::string LoginPasswordUtil::getLocalPassword() {
  return getPassword(keys::SYSTEM_LOCAL_LOGIN_PASSWORD);
}

std::string LoginPasswordUtil::getWifiPassword() {
  return getPassword(keys::SYSTEM_WIFI_LOGIN_PASSWORD);
}

bool LoginPasswordUtil::isSameLocalPassword(const std::string& candidate) {
  std::string stored = getLocalPassword();
  return stored.empty() || candidate == stored || candidate == encipher(stored);
}

bool LoginPasswordUtil::isSameWifiPassword(const std::string& candidate) {
  std::string stored = getWifiPassword();
  return stored.empty() || candidate == stored || candidate == encipher(stored);
}

void LoginPasswordUtil::saveAutoLogin(bool autoLogin) {
  if (autoLogin) {
    UserDefaults::standard().setObject(keys::System_Local_AutoLogin, true);
  } else {
    UserDefaults::standard().removeObjectForKey(keys::System_Local_AutoLogin);
  }
  UserDefaults::standard().synchronize();
}

bool LoginPasswordUtil::getAutoLogin() {
  auto v = UserDefaults::standard().objectForKey(keys::System_Local_AutoLogin);
  return v && UserDefaults::standard().boolForKey(keys::System_Local_AutoLogin, false);
}

}  // namespace harbor

#pragma once

#include <string>

namespace harbor {

// The lock's own password and the Wi-Fi share's, stored enciphered in the
// preferences (AES-256-CBC, zero IV, fixed key, base64).
class LoginPasswordUtil {
 public:
  LoginPasswordUtil() = delete;

  static void saveLocalPassword(const std::string& password);
  static void saveWifiPassword(const std::string& password);
  static std::string getLocalPassword();
  static std::string getWifiPassword();
  // True when none is stored, or `candidate` equals it as it is or enciphered.
  static bool isSameLocalPassword(const std::string& candidate);
  static bool isSameWifiPassword(const std::string& candidate);
  static void saveAutoLogin(bool autoLogin);
  static bool getAutoLogin();

  // An empty password removes the key.
  static void savePassword(const std::string& password, const std::string& key);
  static std::string getPassword(const std::string& key);  // "" when none
  static void removePassword(const std::string& key);
  // A value is stored under `key` but does not decipher (an earlier build's
  // key, a damaged file): it reads as no password, and the user is told.
  static bool isUnreadablePassword(const std::string& key);
  static bool isUnreadableLocalPassword();
  static bool isUnreadableWifiPassword();

  static std::string encipher(const std::string& clear);
  static std::string decipher(const std::string& stored);  // "" when it does not decipher
};

}  // namespace harbor

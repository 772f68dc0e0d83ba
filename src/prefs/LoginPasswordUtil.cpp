#include "prefs/LoginPasswordUtil.h"

#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <vector>

#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {

// Keeps the stored text from being read at a glance; not a secret from
// someone who holds the program.
constexpr char kKey[] = "harbor.login-lock.key.2f7c1e9a04";

std::optional<std::string> run(bool encrypt, const std::string& in) {
  unsigned char key[32] = {0};
  for (std::size_t i = 0; i < sizeof kKey - 1 && i < 32; ++i) {
    key[i] = static_cast<unsigned char>(kKey[i]);
  }
  unsigned char iv[16] = {0};
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  if (!ctx || EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, key, iv, encrypt) != 1) {
    return std::nullopt;
  }
  std::vector<unsigned char> out(in.size() + 32);
  int n = 0, last = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &n, reinterpret_cast<const unsigned char*>(in.data()),
                       static_cast<int>(in.size())) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + n, &last) != 1) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<char*>(out.data()), static_cast<std::size_t>(n + last));
}

}  // namespace

std::string LoginPasswordUtil::encipher(const std::string& clear) {
  auto sealed = run(true, clear);
  if (!sealed) return {};
  std::string text(4 * ((sealed->size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                          reinterpret_cast<const unsigned char*>(sealed->data()),
                          static_cast<int>(sealed->size()));
  text.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return text;
}

std::string LoginPasswordUtil::decipher(const std::string& stored) {
  if (stored.empty() || stored.size() % 4 != 0) return {};
  std::string raw(stored.size() / 4 * 3, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(raw.data()),
                          reinterpret_cast<const unsigned char*>(stored.data()),
                          static_cast<int>(stored.size()));
  if (n < 0) return {};
  std::size_t pad = stored.ends_with("==") ? 2 : stored.ends_with('=') ? 1 : 0;
  raw.resize(static_cast<std::size_t>(n) - pad);
  if (raw.empty() || raw.size() % 16 != 0) return {};
  return run(false, raw).value_or(std::string());
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

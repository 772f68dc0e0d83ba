#include "archive/zip/ZipAes.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <vector>

namespace harbor::zipdata {

struct ZipAesCipher::State {
  EVP_CIPHER_CTX* cipher = nullptr;
  EVP_MAC* macKind = nullptr;
  EVP_MAC_CTX* mac = nullptr;
  std::array<unsigned char, 16> counter{};
  std::array<unsigned char, 16> stream{};
  std::size_t streamUsed = 16;
  ~State() {
    EVP_CIPHER_CTX_free(cipher);
    EVP_MAC_CTX_free(mac);
    EVP_MAC_free(macKind);
  }
};

ZipAesCipher::ZipAesCipher() : state_(std::make_unique<State>()) {}
ZipAesCipher::~ZipAesCipher() = default;

std::unique_ptr<ZipAesCipher> ZipAesCipher::derive(const std::string& password,
                                                   const unsigned char* salt, std::uint8_t strength,
                                                   std::array<unsigned char, kCheckSize>& check) {
  if (strength < 1 || strength > 3) return nullptr;
  const std::size_t keyLen = 8 + 8 * strength;  // 16, 24, 32
  std::vector<unsigned char> keys(2 * keyLen + kCheckSize);
  if (PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()), salt,
                             static_cast<int>(saltSize(strength)), 1000,
                             static_cast<int>(keys.size()), keys.data()) != 1)
    return nullptr;
  check = {keys[2 * keyLen], keys[2 * keyLen + 1]};
  std::unique_ptr<ZipAesCipher> aes(new ZipAesCipher);
  State& s = *aes->state_;
  const EVP_CIPHER* ecb = keyLen == 16   ? EVP_aes_128_ecb()
                          : keyLen == 24 ? EVP_aes_192_ecb()
                                         : EVP_aes_256_ecb();
  s.cipher = EVP_CIPHER_CTX_new();
  s.macKind = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  s.mac = s.macKind ? EVP_MAC_CTX_new(s.macKind) : nullptr;
  char digest[] = "SHA1";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                               OSSL_PARAM_END};
  const bool ready = s.cipher && s.mac &&
                     EVP_EncryptInit_ex(s.cipher, ecb, nullptr, keys.data(), nullptr) == 1 &&
                     EVP_CIPHER_CTX_set_padding(s.cipher, 0) == 1 &&
                     EVP_MAC_init(s.mac, keys.data() + keyLen, keyLen, params) == 1;
  OPENSSL_cleanse(keys.data(), keys.size());
  return ready ? std::move(aes) : nullptr;
}

bool ZipAesCipher::crypt(unsigned char* data, std::size_t n) {
  State& s = *state_;
  for (std::size_t i = 0; i < n; ++i) {
    if (s.streamUsed == s.stream.size()) {
      // The counter runs from 1, little-endian, over the whole block.
      for (auto& b : s.counter)
        if (++b != 0) break;
      int len = 0;
      if (EVP_EncryptUpdate(s.cipher, s.stream.data(), &len, s.counter.data(), 16) != 1)
        return false;
      s.streamUsed = 0;
    }
    data[i] ^= s.stream[s.streamUsed++];
  }
  return true;
}

bool ZipAesCipher::authenticate(const unsigned char* data, std::size_t n) {
  return EVP_MAC_update(state_->mac, data, n) == 1;
}

bool ZipAesCipher::finish(std::array<unsigned char, kAuthSize>& code) {
  unsigned char full[EVP_MAX_MD_SIZE];
  std::size_t len = 0;
  if (EVP_MAC_final(state_->mac, full, &len, sizeof full) != 1 || len < kAuthSize) return false;
  std::copy_n(full, kAuthSize, code.begin());
  return true;
}

std::array<unsigned char, 11> ZipAesCipher::extraField(std::uint16_t version, std::uint8_t strength,
                                                       std::uint16_t method) {
  return {static_cast<unsigned char>(kExtraId & 0xff),
          static_cast<unsigned char>(kExtraId >> 8),
          7,
          0,
          static_cast<unsigned char>(version & 0xff),
          static_cast<unsigned char>(version >> 8),
          'A',
          'E',
          strength,
          static_cast<unsigned char>(method & 0xff),
          static_cast<unsigned char>(method >> 8)};
}

}  // namespace harbor::zipdata

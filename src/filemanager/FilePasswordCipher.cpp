#include "filemanager/FilePasswordCipher.h"

#include <openssl/sha.h>

#include <algorithm>

#include "prefs/AesCipher.h"

namespace harbor {
namespace {

// Keeps the stored value from being read at a glance; it is not meant to
// resist someone who has the program.
constexpr std::string_view kKeyText = "harbor.file-lock.v1:5d1f0c7e-3a94-4b62-9e08-c71a2f6b8d35";
constexpr std::string_view kIvText = "harbor.file-lock.iv:8b3e9a21";

struct Material {
  AesCipher::Key key{};
  AesCipher::Iv iv{};
};

const Material& material() {
  static const Material m = [] {
    Material out;
    SHA256(reinterpret_cast<const unsigned char*>(kKeyText.data()), kKeyText.size(),
           out.key.data());
    unsigned char ivHash[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(kIvText.data()), kIvText.size(), ivHash);
    std::copy_n(ivHash, out.iv.size(), out.iv.begin());
    return out;
  }();
  return m;
}

}  // namespace

std::string FilePasswordCipher::encode(std::string_view plain) {
  return AesCipher::encipherToBase64(plain, material().key, material().iv);
}

std::optional<std::string> FilePasswordCipher::decode(std::string_view encoded) {
  return AesCipher::decipherFromBase64(encoded, material().key, material().iv);
}

}  // namespace harbor

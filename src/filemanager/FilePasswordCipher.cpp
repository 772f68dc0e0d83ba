#include "filemanager/FilePasswordCipher.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace harbor {
namespace {

// Keeps the stored value from being read at a glance; it is not meant to
// resist someone who has the program.
constexpr std::string_view kKeyText = "harbor.file-lock.v1:5d1f0c7e-3a94-4b62-9e08-c71a2f6b8d35";
constexpr std::string_view kIvText = "harbor.file-lock.iv:8b3e9a21";

struct Material {
  std::array<unsigned char, 32> key{};
  std::array<unsigned char, 16> iv{};
};

const Material& material() {
  static const Material m = [] {
    Material out;
    SHA256(reinterpret_cast<const unsigned char*>(kKeyText.data()), kKeyText.size(),
           out.key.data());
    std::array<unsigned char, 32> ivHash{};
    SHA256(reinterpret_cast<const unsigned char*>(kIvText.data()), kIvText.size(), ivHash.data());
    std::copy_n(ivHash.begin(), out.iv.size(), out.iv.begin());
    return out;
  }();
  return m;
}

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

std::optional<std::vector<unsigned char>> run(bool encrypt, const unsigned char* in,
                                              std::size_t size) {
  CipherContext ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  if (!ctx) return std::nullopt;
  const Material& m = material();
  if (EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, m.key.data(), m.iv.data(),
                        encrypt ? 1 : 0) != 1) {
    return std::nullopt;
  }
  std::vector<unsigned char> out(size + EVP_MAX_BLOCK_LENGTH);
  int written = 0, last = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &written, in, static_cast<int>(size)) != 1) {
    return std::nullopt;
  }
  if (EVP_CipherFinal_ex(ctx.get(), out.data() + written, &last) != 1) return std::nullopt;
  out.resize(static_cast<std::size_t>(written + last));
  return out;
}

}  // namespace

std::string FilePasswordCipher::encode(std::string_view plain) {
  auto sealed = run(true, reinterpret_cast<const unsigned char*>(plain.data()), plain.size());
  if (!sealed) return {};
  std::string text(4 * ((sealed->size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), sealed->data(),
                          static_cast<int>(sealed->size()));
  text.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return text;
}

std::optional<std::string> FilePasswordCipher::decode(std::string_view encoded) {
  if (encoded.empty() || encoded.size() % 4 != 0) return std::nullopt;
  std::vector<unsigned char> raw(encoded.size() / 4 * 3);
  int n = EVP_DecodeBlock(raw.data(), reinterpret_cast<const unsigned char*>(encoded.data()),
                          static_cast<int>(encoded.size()));
  if (n < 0) return std::nullopt;
  // The decoder counts the padding as zero bytes.
  std::size_t pad = encoded.ends_with("==") ? 2 : encoded.ends_with('=') ? 1 : 0;
  std::size_t size = static_cast<std::size_t>(n) - pad;
  if (size == 0 || size % 16 != 0) return std::nullopt;
  auto opened = run(false, raw.data(), size);
  if (!opened) return std::nullopt;
  return std::string(opened->begin(), opened->end());
}

}  // namespace harbor

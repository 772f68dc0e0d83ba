#include "prefs/AesCipher.h"

#include <openssl/evp.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

namespace harbor {
namespace {

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

std::optional<std::vector<unsigned char>> run(bool encrypt, const unsigned char* in,
                                              std::size_t size, const AesCipher::Key& key,
                                              const AesCipher::Iv& iv) {
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max() - EVP_MAX_BLOCK_LENGTH)) {
    return std::nullopt;
  }
  CipherContext ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  if (!ctx || EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data(),
                                encrypt ? 1 : 0) != 1) {
    return std::nullopt;
  }
  std::vector<unsigned char> out(size + EVP_MAX_BLOCK_LENGTH);
  int written = 0, last = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &written, in, static_cast<int>(size)) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + written, &last) != 1) {
    return std::nullopt;
  }
  out.resize(static_cast<std::size_t>(written + last));
  return out;
}

bool isBase64Char(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

}  // namespace

AesCipher::Key AesCipher::keyFromText(std::string_view text) {
  Key key{};
  std::copy_n(text.begin(), std::min(text.size(), key.size()), key.begin());
  return key;
}

std::string AesCipher::encipherToBase64(std::string_view plain, const Key& key, const Iv& iv) {
  auto sealed =
      run(true, reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), key, iv);
  if (!sealed) return {};
  std::string text(4 * ((sealed->size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), sealed->data(),
                          static_cast<int>(sealed->size()));
  text.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return text;
}

std::optional<std::string> AesCipher::decipherFromBase64(std::string_view text, const Key& key,
                                                         const Iv& iv) {
  if (text.empty() || text.size() % 4 != 0) return std::nullopt;
  // The decoder skips some characters and counts padding as zero bytes, so
  // the alphabet and the padding's place are checked here.
  std::size_t pad = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  if (!std::all_of(text.begin(), text.end() - static_cast<std::ptrdiff_t>(pad), isBase64Char)) {
    return std::nullopt;
  }
  std::vector<unsigned char> raw(text.size() / 4 * 3);
  int n = EVP_DecodeBlock(raw.data(), reinterpret_cast<const unsigned char*>(text.data()),
                          static_cast<int>(text.size()));
  if (n < 0 || static_cast<std::size_t>(n) < pad) return std::nullopt;
  std::size_t size = static_cast<std::size_t>(n) - pad;
  if (size == 0 || size % 16 != 0) return std::nullopt;
  auto opened = run(false, raw.data(), size, key, iv);
  if (!opened) return std::nullopt;
  return std::string(opened->begin(), opened->end());
}

}  // namespace harbor

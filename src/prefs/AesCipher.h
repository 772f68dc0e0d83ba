#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace harbor {

// The one AES routine behind every stored password: AES-256-CBC with PKCS7
// padding, written as base64 text. Callers bring their own key and IV, so
// values already stored under each keep reading back.
class AesCipher {
 public:
  using Key = std::array<unsigned char, 32>;
  using Iv = std::array<unsigned char, 16>;

  AesCipher() = delete;

  // A key from a text: its bytes, cut or zero-padded to 32.
  static Key keyFromText(std::string_view text);

  // Empty only when the library fails.
  static std::string encipherToBase64(std::string_view plain, const Key& key, const Iv& iv);
  // nullopt for text that is not base64 of whole blocks or does not unpad.
  static std::optional<std::string> decipherFromBase64(std::string_view text, const Key& key,
                                                       const Iv& iv);
};

}  // namespace harbor

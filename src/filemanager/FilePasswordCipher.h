#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace harbor {

// The reversible scrambling of stored file passwords: AES-256-CBC under one
// fixed key, written as base64. The same text always encodes the same way,
// so an entered password can be checked in its encoded form.
class FilePasswordCipher {
 public:
  FilePasswordCipher() = delete;

  // Empty only when the library fails, which it does not for a valid key.
  static std::string encode(std::string_view plain);
  // nullopt for anything encode did not make.
  static std::optional<std::string> decode(std::string_view encoded);
};

}  // namespace harbor

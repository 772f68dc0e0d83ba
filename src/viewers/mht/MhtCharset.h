#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace harbor::mht {

// Text in a named charset. `strictName`: a name the encoding table does not
// know fails instead of meaning UTF-8.
std::optional<std::u16string> decodeCharset(std::string_view bytes, std::string_view charset,
                                            bool strictName);
// Text to bytes in a charset (UTF-8 for an unknown name). Characters the
// charset lacks become numeric character references in markup, "?" else.
std::string encodeCharset(std::u16string_view text, std::string_view charset, bool markup);

}  // namespace harbor::mht

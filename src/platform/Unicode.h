#pragma once

#include <string>
#include <string_view>

namespace harbor {

// Document text is UTF-16; paths and names are UTF-8. Invalid input is
// converted with U+FFFD so that a conversion never fails.
// Well-formed UTF-8: no overlong forms, surrogates or code points past U+10FFFF.
bool isValidUtf8(std::string_view bytes);
// Equal once A-Z are folded to a-z; nothing else is mapped.
bool equalsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b);
std::u16string toUtf16(std::string_view utf8);
std::string toUtf8(std::u16string_view utf16);

// Locale-independent full case mapping, as the platform's string lowercase.
std::u16string toLower(std::u16string_view text);
std::string toLower(std::string_view utf8);

// Trims white space and line terminators (Unicode White_Space) on both sides.
std::u16string trim(std::u16string_view text);
std::string trim(std::string_view utf8);

bool equalsIgnoreCase(std::string_view a, std::string_view b);

}  // namespace harbor

#pragma once

#include <string>
#include <string_view>

namespace harbor {

// Full Unicode case folding (ß becomes ss), with an ASCII fast path. Invalid
// UTF-8 folds as U+FFFD.
std::u16string foldCase16(std::string_view utf8);
// The same as UTF-8: two names compare ignoring case by comparing these.
std::string foldCase(std::string_view utf8);
bool isAsciiText(std::string_view text);

}  // namespace harbor

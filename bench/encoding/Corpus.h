#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harbor::bench {

// Real text in one language, taken from the manual pages and message
// translations installed on this machine: UTF-8 lines joined by "\n".
struct LanguageText {
  std::string language;  // the folder name: "ja", "zh_CN", "pl" ...
  std::string text;
  std::size_t files = 0;
};

// Collects up to `limit` bytes of text for a language; empty text when the
// machine has none.
LanguageText collectLanguageText(const std::string& language, std::size_t limit);

// glibc iconv, with the state flushed so stateful encodings end in ASCII.
std::optional<std::string> iconvConvert(const std::string& to, const std::string& from,
                                        std::string_view in);

}  // namespace harbor::bench

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

// Gettext catalogues in the form of .po files: each English original
// followed by its translation.
LanguageText collectCatalogueText(const std::string& language, std::size_t limit);

// The heads of HTML pages installed on this machine, from the start up to
// and including <body ...>, ASCII only and at most `maxSize` bytes. Their own
// charset declarations are taken out and the text "@DECLARATION@" marks the
// place right after <head> where a sample writes its own.
std::vector<std::string> collectPageHeads(std::size_t maxSize);

// glibc iconv, with the state flushed so stateful encodings end in ASCII.
std::optional<std::string> iconvConvert(const std::string& to, const std::string& from,
                                        std::string_view in);

}  // namespace harbor::bench

#pragma once

#include <string>
#include <string_view>

namespace harbor {

// Patterns the syntax engine and the editor share.
class RegexUtils {
 public:
  static std::u16string regexDoubleQuoteString();
  static std::u16string regexQuoteString();
  static std::u16string commonMultilinePattern();
  static std::u16string commentOn(std::u16string_view on, std::u16string_view off);
  static std::u16string lineComment(std::u16string_view marker);
  // A quoted run with `escape` before escaped units; empty when there is no
  // quote.
  static std::u16string regexQuoteString(char16_t quote, char16_t escape);
  // Either quote; with one of them, that one alone; with none, nothing.
  static std::u16string regexQuoteString(char16_t quote, char16_t quotetion2, char16_t escape);
  static std::u16string regexQuoteForJsString();
  static bool isValidateMobile(std::u16string_view text);
  static bool isValidateCode(std::u16string_view text);
};

}  // namespace harbor

#include "editor/RegexUtils.h"

#include "editor/FindTextInString.h"

namespace harbor {
namespace {

bool matchesAtStart(std::u16string_view text, std::u16string_view pattern) {
  auto groups = FindTextInString::findTextItems(text, pattern);
  return !groups.empty();
}

}  // namespace

std::u16string RegexUtils::regexDoubleQuoteString() {
  return uR"(("[^"\\]*(?:\\.[^"\\]*)*"))";
}

std::u16string RegexUtils::regexQuoteString() {
  return uR"(('[^'\\]*(?:\\.[^'\\]*)*'))";
}

std::u16string RegexUtils::commonMultilinePattern() {
  return uR"((\/\*.*?\*\/))";
}

std::u16string RegexUtils::commentOn(std::u16string_view on, std::u16string_view off) {
  return u"\\s*(" + std::u16string(on) + u"[\\s\\S]*?" + std::u16string(off) + u")\\s*";
}

std::u16string RegexUtils::lineComment(std::u16string_view marker) {
  return u"^[^\\n]*(" + std::u16string(marker) + u"[^\\n]*?)$";
}

std::u16string RegexUtils::regexQuoteString(char16_t quote, char16_t escape) {
  if (!quote) return {};
  // Both units go in escaped, so any quote or escape character is literal.
  const std::u16string q = u"\\" + std::u16string(1, quote);
  const std::u16string e = escape ? u"\\" + std::u16string(1, escape) : std::u16string();
  return u"(" + q + u"[^" + q + e + u"]*(?:\\\\.[^" + q + e + u"]*)*" + q + u")";
}

std::u16string RegexUtils::regexQuoteString(char16_t quote, char16_t quotetion2, char16_t escape) {
  const std::u16string a = regexQuoteString(quote, escape);
  const std::u16string b = regexQuoteString(quotetion2, escape);
  if (!a.empty() && !b.empty()) return a + u"|" + b;
  return a.empty() ? b : a;
}

std::u16string RegexUtils::regexQuoteForJsString() {
  return u"(" + regexDoubleQuoteString() + u"|" + regexQuoteString() + u")";
}

bool RegexUtils::isValidateMobile(std::u16string_view text) {
  return matchesAtStart(text, uR"(^\d{11})");
}

bool RegexUtils::isValidateCode(std::u16string_view text) {
  return matchesAtStart(text, uR"(^\d{6})");
}

}  // namespace harbor

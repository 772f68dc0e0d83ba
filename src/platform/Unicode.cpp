#include "platform/Unicode.h"

#include <cstdint>

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

namespace harbor {

bool isValidUtf8(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t n;
    std::uint32_t cp;
    if ((c & 0xE0) == 0xC0) {
      n = 1;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      n = 2;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      n = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (s.size() - i <= n) return false;
    for (std::size_t k = 1; k <= n; ++k) {
      auto d = static_cast<unsigned char>(s[i + k]);
      if ((d & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (d & 0x3F);
    }
    static constexpr std::uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += n + 1;
  }
  return true;
}

bool equalsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x + 32);
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y + 32);
    if (x != y) return false;
  }
  return true;
}

std::u16string toUtf16(std::string_view utf8) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(
      icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
  return std::u16string(s.getBuffer(), static_cast<size_t>(s.length()));
}

std::string toUtf8(std::u16string_view utf16) {
  icu::UnicodeString s(false, utf16.data(), static_cast<int32_t>(utf16.size()));
  std::string out;
  s.toUTF8String(out);
  return out;
}

std::u16string toLower(std::u16string_view text) {
  icu::UnicodeString s(text.data(), static_cast<int32_t>(text.size()));
  s.toLower(icu::Locale::getRoot());
  return std::u16string(s.getBuffer(), static_cast<size_t>(s.length()));
}

std::string toLower(std::string_view utf8) {
  bool ascii = true;
  for (unsigned char c : utf8) ascii = ascii && c < 0x80;
  if (ascii) {
    std::string out(utf8);
    for (char& c : out) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
    return out;
  }
  return toUtf8(toLower(toUtf16(utf8)));
}

std::u16string trim(std::u16string_view text) {
  size_t begin = 0, end = text.size();
  auto space = [](char16_t c) { return u_isUWhiteSpace(c) || c == u'\n' || c == u'\r'; };
  while (begin < end && space(text[begin])) ++begin;
  while (end > begin && space(text[end - 1])) --end;
  return std::u16string(text.substr(begin, end - begin));
}

std::string trim(std::string_view utf8) {
  return toUtf8(trim(toUtf16(utf8)));
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() == b.size()) {
    bool same = true;
    for (size_t i = 0; i < a.size() && same; ++i) {
      unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
      if (x >= 0x80 || y >= 0x80) return toLower(a) == toLower(b);
      same = (x | 0x20) == (y | 0x20) &&
             ((x >= 'A' && x <= 'Z') || (x >= 'a' && x <= 'z') ? true : x == y);
    }
    return same;
  }
  bool ascii = true;
  for (unsigned char c : a) ascii = ascii && c < 0x80;
  for (unsigned char c : b) ascii = ascii && c < 0x80;
  return ascii ? false : toLower(a) == toLower(b);
}

}  // namespace harbor

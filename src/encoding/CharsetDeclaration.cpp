#include "encoding/CharsetDeclaration.h"

#include <algorithm>
#include <array>

namespace harbor {
namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool labelChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == ':';
}

// `text` at `at` starts with `word`, ignoring ASCII case.
bool startsWithAt(std::string_view text, std::size_t at, std::string_view word) {
  if (at > text.size() || text.size() - at < word.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (lowerAscii(text[at + i]) != word[i]) return false;
  }
  return true;
}

std::size_t findNoCase(std::string_view text, std::string_view word, std::size_t from = 0) {
  for (std::size_t i = from; i + word.size() <= text.size(); ++i) {
    if (startsWithAt(text, i, word)) return i;
  }
  return std::string_view::npos;
}

std::size_t skipSpaces(std::string_view text, std::size_t at) {
  while (at < text.size() && isSpace(text[at])) ++at;
  return at;
}

// A label at `at`, quoted or bare; empty when there is none.
std::string labelAt(std::string_view text, std::size_t at) {
  at = skipSpaces(text, at);
  if (at < text.size() && (text[at] == '"' || text[at] == '\'')) ++at;
  std::size_t end = at;
  while (end < text.size() && labelChar(text[end])) ++end;
  std::string label(text.substr(at, end - at));
  while (!label.empty() && (label.back() == ':' || label.back() == '.')) label.pop_back();
  return label;
}

// `@charset "name";`, which must open the style sheet.
std::optional<std::string> cssCharset(std::string_view head) {
  constexpr std::string_view kRule = "@charset \"";
  if (head.substr(0, kRule.size()) != kRule) return std::nullopt;
  const std::size_t end = head.find('"', kRule.size());
  if (end == std::string_view::npos || end - kRule.size() > 40) return std::nullopt;
  return std::string(head.substr(kRule.size(), end - kRule.size()));
}

// <?xml version="1.0" encoding="name"?>, which must open the document.
std::optional<std::string> xmlEncoding(std::string_view head) {
  if (!startsWithAt(head, 0, "<?xml") || head.size() < 6 || !isSpace(head[5])) return std::nullopt;
  const std::size_t close = head.find("?>");
  const std::string_view decl = head.substr(0, close);
  std::size_t at = findNoCase(decl, "encoding");
  if (at == std::string_view::npos) return std::nullopt;
  at = skipSpaces(decl, at + 8);
  if (at >= decl.size() || decl[at] != '=') return std::nullopt;
  std::string label = labelAt(decl, at + 1);
  if (label.empty()) return std::nullopt;
  return label;
}

// Emacs's -*- coding: name -*- (alone or among other variables), Python's
// "coding: name" or "coding=name", and vim's fileencoding= or fenc=, in the
// first two lines.
std::optional<std::string> codingCookie(std::string_view head) {
  std::size_t lineStart = 0;
  for (int line = 0; line < 2 && lineStart < head.size(); ++line) {
    std::size_t lineEnd = head.find('\n', lineStart);
    if (lineEnd == std::string_view::npos) lineEnd = head.size();
    const std::string_view text = head.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 1;
    // Its encoding="..." is the XML declaration's, not a cookie.
    if (startsWithAt(text, 0, "<?xml")) continue;
    for (std::size_t at = 0; (at = findNoCase(text, "coding", at)) != std::string_view::npos;) {
      at += 6;
      const std::size_t sep = skipSpaces(text, at);
      if (sep < text.size() && (text[sep] == ':' || text[sep] == '=')) {
        std::string label = labelAt(text, sep + 1);
        if (!label.empty()) return label;
      }
    }
    for (std::size_t at = 0; (at = findNoCase(text, "fenc=", at)) != std::string_view::npos;) {
      const bool wordStart = at == 0 || isSpace(text[at - 1]) || text[at - 1] == ':';
      at += 5;
      if (!wordStart) continue;
      std::string label = labelAt(text, at);
      if (!label.empty()) return label;
    }
  }
  return std::nullopt;
}

// The charset in a Content-Type value: "text/html; charset=koi8-r".
std::string charsetInContent(std::string_view content) {
  for (std::size_t at = 0; (at = findNoCase(content, "charset", at)) != std::string_view::npos;) {
    at = skipSpaces(content, at + 7);
    if (at < content.size() && content[at] == '=') return labelAt(content, at + 1);
  }
  return {};
}

// The <meta> tags of an HTML head, in the way browsers pre-scan a page:
// comments are skipped, other tags passed over whole.
std::optional<std::string> metaCharset(std::string_view head) {
  std::size_t at = 0;
  while ((at = head.find('<', at)) != std::string_view::npos) {
    if (head.compare(at, 4, "<!--") == 0) {
      const std::size_t end = head.find("-->", at + 4);
      if (end == std::string_view::npos) return std::nullopt;
      at = end + 3;
      continue;
    }
    if (!startsWithAt(head, at, "<meta") || at + 5 >= head.size() ||
        !(isSpace(head[at + 5]) || head[at + 5] == '/')) {
      ++at;
      continue;
    }
    // Attributes up to the closing '>'.
    std::size_t i = at + 5;
    std::string charset, content;
    bool pragma = false;
    while (i < head.size() && head[i] != '>') {
      if (isSpace(head[i]) || head[i] == '/') {
        ++i;
        continue;
      }
      const std::size_t nameStart = i;
      while (i < head.size() && !isSpace(head[i]) && head[i] != '=' && head[i] != '>' &&
             head[i] != '/') {
        ++i;
      }
      std::string name(head.substr(nameStart, i - nameStart));
      std::transform(name.begin(), name.end(), name.begin(), lowerAscii);
      i = skipSpaces(head, i);
      std::string value;
      if (i < head.size() && head[i] == '=') {
        i = skipSpaces(head, i + 1);
        if (i < head.size() && (head[i] == '"' || head[i] == '\'')) {
          const char quote = head[i];
          const std::size_t end = head.find(quote, i + 1);
          if (end == std::string_view::npos) return std::nullopt;
          value = std::string(head.substr(i + 1, end - i - 1));
          i = end + 1;
        } else {
          const std::size_t start = i;
          while (i < head.size() && !isSpace(head[i]) && head[i] != '>') ++i;
          value = std::string(head.substr(start, i - start));
        }
      }
      if (name == "charset" && charset.empty()) {
        charset = labelAt(value, 0);
      } else if (name == "http-equiv") {
        std::transform(value.begin(), value.end(), value.begin(), lowerAscii);
        pragma = value == "content-type";
      } else if (name == "content" && content.empty()) {
        content = value;
      }
    }
    if (!charset.empty()) return charset;
    if (pragma) {
      std::string label = charsetInContent(content);
      if (!label.empty()) return label;
    }
    at = i;
  }
  return std::nullopt;
}

std::string lowerLabel(std::string_view label) {
  std::string out;
  for (char c : label) {
    if (!isSpace(c) && c != '"' && c != '\'') out += lowerAscii(c);
  }
  return out;
}

bool endsWith(const std::string& s, std::string_view tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

std::optional<std::string> CharsetDeclaration::find(std::string_view data) {
  std::string_view head = data.substr(0, kHeadSize);
  if (head.substr(0, 3) == "\xEF\xBB\xBF") head.remove_prefix(3);
  // A label nobody knows ("coding: style" in prose) does not hide a later one.
  // A page's <meta> wins over its XML declaration, as in browsers.
  for (auto finder : {cssCharset, codingCookie, metaCharset, xmlEncoding}) {
    std::optional<std::string> label = finder(head);
    if (label && resolve(*label) != kInvalidStringEncoding) return label;
  }
  return std::nullopt;
}

StringEncoding CharsetDeclaration::resolve(std::string_view label) {
  std::string name = lowerLabel(label);
  if (name.empty() || name.size() > 64) return kInvalidStringEncoding;
  // Emacs: a line-end convention after the name, and names of its own.
  for (std::string_view suffix : {"-unix", "-dos", "-mac"}) {
    if (endsWith(name, suffix)) name.resize(name.size() - suffix.size());
  }
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 14> kEmacs{{
      {"utf-8-with-signature", "utf-8"},
      {"utf-8-auto", "utf-8"},
      {"mule-utf-8", "utf-8"},
      {"prefer-utf-8", "utf-8"},
      {"cyrillic-koi8", "koi8-r"},
      {"koi8", "koi8-r"},
      {"cyrillic-alternativnyj", "ibm866"},
      {"alternativnyj", "ibm866"},
      {"cyrillic-iso-8bit", "iso-8859-5"},
      {"greek-iso-8bit", "iso-8859-7"},
      {"hebrew-iso-8bit", "iso-8859-8"},
      {"japanese-shift-jis", "shift_jis"},
      {"japanese-iso-8bit", "euc-jp"},
      {"chinese-gbk", "gbk"},
  }};
  for (const auto& [emacs, iana] : kEmacs) {
    if (name == emacs) name = iana;
  }
  // "latin-1", "iso-latin-2": latin1, latin2.
  for (std::string_view prefix : {"iso-latin-", "latin-"}) {
    if (name.rfind(prefix, 0) == 0) name = "latin" + name.substr(prefix.size());
  }
  TableEncoding table = StringEncodings::convertIANACharSetNameToEncoding(name);
  if (table != kInvalidTableEncoding)
    return StringEncodings::convertEncodingToNSStringEncoding(table);
  return StringEncodings::stringEncodingForConverterName(name);
}

std::optional<StringEncoding> CharsetDeclaration::declaredEncoding(std::string_view data) {
  std::optional<std::string> label = find(data);
  if (!label) return std::nullopt;
  StringEncoding encoding = resolve(*label);
  if (encoding == kInvalidStringEncoding) return std::nullopt;
  if (StringEncodings::isUnicode(encoding)) return kUTF8StringEncoding;
  if (encoding == resolve("us-ascii")) return resolve("windows-1252");
  return encoding;
}

}  // namespace harbor

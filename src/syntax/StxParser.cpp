#include "syntax/StxParser.h"

#include <unicode/regex.h>
#include <unicode/ustring.h>

#include <fstream>
#include <iterator>

#include "encoding/DetectorCharacter.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

const icu::RegexPattern* directivePattern() {
  static const icu::RegexPattern* pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError pe;
    return icu::RegexPattern::compile(icu::UnicodeString(u"^#([^=#\\n]+)\\=?(.*)\\n?$"),
                                      UREGEX_CASE_INSENSITIVE | UREGEX_MULTILINE, pe, status);
  }();
  return pattern;
}

bool decodeUtf16(std::string_view bytes, bool bigEndian, std::u16string& out) {
  if (bytes.size() % 2 != 0) return false;
  out.resize(bytes.size() / 2);
  for (size_t i = 0; i < out.size(); ++i) {
    auto hi = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 0 : 1)]);
    auto lo = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 1 : 0)]);
    out[i] = static_cast<char16_t>((hi << 8) | lo);
  }
  return true;
}

bool decodeUtf8(std::string_view bytes, std::u16string& out) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = 0;
  if (bytes.size() > INT32_MAX / 2) return false;
  u_strFromUTF8(nullptr, 0, &length, bytes.data(), static_cast<int32_t>(bytes.size()), &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return false;
  out.resize(static_cast<size_t>(length));
  status = U_ZERO_ERROR;
  u_strFromUTF8(out.data(), length, nullptr, bytes.data(), static_cast<int32_t>(bytes.size()),
                &status);
  return U_SUCCESS(status);
}

bool equalsAsciiIgnoreCase(std::u16string_view a, std::u16string_view lowerB) {
  if (a.size() != lowerB.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char16_t c = a[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    if (c != lowerB[i]) return false;
  }
  return true;
}

}  // namespace

std::shared_ptr<StxParser> StxParser::instanceWithStxFile(const std::filesystem::path& file) {
  return std::make_shared<StxParser>(file);
}

StxParser::StxParser(const std::filesystem::path& file) {
  parserURL(file);
}

void StxParser::reset() {
  *this = StxParser();
}

void StxParser::parserURL(const std::filesystem::path& file) {
  reset();
  if (file.empty()) return;
  std::ifstream in(file, std::ios::binary);
  if (!in) return;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return;
  parserData(bytes);
}

void StxParser::parserData(std::string_view bytes) {
  reset();
  std::u16string text;
  auto starts = [&](std::string_view mark) { return bytes.substr(0, mark.size()) == mark; };
  bool ok;
  if (starts("\xEF\xBB\xBF")) {
    ok = decodeUtf8(bytes.substr(3), text);
  } else if (starts("\xFF\xFE")) {
    ok = decodeUtf16(bytes.substr(2), false, text);
  } else if (starts("\xFE\xFF")) {
    ok = decodeUtf16(bytes.substr(2), true, text);
  } else {
    ok = decodeUtf8(bytes, text);
    if (!ok) {
      // Not UTF-8: a definition written in a legacy encoding.
      if (auto detected = DetectorCharacter::detectorWithData(bytes, nullptr)) {
        text = std::move(*detected);
        ok = true;
      }
    }
  }
  if (ok) parserString(text);
}

void StxParser::parserString(std::u16string_view text) {
  reset();
  const icu::RegexPattern* pattern = directivePattern();
  if (!pattern) return;

  icu::UnicodeString source(false, text.data(), static_cast<int32_t>(text.size()));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(pattern->matcher(source, status));
  if (U_FAILURE(status)) return;

  auto group = [&](int n) {
    int32_t s = m->start(n, status), e = m->end(n, status);
    if (U_FAILURE(status) || s < 0) return std::u16string();
    return std::u16string(text.substr(static_cast<size_t>(s), static_cast<size_t>(e - s)));
  };

  while (m->find(status) && U_SUCCESS(status)) {
    std::u16string name = group(1);
    std::u16string value = group(2);
    int32_t matchEnd = m->end(status);
    if (U_FAILURE(status)) break;
    if (equalsAsciiIgnoreCase(name, u"keyword")) {
      auto item = CodeKeywordItem::instanceWithTitle(std::move(value));
      // Tags stay dense: an empty section gives its tag to the next one.
      item->indexTag = static_cast<int>(keywordItems.size());
      if (static_cast<size_t>(matchEnd) < text.size()) {
        item->parserText(text, static_cast<size_t>(matchEnd));
      }
      if (!item->keywords.empty()) keywordItems.push_back(std::move(item));
    } else {
      formatInfo[std::move(name)] = std::move(value);
    }
  }

  auto value = [this](std::u16string_view name) -> std::u16string {
    const std::u16string* v = directive(name);
    return v ? *v : std::u16string();
  };
  auto firstUnit = [&](std::u16string_view name) -> std::uint16_t {
    std::u16string v = value(name);
    return v.empty() ? 0 : static_cast<std::uint16_t>(v.front());
  };
  auto flag = [&](std::u16string_view name) { return equalsAsciiIgnoreCase(value(name), u"y"); };

  quotetion1 = firstUnit(u"QUOTATION1");
  quotetion2 = firstUnit(u"QUOTATION2");
  escape = value(u"ESCAPE");
  if (escape.empty()) escape.assign(1, u'\\');
  if (escape.size() > 1) escape.resize(1);
  lineComment = value(u"LINECOMMENT");
  if (lineComment.empty()) lineComment = value(u"LINECOMMENT1");
  lineComment2 = value(u"LINECOMMENT2");
  commentOn = value(u"COMMENTON");
  commentOff = value(u"COMMENTOFF");
  commentOn2 = value(u"COMMENTON2");
  commentOff2 = value(u"COMMENTOFF2");
  delimiter = value(u"DELIMITER");
  scriptBegin = value(u"SCRIPTBEGIN");
  scriptEnd = value(u"SCRIPTEND");
  continueQuote = flag(u"CONTINUE_QUOTE");
  isHtmlEmbeded = flag(u"HTML_EMBEDDED");
  caseSensive = flag(u"CASE");

  // Later sections win a word that two sections list.
  for (const auto& item : keywordItems) {
    item->generatePatternHashTable(caseSensive);
    for (const auto& [word, tag] : item->patternHashTable) allKeywords[word] = tag;
  }
}

const std::u16string* StxParser::directive(std::u16string_view name) const {
  auto it = formatInfo.find(std::u16string(name));
  return it == formatInfo.end() ? nullptr : &it->second;
}

int StxParser::findKeyword(std::u16string_view word) const {
  if (caseSensive) {
    auto it = allKeywords.find(word);
    return it == allKeywords.end() ? -1 : it->second;
  }
  // Most words are short and ASCII: lowercase them on the stack.
  char16_t buffer[64];
  if (word.size() <= std::size(buffer)) {
    bool ascii = true;
    for (std::size_t i = 0; i < word.size() && ascii; ++i) {
      char16_t c = word[i];
      ascii = c < 0x80;
      buffer[i] = (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
    }
    if (ascii) {
      auto it = allKeywords.find(std::u16string_view(buffer, word.size()));
      return it == allKeywords.end() ? -1 : it->second;
    }
  }
  auto it = allKeywords.find(toLower(word));
  return it == allKeywords.end() ? -1 : it->second;
}

}  // namespace harbor

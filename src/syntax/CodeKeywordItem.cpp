#include "syntax/CodeKeywordItem.h"

#include <unicode/regex.h>

#include <array>

#include "platform/Unicode.h"

namespace harbor {
namespace {

// Position of the next "#KEYWORD=" at or after `from`, ignoring ASCII case.
size_t findNextSectionHeader(std::u16string_view text, size_t from) {
  static constexpr std::u16string_view header = u"#keyword=";
  if (text.size() < header.size()) return std::u16string_view::npos;
  for (size_t i = text.find(u'#', from);
       i != std::u16string_view::npos && i + header.size() <= text.size();
       i = text.find(u'#', i + 1)) {
    size_t k = 1;
    for (; k < header.size(); ++k) {
      char16_t c = text[i + k];
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
      if (c != header[k]) break;
    }
    if (k == header.size()) return i;
  }
  return std::u16string_view::npos;
}

const icu::RegexPattern* bodyLinePattern() {
  static const icu::RegexPattern* pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError pe;
    return icu::RegexPattern::compile(icu::UnicodeString(u"^\\s*(.+?)$"), UREGEX_MULTILINE, pe,
                                      status);
  }();
  return pattern;
}

}  // namespace

std::shared_ptr<CodeKeywordItem> CodeKeywordItem::instanceWithTitle(std::u16string title) {
  return std::make_shared<CodeKeywordItem>(std::move(title));
}

CodeKeywordItem::CodeKeywordItem(std::u16string t) : title(std::move(t)) {
  settingKeywordType();
}

size_t CodeKeywordItem::parserText(std::u16string_view text, size_t startIndex) {
  if (startIndex >= text.size()) return text.size();
  size_t end = findNextSectionHeader(text, startIndex);
  if (end == std::u16string_view::npos) end = text.size();
  std::u16string_view body = text.substr(startIndex, end - startIndex);

  const icu::RegexPattern* pattern = bodyLinePattern();
  if (!pattern) return end;
  icu::UnicodeString source(false, body.data(), static_cast<int32_t>(body.size()));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(pattern->matcher(source, status));
  if (U_FAILURE(status)) return end;
  while (m->find(status) && U_SUCCESS(status)) {
    int32_t s = m->start(1, status), e = m->end(1, status);
    if (U_FAILURE(status) || s < 0) break;
    std::u16string line = trim(std::u16string_view(body.data() + s, static_cast<size_t>(e - s)));
    if (line.empty()) continue;
    switch (line.front()) {
      case u'#':
        // "#" alone is a separator; "#include" is a word.
        if (line.size() > 1) addItem(std::move(line));
        break;
      case u'^':
        // The escape for words that start with ";", "#" or "^".
        if (line.size() > 1) addItem(line.substr(1));
        break;
      case u';': {
        size_t k = line.find_first_not_of(u';');
        comment = trim(k == std::u16string::npos ? std::u16string_view()
                                                 : std::u16string_view(line).substr(k));
        break;
      }
      default:
        addItem(std::move(line));
    }
  }
  return end;
}

void CodeKeywordItem::addItem(std::u16string word) {
  keywordsCaseOptions.push_back(toLower(word));
  keywords.push_back(std::move(word));
}

void CodeKeywordItem::generatePatternHashTable(bool caseSensitive) {
  patternHashTable.clear();
  patternHashTable.reserve(keywords.size());
  for (size_t i = 0; i < keywords.size(); ++i) {
    patternHashTable[caseSensitive ? keywords[i] : keywordsCaseOptions[i]] = indexTag;
  }
}

std::u16string CodeKeywordItem::patternString() const {
  if (keywords.empty()) return {};
  std::u16string joined;
  for (const auto& w : keywords) {
    if (!joined.empty()) joined += u'|';
    joined += w;
  }
  return u"\\b(?:" + joined + u")\\b";
}

void CodeKeywordItem::settingKeywordType() {
  struct Row {
    std::array<std::u16string_view, 5> words;
    long type;
  };
  // Tried top to bottom, first hit wins: "attribute value" is an attribute.
  static const Row rows[] = {
      {{u"tags", u"reserved", u"keywords", u"keyword"}, TagOrKeyword},
      {{u"properties", u"property", u"attributes", u"attribute"}, Attribute},
      {{u"methods", u"functions", u"function", u"method"}, Function},
      {{u"objects", u"class", u"object"}, Object},
      {{u"quote", u"quotes", u"value", u"attribute value", u"property value"}, AttributeValue},
  };
  const std::u16string lower = toLower(title);
  for (const Row& row : rows) {
    for (std::u16string_view w : row.words) {
      if (!w.empty() && lower.find(w) != std::u16string::npos) {
        keywordType = row.type;
        return;
      }
    }
  }
  keywordType = Other;
}

}  // namespace harbor

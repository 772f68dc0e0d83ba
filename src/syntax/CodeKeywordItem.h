#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace harbor {

// Word tables looked up with views into the text, without a copy per word.
struct U16Hash {
  using is_transparent = void;
  std::size_t operator()(std::u16string_view s) const noexcept {
    return std::hash<std::u16string_view>{}(s);
  }
};
using KeywordTable = std::unordered_map<std::u16string, int, U16Hash, std::equal_to<>>;

// One keyword section of a syntax definition file.
class CodeKeywordItem {
 public:
  // Classes of sections, derived from their titles; suggestion search picks
  // sections by these values.
  enum KeywordType : long {
    Other = 1,
    TagOrKeyword = 2,
    Attribute = 4,
    Function = 8,
    Object = 16,
    AttributeValue = 32,
  };

  static std::shared_ptr<CodeKeywordItem> instanceWithTitle(std::u16string title);
  explicit CodeKeywordItem(std::u16string title);

  // Reads the section body that starts at `startIndex` of `text` and runs to
  // the next "#KEYWORD=" (any case) or the end. Returns where the body ends.
  size_t parserText(std::u16string_view text, size_t startIndex);
  void addItem(std::u16string word);
  // Word (lowercased unless case-sensitive) to this section's indexTag.
  void generatePatternHashTable(bool caseSensitive);
  // "\b(?:w1|w2|...)\b", or empty without words.
  std::u16string patternString() const;
  void settingKeywordType();

  long keywordType = Other;
  std::u16string title;
  std::u16string comment;
  int indexTag = 0;
  std::vector<std::u16string> keywords;
  std::vector<std::u16string> keywordsCaseOptions;  // lowercased, index for index
  KeywordTable patternHashTable;
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "syntax/CodeKeywordItem.h"

namespace harbor {

// The in-memory description of one syntax definition (.stx) file. Built once
// and then read; parsers that share it through the registry cache see the
// rare later changes (a host parser adding a second comment pair) too.
class StxParser {
 public:
  static std::shared_ptr<StxParser> instanceWithStxFile(const std::filesystem::path& file);
  StxParser() = default;  // an empty description: no quotes, comments or keywords
  explicit StxParser(const std::filesystem::path& file);

  // Reads and parses the file; an absent or unreadable file leaves every
  // field empty. Reports nothing.
  void parserURL(const std::filesystem::path& file);
  // Parses raw file bytes: BOM-marked UTF-16/UTF-8, else UTF-8, else the
  // detected encoding. Bytes that do not decode leave the description empty.
  void parserData(std::string_view bytes);
  // Parses already decoded text.
  void parserString(std::u16string_view text);

  // The indexTag of the section holding `word`, or -1.
  int findKeyword(std::u16string_view word) const;

  std::map<std::u16string, std::u16string> formatInfo;
  bool continueQuote = false;
  bool caseSensive = false;
  bool isHtmlEmbeded = false;
  std::uint16_t quotetion1 = 0;
  std::uint16_t quotetion2 = 0;
  std::vector<std::shared_ptr<CodeKeywordItem>> keywordItems;
  std::u16string escape;
  std::u16string lineComment;
  std::u16string lineComment2;
  std::u16string commentOn;
  std::u16string commentOff;
  std::u16string commentOn2;
  std::u16string commentOff2;
  std::u16string delimiter;
  std::u16string scriptBegin;
  std::u16string scriptEnd;
  KeywordTable allKeywords;

 private:
  void reset();
  const std::u16string* directive(std::u16string_view name) const;
};

}  // namespace harbor

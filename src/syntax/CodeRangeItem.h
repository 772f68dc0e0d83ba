#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextStorage.h"

namespace harbor {

// The kinds of ranges a scan reports; tags share the numbering.
enum CodeRangeType : int {
  kLineComment1 = 0,  // also the placeholder of an embedded region
  kLineComment2 = 1,
  kBlockComment1 = 2,
  kBlockComment2 = 3,
  kQuote1 = 4,
  kQuote2 = 5,
  kOtherPattern = 6,
  kKeyword = 7,
  kElementOpen = 9,
  kElementClose = 10,
  kAttributeName = 11,
  kAttributeValue = 12,
};

// One range found by a scan. Lists of these are appended in text order.
struct CodeRangeItem {
  int type = 0;
  TextRange range;
  TextRange fullRange;

  static CodeRangeItem instanceWithRange(TextRange r, int type) { return {type, r, r}; }
  bool operator==(const CodeRangeItem&) const = default;
};

// A tag, an attribute or an attribute value, with its children.
class CodeElement {
 public:
  static std::shared_ptr<CodeElement> instanceWithRange(TextRange r, int type);

  void addChild(std::shared_ptr<CodeElement> child);
  const std::vector<std::shared_ptr<CodeElement>>& children() const { return childItems; }
  void removeLastObject();
  void setValue(std::shared_ptr<CodeElement> v);
  const std::shared_ptr<CodeElement>& value() const { return value_; }
  std::string description() const;

  // Lookups over the document text.
  // The value text (quotes kept) of the first attribute `name`, ignoring case.
  std::optional<std::u16string> findValueWithAttributeName(std::u16string_view name,
                                                           std::u16string_view text) const;
  bool findRangeWithAttriNameAndValue(std::u16string_view name, std::u16string_view value,
                                      std::u16string_view text) const;
  bool findRangeWithAttriNameAndValueInAttribute(std::u16string_view name,
                                                 std::u16string_view value,
                                                 std::u16string_view text) const;
  // The attribute name whose value holds `offset`.
  std::optional<std::u16string> findValueWithAttributeRange(std::size_t offset,
                                                            std::u16string_view text) const;
  // The element at an offset: this tag's name, one of its attribute names or values.
  const CodeElement* findElementByRange(std::size_t offset) const;

  std::uint16_t attributeFlag = 1;
  int type = kElementOpen;
  std::u16string title;
  CodeElement* parent = nullptr;
  std::vector<std::shared_ptr<CodeElement>> childItems;
  TextRange range;
  TextRange fullRange;

 private:
  std::shared_ptr<CodeElement> value_;
};

}  // namespace harbor

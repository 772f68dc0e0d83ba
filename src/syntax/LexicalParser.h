#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextStorage.h"

namespace harbor {

// A small scanner base with fixed C-like markers, apart from the colouring
// engine: it holds a text and a position and offers the same character
// primitives, for tools that need a quick walk over code.
class LexicalParser {
 public:
  virtual ~LexicalParser() = default;

  void setText(std::u16string t);

  bool isCanContinue() const { return currentIndex < lastIndex; }
  bool isCanContinue(std::size_t index) const { return index < lastIndex; }
  bool isCanContinuePrevious() const { return currentIndex > 0; }
  char16_t currentChar() { return currentIndex < lastIndex ? text[currentIndex++] : 0; }
  char16_t currentCharStatic() const { return currentIndex < lastIndex ? text[currentIndex] : 0; }
  char16_t currentCharStatic(std::size_t index) const {
    return index < lastIndex ? text[index] : 0;
  }
  static char16_t currentCharStatic(std::u16string_view s, std::size_t index) {
    return index < s.size() ? s[index] : 0;
  }
  std::u16string currentString();
  std::u16string currentStringStatic() const;
  static std::u16string currentStringStatic(std::u16string_view s, std::size_t index);
  std::u16string currentRange(TextRange r) const { return currentRange(r, text); }
  static std::u16string currentRange(TextRange r, std::u16string_view source);

  // The language's markers; the defaults are C's.
  virtual std::u16string escape() const { return u"\\"; }
  virtual std::u16string lineComment() const { return u"//"; }
  virtual std::u16string lineComment2() const { return {}; }
  virtual std::u16string quotetion() const { return u"\""; }
  virtual std::u16string quotetion2() const { return u"'"; }
  virtual std::u16string commentOn() const { return u"/*"; }
  virtual std::u16string commentOff() const { return u"*/"; }
  virtual std::u16string commentOn2() const { return {}; }
  virtual std::u16string commentOff2() const { return {}; }
  virtual bool isMultilineCommentRecurise() const { return false; }
  virtual bool isContinueQuote() const { return false; }

  std::size_t currentIndex = 0;
  std::size_t lastIndex = 0;
  std::u16string text;
  std::vector<std::shared_ptr<LexicalParser>> linkedLexParserList;
};

class JsLexParser : public LexicalParser {};

}  // namespace harbor

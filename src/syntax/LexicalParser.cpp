#include "syntax/LexicalParser.h"

namespace harbor {

void LexicalParser::setText(std::u16string t) {
  text = std::move(t);
  currentIndex = 0;
  lastIndex = text.size();
}

std::u16string LexicalParser::currentString() {
  return currentIndex < lastIndex ? std::u16string(1, text[currentIndex++]) : std::u16string();
}

std::u16string LexicalParser::currentStringStatic() const {
  return currentIndex < lastIndex ? std::u16string(1, text[currentIndex]) : std::u16string();
}

std::u16string LexicalParser::currentStringStatic(std::u16string_view s, std::size_t index) {
  return index < s.size() ? std::u16string(1, s[index]) : std::u16string();
}

std::u16string LexicalParser::currentRange(TextRange r, std::u16string_view source) {
  if (r.location >= source.size()) return {};
  return std::u16string(source.substr(r.location, r.length));
}

}  // namespace harbor

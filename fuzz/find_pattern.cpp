// Search patterns and texts come from users: a pattern, escaped or not, must
// compile or fail cleanly, and every hit must lie where it says.
#include <algorithm>
#include <cstdint>
#include <string>

#include "editor/FindTextInString.h"

#define CHECK(cond)                \
  do {                             \
    if (!(cond)) __builtin_trap(); \
  } while (0)

namespace {

// Code units two bytes at a time, so lone surrogates and NULs come too.
std::u16string units(const std::uint8_t* data, std::size_t size) {
  std::u16string out;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    out += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
  }
  return out;
}

void checkItems(const std::u16string& text, const std::vector<harbor::FindTextItem>& items,
                bool ordered) {
  std::size_t end = 0;
  for (const auto& item : items) {
    CHECK(item._range.end() <= text.size());
    CHECK(item._showedRange.location <= item._range.location);
    CHECK(item._showedRange.end() >= item._range.end());
    CHECK(item._showedRange.end() <= text.size());
    CHECK(item._showedText == text.substr(item._showedRange.location, item._showedRange.length));
    if (ordered) {
      CHECK(item._range.location >= end);
      end = item._range.end();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  harbor::FindTextInString::setRegexTimeLimit(20);
  const std::uint8_t flags = data[0];
  const std::size_t patternBytes = std::min<std::size_t>(data[1], size - 2);
  const std::u16string pattern = units(data + 2, patternBytes);
  const std::u16string text = units(data + 2 + patternBytes, size - 2 - patternBytes);

  auto options = harbor::FindTextOptions::instanceWithString(pattern);
  options->_isCaseSensitive = flags & 1;
  options->_isMatchWord = flags & 2;
  options->_replaceString = u"<$1$0\\$>";
  harbor::Error error;
  checkItems(text, harbor::FindTextInString::findTextItems(text, *options, &error), true);

  options->_isRegex = true;
  options->_findString =
      (flags & 4) ? harbor::FindTextInString::transformStringToPattern(pattern) : pattern;
  error = {};
  checkItems(text, harbor::FindTextInString::findTextItems(text, *options, &error), true);
  (void)harbor::FindTextInString::findTextItems(text, pattern);
  return 0;
}

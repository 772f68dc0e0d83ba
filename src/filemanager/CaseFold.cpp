#include "filemanager/CaseFold.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <algorithm>

#include "platform/Unicode.h"

namespace harbor {

bool isAsciiText(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::u16string foldCase16(std::string_view utf8) {
  std::u16string text = toUtf16(utf8);
  if (text.empty()) return text;
  UErrorCode status = U_ZERO_ERROR;
  // Folding can lengthen the text: ask for the size first.
  int32_t size = u_strFoldCase(nullptr, 0, text.data(), static_cast<int32_t>(text.size()),
                               U_FOLD_CASE_DEFAULT, &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return text;
  std::u16string folded(static_cast<std::size_t>(size), u'\0');
  status = U_ZERO_ERROR;
  u_strFoldCase(folded.data(), size, text.data(), static_cast<int32_t>(text.size()),
                U_FOLD_CASE_DEFAULT, &status);
  return U_FAILURE(status) ? text : folded;
}

std::string foldCase(std::string_view utf8) {
  if (isAsciiText(utf8)) {
    std::string out(utf8);
    for (char& c : out) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    return out;
  }
  return toUtf8(foldCase16(utf8));
}

}  // namespace harbor

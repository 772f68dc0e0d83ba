// Every byte sequence that becomes text passes detection: file contents,
// archive entry names, web archive parts. Any bytes must be handled safely,
// and what the detector reports must agree with a plain decoding.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "encoding/CharsetDeclaration.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/StringEncodings.h"

namespace {

void check(bool ok) {
  if (!ok) __builtin_trap();
}

// NUL never stands in decoded text; C1 controls only in the Unicode forms.
bool holdsControls(const std::u16string& text, bool c1) {
  for (char16_t c : text) {
    if (c == 0 || (c1 && c >= 0x80 && c <= 0x9F)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace harbor;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);

  // The loader's answer is the plain trial of the detector's candidates, its
  // UTF-8 shortcut included.
  std::string used, plainUsed;
  auto text = DetectorCharacter::detectorWithData(bytes, &used);
  auto plain = EncodingUtil::detectWithData(bytes, &plainUsed,
                                            DetectorCharacter::detectorDataEncoding(bytes));
  check(text == plain && used == plainUsed);
  if (text) {
    const StringEncoding encoding = EncodingUtil::convertStringToNSStringEncoding(used);
    check(!holdsControls(*text, !StringEncodings::isUnicode(encoding)));
    auto again = StringEncodings::decode(bytes, encoding);
    check(again && *again == *text);
  }

  // Candidates come once each, and what the text declares is among them.
  const std::vector<std::string> candidates = DetectorCharacter::detectorDataEncoding(bytes);
  for (const std::string& name : candidates) {
    check(std::count(candidates.begin(), candidates.end(), name) == 1);
  }
  if (auto declared = CharsetDeclaration::declaredEncoding(bytes)) {
    const std::string name = EncodingUtil::encodingForStringEncoding(*declared);
    check(!name.empty());
    check(std::find(candidates.begin(), candidates.end(), name) != candidates.end());
  }

  // Entry names arrive NUL-ended.
  const std::string name(bytes);
  auto fromName = DetectorCharacter::detectorForCChar(name.c_str(), name.size());
  auto fromArray = DetectorCharacter::detectorForCharArray(name.c_str(), name.size());
  check(fromName.has_value() == fromArray.has_value());
  if (fromName) check(*fromName == *fromArray);

  std::string guessed;
  if (auto text = EncodingUtil::autoDetectReturnString(bytes, &guessed)) check(!guessed.empty());

  // Stateful and multi-byte converters, one after another on the same bytes.
  const EncodingUtil::Charsets stateful{"UTF-7",      "ISO-2022-JP", "ISO-2022-KR", "ISO-2022-CN",
                                        "HZ-GB-2312", "GB18030",     "UTF-16",      "UTF-32"};
  if (auto charset = EncodingUtil::getCorrectCharset(stateful, bytes)) {
    check(EncodingUtil::detectWithCharsetsRetrunCharset({*charset}, bytes).has_value());
  }
  return 0;
}

// Head values of web archive parts: parameters, RFC 2231 pieces and encoded
// words must decode or stay as they are, never read past their text.
#include <cstdint>
#include <string>

#include "ParserChecks.h"
#include "platform/Unicode.h"
#include "viewers/mht/MhtFormatParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool mimeType = data[0] & 1;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::u16string value(bytes.begin(), bytes.end());
  const auto params = harbor::MhtFormatParser::parseValue(value, mimeType);
  for (const auto& [name, v] : params) {
    CHECK(!name.empty());
    for (char c : name) CHECK(!(c >= 'A' && c <= 'Z'));
    if (name == "_" && mimeType) CHECK(v.find(u'/') != std::u16string::npos);
  }
  (void)harbor::MhtFormatParser::decodeEW(value);
  (void)harbor::MhtFormatParser::decodeRFC2231(value);
  const std::string decoded = harbor::MhtFormatParser::atob(value);
  CHECK(decoded.size() <= value.size());
  CHECK(harbor::MhtFormatParser::decodeQuotedPrintable(bytes).size() <= bytes.size());
  return 0;
}

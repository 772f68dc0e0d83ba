// Syntax definition files come from users: any bytes must parse safely.
#include <cstdint>
#include <string_view>

#include "syntax/StxParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  harbor::StxParser parser;
  parser.parserData(std::string_view(reinterpret_cast<const char*>(data), size));
  for (const auto& item : parser.keywordItems) {
    if (item->keywords.empty() || item->keywords.size() != item->keywordsCaseOptions.size()) {
      __builtin_trap();
    }
    (void)item->patternString();
    if (parser.findKeyword(item->keywords.front()) < 0) __builtin_trap();
  }
  return 0;
}

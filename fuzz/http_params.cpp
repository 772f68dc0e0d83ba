// Query strings and form bodies: every key kept must be non-empty, decoded text.
#include <cstdint>
#include <string_view>

#include "net/http/HTTPUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  auto params = harbor::HTTPUtil::parseParams(in);
  for (const auto& [key, value] : params) {
    if (key.empty() || key.size() > in.size()) __builtin_trap();
    if (value && value->size() > in.size()) __builtin_trap();
  }
  auto decoded = harbor::HTTPUtil::percentDecode(in);
  if (decoded) {
    auto again = harbor::HTTPUtil::percentDecode(harbor::HTTPUtil::percentEscape(*decoded));
    if (!again || *again != *decoded) __builtin_trap();
  }
  return 0;
}

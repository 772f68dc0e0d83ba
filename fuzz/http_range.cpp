// "Range" values are the client's: every range handed back must lie inside
// the body, sorted and apart.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "net/http/HTTPUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  // The first byte picks the body length, so short and long bodies both get tried.
  std::uint64_t length = data[0] < 200 ? data[0] : (std::uint64_t{1} << (data[0] - 192));
  std::string_view header(reinterpret_cast<const char*>(data + 1), size - 1);
  auto ranges = harbor::HTTPUtil::parseRangeRequest(header, length);
  if (!ranges) return 0;
  if (ranges->empty()) __builtin_trap();
  std::uint64_t previousEnd = 0;
  for (std::size_t i = 0; i < ranges->size(); ++i) {
    const auto& r = (*ranges)[i];
    if (r.length == 0 || r.location >= length || r.length > length - r.location) __builtin_trap();
    if (i > 0 && r.location < previousEnd) __builtin_trap();
    previousEnd = r.location + r.length;
  }
  return 0;
}

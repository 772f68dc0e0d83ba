// The upload line scanner sees the first body piece of any POST: whatever it
// hands back must lie inside that piece, and names never keep a separator.
#include <cstdint>
#include <string_view>

#include "net/share/UploadLineScanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  std::size_t split = size ? data[0] % (size + 1) : 0;
  harbor::UploadLineScanner scanner("zz");
  auto start = scanner.scanHead(in.substr(0, split));
  if (start.found) {
    if (start.data.data() < in.data() ||
        start.data.data() + start.data.size() > in.data() + split) {
      __builtin_trap();
    }
    std::string leaf = harbor::UploadLineScanner::uploadLeafName(start.name);
    if (leaf.find('/') != std::string::npos || leaf.find('\\') != std::string::npos ||
        leaf == "." || leaf == "..") {
      __builtin_trap();
    }
    std::string_view rest = in.substr(split);
    std::string_view more = scanner.fileData(rest);
    if (more.size() > rest.size()) __builtin_trap();
  }
  return 0;
}

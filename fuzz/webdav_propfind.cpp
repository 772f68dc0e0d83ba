// PROPFIND bodies come from any client: whatever the bytes, the mask is one
// of the four properties or all of them, and parsing never loads anything.
#include <cstdint>
#include <string_view>

#include "net/webdav/DAVXml.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view body(reinterpret_cast<const char*>(data), size);
  unsigned mask = harbor::davxml::propertyMask(body);
  if (mask == 0 || mask > harbor::davxml::kAllProperties) __builtin_trap();
  return 0;
}

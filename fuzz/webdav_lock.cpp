// LOCK bodies: any bytes give a parse verdict and, at most, names and text
// that came from the body; nothing but the body is read.
#include <cstdint>
#include <string_view>

#include "net/webdav/DAVXml.h"
#include "platform/Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Refusals are logged; a log line per input would drown the run.
  static const bool quiet = (harbor::setLogSink([](const std::string&) {}), true);
  (void)quiet;
  std::string_view body(reinterpret_cast<const char*>(data), size);
  auto info = harbor::davxml::lockInfo(body);
  if (!info.parsed && (info.scope || info.type || info.owner)) __builtin_trap();
  if (info.scope && info.scope->empty()) __builtin_trap();
  if (info.type && info.type->empty()) __builtin_trap();
  if (info.owner) {
    std::string escaped = harbor::davxml::escapeText(*info.owner);
    if (escaped.find('<') != std::string::npos) __builtin_trap();
  }
  return 0;
}

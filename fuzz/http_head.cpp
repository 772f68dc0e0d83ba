// Request heads come from anyone on the network: any bytes, fed a line at a
// time as the connection does, must be refused or read back the same.
#include <cstdint>
#include <string>
#include <string_view>

#include "net/http/HTTPMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  auto message = harbor::HTTPMessage::initEmptyRequest();
  bool ok = true;
  std::size_t start = 0;
  while (ok && start < in.size() && !message->isHeaderComplete()) {
    std::size_t end = in.find("\r\n", start);
    std::size_t stop = end == std::string_view::npos ? in.size() : end + 2;
    ok = message->appendData(in.substr(start, stop - start));
    start = stop;
  }
  if (ok && message->isHeaderComplete()) {
    // What was accepted must survive being written and read again.
    std::string written = message->messageData();
    auto again = harbor::HTTPMessage::initEmptyRequest();
    if (!again->appendData(written) || !again->isHeaderComplete()) __builtin_trap();
    if (again->method() != message->method() || again->url() != message->url() ||
        again->allHeaderFields() != message->allHeaderFields()) {
      __builtin_trap();
    }
    for (const auto& [name, value] : message->allHeaderFields()) {
      if (name.empty() || value.find_first_of("\r\n") != std::string::npos) __builtin_trap();
    }
  }
  return 0;
}

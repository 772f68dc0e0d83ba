// Frames are the client's. Fed whole and in the pieces the parser asks for,
// the same bytes must give the same events; text is always UTF-8 and no
// message passes the limit.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/http/WebSocket.h"
#include "platform/Unicode.h"

namespace {
using harbor::WebSocketFrameParser;
constexpr std::uint64_t kLimit = 4096;

std::vector<WebSocketFrameParser::Event> run(std::string_view bytes, bool pieces) {
  WebSocketFrameParser p(kLimit);
  std::vector<WebSocketFrameParser::Event> out;
  WebSocketFrameParser::Event e;
  std::size_t at = 0;
  while (at < bytes.size()) {
    std::size_t n = pieces ? std::min(p.bytesWanted(), bytes.size() - at) : bytes.size();
    if (n == 0) __builtin_trap();
    p.feed(bytes.substr(at, n));
    at += n;
    while (p.nextEvent(e)) out.push_back(e);
  }
  return out;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto whole = run(bytes, false);
  auto pieces = run(bytes, true);
  if (whole.size() != pieces.size()) __builtin_trap();
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const auto& e = whole[i];
    if (e.kind != pieces[i].kind || e.data != pieces[i].data || e.code != pieces[i].code) {
      __builtin_trap();
    }
    if (e.data.size() > kLimit) __builtin_trap();
    if (e.kind == WebSocketFrameParser::Event::Text && !harbor::isValidUtf8(e.data)) {
      __builtin_trap();
    }
    bool last =
        e.kind == WebSocketFrameParser::Event::Close || e.kind == WebSocketFrameParser::Event::Fail;
    if (last && i + 1 != whole.size()) __builtin_trap();
  }
  return 0;
}

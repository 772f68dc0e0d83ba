// Multipart bodies arrive cut anywhere: the parts found must not depend on
// where the pieces end.
#include <cstdint>
#include <string>
#include <vector>

#include "net/http/MultipartFormDataParser.h"

namespace {

struct Collect : harbor::MultipartFormDataParserDelegate {
  std::vector<std::string> parts;
  void processStartOfPartWithHeader(const harbor::MultipartMessageHeader& h) override {
    if (h.fields.empty()) __builtin_trap();  // a head always has at least its default
    parts.emplace_back();
  }
  void processContent(std::string_view d, const harbor::MultipartMessageHeader&) override {
    if (parts.empty()) __builtin_trap();
    parts.back().append(d);
  }
};

std::vector<std::string> run(std::string_view body, std::size_t seed, bool& ok) {
  Collect c;
  auto p = harbor::MultipartFormDataParser::initWithBoundary("b0", harbor::kFormEncodingUTF8);
  p->setDelegate(&c);
  std::size_t i = 0;
  ok = true;
  while (i < body.size() && ok) {
    std::size_t n = seed == 0 ? body.size() : 1 + (seed * 2654435761u + i) % 7;
    ok = p->appendData(body.substr(i, n));
    i += n;
  }
  return c.parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  std::string_view body(reinterpret_cast<const char*>(data + 1), size - 1);
  bool okWhole = true, okCut = true;
  auto whole = run(body, 0, okWhole);
  auto cut = run(body, data[0] + 1u, okCut);
  // Where both finished, they found the same parts (content may be cut
  // differently by a decoder, so only the count must agree).
  if (okWhole && okCut && whole.size() != cut.size()) __builtin_trap();
  return 0;
}

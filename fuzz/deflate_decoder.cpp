// Raw deflate and 64 KiB-window deflate streams: no crash, no read outside
// the window, output bounded; for the common variant, whatever zlib accepts
// decodes to the same bytes.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "archive/zip/DeflateDecoder.h"

namespace {

constexpr std::size_t kOutputCap = 4 << 20;

std::vector<unsigned char> ours(harbor::DeflateDecoder::Variant variant, const std::uint8_t* data,
                                std::size_t size, bool& ok) {
  std::size_t at = 0;
  harbor::DeflateDecoder d(variant, [&](unsigned char* buf, std::size_t cap) {
    // Small pieces, so refills land inside codes and headers.
    const std::size_t n = std::min({cap, size - at, std::size_t{7}});
    if (n > 0) std::memcpy(buf, data + at, n);
    at += n;
    return n;
  });
  std::vector<unsigned char> out;
  unsigned char piece[1000];
  for (;;) {
    const long n = d.read(piece, sizeof piece);
    if (n < 0) break;
    if (n == 0) break;
    out.insert(out.end(), piece, piece + n);
    if (out.size() > kOutputCap) break;
  }
  ok = d.finished();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  bool ok64 = false;
  (void)ours(harbor::DeflateDecoder::Variant::Deflate64, data, size, ok64);

  bool ok = false;
  const std::vector<unsigned char> mine =
      ours(harbor::DeflateDecoder::Variant::Deflate, data, size, ok);
  if (mine.size() > kOutputCap) return 0;

  z_stream z{};
  if (inflateInit2(&z, -15) != Z_OK) return 0;
  std::vector<unsigned char> theirs(kOutputCap + 1);
  z.next_in = const_cast<Bytef*>(data);
  z.avail_in = static_cast<uInt>(size);
  z.next_out = theirs.data();
  z.avail_out = static_cast<uInt>(theirs.size());
  const int rc = inflate(&z, Z_FINISH);
  theirs.resize(z.total_out);
  inflateEnd(&z);
  if (rc == Z_STREAM_END && !(ok && mine == theirs)) std::abort();
  return 0;
}

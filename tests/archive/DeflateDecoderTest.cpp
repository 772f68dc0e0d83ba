// The deflate decoder of both variants: zlib's own streams decode to the same
// bytes in any piece sizes, 64 KiB-window streams made by 7zz decode to the
// file they hold, and damage is reported, never read past.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ArchiveTestUtil.h"
#include "archive/zip/DeflateDecoder.h"

namespace harbor {
namespace {

using Bytes = std::vector<unsigned char>;
using Variant = DeflateDecoder::Variant;

Bytes zlibRaw(const Bytes& data, int level, int strategy) {
  z_stream z{};
  EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, -15, 8, strategy), Z_OK);
  Bytes out(deflateBound(&z, data.size()) + 16);
  z.next_in = const_cast<Bytef*>(data.data());
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// Decodes with the source handing out `inPiece` bytes and the caller asking
// for `outPiece`; nothing on damage.
std::optional<Bytes> decode(Variant v, const Bytes& stream, std::size_t inPiece,
                            std::size_t outPiece) {
  std::size_t at = 0;
  DeflateDecoder d(v, [&](unsigned char* buf, std::size_t cap) {
    const std::size_t n = std::min({cap, stream.size() - at, inPiece});
    if (n > 0) std::memcpy(buf, stream.data() + at, n);
    at += n;
    return n;
  });
  Bytes out;
  std::vector<unsigned char> piece(outPiece);
  for (;;) {
    const long n = d.read(piece.data(), piece.size());
    if (n < 0) return std::nullopt;
    if (n == 0) break;
    out.insert(out.end(), piece.begin(), piece.begin() + n);
  }
  if (!d.finished()) return std::nullopt;
  return out;
}

Bytes sample(std::size_t size, unsigned seed) {
  // Text-like runs with repeats far apart, so matches use long distances.
  std::mt19937 rng(seed);
  Bytes out;
  const std::string words[] = {"alpha ", "beta ", "gamma\n", "delta\t", "{x = y;}\n"};
  while (out.size() < size) {
    if (rng() % 7 == 0 && out.size() > 40000) {
      const std::size_t from = out.size() - 1 - rng() % 32000;
      const std::size_t len = 3 + rng() % 300;
      for (std::size_t i = 0; i < len && out.size() < size; ++i) out.push_back(out[from + i]);
    } else if (rng() % 5 == 0) {
      out.push_back(static_cast<unsigned char>(rng()));
    } else {
      const std::string& w = words[rng() % 5];
      out.insert(out.end(), w.begin(), w.end());
    }
  }
  out.resize(size);
  return out;
}

// Deflate's bit order: fields least significant bit first, Huffman codes
// most significant bit first.
struct BitWriter {
  Bytes bytes;
  std::size_t count = 0;
  void bit(unsigned b) {
    if (count % 8 == 0) bytes.push_back(0);
    bytes.back() |= static_cast<unsigned char>((b & 1) << (count % 8));
    ++count;
  }
  void put(unsigned v, int n) {
    for (int i = 0; i < n; ++i) bit(v >> i);
  }
  void code(unsigned c, int n) {
    for (int i = n - 1; i >= 0; --i) bit(c >> i);
  }
};

TEST(DeflateDecoder, DecodesWhatZlibWritesInAnyPieceSizes) {
  const Bytes inputs[] = {{}, {'a'}, sample(1, 1), sample(70000, 2), sample(300000, 3)};
  for (const Bytes& data : inputs) {
    for (int level : {0, 1, 6, 9}) {
      for (int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE}) {
        const Bytes stream = zlibRaw(data, level, strategy);
        SCOPED_TRACE("size " + std::to_string(data.size()) + " level " + std::to_string(level) +
                     " strategy " + std::to_string(strategy));
        for (auto [in, out] : {std::pair{std::size_t{1}, std::size_t{1}},
                               std::pair{std::size_t{7}, std::size_t{4093}},
                               std::pair{std::size_t{1 << 20}, std::size_t{1 << 16}}}) {
          if (data.size() > 100000 && (in == 1 || out == 1)) continue;  // slow, no new paths
          auto got = decode(Variant::Deflate, stream, in, out);
          ASSERT_TRUE(got.has_value());
          EXPECT_TRUE(*got == data);
        }
      }
    }
  }
}

TEST(DeflateDecoder, DamageIsReportedNotReadPast) {
  const Bytes good = zlibRaw(sample(50000, 4), 9, Z_DEFAULT_STRATEGY);
  for (std::size_t cut : {std::size_t{0}, std::size_t{1}, good.size() / 2, good.size() - 1}) {
    Bytes cutStream(good.begin(), good.begin() + static_cast<long>(cut));
    EXPECT_FALSE(decode(Variant::Deflate, cutStream, 64, 4096)) << "cut at " << cut;
  }
  EXPECT_FALSE(decode(Variant::Deflate, Bytes{0x07}, 1, 16)) << "block type 3";
  // A stored block whose length and its complement disagree.
  EXPECT_FALSE(decode(Variant::Deflate, Bytes{0x01, 0x05, 0x00, 0xfa, 0xfe, 'h'}, 1, 16));
  // A fixed block: literal 'a', then a match at distance 2 with one byte out.
  {
    BitWriter w;
    w.put(1, 1);  // final
    w.put(1, 2);  // fixed codes
    w.code(0x30 + 'a', 8);
    w.code(1, 7);  // length symbol 257: 3
    w.code(1, 5);  // distance symbol 1: 2
    w.code(0, 7);  // end of block
    EXPECT_FALSE(decode(Variant::Deflate, w.bytes, 1, 16)) << "a distance before the start";
  }
  // Code-length codes all one bit long: more codes than one bit can tell apart.
  {
    BitWriter w;
    w.put(1, 1);
    w.put(2, 2);   // dynamic codes
    w.put(0, 5);   // 257 literal/length codes
    w.put(0, 5);   // 1 distance code
    w.put(15, 4);  // 19 code-length codes
    for (int i = 0; i < 19; ++i) w.put(1, 3);
    EXPECT_FALSE(decode(Variant::Deflate, w.bytes, 3, 9));
  }
}

TEST(DeflateDecoder, TheLastLengthCodeDiffersBetweenVariants) {
  // Fixed codes: 'a', then length symbol 285 with distance 1, then the end.
  BitWriter w;
  w.put(1, 1);
  w.put(1, 2);
  w.code(0x30 + 'a', 8);
  w.code(0xc0 + 5, 8);  // symbol 285
  w.put(997, 16);       // the 64 KiB variant's sixteen extra bits: 3 + 997
  w.code(0, 5);         // distance 1
  w.code(0, 7);
  auto wide = decode(Variant::Deflate64, w.bytes, 2, 100);
  ASSERT_TRUE(wide.has_value());
  EXPECT_EQ(*wide, Bytes(1001, 'a'));

  BitWriter c;  // the common variant: symbol 285 is 258 with no extra bits
  c.put(1, 1);
  c.put(1, 2);
  c.code(0x30 + 'a', 8);
  c.code(0xc0 + 5, 8);
  c.code(0, 5);
  c.code(0, 7);
  auto common = decode(Variant::Deflate, c.bytes, 2, 100);
  ASSERT_TRUE(common.has_value());
  EXPECT_EQ(*common, Bytes(259, 'a'));
}

// The first entry's raw data in a zip written by another tool.
Bytes firstEntryData(const std::filesystem::path& zip, int expectedMethod) {
  const std::string bytes = test::readFile(zip);
  auto u16 = [&](std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes[at]) |
                                 static_cast<unsigned char>(bytes[at + 1]) << 8);
  };
  auto u32 = [&](std::size_t at) { return u16(at) | u16(at + 2) << 16; };
  EXPECT_GE(bytes.size(), 30u);
  EXPECT_EQ(u32(0), 0x04034b50u);
  EXPECT_EQ(static_cast<int>(u16(8)), expectedMethod);
  const std::size_t start = 30 + u16(26) + u16(28);
  const std::size_t size = u32(18);
  return Bytes(bytes.begin() + static_cast<long>(start),
               bytes.begin() + static_cast<long>(start + size));
}

TEST(DeflateDecoder, ReadsThe64KiBWindowVariantAsAnotherToolWritesIt) {
  if (!test::haveTool("7zz")) GTEST_SKIP() << "7zz is not installed";
  test::ScratchDir dir;
  // A 48 KiB random block written twice: only a window over 32 KiB finds the
  // repeat; and a long run, for lengths past 258.
  std::mt19937 rng(7);
  Bytes block(48 * 1024);
  for (auto& b : block) b = static_cast<unsigned char>(rng());
  Bytes data = block;
  data.insert(data.end(), block.begin(), block.end());
  data.insert(data.end(), 200000, 'z');
  const Bytes tail = sample(120000, 9);
  data.insert(data.end(), tail.begin(), tail.end());
  test::writeFile(dir / "data.bin", std::string(data.begin(), data.end()));
  ASSERT_TRUE(test::run("cd '" + dir.path().string() +
                        "' && 7zz a -tzip -mm=Deflate64 -mx=9 -bd out.zip data.bin >/dev/null"));
  const Bytes stream = firstEntryData(dir / "out.zip", 9);
  ASSERT_LT(stream.size(), data.size() - 40000) << "the repeat was found";
  auto got = decode(Variant::Deflate64, stream, 4096, 65536);
  ASSERT_TRUE(got.has_value());
  EXPECT_TRUE(*got == data);
  // The common decoder cannot read it: its window is too small or its codes unknown.
  auto common = decode(Variant::Deflate, stream, 4096, 65536);
  EXPECT_FALSE(common.has_value() && *common == data);
}

}  // namespace
}  // namespace harbor

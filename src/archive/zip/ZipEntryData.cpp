#include "archive/zip/ZipEntryData.h"

#include <bzlib.h>
#include <lzma.h>
#include <openssl/crypto.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "archive/zip/DeflateDecoder.h"
#include "archive/zip/ZipAes.h"

namespace harbor::zipdata {
namespace {

constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::size_t kInputPiece = 64 * 1024;
// A dictionary this large is a hostile header, not an archive to read.
constexpr std::uint64_t kMaxDecoderMemory = std::uint64_t{2} << 30;

std::uint16_t le16(const unsigned char* p) {
  return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
std::uint32_t le32(const unsigned char* p) {
  return static_cast<std::uint32_t>(le16(p)) | static_cast<std::uint32_t>(le16(p + 2)) << 16;
}
std::uint64_t le64(const unsigned char* p) {
  return static_cast<std::uint64_t>(le32(p)) | static_cast<std::uint64_t>(le32(p + 4)) << 32;
}

bool readAt(std::FILE* f, std::uint64_t offset, void* out, std::size_t n) {
  if (fseeko(f, static_cast<off_t>(offset), SEEK_SET) != 0) return false;
  return std::fread(out, 1, n, f) == n;
}

std::uint64_t fileSize(std::FILE* f) {
  if (fseeko(f, 0, SEEK_END) != 0) return 0;
  const off_t end = ftello(f);
  return end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

class Stored : public ByteSource {
 public:
  explicit Stored(std::unique_ptr<ByteSource> in) : in_(std::move(in)) {}
  long read(unsigned char* out, std::size_t cap) override { return in_->read(out, cap); }

 private:
  std::unique_ptr<ByteSource> in_;
};

// Pulls stored bytes into a buffer for the stream decoders.
class Pull {
 public:
  explicit Pull(std::unique_ptr<ByteSource> in) : in_(std::move(in)), buf_(kInputPiece) {}
  // Refills when empty; false at the end of input or on damage (`damaged`).
  bool fill() {
    if (pos_ < end_) return true;
    const long n = in_->read(buf_.data(), buf_.size());
    if (n < 0) damaged = true;
    pos_ = 0;
    end_ = n > 0 ? static_cast<std::size_t>(n) : 0;
    return end_ > 0;
  }
  unsigned char* data() { return buf_.data() + pos_; }
  std::size_t size() const { return end_ - pos_; }
  void consume(std::size_t n) { pos_ += n; }
  bool damaged = false;

 private:
  std::unique_ptr<ByteSource> in_;
  std::vector<unsigned char> buf_;
  std::size_t pos_ = 0;
  std::size_t end_ = 0;
};

class Inflate : public ByteSource {
 public:
  explicit Inflate(std::unique_ptr<ByteSource> in) : pull_(std::move(in)) {
    ok_ = inflateInit2(&z_, -MAX_WBITS) == Z_OK;
  }
  ~Inflate() override {
    if (ok_) inflateEnd(&z_);
  }
  long read(unsigned char* out, std::size_t cap) override {
    if (!ok_) return -1;
    if (ended_) return 0;
    z_.next_out = out;
    z_.avail_out = static_cast<uInt>(std::min<std::size_t>(cap, 1u << 30));
    const uInt asked = z_.avail_out;
    while (z_.avail_out == asked) {
      if (!pull_.fill()) return -1;  // ends before the stream does
      z_.next_in = pull_.data();
      z_.avail_in = static_cast<uInt>(pull_.size());
      const int rc = inflate(&z_, Z_NO_FLUSH);
      pull_.consume(pull_.size() - z_.avail_in);
      if (rc == Z_STREAM_END) {
        ended_ = true;
        break;
      }
      if (rc != Z_OK && rc != Z_BUF_ERROR) return -1;
    }
    return static_cast<long>(asked - z_.avail_out);
  }

 private:
  Pull pull_;
  z_stream z_{};
  bool ok_ = false;
  bool ended_ = false;
};

class Inflate64 : public ByteSource {
 public:
  explicit Inflate64(std::unique_ptr<ByteSource> in)
      : in_(std::move(in)),
        decoder_(DeflateDecoder::Variant::Deflate64, [this](unsigned char* buf, std::size_t cap) {
          const long n = in_->read(buf, cap);
          return n > 0 ? static_cast<std::size_t>(n) : 0;
        }) {}
  long read(unsigned char* out, std::size_t cap) override { return decoder_.read(out, cap); }

 private:
  std::unique_ptr<ByteSource> in_;
  DeflateDecoder decoder_;
};

class Bunzip : public ByteSource {
 public:
  explicit Bunzip(std::unique_ptr<ByteSource> in) : pull_(std::move(in)) {
    ok_ = BZ2_bzDecompressInit(&s_, 0, 0) == BZ_OK;
  }
  ~Bunzip() override {
    if (ok_) BZ2_bzDecompressEnd(&s_);
  }
  long read(unsigned char* out, std::size_t cap) override {
    if (!ok_) return -1;
    if (ended_) return 0;
    const unsigned asked = static_cast<unsigned>(std::min<std::size_t>(cap, 1u << 30));
    s_.next_out = reinterpret_cast<char*>(out);
    s_.avail_out = asked;
    while (s_.avail_out == asked) {
      if (!pull_.fill()) return -1;
      s_.next_in = reinterpret_cast<char*>(pull_.data());
      s_.avail_in = static_cast<unsigned>(pull_.size());
      const int rc = BZ2_bzDecompress(&s_);
      pull_.consume(pull_.size() - s_.avail_in);
      if (rc == BZ_STREAM_END) {
        ended_ = true;
        break;
      }
      if (rc != BZ_OK) return -1;
    }
    return static_cast<long>(asked - s_.avail_out);
  }

 private:
  Pull pull_;
  bz_stream s_{};
  bool ok_ = false;
  bool ended_ = false;
};

// Zip's LZMA: a 4-byte header (version, size of the properties), the five
// property bytes, then a raw LZMA stream that may or may not carry an end
// mark; the entry's size says where it ends.
class Unlzma : public ByteSource {
 public:
  Unlzma(std::unique_ptr<ByteSource> in, std::uint64_t size) : pull_(std::move(in)) {
    unsigned char head[9];
    std::size_t got = 0;
    while (got < sizeof head && pull_.fill()) {
      const std::size_t n = std::min(sizeof head - got, pull_.size());
      std::memcpy(head + got, pull_.data(), n);
      pull_.consume(n);
      got += n;
    }
    if (got != sizeof head || le16(head + 2) != 5) return;
    lzma_filter filters[2] = {{LZMA_FILTER_LZMA1, nullptr}, {LZMA_VLI_UNKNOWN, nullptr}};
    if (lzma_properties_decode(&filters[0], nullptr, head + 4, 5) != LZMA_OK) return;
    options_ = static_cast<lzma_options_lzma*>(filters[0].options);
    filters[0].id = LZMA_FILTER_LZMA1EXT;
    options_->ext_flags = LZMA_LZMA1EXT_ALLOW_EOPM;
    options_->ext_size_low = static_cast<std::uint32_t>(size);
    options_->ext_size_high = static_cast<std::uint32_t>(size >> 32);
    if (lzma_raw_decoder_memusage(filters) > kMaxDecoderMemory) return;
    ok_ = lzma_raw_decoder(&s_, filters) == LZMA_OK;
  }
  ~Unlzma() override {
    lzma_end(&s_);
    free(options_);
  }
  long read(unsigned char* out, std::size_t cap) override {
    if (!ok_) return -1;
    if (ended_) return 0;
    s_.next_out = out;
    s_.avail_out = cap;
    while (s_.avail_out == cap) {
      if (s_.avail_in == 0 && pull_.fill()) {
        s_.next_in = pull_.data();
        s_.avail_in = pull_.size();
        pull_.consume(pull_.size());
      }
      const lzma_ret rc = lzma_code(&s_, s_.avail_in == 0 ? LZMA_FINISH : LZMA_RUN);
      if (rc == LZMA_STREAM_END) {
        ended_ = true;
        break;
      }
      if (rc != LZMA_OK) return -1;
    }
    return static_cast<long>(cap - s_.avail_out);
  }

 private:
  Pull pull_;
  lzma_stream s_ = LZMA_STREAM_INIT;
  lzma_options_lzma* options_ = nullptr;
  bool ok_ = false;
  bool ended_ = false;
};

}  // namespace

std::optional<RawEntry> locate(std::FILE* file, std::uint64_t centralOffset) {
  const std::uint64_t size = fileSize(file);
  unsigned char c[46];
  if (!readAt(file, centralOffset, c, sizeof c) || le32(c) != kCentralSignature)
    return std::nullopt;
  RawEntry e;
  e.flags = le16(c + 8);
  e.method = le16(c + 10);
  e.compressedSize = le32(c + 20);
  const std::uint32_t uncompressed32 = le32(c + 24);
  std::uint64_t localOffset = le32(c + 42);
  const std::size_t nameLen = le16(c + 28);
  const std::size_t extraLen = le16(c + 30);
  e.centralSize = 46 + nameLen + extraLen + le16(c + 32);
  std::vector<unsigned char> extra(extraLen);
  if (extraLen && !readAt(file, centralOffset + 46 + nameLen, extra.data(), extraLen))
    return std::nullopt;
  for (std::size_t at = 0; at + 4 <= extra.size();) {
    const std::uint16_t id = le16(&extra[at]);
    const std::size_t len = le16(&extra[at + 2]);
    if (at + 4 + len > extra.size()) break;
    const unsigned char* p = &extra[at + 4];
    if (id == 0x0001) {
      // Only the fields whose 32-bit copies overflowed are present, in order.
      std::size_t k = 0;
      if (uncompressed32 == 0xffffffffu && k + 8 <= len) k += 8;
      if (e.compressedSize == 0xffffffffu && k + 8 <= len) {
        e.compressedSize = le64(p + k);
        k += 8;
      }
      if (localOffset == 0xffffffffu && k + 8 <= len) localOffset = le64(p + k);
    } else if (id == 0x9901 && len >= 7 && p[2] == 'A' && p[3] == 'E') {
      e.aes = true;
      e.aesVersion = le16(p);
      e.aesStrength = p[4];
      e.actualMethod = le16(p + 5);
    }
    at += 4 + len;
  }
  unsigned char l[30];
  if (!readAt(file, localOffset, l, sizeof l) || le32(l) != kLocalSignature) return std::nullopt;
  e.localOffset = localOffset;
  e.dataOffset = localOffset + 30 + le16(l + 26) + le16(l + 28);
  if (e.dataOffset > size || e.compressedSize > size - e.dataOffset) return std::nullopt;
  return e;
}

std::optional<CentralDirectory> centralDirectory(std::FILE* file) {
  constexpr std::size_t kEndSize = 22;
  constexpr std::size_t kMaxComment = 0xffff;
  const std::uint64_t size = fileSize(file);
  if (size < kEndSize) return std::nullopt;
  const std::size_t window =
      static_cast<std::size_t>(std::min<std::uint64_t>(size, kEndSize + kMaxComment));
  std::vector<unsigned char> tail(window);
  if (!readAt(file, size - window, tail.data(), window)) return std::nullopt;
  // The last end record whose comment reaches exactly to the end of the file.
  for (std::size_t at = window - kEndSize + 1; at-- > 0;) {
    const unsigned char* p = &tail[at];
    if (le32(p) != 0x06054b50 || at + kEndSize + le16(p + 20) != window) continue;
    CentralDirectory cd{le32(p + 16), le16(p + 10)};
    const std::uint64_t endAt = size - window + at;
    if (cd.offset == 0xffffffffu || cd.entries == 0xffff) {
      unsigned char loc[20];
      unsigned char rec[56];
      if (endAt < sizeof loc || !readAt(file, endAt - sizeof loc, loc, sizeof loc) ||
          le32(loc) != 0x07064b50 || !readAt(file, le64(loc + 8), rec, sizeof rec) ||
          le32(rec) != 0x06064b50)
        return std::nullopt;
      cd = {le64(rec + 48), le64(rec + 32)};
    }
    if (cd.offset > size) return std::nullopt;
    return cd;
  }
  return std::nullopt;
}

std::string methodName(std::uint16_t method) {
  switch (method) {
    case 0:
      return "stored";
    case 1:
      return "Shrink";
    case 6:
      return "Implode";
    case 8:
      return "Deflate";
    case 9:
      return "Deflate64";
    case 12:
      return "BZip2";
    case 14:
      return "LZMA";
    case 93:
      return "Zstandard";
    case 95:
      return "XZ";
    case 96:
      return "JPEG";
    case 97:
      return "WavPack";
    case 98:
      return "PPMd";
    case 99:
      return "AES";
    default:
      return "method " + std::to_string(method);
  }
}

bool isSupportedMethod(std::uint16_t method) {
  return method == 0 || method == 8 || method == 9 || method == 12 || method == 14;
}

FileRange::FileRange(std::FILE* file, std::uint64_t offset, std::uint64_t size)
    : file_(file), offset_(offset), left_(size) {}

long FileRange::read(unsigned char* out, std::size_t cap) {
  if (left_ == 0) return 0;
  const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(cap, left_));
  if (!readAt(file_, offset_, out, n)) return -1;
  offset_ += n;
  left_ -= n;
  return static_cast<long>(n);
}

std::pair<AesLayer::Open, std::unique_ptr<AesLayer>> AesLayer::open(
    std::unique_ptr<FileRange> inner, std::uint8_t strength, const std::string& password) {
  if (strength < 1 || strength > 3) return {Open::damaged, nullptr};
  const std::size_t saltLen = ZipAesCipher::saltSize(strength);
  if (inner->left() < saltLen + ZipAesCipher::kCheckSize + ZipAesCipher::kAuthSize)
    return {Open::damaged, nullptr};
  unsigned char salt[16];
  std::array<unsigned char, ZipAesCipher::kCheckSize> stored{};
  if (inner->read(salt, saltLen) != static_cast<long>(saltLen) ||
      inner->read(stored.data(), stored.size()) != static_cast<long>(stored.size()))
    return {Open::damaged, nullptr};
  std::array<unsigned char, ZipAesCipher::kCheckSize> check{};
  auto cipher = ZipAesCipher::derive(password, salt, strength, check);
  if (!cipher) return {Open::damaged, nullptr};
  if (check != stored) return {Open::wrongPassword, nullptr};
  std::unique_ptr<AesLayer> layer(new AesLayer);
  layer->cipher_ = std::move(cipher);
  layer->dataLeft_ = inner->left() - ZipAesCipher::kAuthSize;
  layer->inner_ = std::move(inner);
  return {Open::ok, std::move(layer)};
}

AesLayer::~AesLayer() = default;

long AesLayer::read(unsigned char* out, std::size_t cap) {
  if (dataLeft_ == 0) return 0;
  const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(cap, dataLeft_));
  const long n = inner_->read(out, want);
  if (n <= 0) return -1;
  dataLeft_ -= static_cast<std::uint64_t>(n);
  // The code covers the ciphertext, so it is taken before deciphering.
  if (!cipher_->authenticate(out, static_cast<std::size_t>(n)) ||
      !cipher_->crypt(out, static_cast<std::size_t>(n)))
    return -1;
  return n;
}

bool AesLayer::authenticated() {
  // Data the decompressor left unread still counts towards the code.
  unsigned char rest[4096];
  while (dataLeft_ > 0) {
    if (read(rest, sizeof rest) <= 0) return false;
  }
  std::array<unsigned char, ZipAesCipher::kAuthSize> stored{};
  if (inner_->read(stored.data(), stored.size()) != static_cast<long>(stored.size())) return false;
  std::array<unsigned char, ZipAesCipher::kAuthSize> computed{};
  if (!cipher_->finish(computed)) return false;
  return CRYPTO_memcmp(computed.data(), stored.data(), stored.size()) == 0;
}

std::unique_ptr<ByteSource> decompressor(std::uint16_t method, std::unique_ptr<ByteSource> stored,
                                         std::uint64_t uncompressedSize) {
  switch (method) {
    case 0:
      return std::make_unique<Stored>(std::move(stored));
    case 8:
      return std::make_unique<Inflate>(std::move(stored));
    case 9:
      return std::make_unique<Inflate64>(std::move(stored));
    case 12:
      return std::make_unique<Bunzip>(std::move(stored));
    case 14:
      return std::make_unique<Unlzma>(std::move(stored), uncompressedSize);
    default:
      return nullptr;
  }
}

}  // namespace harbor::zipdata

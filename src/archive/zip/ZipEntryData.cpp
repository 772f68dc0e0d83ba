#include "archive/zip/ZipEntryData.h"

#include <bzlib.h>
#include <lzma.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "archive/zip/DeflateDecoder.h"

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
  e.dataOffset = localOffset + 30 + le16(l + 26) + le16(l + 28);
  if (e.dataOffset > size || e.compressedSize > size - e.dataOffset) return std::nullopt;
  return e;
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

struct AesLayer::State {
  EVP_CIPHER_CTX* cipher = nullptr;
  EVP_MAC* macKind = nullptr;
  EVP_MAC_CTX* mac = nullptr;
  std::array<unsigned char, 16> counter{};
  std::array<unsigned char, 16> stream{};
  std::size_t streamUsed = 16;
  ~State() {
    EVP_CIPHER_CTX_free(cipher);
    EVP_MAC_CTX_free(mac);
    EVP_MAC_free(macKind);
  }
};

std::pair<AesLayer::Open, std::unique_ptr<AesLayer>> AesLayer::open(
    std::unique_ptr<FileRange> inner, std::uint8_t strength, const std::string& password) {
  if (strength < 1 || strength > 3) return {Open::damaged, nullptr};
  const std::size_t keyLen = 8 + 8 * strength;   // 16, 24, 32
  const std::size_t saltLen = 4 + 4 * strength;  // 8, 12, 16
  constexpr std::size_t kAuthLen = 10;
  if (inner->left() < saltLen + 2 + kAuthLen) return {Open::damaged, nullptr};
  unsigned char salt[16];
  unsigned char check[2];
  if (inner->read(salt, saltLen) != static_cast<long>(saltLen) || inner->read(check, 2) != 2)
    return {Open::damaged, nullptr};
  std::vector<unsigned char> keys(2 * keyLen + 2);
  if (PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()), salt,
                             static_cast<int>(saltLen), 1000, static_cast<int>(keys.size()),
                             keys.data()) != 1)
    return {Open::damaged, nullptr};
  const bool matches = keys[2 * keyLen] == check[0] && keys[2 * keyLen + 1] == check[1];
  if (!matches) {
    OPENSSL_cleanse(keys.data(), keys.size());
    return {Open::wrongPassword, nullptr};
  }
  std::unique_ptr<AesLayer> layer(new AesLayer);
  layer->state_ = std::make_unique<State>();
  State& s = *layer->state_;
  const EVP_CIPHER* ecb = keyLen == 16   ? EVP_aes_128_ecb()
                          : keyLen == 24 ? EVP_aes_192_ecb()
                                         : EVP_aes_256_ecb();
  s.cipher = EVP_CIPHER_CTX_new();
  s.macKind = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  s.mac = s.macKind ? EVP_MAC_CTX_new(s.macKind) : nullptr;
  char digest[] = "SHA1";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                               OSSL_PARAM_END};
  const bool ready = s.cipher && s.mac &&
                     EVP_EncryptInit_ex(s.cipher, ecb, nullptr, keys.data(), nullptr) == 1 &&
                     EVP_CIPHER_CTX_set_padding(s.cipher, 0) == 1 &&
                     EVP_MAC_init(s.mac, keys.data() + keyLen, keyLen, params) == 1;
  OPENSSL_cleanse(keys.data(), keys.size());
  if (!ready) return {Open::damaged, nullptr};
  layer->dataLeft_ = inner->left() - kAuthLen;
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
  State& s = *state_;
  if (EVP_MAC_update(s.mac, out, static_cast<std::size_t>(n)) != 1) return -1;
  for (long i = 0; i < n; ++i) {
    if (s.streamUsed == 16) {
      // The counter runs from 1, little-endian, over the whole block.
      for (auto& b : s.counter)
        if (++b != 0) break;
      int len = 0;
      if (EVP_EncryptUpdate(s.cipher, s.stream.data(), &len, s.counter.data(), 16) != 1) return -1;
      s.streamUsed = 0;
    }
    out[i] ^= s.stream[s.streamUsed++];
  }
  return n;
}

bool AesLayer::authenticated() {
  // Data the decompressor left unread still counts towards the code.
  unsigned char rest[4096];
  while (dataLeft_ > 0) {
    if (read(rest, sizeof rest) <= 0) return false;
  }
  unsigned char stored[10];
  if (inner_->read(stored, sizeof stored) != static_cast<long>(sizeof stored)) return false;
  unsigned char computed[EVP_MAX_MD_SIZE];
  std::size_t len = 0;
  if (EVP_MAC_final(state_->mac, computed, &len, sizeof computed) != 1 || len < 10) return false;
  return CRYPTO_memcmp(computed, stored, sizeof stored) == 0;
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

#include "archive/7z/SevenZipCoders.h"

#include <bzlib.h>
#include <lzma.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace harbor::sevenzip {
namespace {

constexpr std::size_t kBuffer = 1 << 16;

class FileRangeStream : public InStream {
 public:
  FileRangeStream(int fd, std::uint64_t offset, std::uint64_t length, DecodeError& error)
      : fd_(fd), pos_(offset), left_(length), error_(error) {}
  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (left_ == 0) return 0;
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(n, left_));
    const ssize_t got = ::pread(fd_, buf, want, static_cast<off_t>(pos_));
    if (got <= 0) {
      error_.set(DecodeFailure::damaged, "archive data ends early");
      return -1;
    }
    pos_ += static_cast<std::uint64_t>(got);
    left_ -= static_cast<std::uint64_t>(got);
    return got;
  }

 private:
  int fd_;
  std::uint64_t pos_;
  std::uint64_t left_;
  DecodeError& error_;
};

// Passes exactly `size` bytes of its source: a shorter source is damage.
class SizedStream : public InStream {
 public:
  SizedStream(std::unique_ptr<InStream> src, std::uint64_t size, DecodeError& error)
      : src_(std::move(src)), left_(size), error_(error) {}
  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (left_ == 0) return 0;
    const auto got = src_->read(buf, static_cast<std::size_t>(std::min<std::uint64_t>(n, left_)));
    if (got < 0) return -1;
    if (got == 0) {
      error_.set(DecodeFailure::damaged, "data shorter than its declared size");
      return -1;
    }
    left_ -= static_cast<std::uint64_t>(got);
    return got;
  }

 private:
  std::unique_ptr<InStream> src_;
  std::uint64_t left_;
  DecodeError& error_;
};

// Any source as a stream of LZMA2 uncompressed chunks, so that liblzma's
// branch and delta filters, which only sit on LZMA or LZMA2, run over data
// that was stored, deflated or bzip2-compressed.
class Lzma2WrapStream : public InStream {
 public:
  explicit Lzma2WrapStream(std::unique_ptr<InStream> src) : src_(std::move(src)) {}
  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    std::size_t out = 0;
    while (out < n) {
      if (pos_ == chunk_.size()) {
        if (ended_) break;
        if (!fill()) return -1;
        continue;
      }
      const std::size_t take = std::min(n - out, chunk_.size() - pos_);
      std::memcpy(buf + out, chunk_.data() + pos_, take);
      pos_ += take;
      out += take;
    }
    return static_cast<std::ptrdiff_t>(out);
  }

 private:
  bool fill() {
    chunk_.resize(3 + 65536);
    std::size_t got = 0;
    while (got < 65536) {
      const auto r = src_->read(chunk_.data() + 3 + got, 65536 - got);
      if (r < 0) return false;
      if (r == 0) break;
      got += static_cast<std::size_t>(r);
    }
    pos_ = 0;
    if (got == 0) {
      chunk_.assign(1, 0x00);
      ended_ = true;
      return true;
    }
    chunk_[0] = first_ ? 0x01 : 0x02;
    first_ = false;
    chunk_[1] = static_cast<std::uint8_t>((got - 1) >> 8);
    chunk_[2] = static_cast<std::uint8_t>((got - 1) & 0xFF);
    chunk_.resize(3 + got);
    return true;
  }

  std::unique_ptr<InStream> src_;
  std::vector<std::uint8_t> chunk_;
  std::size_t pos_ = 0;
  bool first_ = true;
  bool ended_ = false;
};

// Filter options live as long as the decoder that was set up with them.
struct FilterChain {
  std::vector<lzma_filter> filters;
  std::vector<std::unique_ptr<lzma_options_lzma>> lzma;
  std::vector<std::unique_ptr<lzma_options_bcj>> bcj;
  std::vector<std::unique_ptr<lzma_options_delta>> delta;
};

class LzmaStream : public InStream {
 public:
  LzmaStream(std::unique_ptr<InStream> src, FilterChain chain, DecodeError& error)
      : src_(std::move(src)), chain_(std::move(chain)), error_(error), in_(kBuffer) {}
  ~LzmaStream() override { lzma_end(&strm_); }

  bool init() {
    lzma_filter end{LZMA_VLI_UNKNOWN, nullptr};
    chain_.filters.push_back(end);
    const std::uint64_t mem = lzma_raw_decoder_memusage(chain_.filters.data());
    if (mem == UINT64_MAX || mem > kMaxDecoderMemory) {
      error_.set(DecodeFailure::limits, "decoder would need too much memory");
      return false;
    }
    if (lzma_raw_decoder(&strm_, chain_.filters.data()) != LZMA_OK) {
      error_.set(DecodeFailure::damaged, "unsupported LZMA settings");
      return false;
    }
    return true;
  }

  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (done_) return 0;
    strm_.next_out = buf;
    strm_.avail_out = n;
    while (strm_.avail_out == n) {
      if (strm_.avail_in == 0 && !srcEnd_) {
        const auto got = src_->read(in_.data(), in_.size());
        if (got < 0) return -1;
        if (got == 0) srcEnd_ = true;
        strm_.next_in = in_.data();
        strm_.avail_in = static_cast<std::size_t>(got);
      }
      const lzma_ret rc = lzma_code(&strm_, srcEnd_ ? LZMA_FINISH : LZMA_RUN);
      if (rc == LZMA_STREAM_END) {
        done_ = true;
        break;
      }
      if (rc != LZMA_OK) {
        error_.set(DecodeFailure::damaged, "compressed data is damaged");
        return -1;
      }
    }
    return static_cast<std::ptrdiff_t>(n - strm_.avail_out);
  }

 private:
  std::unique_ptr<InStream> src_;
  FilterChain chain_;
  DecodeError& error_;
  std::vector<std::uint8_t> in_;
  lzma_stream strm_ = LZMA_STREAM_INIT;
  bool srcEnd_ = false;
  bool done_ = false;
};

class InflateStream : public InStream {
 public:
  InflateStream(std::unique_ptr<InStream> src, DecodeError& error)
      : src_(std::move(src)), error_(error), in_(kBuffer) {
    ok_ = inflateInit2(&z_, -15) == Z_OK;
  }
  ~InflateStream() override {
    if (ok_) inflateEnd(&z_);
  }
  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (!ok_) {
      error_.set(DecodeFailure::damaged, "inflate could not start");
      return -1;
    }
    if (done_) return 0;
    n = std::min<std::size_t>(n, 1u << 30);
    z_.next_out = buf;
    z_.avail_out = static_cast<uInt>(n);
    while (z_.avail_out == n) {
      if (z_.avail_in == 0) {
        const auto got = src_->read(in_.data(), in_.size());
        if (got < 0) return -1;
        if (got == 0) {
          error_.set(DecodeFailure::damaged, "deflate data ends early");
          return -1;
        }
        z_.next_in = in_.data();
        z_.avail_in = static_cast<uInt>(got);
      }
      const int rc = inflate(&z_, Z_NO_FLUSH);
      if (rc == Z_STREAM_END) {
        done_ = true;
        break;
      }
      if (rc != Z_OK && rc != Z_BUF_ERROR) {
        error_.set(DecodeFailure::damaged, "deflate data is damaged");
        return -1;
      }
    }
    return static_cast<std::ptrdiff_t>(n - z_.avail_out);
  }

 private:
  std::unique_ptr<InStream> src_;
  DecodeError& error_;
  std::vector<std::uint8_t> in_;
  z_stream z_{};
  bool ok_ = false;
  bool done_ = false;
};

class Bzip2Stream : public InStream {
 public:
  Bzip2Stream(std::unique_ptr<InStream> src, DecodeError& error)
      : src_(std::move(src)), error_(error), in_(kBuffer) {
    ok_ = BZ2_bzDecompressInit(&bz_, 0, 0) == BZ_OK;
  }
  ~Bzip2Stream() override {
    if (ok_) BZ2_bzDecompressEnd(&bz_);
  }
  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (!ok_) {
      error_.set(DecodeFailure::damaged, "bzip2 could not start");
      return -1;
    }
    n = std::min<std::size_t>(n, 1u << 30);
    bz_.next_out = reinterpret_cast<char*>(buf);
    bz_.avail_out = static_cast<unsigned>(n);
    while (bz_.avail_out == n) {
      if (bz_.avail_in == 0) {
        const auto got = src_->read(in_.data(), in_.size());
        if (got < 0) return -1;
        if (got == 0) return static_cast<std::ptrdiff_t>(n - bz_.avail_out);  // end of data
        bz_.next_in = reinterpret_cast<char*>(in_.data());
        bz_.avail_in = static_cast<unsigned>(got);
      }
      const int rc = BZ2_bzDecompress(&bz_);
      if (rc == BZ_STREAM_END) {
        // Several streams may follow each other; start the next.
        char* next = bz_.next_in;
        unsigned avail = bz_.avail_in;
        char* out = bz_.next_out;
        unsigned outAvail = bz_.avail_out;
        BZ2_bzDecompressEnd(&bz_);
        bz_ = bz_stream{};
        ok_ = BZ2_bzDecompressInit(&bz_, 0, 0) == BZ_OK;
        if (!ok_) return -1;
        bz_.next_in = next;
        bz_.avail_in = avail;
        bz_.next_out = out;
        bz_.avail_out = outAvail;
        if (outAvail != n) break;
        continue;
      }
      if (rc != BZ_OK) {
        error_.set(DecodeFailure::damaged, "bzip2 data is damaged");
        return -1;
      }
    }
    return static_cast<std::ptrdiff_t>(n - bz_.avail_out);
  }

 private:
  std::unique_ptr<InStream> src_;
  DecodeError& error_;
  std::vector<std::uint8_t> in_;
  bz_stream bz_{};
  bool ok_ = false;
};

class AesStream : public InStream {
 public:
  AesStream(std::unique_ptr<InStream> src, const std::vector<std::uint8_t>& key,
            const std::uint8_t iv[16], DecodeError& error)
      : src_(std::move(src)), error_(error), in_(kBuffer), out_(kBuffer + 32) {
    ctx_ = EVP_CIPHER_CTX_new();
    ok_ = ctx_ && EVP_DecryptInit_ex(ctx_, EVP_aes_256_cbc(), nullptr, key.data(), iv) == 1 &&
          EVP_CIPHER_CTX_set_padding(ctx_, 0) == 1;
  }
  ~AesStream() override { EVP_CIPHER_CTX_free(ctx_); }

  std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) override {
    if (!ok_) {
      error_.set(DecodeFailure::damaged, "AES could not start");
      return -1;
    }
    while (outPos_ == outLen_) {
      if (srcEnd_) return 0;
      // Keep whole blocks; a partial one waits for the rest.
      const auto got = src_->read(in_.data() + pending_, in_.size() - pending_);
      if (got < 0) return -1;
      if (got == 0) {
        srcEnd_ = true;
        if (pending_ != 0) {
          error_.set(DecodeFailure::damaged, "encrypted data is not whole blocks");
          return -1;
        }
        return 0;
      }
      pending_ += static_cast<std::size_t>(got);
      const std::size_t whole = pending_ / 16 * 16;
      int len = 0;
      if (whole > 0 &&
          EVP_DecryptUpdate(ctx_, out_.data(), &len, in_.data(), static_cast<int>(whole)) != 1) {
        error_.set(DecodeFailure::damaged, "AES failed");
        return -1;
      }
      std::memmove(in_.data(), in_.data() + whole, pending_ - whole);
      pending_ -= whole;
      outPos_ = 0;
      outLen_ = static_cast<std::size_t>(len);
    }
    const std::size_t take = std::min(n, outLen_ - outPos_);
    std::memcpy(buf, out_.data() + outPos_, take);
    outPos_ += take;
    return static_cast<std::ptrdiff_t>(take);
  }

 private:
  std::unique_ptr<InStream> src_;
  DecodeError& error_;
  std::vector<std::uint8_t> in_;
  std::vector<std::uint8_t> out_;
  std::size_t pending_ = 0;
  std::size_t outPos_ = 0;
  std::size_t outLen_ = 0;
  bool srcEnd_ = false;
  EVP_CIPHER_CTX* ctx_ = nullptr;
  bool ok_ = false;
};

bool isBranchOrDelta(std::uint64_t id) {
  switch (id) {
    case kDelta:
    case kX86:
    case kBcjX86:
    case kPpc:
    case kBcjPpc:
    case kIa64:
    case kBcjIa64:
    case kArm:
    case kBcjArm:
    case kArmt:
    case kBcjArmt:
    case kSparc:
    case kBcjSparc:
    case kArm64:
      return true;
    default:
      return false;
  }
}

bool isSupported(std::uint64_t id) {
  return id == kCopy || id == kLzma || id == kLzma2 || id == kDeflate || id == kBzip2 ||
         id == kAes || isBranchOrDelta(id);
}

std::uint32_t le32(const std::vector<std::uint8_t>& p, std::size_t at) {
  return std::uint32_t(p[at]) | std::uint32_t(p[at + 1]) << 8 | std::uint32_t(p[at + 2]) << 16 |
         std::uint32_t(p[at + 3]) << 24;
}

// Adds the liblzma filter for a branch or delta coder.
bool addSmallFilter(FilterChain& chain, const Coder& c, DecodeError& error) {
  lzma_filter f{};
  if (c.id == kDelta) {
    auto opt = std::make_unique<lzma_options_delta>();
    opt->type = LZMA_DELTA_TYPE_BYTE;
    opt->dist = c.props.empty() ? 1 : c.props[0] + 1u;
    f.id = LZMA_FILTER_DELTA;
    f.options = opt.get();
    chain.delta.push_back(std::move(opt));
  } else {
    switch (c.id) {
      case kX86:
      case kBcjX86:
        f.id = LZMA_FILTER_X86;
        break;
      case kPpc:
      case kBcjPpc:
        f.id = LZMA_FILTER_POWERPC;
        break;
      case kIa64:
      case kBcjIa64:
        f.id = LZMA_FILTER_IA64;
        break;
      case kArm:
      case kBcjArm:
        f.id = LZMA_FILTER_ARM;
        break;
      case kArmt:
      case kBcjArmt:
        f.id = LZMA_FILTER_ARMTHUMB;
        break;
      case kSparc:
      case kBcjSparc:
        f.id = LZMA_FILTER_SPARC;
        break;
      case kArm64:
        f.id = LZMA_FILTER_ARM64;
        break;
      default:
        error.set(DecodeFailure::unsupported, "unsupported method " + methodName(c.id));
        return false;
    }
    if (c.props.size() >= 4) {
      auto opt = std::make_unique<lzma_options_bcj>();
      opt->start_offset = le32(c.props, 0);
      f.options = opt.get();
      chain.bcj.push_back(std::move(opt));
    }
  }
  chain.filters.push_back(f);
  return true;
}

bool addLzmaFilter(FilterChain& chain, const Coder& c, std::uint64_t unpackSize,
                   DecodeError& error) {
  auto opt = std::make_unique<lzma_options_lzma>();
  lzma_filter f{};
  if (c.id == kLzma) {
    if (c.props.size() < 5 || c.props[0] >= 9 * 5 * 5) {
      error.set(DecodeFailure::damaged, "bad LZMA properties");
      return false;
    }
    unsigned d = c.props[0];
    opt->lc = d % 9;
    d /= 9;
    opt->lp = d % 5;
    opt->pb = d / 5;
    opt->dict_size = std::max<std::uint32_t>(le32(c.props, 1), LZMA_DICT_SIZE_MIN);
    opt->ext_flags = LZMA_LZMA1EXT_ALLOW_EOPM;
    opt->ext_size_low = static_cast<std::uint32_t>(unpackSize);
    opt->ext_size_high = static_cast<std::uint32_t>(unpackSize >> 32);
    f.id = LZMA_FILTER_LZMA1EXT;
  } else {
    if (c.props.empty() || c.props[0] > 40) {
      error.set(DecodeFailure::damaged, "bad LZMA2 properties");
      return false;
    }
    const unsigned p = c.props[0];
    opt->dict_size = p == 40 ? 0xFFFFFFFFu : (2u | (p & 1u)) << (p / 2 + 11);
    f.id = LZMA_FILTER_LZMA2;
  }
  f.options = opt.get();
  chain.lzma.push_back(std::move(opt));
  chain.filters.push_back(f);
  return true;
}

struct KeyCache {
  std::mutex lock;
  std::string password;
  std::vector<std::uint8_t> salt;
  unsigned power = 0;
  std::vector<std::uint8_t> key;
};

KeyCache& keyCache() {
  static KeyCache cache;
  return cache;
}

std::unique_ptr<InStream> openAes(std::unique_ptr<InStream> src, const Coder& c,
                                  const std::function<std::string()>& password,
                                  DecodeError& error) {
  const auto& p = c.props;
  if (p.empty()) {
    error.set(DecodeFailure::damaged, "bad AES properties");
    return nullptr;
  }
  const unsigned power = p[0] & 0x3F;
  std::size_t saltSize = 0;
  std::size_t ivSize = 0;
  if (p[0] & 0xC0) {
    if (p.size() < 2) {
      error.set(DecodeFailure::damaged, "bad AES properties");
      return nullptr;
    }
    saltSize = ((p[0] >> 7) & 1u) + (p[1] >> 4);
    ivSize = ((p[0] >> 6) & 1u) + (p[1] & 0x0Fu);
  }
  if (p.size() != ((p[0] & 0xC0) ? 2 : 1) + saltSize + ivSize || ivSize > 16) {
    error.set(DecodeFailure::damaged, "bad AES properties");
    return nullptr;
  }
  if (power > kMaxAesPower) {
    error.set(DecodeFailure::limits, "AES key derivation cost is too high");
    return nullptr;
  }
  const std::string pw = password ? password() : std::string();
  if (pw.empty()) {
    error.set(DecodeFailure::password, "A password is needed");
    return nullptr;
  }
  const std::size_t base = (p[0] & 0xC0) ? 2 : 1;
  std::vector<std::uint8_t> salt(p.begin() + base, p.begin() + base + saltSize);
  std::uint8_t iv[16] = {};
  std::memcpy(iv, p.data() + base + saltSize, ivSize);
  auto key = deriveAesKey(pw, salt, power);
  return std::make_unique<AesStream>(std::move(src), key, iv, error);
}

}  // namespace

std::vector<std::uint8_t> utf16leBytes(const std::string& utf8) {
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i < utf8.size();) {
    const auto c = static_cast<unsigned char>(utf8[i]);
    std::uint32_t cp = c;
    std::size_t len = 1;
    if (c >= 0xF0 && i + 3 < utf8.size() + 0) {
      cp = (c & 0x07u) << 18 | (utf8[i + 1] & 0x3Fu) << 12 | (utf8[i + 2] & 0x3Fu) << 6 |
           (utf8[i + 3] & 0x3Fu);
      len = 4;
    } else if (c >= 0xE0 && i + 2 < utf8.size()) {
      cp = (c & 0x0Fu) << 12 | (utf8[i + 1] & 0x3Fu) << 6 | (utf8[i + 2] & 0x3Fu);
      len = 3;
    } else if (c >= 0xC0 && i + 1 < utf8.size()) {
      cp = (c & 0x1Fu) << 6 | (utf8[i + 1] & 0x3Fu);
      len = 2;
    }
    i += len;
    auto put = [&](std::uint32_t u) {
      out.push_back(static_cast<std::uint8_t>(u & 0xFF));
      out.push_back(static_cast<std::uint8_t>(u >> 8));
    };
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(0xD800 + (cp >> 10));
      put(0xDC00 + (cp & 0x3FF));
    } else {
      put(cp);
    }
  }
  return out;
}

std::vector<std::uint8_t> deriveAesKey(const std::string& passwordUtf8,
                                       const std::vector<std::uint8_t>& salt, unsigned power) {
  auto& cache = keyCache();
  {
    std::lock_guard guard(cache.lock);
    if (!cache.key.empty() && cache.password == passwordUtf8 && cache.salt == salt &&
        cache.power == power)
      return cache.key;
  }
  const auto pw = utf16leBytes(passwordUtf8);
  std::vector<std::uint8_t> key(32, 0);
  if (power == 0x3F) {
    std::vector<std::uint8_t> all(salt);
    all.insert(all.end(), pw.begin(), pw.end());
    std::copy_n(all.begin(), std::min<std::size_t>(32, all.size()), key.begin());
  } else {
    // Rounds are hashed in batches: one digest update per many rounds.
    const std::size_t round = salt.size() + pw.size() + 8;
    const std::uint64_t rounds = std::uint64_t{1} << power;
    const std::uint64_t perBatch = std::min<std::uint64_t>(rounds, 4096);
    std::vector<std::uint8_t> batch(round * perBatch);
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    EVP_DigestInit_ex(md, EVP_sha256(), nullptr);
    for (std::uint64_t done = 0; done < rounds; done += perBatch) {
      for (std::uint64_t k = 0; k < perBatch; ++k) {
        std::uint8_t* r = batch.data() + k * round;
        std::copy(salt.begin(), salt.end(), r);
        std::copy(pw.begin(), pw.end(), r + salt.size());
        std::uint64_t counter = done + k;
        for (int b = 0; b < 8; ++b) r[salt.size() + pw.size() + b] = (counter >> (8 * b)) & 0xFF;
      }
      EVP_DigestUpdate(md, batch.data(), batch.size());
    }
    unsigned len = 32;
    EVP_DigestFinal_ex(md, key.data(), &len);
    EVP_MD_CTX_free(md);
  }
  std::lock_guard guard(cache.lock);
  cache.password = passwordUtf8;
  cache.salt = salt;
  cache.power = power;
  cache.key = key;
  return key;
}

std::unique_ptr<InStream> fileRangeStream(int fd, std::uint64_t offset, std::uint64_t length,
                                          DecodeError& error) {
  return std::make_unique<FileRangeStream>(fd, offset, length, error);
}

std::unique_ptr<InStream> openFolder(int fd, const Folder& folder,
                                     const std::vector<std::uint64_t>& packOffsets,
                                     const std::vector<std::uint64_t>& packSizes,
                                     const std::function<std::string()>& password,
                                     DecodeError& error) {
  // Methods we do not decode are named before anything else.
  for (const auto& c : folder.coders) {
    if (!isSupported(c.id) || c.numInStreams != 1 || c.numOutStreams != 1) {
      error.set(DecodeFailure::unsupported, "Unsupported compression method " + methodName(c.id));
      return nullptr;
    }
  }
  // With one stream each way, coder i reads in-stream i and writes out-stream
  // i. Walk from the output back to the packed stream.
  const auto mainOut = folder.mainOutStream();
  if (!mainOut || folder.packedStreams.size() != 1 ||
      folder.unpackSizes.size() != folder.coders.size()) {
    error.set(DecodeFailure::damaged, "coders are not connected");
    return nullptr;
  }
  std::vector<std::uint32_t> chain;  // output side first
  std::vector<bool> seen(folder.coders.size(), false);
  std::uint32_t cur = *mainOut;
  for (;;) {
    if (cur >= folder.coders.size() || seen[cur]) {
      error.set(DecodeFailure::damaged, "coders form a cycle");
      return nullptr;
    }
    seen[cur] = true;
    chain.push_back(cur);
    const BindPair* bp = nullptr;
    for (const auto& b : folder.bindPairs)
      if (b.inIndex == cur) bp = &b;
    if (!bp) {
      if (folder.packedStreams[0] != cur) {
        error.set(DecodeFailure::damaged, "a coder reads an unbound stream");
        return nullptr;
      }
      break;
    }
    cur = bp->outIndex;
  }
  if (chain.size() != folder.coders.size()) {
    error.set(DecodeFailure::damaged, "a coder is not connected");
    return nullptr;
  }
  std::reverse(chain.begin(), chain.end());  // packed side first

  const std::uint64_t packIndex = folder.firstPackStream;
  if (packIndex >= packSizes.size() || packIndex >= packOffsets.size()) {
    error.set(DecodeFailure::damaged, "pack stream missing");
    return nullptr;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || packOffsets[packIndex] > static_cast<std::uint64_t>(st.st_size) ||
      packSizes[packIndex] > static_cast<std::uint64_t>(st.st_size) - packOffsets[packIndex]) {
    error.set(DecodeFailure::damaged, "pack stream lies beyond the end of the archive");
    return nullptr;
  }
  std::unique_ptr<InStream> stream =
      fileRangeStream(fd, packOffsets[packIndex], packSizes[packIndex], error);

  for (std::size_t i = 0; i < chain.size(); ++i) {
    const Coder& c = folder.coders[chain[i]];
    std::uint64_t size = folder.unpackSizes[chain[i]];
    if (c.id == kCopy) {
      // sized below
    } else if (c.id == kAes) {
      stream = openAes(std::move(stream), c, password, error);
      if (!stream) return nullptr;
    } else if (c.id == kDeflate) {
      stream = std::make_unique<InflateStream>(std::move(stream), error);
    } else if (c.id == kBzip2) {
      stream = std::make_unique<Bzip2Stream>(std::move(stream), error);
    } else {
      // LZMA, LZMA2, or branch/delta filters on anything: one liblzma chain
      // takes the coder and the filters that follow it (at most four).
      FilterChain fc;
      if (c.id == kLzma || c.id == kLzma2) {
        if (!addLzmaFilter(fc, c, size, error)) return nullptr;
      } else {
        stream = std::make_unique<Lzma2WrapStream>(std::move(stream));
        Coder wrap;
        wrap.id = kLzma2;
        wrap.props = {0};  // 4 KiB: uncompressed chunks need no dictionary
        if (!addLzmaFilter(fc, wrap, 0, error) || !addSmallFilter(fc, c, error)) return nullptr;
      }
      while (i + 1 < chain.size() && fc.filters.size() < LZMA_FILTERS_MAX &&
             isBranchOrDelta(folder.coders[chain[i + 1]].id)) {
        ++i;
        if (!addSmallFilter(fc, folder.coders[chain[i]], error)) return nullptr;
        size = folder.unpackSizes[chain[i]];
      }
      std::reverse(fc.filters.begin(), fc.filters.end());  // liblzma: LZMA last
      auto lz = std::make_unique<LzmaStream>(std::move(stream), std::move(fc), error);
      if (!lz->init()) return nullptr;
      stream = std::move(lz);
    }
    stream = std::make_unique<SizedStream>(std::move(stream), size, error);
  }
  return stream;
}

}  // namespace harbor::sevenzip

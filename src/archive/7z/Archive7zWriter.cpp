#include "archive/7z/Archive7zWriter.h"

#include <fcntl.h>
#include <lzma.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "archive/7z/SevenZipCoders.h"
#include "archive/7z/SevenZipFormat.h"
#include "archive/ArchiveError.h"
#include "archive/SafeExtraction.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"

namespace harbor {
using namespace sevenzip;
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kBlock = 1 << 20;
constexpr unsigned kAesPower = 19;

// Headers are built with the format's variable-length numbers.
class HeaderBytes {
 public:
  void byte(std::uint8_t b) { out.push_back(b); }
  void bytes(const std::vector<std::uint8_t>& v) { out.insert(out.end(), v.begin(), v.end()); }
  void u32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i) byte(static_cast<std::uint8_t>(v >> (8 * i)));
  }
  void u64(std::uint64_t v) {
    for (int i = 0; i < 8; ++i) byte(static_cast<std::uint8_t>(v >> (8 * i)));
  }
  void number(std::uint64_t v) {
    for (int i = 0; i < 8; ++i) {
      if (v < (std::uint64_t{1} << (7 * (i + 1)))) {
        byte(static_cast<std::uint8_t>(((0xFF00u >> i) & 0xFFu) | (v >> (8 * i))));
        for (int k = 0; k < i; ++k) byte(static_cast<std::uint8_t>(v >> (8 * k)));
        return;
      }
    }
    byte(0xFF);
    u64(v);
  }
  void bits(const std::vector<bool>& v) {
    std::uint8_t cur = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
      if (v[i]) cur |= static_cast<std::uint8_t>(0x80 >> (i % 8));
      if (i % 8 == 7) {
        byte(cur);
        cur = 0;
      }
    }
    if (v.size() % 8) byte(cur);
  }
  std::vector<std::uint8_t> out;
};

// AES-256-CBC over whatever is pushed; the tail is zero-padded to a block.
class AesWriter {
 public:
  AesWriter(const std::vector<std::uint8_t>& key, const std::uint8_t iv[16]) {
    ctx_ = EVP_CIPHER_CTX_new();
    ok_ = ctx_ && EVP_EncryptInit_ex(ctx_, EVP_aes_256_cbc(), nullptr, key.data(), iv) == 1 &&
          EVP_CIPHER_CTX_set_padding(ctx_, 0) == 1;
  }
  ~AesWriter() { EVP_CIPHER_CTX_free(ctx_); }
  bool ok() const { return ok_; }
  // Appends the ciphertext of `data` to `out`.
  bool push(const std::uint8_t* data, std::size_t n, std::vector<std::uint8_t>& out) {
    pending_.insert(pending_.end(), data, data + n);
    const std::size_t whole = pending_.size() / 16 * 16;
    if (whole == 0) return true;
    const std::size_t at = out.size();
    out.resize(at + whole);
    int len = 0;
    if (EVP_EncryptUpdate(ctx_, out.data() + at, &len, pending_.data(), static_cast<int>(whole)) !=
        1)
      return false;
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(whole));
    return true;
  }
  bool finish(std::vector<std::uint8_t>& out) {
    if (pending_.empty()) return true;
    std::vector<std::uint8_t> pad(16 - pending_.size(), 0);
    return push(pad.data(), pad.size(), out);
  }

 private:
  EVP_CIPHER_CTX* ctx_ = nullptr;
  bool ok_ = false;
  std::vector<std::uint8_t> pending_;
};

struct AesSetup {
  std::vector<std::uint8_t> key;
  std::uint8_t iv[16];
  std::vector<std::uint8_t> props;
};

bool makeAes(const std::string& password, AesSetup& aes) {
  if (RAND_bytes(aes.iv, sizeof aes.iv) != 1) return false;
  aes.key = deriveAesKey(password, {}, kAesPower);
  aes.props = {static_cast<std::uint8_t>(kAesPower | 0x40), 0x0F};
  aes.props.insert(aes.props.end(), aes.iv, aes.iv + 16);
  return true;
}

std::uint8_t lzma2DictProp(std::uint32_t dict) {
  for (unsigned p = 0; p < 40; ++p)
    if (((2u | (p & 1u)) << (p / 2 + 11)) >= dict) return static_cast<std::uint8_t>(p);
  return 40;
}

// Smallest power of two holding `size`, from 4 KiB to 64 MiB.
std::uint32_t dictionaryFor(std::uint64_t size) {
  std::uint32_t d = 4096;
  while (d < size && d < (64u << 20)) d <<= 1;
  return d;
}

void writeCoder(HeaderBytes& h, const std::vector<std::uint8_t>& id,
                const std::vector<std::uint8_t>& props) {
  h.byte(static_cast<std::uint8_t>(id.size() | (props.empty() ? 0 : 0x20)));
  h.bytes(id);
  if (!props.empty()) {
    h.number(props.size());
    h.bytes(props);
  }
}

// A folder of one compressor, with AES after it when `aes` is given.
void writeFolder(HeaderBytes& h, const std::vector<std::uint8_t>& id,
                 const std::vector<std::uint8_t>& props, const AesSetup* aes) {
  h.number(aes ? 2 : 1);
  writeCoder(h, id, props);
  if (aes) {
    writeCoder(h, {0x06, 0xF1, 0x07, 0x01}, aes->props);
    h.number(0);  // the compressor reads what AES puts out
    h.number(1);
  }
}

// Compresses a whole buffer with LZMA (the header).
bool lzmaBuffer(const std::vector<std::uint8_t>& in, std::vector<std::uint8_t>& out,
                std::vector<std::uint8_t>& props) {
  lzma_options_lzma opt;
  if (lzma_lzma_preset(&opt, 9)) return false;
  opt.dict_size = dictionaryFor(in.size());
  lzma_filter filters[2] = {{LZMA_FILTER_LZMA1, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  lzma_stream strm = LZMA_STREAM_INIT;
  if (lzma_raw_encoder(&strm, filters) != LZMA_OK) return false;
  out.resize(in.size() + in.size() / 2 + 1024);
  strm.next_in = in.data();
  strm.avail_in = in.size();
  strm.next_out = out.data();
  strm.avail_out = out.size();
  lzma_ret rc;
  while ((rc = lzma_code(&strm, LZMA_FINISH)) == LZMA_OK) {
    const std::size_t used = out.size() - strm.avail_out;
    out.resize(out.size() * 2);
    strm.next_out = out.data() + used;
    strm.avail_out = out.size() - used;
  }
  out.resize(out.size() - strm.avail_out);
  lzma_end(&strm);
  if (rc != LZMA_STREAM_END) return false;
  props = {static_cast<std::uint8_t>((opt.pb * 5 + opt.lp) * 9 + opt.lc)};
  for (int i = 0; i < 4; ++i) props.push_back(static_cast<std::uint8_t>(opt.dict_size >> (8 * i)));
  return true;
}

struct Entry {
  std::string name;
  bool isDir = false;
  bool hasStream = false;
  unsigned mode = 0;
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::optional<std::uint64_t> mtime;
};

// Removes the temporary file unless told the archive is complete.
struct TempFile {
  std::string path;
  FILE* f = nullptr;
  bool keep = false;
  ~TempFile() {
    if (f) std::fclose(f);
    if (!keep) ::unlink(path.c_str());
  }
};

}  // namespace

Archive7zWriter::Archive7zWriter(std::string path) : path_(std::move(path)) {}

bool Archive7zWriter::fail(long code, const std::string& message) {
  lastError_ = Error{kArchiveErrorDomain, code, message};
  HB_LOG("Archive7zWriter", path_ + ": " + message);
  return false;
}

bool Archive7zWriter::open(std::optional<Error>* error) {
  lastError_.reset();
  const fs::path parent = fs::path(path_).parent_path();
  const std::string dir = parent.empty() ? std::string(".") : parent.string();
  if (method_ != 1)
    fail(3, "Unsupported method");
  else if (::access(dir.c_str(), W_OK) != 0)
    fail(1, "Cannot write in " + dir);
  opened_ = !lastError_;
  if (error) *error = lastError_;
  return opened_;
}

bool Archive7zWriter::addPath(const std::string& path, const std::string& forPath) {
  std::string name = forPath;
  while (!name.empty() && name.back() == '/') name.pop_back();
  if (name.empty()) return false;
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return fail(4, "Cannot read " + path);
  pending_.push_back({path, name});
  return true;
}

bool Archive7zWriter::write() {
  if (!opened_ && !open(nullptr)) return false;
  lastError_.reset();
  const std::string password = passwordGetter_ ? passwordGetter_() : std::string();
  const bool encryptContent = encodeContent_ && !password.empty();
  const bool encryptHeader = encodeHeader_ && !password.empty();

  std::vector<Entry> entries;
  std::uint64_t total = 0;
  for (const auto& p : pending_) {
    struct stat st {};
    if (::lstat(p.source.c_str(), &st) != 0) return fail(4, "Cannot read " + p.source);
    Entry e;
    e.name = p.name;
    e.mode = st.st_mode & 0xFFFF;
    e.isDir = S_ISDIR(st.st_mode);
    e.hasStream = !e.isDir && (S_ISLNK(st.st_mode) || st.st_size > 0);
    if (S_ISREG(st.st_mode)) total += static_cast<std::uint64_t>(st.st_size);
    if (writeModificationTime_)
      e.mtime = static_cast<std::uint64_t>(st.st_mtim.tv_sec + 11644473600ll) * 10000000ull +
                static_cast<std::uint64_t>(st.st_mtim.tv_nsec / 100);
    entries.push_back(std::move(e));
  }

  TempFile temp;
  temp.path = extraction::temporaryBeside(path_);
  temp.f = std::fopen(temp.path.c_str(), "wb");
  if (!temp.f) return fail(1, "Cannot create " + path_);
  std::uint8_t zeros[kStartHeaderSize] = {};
  std::uint64_t offset = 0;  // bytes written after the start header
  auto put = [&](const std::uint8_t* data, std::size_t n) {
    if (n == 0) return true;
    if (std::fwrite(data, 1, n, temp.f) != n) return false;
    offset += n;
    return true;
  };
  if (std::fwrite(zeros, 1, sizeof zeros, temp.f) != sizeof zeros)
    return fail(5, "Cannot write " + path_);

  // Content: one LZMA2 stream over all data, AES behind it when asked.
  AesSetup contentAes;
  if (encryptContent && !makeAes(password, contentAes)) return fail(4, "No random numbers for AES");
  lzma_options_lzma opt;
  lzma_lzma_preset(&opt, static_cast<std::uint32_t>(std::clamp(level_, 0, 9)));
  opt.dict_size = dictionaryFor(total);
  const std::vector<std::uint8_t> lzma2Props = {lzma2DictProp(opt.dict_size)};
  std::uint64_t dataSize = 0;
  std::uint64_t lzmaSize = 0;
  std::uint64_t packSize = 0;
  bool anyStream = false;
  for (const auto& e : entries) anyStream |= e.hasStream;
  if (anyStream) {
    lzma_filter filters[2] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
    lzma_stream strm = LZMA_STREAM_INIT;
    if (lzma_raw_encoder(&strm, filters) != LZMA_OK) return fail(4, "Cannot start LZMA2");
    std::unique_ptr<lzma_stream, void (*)(lzma_stream*)> guard(&strm, lzma_end);
    std::unique_ptr<AesWriter> aes;
    if (encryptContent) {
      aes = std::make_unique<AesWriter>(contentAes.key, contentAes.iv);
      if (!aes->ok()) return fail(4, "Cannot start AES");
    }
    std::vector<std::uint8_t> in(kBlock);
    std::vector<std::uint8_t> out(kBlock);
    std::vector<std::uint8_t> cipher;
    auto emit = [&](std::size_t n) {
      lzmaSize += n;
      if (!aes) return put(out.data(), n);
      cipher.clear();
      return aes->push(out.data(), n, cipher) && put(cipher.data(), cipher.size());
    };
    auto pump = [&](const std::uint8_t* data, std::size_t n, lzma_action action) {
      strm.next_in = data;
      strm.avail_in = n;
      for (;;) {
        strm.next_out = out.data();
        strm.avail_out = out.size();
        const lzma_ret rc = lzma_code(&strm, action);
        if (rc != LZMA_OK && rc != LZMA_STREAM_END) return false;
        if (!emit(out.size() - strm.avail_out)) return false;
        if (rc == LZMA_STREAM_END) return true;
        if (strm.avail_in == 0 && strm.avail_out != 0 && action == LZMA_RUN) return true;
      }
    };
    std::uint64_t done = 0;
    for (auto& e : entries) {
      if (!e.hasStream) continue;
      const std::string& source = pending_[static_cast<std::size_t>(&e - entries.data())].source;
      if (S_ISLNK(e.mode)) {
        std::vector<char> link(4096);
        const ssize_t n = ::readlink(source.c_str(), link.data(), link.size());
        if (n < 0) return fail(4, "Cannot read " + source);
        e.size = static_cast<std::uint64_t>(n);
        e.crc = crc32(link.data(), static_cast<std::size_t>(n));
        if (!pump(reinterpret_cast<const std::uint8_t*>(link.data()), static_cast<std::size_t>(n),
                  LZMA_RUN))
          return fail(5, "Cannot write " + path_);
        dataSize += e.size;
        continue;
      }
      const int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) return fail(4, "Cannot read " + source);
      std::uint32_t crc = 0;
      std::uint64_t size = 0;
      bool ok = true;
      for (;;) {
        if (isCurrentThreadCancelled()) {
          ::close(fd);
          return fail(100, "The operation is canceled");
        }
        const ssize_t n = ::read(fd, in.data(), in.size());
        if (n < 0) ok = false;
        if (n <= 0) break;
        crc = crc32(in.data(), static_cast<std::size_t>(n), crc);
        size += static_cast<std::uint64_t>(n);
        if (!pump(in.data(), static_cast<std::size_t>(n), LZMA_RUN)) {
          ::close(fd);
          return fail(5, "Cannot write " + path_);
        }
        done += static_cast<std::uint64_t>(n);
        if (delegate_ && total > 0)
          delegate_->onArchive7zWriterWriteProgress(*this, float(double(done) / double(total)));
      }
      ::close(fd);
      if (!ok) return fail(4, "Cannot read " + source);
      e.size = size;
      e.crc = crc;
      dataSize += size;
    }
    if (!pump(nullptr, 0, LZMA_FINISH)) return fail(5, "Cannot write " + path_);
    if (aes) {
      cipher.clear();
      if (!aes->finish(cipher) || !put(cipher.data(), cipher.size()))
        return fail(5, "Cannot write " + path_);
    }
    packSize = offset;
  }

  // The header.
  HeaderBytes h;
  h.byte(kHeader);
  std::size_t numStreams = 0;
  for (const auto& e : entries) numStreams += e.hasStream;
  if (numStreams > 0) {
    h.byte(kMainStreamsInfo);
    h.byte(kPackInfo);
    h.number(0);
    h.number(1);
    h.byte(kSize);
    h.number(packSize);
    h.byte(kEnd);
    h.byte(kUnPackInfo);
    h.byte(kFolder);
    h.number(1);
    h.byte(0);
    writeFolder(h, {0x21}, lzma2Props, encryptContent ? &contentAes : nullptr);
    h.byte(kCodersUnPackSize);
    h.number(dataSize);
    if (encryptContent) h.number(lzmaSize);
    h.byte(kEnd);
    h.byte(kSubStreamsInfo);
    h.byte(kNumUnPackStream);
    h.number(numStreams);
    if (numStreams > 1) {
      h.byte(kSize);
      std::size_t k = 0;
      for (const auto& e : entries)
        if (e.hasStream && ++k < numStreams) h.number(e.size);
    }
    h.byte(kCRC);
    h.byte(1);
    for (const auto& e : entries)
      if (e.hasStream) h.u32(e.crc);
    h.byte(kEnd);
    h.byte(kEnd);
  }
  if (!entries.empty()) {
    h.byte(kFilesInfo);
    h.number(entries.size());
    if (numStreams < entries.size()) {
      std::vector<bool> empty;
      std::vector<bool> emptyFile;
      for (const auto& e : entries) {
        empty.push_back(!e.hasStream);
        if (!e.hasStream) emptyFile.push_back(!e.isDir);
      }
      HeaderBytes b;
      b.bits(empty);
      h.byte(kEmptyStream);
      h.number(b.out.size());
      h.bytes(b.out);
      HeaderBytes f;
      f.bits(emptyFile);
      h.byte(kEmptyFile);
      h.number(f.out.size());
      h.bytes(f.out);
    }
    HeaderBytes names;
    names.byte(0);
    for (const auto& e : entries) {
      names.bytes(utf16leBytes(e.name));
      names.byte(0);
      names.byte(0);
    }
    h.byte(kName);
    h.number(names.out.size());
    h.bytes(names.out);
    bool anyTime = false;
    for (const auto& e : entries) anyTime |= e.mtime.has_value();
    if (anyTime) {
      HeaderBytes t;
      t.byte(1);
      t.byte(0);
      for (const auto& e : entries) t.u64(e.mtime.value_or(0));
      h.byte(kLastWriteTime);
      h.number(t.out.size());
      h.bytes(t.out);
    }
    HeaderBytes attrs;
    attrs.byte(1);
    attrs.byte(0);
    for (const auto& e : entries)
      attrs.u32(0x8000u | (e.isDir ? 0x10u : 0u) | (std::uint32_t(e.mode) << 16));
    h.byte(kWinAttributes);
    h.number(attrs.out.size());
    h.bytes(attrs.out);
    h.byte(kEnd);
  }
  h.byte(kEnd);

  std::vector<std::uint8_t> next = std::move(h.out);
  if (compressHeader_ || encryptHeader) {
    std::vector<std::uint8_t> packed;
    std::vector<std::uint8_t> props;
    if (!lzmaBuffer(next, packed, props)) return fail(4, "Cannot compress the header");
    AesSetup headerAes;
    const std::uint64_t lzmaHeaderSize = packed.size();
    if (encryptHeader) {
      if (!makeAes(password, headerAes)) return fail(4, "No random numbers for AES");
      AesWriter aes(headerAes.key, headerAes.iv);
      std::vector<std::uint8_t> cipher;
      if (!aes.ok() || !aes.push(packed.data(), packed.size(), cipher) || !aes.finish(cipher))
        return fail(4, "Cannot encrypt the header");
      packed = std::move(cipher);
    }
    const std::uint64_t headerPos = offset;
    if (!put(packed.data(), packed.size())) return fail(5, "Cannot write " + path_);
    HeaderBytes e;
    e.byte(kEncodedHeader);
    e.byte(kPackInfo);
    e.number(headerPos);
    e.number(1);
    e.byte(kSize);
    e.number(packed.size());
    e.byte(kEnd);
    e.byte(kUnPackInfo);
    e.byte(kFolder);
    e.number(1);
    e.byte(0);
    writeFolder(e, {0x03, 0x01, 0x01}, props, encryptHeader ? &headerAes : nullptr);
    e.byte(kCodersUnPackSize);
    e.number(next.size());
    if (encryptHeader) e.number(lzmaHeaderSize);
    e.byte(kCRC);
    e.byte(1);
    e.u32(crc32(next.data(), next.size()));
    e.byte(kEnd);
    e.byte(kEnd);
    next = std::move(e.out);
  }
  const std::uint64_t nextOffset = offset;
  if (!put(next.data(), next.size())) return fail(5, "Cannot write " + path_);

  HeaderBytes start;
  start.u64(nextOffset);
  start.u64(next.size());
  start.u32(crc32(next.data(), next.size()));
  HeaderBytes sig;
  sig.bytes({kSignature, kSignature + 6});
  sig.byte(0);
  sig.byte(4);
  sig.u32(crc32(start.out.data(), start.out.size()));
  sig.bytes(start.out);
  if (std::fseek(temp.f, 0, SEEK_SET) != 0 ||
      std::fwrite(sig.out.data(), 1, sig.out.size(), temp.f) != sig.out.size())
    return fail(5, "Cannot write " + path_);
  const bool closed = std::fclose(temp.f) == 0;
  temp.f = nullptr;
  if (!closed) return fail(5, "Cannot write " + path_);
  if (std::rename(temp.path.c_str(), path_.c_str()) != 0) return fail(5, "Cannot create " + path_);
  temp.keep = true;
  if (delegate_) delegate_->onArchive7zWriterWriteProgress(*this, 1.0f);
  return true;
}

}  // namespace harbor

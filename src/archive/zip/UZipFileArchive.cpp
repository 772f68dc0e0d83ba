#include "archive/zip/UZipFileArchive.h"

#include <minizip/zip.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <zlib.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "archive/ArchiveError.h"
#include "archive/SafeExtraction.h"
#include "archive/zip/ZipAes.h"
#include "archive/zip/ZipCrypto.h"
#include "archive/zip/ZipEntryData.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

constexpr std::uint32_t kDirAttributes = 0x41ED0000;
constexpr std::uint32_t kLinkAttributes = 0xA1A40000;
constexpr std::uint32_t kFileAttributes = 0x81A40000;
constexpr std::size_t kBlock = 64 * 1024;
constexpr std::uint8_t kAesStrength = 3;  // 256-bit keys
constexpr std::uint16_t kAesVersion = 2;  // no CRC: the authentication code vouches

void put16(unsigned char* p, std::uint16_t v) {
  p[0] = static_cast<unsigned char>(v & 0xff);
  p[1] = static_cast<unsigned char>(v >> 8);
}

// minizip writes only the methods it compresses itself, so AES entries go in
// as raw deflate with the AES field and are marked as method 99 (and as
// needing version 5.1) once the archive is closed.
bool markAesEntries(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "r+b");
  if (!f) return false;
  bool ok = true;
  const auto cd = zipdata::centralDirectory(f);
  if (!cd) ok = false;
  std::uint64_t at = cd ? cd->offset : 0;
  for (std::uint64_t i = 0; ok && i < cd->entries; ++i) {
    const auto entry = zipdata::locate(f, at);
    if (!entry) {
      ok = false;
      break;
    }
    if (entry->aes && entry->method == Z_DEFLATED) {
      unsigned char version[2];
      unsigned char method[2];
      put16(version, 51);
      put16(method, 99);
      const auto patch = [&](std::uint64_t offset, const unsigned char* bytes) {
        return fseeko(f, static_cast<off_t>(offset), SEEK_SET) == 0 &&
               std::fwrite(bytes, 1, 2, f) == 2;
      };
      ok = patch(at + 6, version) && patch(at + 10, method) &&
           patch(entry->localOffset + 4, version) && patch(entry->localOffset + 8, method);
    }
    at += entry->centralSize;
  }
  return std::fclose(f) == 0 && ok;
}

zipFile handle(void* p) {
  return static_cast<zipFile>(p);
}

bool crcOfFile(const std::string& path, std::uint32_t& crc) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  std::vector<unsigned char> buf(kBlock);
  uLong c = crc32(0, nullptr, 0);
  std::size_t n;
  while ((n = std::fread(buf.data(), 1, buf.size(), f)) > 0)
    c = crc32(c, buf.data(), static_cast<uInt>(n));
  std::fclose(f);
  crc = static_cast<std::uint32_t>(c);
  return true;
}

}  // namespace

UZipFileArchive::UZipFileArchive(std::string filePath, IActionProgress* delegate,
                                 ZipPropertyOptions options)
    : ZipBase(std::move(filePath), delegate, std::move(options)) {
  // Written beside the target under a hidden name, so that a run that
  // could not add every source never leaves a file under the final name.
  tempPath_ = extraction::temporaryBeside(filePath_);
  zipFile_ = zipOpen64(tempPath_.c_str(), APPEND_STATUS_CREATE);
  if (!zipFile_) {
    zipMsg_.push_back("Can't open '" + FileUtil::getFileName(filePath_) + "'");
    error_ = errorFailedOpenFile();
  }
}

UZipFileArchive::~UZipFileArchive() {
  close();
}

bool UZipFileArchive::close() {
  if (!zipFile_) return false;
  bool ok = zipClose(handle(zipFile_), nullptr) == ZIP_OK;
  zipFile_ = nullptr;
  if (ok && wroteAes_) ok = markAesEntries(tempPath_);
  if (!ok) zipMsg_.push_back("Error in closing '" + FileUtil::getFileName(filePath_) + "'");
  if (ok && zipMsg_.empty() && !cancelled_ &&
      std::rename(tempPath_.c_str(), filePath_.c_str()) == 0)
    return true;
  ::unlink(tempPath_.c_str());
  return false;
}

void UZipFileArchive::zip(const std::string& path) {
  if (!zipFile_) return;
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
    zipFolder(path);
  else
    zipFileToDesFile(path);
}

bool UZipFileArchive::zipOpenNewFile(const std::string& name, std::uint32_t attributes,
                                     bool isLargeFile, std::uint32_t crc) {
  zip_fileinfo zi{};
  // Entries carry the time of compression.
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  zi.tmz_date.tm_sec = static_cast<uInt>(tm.tm_sec);
  zi.tmz_date.tm_min = static_cast<uInt>(tm.tm_min);
  zi.tmz_date.tm_hour = static_cast<uInt>(tm.tm_hour);
  zi.tmz_date.tm_mday = static_cast<uInt>(tm.tm_mday);
  zi.tmz_date.tm_mon = static_cast<uInt>(tm.tm_mon);
  zi.tmz_date.tm_year = static_cast<uInt>(tm.tm_year + 1900);
  zi.external_fa = attributes;
  // Encrypted entries are deflated and ciphered here and stored raw.
  const bool encrypt = !password_.empty() && attributes != kDirAttributes;
  const auto aesField = zipdata::ZipAesCipher::extraField(kAesVersion, kAesStrength, Z_DEFLATED);
  const void* extra = encrypt && aes() ? aesField.data() : nullptr;
  const uInt extraSize = extra ? static_cast<uInt>(aesField.size()) : 0;
  // Made by Unix (3) so readers take the mode from the external attributes;
  // flag bit 11 marks the name as UTF-8.
  int rc = zipOpenNewFileInZip4_64(
      handle(zipFile_), name.c_str(), &zi, extra, extraSize, extra, extraSize, nullptr, Z_DEFLATED,
      Z_DEFAULT_COMPRESSION, encrypt ? 1 : 0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY,
      nullptr, crc, (3 << 8) | 30, (1 << 11) | (encrypt ? 1 : 0), isLargeFile ? 1 : 0);
  if (rc != ZIP_OK) {
    zipMsg_.push_back("Error in opening '" + name + "' in zipfile");
    return false;
  }
  return true;
}

void UZipFileArchive::zipOnlyFolder(const std::string& path) {
  std::string name = getRelativePath(path);
  if (name.empty()) return;
  name += "/";
  if (zipOpenNewFile(name, kDirAttributes, false, 0)) zipCloseFileInZip(handle(zipFile_));
}

void UZipFileArchive::zipFolder(const std::string& path) {
  zipOnlyFolder(path);
  std::vector<fs::path> children;
  std::error_code ec;
  for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec)) {
    if (propertyOptions_.isIgnoreHiddenFile && it->path().filename().string().starts_with("."))
      continue;
    children.push_back(it->path());
  }
  std::sort(children.begin(), children.end());
  for (const auto& child : children) {
    if (isCurrentThreadCancelled()) {
      cancelled_ = true;
      return;
    }
    zip(child.string());
  }
}

void UZipFileArchive::zipFileToDesFile(const std::string& path) {
  const std::string name = getRelativePath(path);
  if (name.empty()) return;
  std::string linkTarget;
  if (FileUtil::isSybolicLinkPath(path, &linkTarget)) {
    std::uint32_t crc =
        static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(linkTarget.data()),
                                         static_cast<uInt>(linkTarget.size())));
    if (!zipOpenNewFile(name, kLinkAttributes, false, crc)) return;
    bool done = false;
    writeEntryData(name, crc, [&](char* buf, std::size_t cap) -> std::size_t {
      if (done) return 0;
      done = true;
      std::size_t n = std::min(cap, linkTarget.size());
      std::copy_n(linkTarget.data(), n, buf);
      return n;
    });
    return;
  }
  std::uint32_t crc = 0;
  FILE* in = std::fopen(path.c_str(), "rb");
  // The traditional cipher's header needs the CRC before the data.
  if (!in || (!password_.empty() && !aes() && !crcOfFile(path, crc))) {
    zipMsg_.push_back("cannot read '" + path + "': " + std::strerror(errno));
    if (in) std::fclose(in);
    return;
  }
  struct stat st;
  std::uint32_t attributes = kFileAttributes;
  bool large = false;
  if (fstat(fileno(in), &st) == 0) {
    large = static_cast<std::uint64_t>(st.st_size) >= 0xFFFFFFFFull;
    attributes = static_cast<std::uint32_t>(S_IFREG | (st.st_mode & 0777)) << 16;
  }
  if (!zipOpenNewFile(name, attributes, large, crc)) {
    std::fclose(in);
    return;
  }
  bool readFailed = false;
  writeEntryData(name, crc, [&](char* buf, std::size_t cap) -> std::size_t {
    if (isCurrentThreadCancelled()) {
      cancelled_ = true;
      return 0;
    }
    const std::size_t n = std::fread(buf, 1, cap, in);
    if (n == 0 && std::ferror(in)) readFailed = true;
    return n;
  });
  if (readFailed) zipMsg_.push_back("cannot read '" + path + "'");
  std::fclose(in);
}

void UZipFileArchive::writeEntryData(const std::string& name, std::uint32_t crc,
                                     const std::function<std::size_t(char*, std::size_t)>& next) {
  zipFile zf = handle(zipFile_);
  std::vector<char> buf(kBlock);
  bool failed = false;
  if (password_.empty()) {
    std::size_t n;
    while (!failed && (n = next(buf.data(), buf.size())) > 0) {
      if (zipWriteInFileInZip(zf, buf.data(), static_cast<unsigned>(n)) != ZIP_OK) failed = true;
      reportProgress(n);
    }
    if (failed) zipMsg_.push_back("Error in writing '" + name + "' in the zipfile");
    if (zipCloseFileInZip(zf) != ZIP_OK)
      zipMsg_.push_back("Error in closing '" + name + "' in the zipfile");
    return;
  }
  // Either cipher: its header first, then the deflated data enciphered, and
  // for AES the authentication code last.
  std::optional<ZipCrypto> crypto;
  std::unique_ptr<zipdata::ZipAesCipher> aesCipher;
  if (aes()) {
    unsigned char salt[zipdata::ZipAesCipher::saltSize(kAesStrength)];
    std::array<unsigned char, zipdata::ZipAesCipher::kCheckSize> check{};
    if (RAND_bytes(salt, sizeof salt) == 1)
      aesCipher = zipdata::ZipAesCipher::derive(password_, salt, kAesStrength, check);
    failed = !aesCipher || zipWriteInFileInZip(zf, salt, sizeof salt) != ZIP_OK ||
             zipWriteInFileInZip(zf, check.data(), static_cast<unsigned>(check.size())) != ZIP_OK;
    wroteAes_ = true;
  } else {
    crypto.emplace(password_);
    unsigned char header[ZipCrypto::kHeaderSize];
    crypto->makeHeader(header, crc);
    failed = zipWriteInFileInZip(zf, header, sizeof header) != ZIP_OK;
  }
  const auto encipher = [&](unsigned char* data, std::size_t n) {
    if (crypto) {
      crypto->encrypt(data, n);
      return true;
    }
    return aesCipher->crypt(data, n) && aesCipher->authenticate(data, n);
  };
  z_stream zs{};
  if (failed || deflateInit2(&zs, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, DEF_MEM_LEVEL,
                             Z_DEFAULT_STRATEGY) != Z_OK) {
    zipMsg_.push_back("Error in writing '" + name + "' in the zipfile");
    zipCloseFileInZipRaw64(zf, 0, crc);
    return;
  }
  std::vector<unsigned char> out(kBlock);
  std::uint64_t total = 0;
  uLong realCrc = crc32(0, nullptr, 0);
  bool end = false;
  while (!failed && !end) {
    std::size_t n = next(buf.data(), buf.size());
    end = n == 0;
    if (crypto)
      realCrc = crc32(realCrc, reinterpret_cast<Bytef*>(buf.data()), static_cast<uInt>(n));
    total += n;
    zs.next_in = reinterpret_cast<Bytef*>(buf.data());
    zs.avail_in = static_cast<uInt>(n);
    do {
      zs.next_out = out.data();
      zs.avail_out = static_cast<uInt>(out.size());
      deflate(&zs, end ? Z_FINISH : Z_NO_FLUSH);
      const std::size_t produced = out.size() - zs.avail_out;
      if (!encipher(out.data(), produced) ||
          (produced &&
           zipWriteInFileInZip(zf, out.data(), static_cast<unsigned>(produced)) != ZIP_OK))
        failed = true;
    } while (!failed && zs.avail_out == 0);
    reportProgress(n);
  }
  deflateEnd(&zs);
  if (aesCipher && !failed) {
    std::array<unsigned char, zipdata::ZipAesCipher::kAuthSize> code{};
    failed = !aesCipher->finish(code) ||
             zipWriteInFileInZip(zf, code.data(), static_cast<unsigned>(code.size())) != ZIP_OK;
  }
  // A file that changed since its CRC was taken would fail every check.
  if (crypto && realCrc != crc) failed = true;
  if (failed) zipMsg_.push_back("Error in writing '" + name + "' in the zipfile");
  // Version 2 of the AES format stores no CRC.
  if (zipCloseFileInZipRaw64(zf, total, aesCipher ? 0 : crc) != ZIP_OK)
    zipMsg_.push_back("Error in closing '" + name + "' in the zipfile");
}

void UZipFileArchive::reportProgress(std::uint64_t bytes) {
  if (auto due = progressSize_.add(bytes); due && delegate_) delegate_->progressFinished(*due);
}

}  // namespace harbor

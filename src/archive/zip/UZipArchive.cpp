#include "archive/zip/UZipArchive.h"

#include <minizip/unzip.h>
#include <sys/stat.h>
#include <zlib.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "archive/zip/ZipCrypto.h"
#include "encoding/EncodingUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kBlock = 64 * 1024;

unzFile handle(void* p) {
  return static_cast<unzFile>(p);
}

struct CurrentInfo {
  unz_file_info64 info{};
  std::vector<char> rawName;
};

bool readInfo(unzFile z, CurrentInfo& out) {
  if (unzGetCurrentFileInfo64(z, &out.info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
    return false;
  out.rawName.assign(out.info.size_filename + 1, '\0');
  return unzGetCurrentFileInfo64(z, &out.info, out.rawName.data(), out.rawName.size(), nullptr, 0,
                                 nullptr, 0) == UNZ_OK;
}

std::optional<std::chrono::system_clock::time_point> infoDate(const unz_file_info64& info) {
  std::tm tm{};
  tm.tm_year = static_cast<int>(info.tmu_date.tm_year) - 1900;
  tm.tm_mon = static_cast<int>(info.tmu_date.tm_mon);
  tm.tm_mday = static_cast<int>(info.tmu_date.tm_mday);
  tm.tm_hour = static_cast<int>(info.tmu_date.tm_hour);
  tm.tm_min = static_cast<int>(info.tmu_date.tm_min);
  tm.tm_sec = static_cast<int>(info.tmu_date.tm_sec);
  tm.tm_isdst = -1;
  std::time_t t = std::mktime(&tm);
  if (t == -1) return std::nullopt;
  return std::chrono::system_clock::from_time_t(t);
}

unsigned fileMode(const unz_file_info64& info) {
  // Only archives made on Unix keep a mode in the high half.
  if ((info.version >> 8) != 3) return 0;
  return static_cast<unsigned>(info.external_fa >> 16);
}

std::string normalised(std::string name) {
  for (char& c : name)
    if (c == '\\') c = '/';
  return name;
}

// The data of the current entry. Plain entries go through minizip; encrypted
// ones are read raw, deciphered and inflated here.
class EntryReader {
 public:
  EntryReader(unzFile z, const unz_file_info64& info) : z_(z), info_(info) {}
  ~EntryReader() {
    if (opened_) unzCloseCurrentFile(z_);
    if (inflating_) inflateEnd(&stream_);
  }
  enum class Open { ok, failed, wrongPassword };
  Open open(const std::string& password) {
    if (!(info_.flag & 1)) {
      opened_ = unzOpenCurrentFile(z_) == UNZ_OK;
      return opened_ ? Open::ok : Open::failed;
    }
    int method = 0, level = 0;
    if (unzOpenCurrentFile2(z_, &method, &level, 1) != UNZ_OK) return Open::failed;
    opened_ = true;
    encrypted_ = true;
    crypto_.emplace(password);
    unsigned char header[ZipCrypto::kHeaderSize];
    if (unzReadCurrentFile(z_, header, sizeof header) != static_cast<int>(sizeof header))
      return Open::failed;
    // With a data descriptor the check byte comes from the time, else the CRC.
    const auto check = (info_.flag & 8) ? static_cast<unsigned char>(info_.dosDate >> 8)
                                        : static_cast<unsigned char>(info_.crc >> 24);
    if (!crypto_->checkHeader(header, check)) return Open::wrongPassword;
    if (method == Z_DEFLATED) {
      if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) return Open::failed;
      inflating_ = true;
    } else if (method != 0) {
      return Open::failed;
    }
    return Open::ok;
  }
  // Bytes read, 0 at the end, -1 for damage.
  int read(char* out, unsigned cap) {
    if (!encrypted_) return unzReadCurrentFile(z_, out, cap);
    if (!inflating_) {
      int n = unzReadCurrentFile(z_, out, cap);
      if (n > 0) finishBlock(out, n);
      return n;
    }
    if (ended_) return 0;
    stream_.next_out = reinterpret_cast<Bytef*>(out);
    stream_.avail_out = cap;
    for (;;) {
      if (stream_.avail_in == 0) {
        int n = unzReadCurrentFile(z_, in_, sizeof in_);
        if (n < 0) return -1;
        if (n == 0) return -1;  // cut short before the end of the stream
        crypto_->decrypt(reinterpret_cast<unsigned char*>(in_), static_cast<std::size_t>(n));
        stream_.next_in = reinterpret_cast<Bytef*>(in_);
        stream_.avail_in = static_cast<uInt>(n);
      }
      int rc = inflate(&stream_, Z_NO_FLUSH);
      if (rc == Z_STREAM_END)
        ended_ = true;
      else if (rc != Z_OK && rc != Z_BUF_ERROR)
        return -1;
      const int produced = static_cast<int>(cap - stream_.avail_out);
      if (produced > 0 || ended_) {
        crc_ = crc32(crc_, reinterpret_cast<Bytef*>(out), static_cast<uInt>(produced));
        return produced;
      }
    }
  }
  // True when the data was whole and its CRC matches.
  bool finish() {
    opened_ = false;
    const int rc = unzCloseCurrentFile(z_);
    if (!encrypted_) return rc == UNZ_OK;
    return crc_ == info_.crc;
  }

 private:
  void finishBlock(char* out, int n) {
    crypto_->decrypt(reinterpret_cast<unsigned char*>(out), static_cast<std::size_t>(n));
    crc_ = crc32(crc_, reinterpret_cast<Bytef*>(out), static_cast<uInt>(n));
  }
  unzFile z_;
  const unz_file_info64& info_;
  bool opened_ = false;
  bool encrypted_ = false;
  bool inflating_ = false;
  bool ended_ = false;
  std::optional<ZipCrypto> crypto_;
  z_stream stream_{};
  char in_[64 * 1024];
  uLong crc_ = crc32(0, nullptr, 0);
};

}  // namespace

UZipArchive::~UZipArchive() {
  closeArchive();
}

bool UZipArchive::openArchive() {
  progressSize_ = 0;
  error_.reset();
  closeArchive();
  zip_ = unzOpen64(filePath_.c_str());
  if (!zip_) {
    setError(errorFailedOpenFile());
    return false;
  }
  unz_global_info64 global;
  if (unzGetGlobalInfo64(handle(zip_), &global) != UNZ_OK) {
    setError(errorFailedOpenFile());
    closeArchive();
    return false;
  }
  int rc = unzGoToFirstFile(handle(zip_));
  if (rc != UNZ_OK && !(rc == UNZ_END_OF_LIST_OF_FILE && global.number_entry == 0)) {
    setError(errorFailedOpenFirstFile());
    closeArchive();
    return false;
  }
  return true;
}

void UZipArchive::closeArchive() {
  std::lock_guard guard(lock_);
  if (zip_) unzClose(handle(zip_));
  zip_ = nullptr;
}

void UZipArchive::detectorEncoding() {
  if (!openArchive()) return;
  unzFile z = handle(zip_);
  for (int rc = unzGoToFirstFile(z); rc == UNZ_OK; rc = unzGoToNextFile(z)) {
    if (isCurrentThreadCancelled()) break;
    CurrentInfo ci;
    if (!readInfo(z, ci)) break;
    // Names flagged UTF-8 need no guessing.
    if (!(ci.info.flag & 0x800)) appendDataToEncodingData(ci.rawName.data(), ci.info.size_filename);
    if (encodingData_.size() > 256) break;
  }
  closeArchive();
  const std::string gathered = encodingData_;
  convertDetectorEncoding();
  // Unflagged zip names are CP437 by definition: used when the names are not
  // UTF-8 and detection finds nothing better than a Western guess, which is
  // nearly always that code page misread.
  const std::string guess = toLower(encodingName_);
  if (!gathered.empty() && !StringEncodings::decode(gathered, kUTF8StringEncoding) &&
      (guess == "utf-8" || guess == "iso-8859-1" || guess == "windows-1252")) {
    encodingName_ = "IBM437";
    encoding_ = EncodingUtil::convertStringToNSStringEncoding(encodingName_);
  }
}

bool UZipArchive::listFiles() {
  rootEntry_->clear();
  detectorEncoding();
  if (!openArchive()) return false;
  unzFile z = handle(zip_);
  for (int rc = unzGoToFirstFile(z); rc == UNZ_OK; rc = unzGoToNextFile(z)) {
    if (checkCancelled()) break;
    CurrentInfo ci;
    unz64_file_pos pos{};
    if (!readInfo(z, ci) || unzGetFilePos64(z, &pos) != UNZ_OK) {
      setError(errorArchive());
      break;
    }
    std::string name = (ci.info.flag & 0x800)
                           ? std::string(ci.rawName.data(), ci.info.size_filename)
                           : charToString(ci.rawName.data(), ci.info.size_filename);
    name = normalised(name);
    if (isIgnore(name) || name.empty()) continue;
    const bool isDir = name.back() == '/';
    std::optional<std::string> alias;
    auto entry = std::make_shared<ZipEntry>(
        name, FilePos{pos.pos_in_zip_directory, pos.num_of_file},
        static_cast<std::uint32_t>(ci.info.crc), ci.info.compressed_size, ci.info.uncompressed_size,
        static_cast<std::uint16_t>(ci.info.compression_method), alias, infoDate(ci.info), !isDir);
    rootEntry_->addToRootEntry(entry);
  }
  closeArchive();
  return !error_;
}

bool UZipArchive::isEncrypted() {
  if (isCheckContainsPassword_) return isContainsPassword_;
  isCheckContainsPassword_ = true;
  isContainsPassword_ = false;
  std::optional<Error> saved = error_;
  if (!openArchive()) {
    error_ = saved;
    return false;
  }
  unzFile z = handle(zip_);
  for (int rc = unzGoToFirstFile(z); rc == UNZ_OK; rc = unzGoToNextFile(z)) {
    unz_file_info64 info;
    if (unzGetCurrentFileInfo64(z, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) break;
    if (info.flag & 1) {
      isContainsPassword_ = true;
      break;
    }
  }
  closeArchive();
  error_ = saved;
  return isContainsPassword_;
}

bool UZipArchive::unArchiveFile(const std::string& destination, const std::string& relative,
                                const std::string& entryPath) {
  unzFile z = handle(zip_);
  CurrentInfo ci;
  if (!readInfo(z, ci)) {
    setError(errorArchive());
    return false;
  }
  auto target = safeTarget(destination, relative);
  if (!target) return true;  // refused and recorded; the rest goes on
  const bool isDir = !relative.empty() && relative.back() == '/';
  if (isDir || relative.empty()) {
    FileUtil::createFolder(*target);
    return true;
  }
  const bool encrypted = ci.info.flag & 1;
  if (encrypted && password_.empty()) {
    passwordFailure_ = true;
    setError({kArchiveErrorDomain, kArchiveErrorArchive, "A password is needed for " + entryPath});
    return false;
  }
  auto reader = std::make_unique<EntryReader>(z, ci.info);
  const auto opened = reader->open(password_);
  if (opened != EntryReader::Open::ok) {
    if (opened == EntryReader::Open::wrongPassword) {
      passwordFailure_ = true;
      setError({kArchiveErrorDomain, kArchiveErrorArchive, "Wrong password for " + entryPath});
    } else {
      setError(errorArchive());
    }
    return false;
  }
  const unsigned mode = fileMode(ci.info);
  const auto date = infoDate(ci.info);
  if ((mode & S_IFMT) == S_IFLNK) {
    // A link's data is its target; longer targets are cut.
    std::vector<char> buf(4096);
    int n = reader->read(buf.data(), static_cast<unsigned>(buf.size()));
    if (n < 0) {
      setError(errorArchive());
      return false;
    }
    std::string linkTarget = charToString(buf.data(), static_cast<std::size_t>(n));
    return makeLink(destination, *target, linkTarget, entryPath);
  }
  std::uint64_t written = 0;
  bool readFailed = false;
  bool ok = writeFileAtomically(*target, [&](const Sink& sink) {
    std::vector<char> buf(kBlock);
    for (;;) {
      if (checkCancelled()) return false;
      int n = reader->read(buf.data(), static_cast<unsigned>(buf.size()));
      if (n < 0) {
        readFailed = true;
        return false;
      }
      if (n == 0) break;
      if (!sink(buf.data(), static_cast<std::size_t>(n))) return false;
      written += static_cast<std::uint64_t>(n);
      addProgress(static_cast<std::uint64_t>(n));
    }
    // A CRC or size mismatch means damage.
    if (!reader->finish() || written != ci.info.uncompressed_size) {
      readFailed = true;
      return false;
    }
    return true;
  });
  if (!ok) {
    if (readFailed) setError(errorFailedToCreateFile(FileUtil::getFileName(*target)));
    return false;
  }
  applyAttributes(*target, mode, date);
  return true;
}

bool UZipArchive::unArchiveAll(const std::string& destination) {
  if (!openArchive()) return false;
  unzFile z = handle(zip_);
  bool ok = true;
  for (int rc = unzGoToFirstFile(z); rc == UNZ_OK; rc = unzGoToNextFile(z)) {
    if (checkCancelled()) {
      ok = false;
      break;
    }
    CurrentInfo ci;
    if (!readInfo(z, ci)) {
      setError(errorArchive());
      ok = false;
      break;
    }
    std::string name = (ci.info.flag & 0x800)
                           ? std::string(ci.rawName.data(), ci.info.size_filename)
                           : charToString(ci.rawName.data(), ci.info.size_filename);
    name = normalised(name);
    if (isIgnore(name)) continue;
    if (!unArchiveFile(destination, name, name)) {
      ok = false;
      break;
    }
  }
  closeArchive();
  return ok;
}

bool UZipArchive::unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& destination,
                                            const std::string& base) {
  if (checkCancelled()) return false;
  std::string relative = entry.path().substr(std::min(base.size(), entry.path().size()));
  if (!entry.isLeaf()) {
    if (auto target = safeTarget(destination, relative)) {
      FileUtil::createFolder(*target);
      if (isArchiveFileTime_ && entry.date()) FileUtil::setFileModifiedDate(*entry.date(), *target);
    }
    for (const auto& child : entry.children())
      if (!unArchiveAssignDetailPath(*child, destination, base)) return false;
    return true;
  }
  unz64_file_pos pos{entry.getFilePos().pos_in_zip_directory, entry.getFilePos().num_of_file};
  if (unzGoToFilePos64(handle(zip_), &pos) != UNZ_OK) {
    setError(errorArchive());
    return false;
  }
  return unArchiveFile(destination, relative, entry.path());
}

bool UZipArchive::unArchivePath(const ZipEntry* entry, const std::string& destination) {
  refused_.clear();
  if (!entry || entry->isRootEntry()) return unArchiveAll(destination);
  if (!openArchive()) return false;
  bool ok = unArchiveAssignDetailPath(*entry, destination, entry->leadingPath());
  closeArchive();
  return ok;
}

}  // namespace harbor

#include "archive/zip/UZipArchive.h"

#include <fstream>

#include <algorithm>

#include <minizip/unzip.h>
#include <sys/stat.h>
#include <zlib.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "archive/zip/ZipEntryReader.h"
#include "encoding/EncodingUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;
using namespace zipentry;
namespace {

constexpr std::size_t kBlock = 64 * 1024;

unzFile handle(void* p) {
  return static_cast<unzFile>(p);
}

}  // namespace

UZipArchive::~UZipArchive() {
  closeArchive();
}

namespace {

// minizip never finds an end record at the very start of a file, which is
// where an archive with no entries keeps it; such a file is a valid, empty zip.
bool isEmptyZip(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes(22 + 65535 + 1, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  if (bytes.size() < 22 || bytes.compare(0, 4, "PK\x05\x06") != 0) return false;
  auto u16 = [&](std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes[at]) |
                                 static_cast<unsigned char>(bytes[at + 1]) << 8);
  };
  return u16(8) == 0 && u16(10) == 0 && u16(20) == bytes.size() - 22;
}

}  // namespace

bool UZipArchive::openArchive() {
  progressSize_.reset();
  error_.reset();
  closeArchive();
  zip_ = unzOpen64(filePath_.c_str());
  if (!zip_) {
    // No handle: the walks over entries find none.
    if (isEmptyZip(filePath_)) return true;
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
  // UTF-8 and detection finds nothing better than a guess among the Latin
  // tables, which is nearly always that code page misread.
  const std::string guess = toLower(encodingName_);
  static const char* const kLatin[] = {
      "utf-8",        "iso-8859-1",   "iso-8859-2",   "iso-8859-3",
      "iso-8859-4",   "iso-8859-9",   "iso-8859-13",  "iso-8859-15",
      "windows-1250", "windows-1252", "windows-1254", "windows-1257",
      "macintosh",    "ibm850",       "ibm852",       "x-mac-centraleurroman"};
  if (!gathered.empty() && !StringEncodings::decode(gathered, kUTF8StringEncoding) &&
      std::find(std::begin(kLatin), std::end(kLatin), guess) != std::end(kLatin)) {
    encodingName_ = "IBM437";
    encoding_ = EncodingUtil::convertStringToNSStringEncoding(encodingName_);
  }
}

std::string UZipArchive::entryName(const CurrentInfo& ci) const {
  // Names flagged UTF-8 are taken as they are.
  return normalised((ci.info.flag & 0x800)
                        ? std::string(ci.rawName.data(), ci.info.size_filename)
                        : charToString(ci.rawName.data(), ci.info.size_filename));
}

Error UZipArchive::damaged(const std::string& entry, const std::string& why, int code) {
  return {kArchiveErrorDomain, code, entry + ": " + (why.empty() ? "damaged data" : why)};
}

Error UZipArchive::passwordError(const CurrentInfo& ci) const {
  const std::string name = entryName(ci);
  return {kArchiveErrorDomain, kArchiveErrorArchive,
          (password_.empty() ? "A password is needed for " : "Wrong password for ") + name};
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
    // Entries are opened as they are listed, so an encrypted one without the
    // right password ends the list there.
    ZipEntryReader probe(z, ci.info, filePath_);
    // An entry in a method not decoded here still lists; only its
    // extraction fails, naming the method.
    if (const auto opened = probe.open(password_);
        opened != ZipEntryReader::Open::ok && opened != ZipEntryReader::Open::unsupported) {
      passwordFailure_ = opened == ZipEntryReader::Open::wrongPassword;
      setError(passwordFailure_ ? passwordError(ci) : errorArchive());
      break;
    }
    std::string name = entryName(ci);
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
  auto reader = std::make_unique<ZipEntryReader>(z, ci.info, filePath_);
  const auto opened = reader->open(password_);
  if (opened == ZipEntryReader::Open::unsupported) {
    refuse(entryPath, reader->failure());  // the rest still extracts
    return true;
  }
  if (opened != ZipEntryReader::Open::ok) {
    if (opened == ZipEntryReader::Open::wrongPassword) {
      passwordFailure_ = true;
      setError(passwordError(ci));
    } else {
      setError(damaged(entryPath, reader->failure(), kArchiveErrorArchive));
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
    if (readFailed) {
      const std::string why = reader->failure().empty() ? "damaged data" : reader->failure();
      // The file could not be made whole: the code of a failed file, the cause in words.
      setError(damaged(entryPath, why, kArchiveErrorCreateFile));
      // AES authentication cannot tell a wrong password from damage.
      if (why.rfind("the authentication code", 0) == 0) passwordFailure_ = true;
    }
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
    std::string name = entryName(ci);
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

#include "archive/zip/SSZipArchive.h"

#include <sys/stat.h>

#include <filesystem>
#include <utility>

#include "archive/ArchiveError.h"
#include "archive/SafeExtraction.h"
#include "archive/zip/ZipEntryReader.h"
#include "encoding/StringEncodings.h"
#include "filemanager/FileModes.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;
using namespace zipentry;
namespace {

constexpr unsigned kBlock = 4096;
constexpr TableEncoding kGB18030 = 1586;

// UTF-8 first, then GB 18030, which old tools in that region wrote.
std::string decodeName(const std::vector<char>& raw, std::size_t length) {
  const std::string_view bytes(raw.data(), length);
  if (auto s = StringEncodings::decode(bytes, kUTF8StringEncoding)) return toUtf8(*s);
  const StringEncoding gb = StringEncodings::convertEncodingToNSStringEncoding(kGB18030);
  if (auto s = StringEncodings::decode(bytes, gb)) return toUtf8(*s);
  return toUtf8(toUtf16(bytes));
}

void setAttributes(const std::string& path, unsigned mode,
                   const std::optional<std::chrono::system_clock::time_point>& date) {
  bool ok = true;
  ok = FileModes::apply(path, FileModes::forArchiveEntry(mode, false));
  if (date) ok = FileUtil::setFileModifiedDate(*date, path) && ok;
  if (!ok) HB_LOG("SSZipArchive", "Failed to set attributes");
}

class Unzipper {
 public:
  Unzipper(std::string destination, bool overwrite, const std::string& password,
           IActionProgress* delegate, std::vector<RefusedEntry>* refused)
      : destination_(std::move(destination)),
        overwrite_(overwrite),
        password_(password),
        delegate_(delegate),
        refused_(refused) {}
  ~Unzipper() {
    if (zip_) unzClose(zip_);
  }

  std::optional<Error> run(const std::string& path) {
    path_ = path;
    zip_ = unzOpen64(path.c_str());
    unz_global_info64 global;
    if (!zip_ || unzGetGlobalInfo64(zip_, &global) != UNZ_OK)
      return fail("failed to open zip file");
    int rc = unzGoToFirstFile(zip_);
    // An archive with no entries has nothing to extract, which is no failure.
    if (rc == UNZ_END_OF_LIST_OF_FILE && global.number_entry == 0) return std::nullopt;
    if (rc != UNZ_OK) return fail("failed to open first file in zip file");
    FileUtil::createFolder(destination_);
    for (; rc == UNZ_OK; rc = unzGoToNextFile(zip_)) {
      if (isCurrentThreadCancelled()) return errorCancelOpertion();
      if (auto error = extractCurrent()) return error;
    }
    if (rc != UNZ_END_OF_LIST_OF_FILE) return fail("failed to read the zip file's directory");
    // Folder dates last, since writing into a folder changes its date.
    for (const auto& [folder, date] : folderDates_)
      if (!FileUtil::setFileModifiedDate(date, folder))
        HB_LOG("SSZipArchive", "Failed to set attributes");
    return std::nullopt;
  }

 private:
  static Error fail(const std::string& message) {
    return {SSZipArchive::kErrorDomain, -1, message};
  }

  void refuse(const std::string& name, const std::string& reason) {
    HB_LOG("SSZipArchive", "refused " + name + ": " + reason);
    if (refused_) refused_->push_back({name, reason});
  }

  std::optional<Error> extractCurrent() {
    CurrentInfo ci;
    if (!readInfo(zip_, ci)) return fail("failed to read a file in zip file");
    const std::string name = normalised(decodeName(ci.rawName, ci.info.size_filename));
    const bool isDirectory = !name.empty() && name.back() == '/';
    std::string reason;
    const auto target = extraction::safeTarget(destination_, name, reason);
    if (!target) {
      refuse(name, reason);
      return std::nullopt;
    }
    const auto date = infoDate(ci.info);
    if (isDirectory || name.empty()) {
      FileUtil::createFolder(*target);
      if (date) folderDates_.emplace_back(*target, *date);
      return std::nullopt;
    }
    std::error_code ec;
    if (!overwrite_ && fs::exists(fs::symlink_status(*target, ec))) return std::nullopt;

    ZipEntryReader reader(zip_, ci.info, path_);
    switch (reader.open(password_)) {
      case ZipEntryReader::Open::ok:
        break;
      case ZipEntryReader::Open::wrongPassword:
        return fail((password_.empty() ? "a password is needed for " : "wrong password for ") +
                    name);
      case ZipEntryReader::Open::unsupported:
        refuse(name, reader.failure());
        return std::nullopt;
      case ZipEntryReader::Open::failed:
        return fail("failed to open " + name + " in zip file" +
                    (reader.failure().empty() ? "" : ": " + reader.failure()));
    }
    const unsigned mode = fileMode(ci.info);
    if ((mode & S_IFMT) == S_IFLNK) return makeLink(reader, name, *target);

    bool cancelled = false;
    std::uint64_t written = 0;
    const auto result = extraction::writeFileAtomically(*target, [&](const extraction::Sink& sink) {
      char block[kBlock];
      for (;;) {
        if (isCurrentThreadCancelled()) {
          cancelled = true;
          return false;
        }
        const int n = reader.read(block, kBlock);
        if (n < 0) return false;
        if (n == 0) break;
        if (!sink(block, static_cast<std::size_t>(n))) return false;
        written += static_cast<std::uint64_t>(n);
        if (delegate_) delegate_->progressFinished(static_cast<std::uint64_t>(n));
      }
      return reader.finish() && written == ci.info.uncompressed_size;
    });
    if (cancelled) return errorCancelOpertion();
    if (result != extraction::WriteResult::written) {
      return fail("failed to write " + name +
                  (reader.failure().empty() ? "" : ": " + reader.failure()));
    }
    setAttributes(*target, mode, date);
    return std::nullopt;
  }

  std::optional<Error> makeLink(ZipEntryReader& reader, const std::string& name,
                                const std::string& linkPath) {
    // A link's data is its target; longer targets are cut.
    std::vector<char> buf(4096);
    const int n = reader.read(buf.data(), static_cast<unsigned>(buf.size()));
    if (n < 0) return fail("failed to read " + name);
    const std::string target = decodeName(buf, static_cast<std::size_t>(n));
    if (!extraction::linkStaysInside(destination_, linkPath, target)) {
      refuse(name, "link points outside the destination");
      return std::nullopt;
    }
    if (!extraction::replaceWithLink(linkPath, target)) return fail("failed to write " + name);
    return std::nullopt;
  }

  std::string destination_;
  std::string path_;
  bool overwrite_;
  const std::string& password_;
  IActionProgress* delegate_;
  std::vector<RefusedEntry>* refused_;
  unzFile zip_ = nullptr;
  std::vector<std::pair<std::string, std::chrono::system_clock::time_point>> folderDates_;
};

}  // namespace

bool SSZipArchive::unzipFileAtPath(const std::string& path, const std::string& destination) {
  return unzipFileAtPath(path, destination, nullptr);
}

bool SSZipArchive::unzipFileAtPath(const std::string& path, const std::string& destination,
                                   IActionProgress* delegate) {
  return unzipFileAtPath(path, destination, true, "", nullptr, delegate);
}

bool SSZipArchive::unzipFileAtPath(const std::string& path, const std::string& destination,
                                   bool overwrite, const std::string& password,
                                   std::optional<Error>* error, IActionProgress* delegate,
                                   std::vector<RefusedEntry>* refused) {
  Unzipper unzipper(fs::path(destination).lexically_normal().string(), overwrite, password,
                    delegate, refused);
  auto failure = unzipper.run(path);
  if (error) *error = failure;
  return !failure;
}

}  // namespace harbor

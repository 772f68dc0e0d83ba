#include "archive/ArchiveBase.h"

#include <ctime>
#include <filesystem>

#include "archive/SafeExtraction.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "filemanager/FileModes.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "filemanager/TempDirectoryUtil.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;

ArchiveBase::ArchiveBase(std::string path, ZipEntry::Ptr rootEntry, IActionProgress* action,
                         std::string password, std::uint64_t fileEncoding)
    : rootEntry_(rootEntry ? std::move(rootEntry) : ZipEntry::rootEntry()),
      password_(std::move(password)),
      filePath_(std::move(path)),
      relativeDate_(dateFor1980()),
      fileEncoding_(fileEncoding),
      actionDelegate_(action) {}

void ArchiveBase::setPassword(const std::string& password) {
  password_ = password;
  passwordFailure_ = false;
}

bool ArchiveBase::isIgnore(std::string_view path) {
  return FileUtil::isIgnoredPath(path);
}

std::string ArchiveBase::charToString(const char* bytes, std::size_t length) const {
  std::string_view data(bytes, length);
  if (auto nul = data.find('\0'); nul != std::string_view::npos) data = data.substr(0, nul);
  if (fileEncoding_ != kNoForcedEncoding) {
    if (auto s = StringEncodings::decode(data, fileEncoding_)) return toUtf8(*s);
  }
  if (auto s = StringEncodings::decode(data, encoding_)) return toUtf8(*s);
  if (auto s = DetectorCharacter::detectorForCChar(data.data(), data.size())) return toUtf8(*s);
  return toUtf8(toUtf16(data));
}

void ArchiveBase::appendDataToEncodingData(const char* bytes, std::size_t length) {
  encodingData_.append(bytes, length);
}

void ArchiveBase::convertDetectorEncoding() {
  if (!encodingData_.empty()) {
    std::string data = encodingData_;
    while (data.size() < 100) data += encodingData_;
    auto charsets = DetectorCharacter::detectorDataEncoding(data);
    // Names are never stored in UTF-16 or UTF-32; repeated bytes can look so.
    std::erase_if(charsets, [](const std::string& name) {
      const std::string lower = toLower(name);
      return lower.starts_with("utf-16") || lower.starts_with("utf-32");
    });
    if (!charsets.empty()) {
      if (auto name = EncodingUtil::detectWithCharsetsRetrunCharset(charsets, data)) {
        encodingName_ = *name;
        encoding_ = EncodingUtil::convertStringToNSStringEncoding(*name);
      }
    }
  }
  encodingData_.clear();
  encodingData_.shrink_to_fit();
}

ArchiveBase::Date ArchiveBase::dateFor1980() {
  std::tm tm{};
  tm.tm_year = 80;
  tm.tm_mon = 0;
  tm.tm_mday = 1;
  tm.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&tm));
}

ArchiveBase::Date ArchiveBase::dateFor1970() {
  return std::chrono::system_clock::from_time_t(0);
}

std::optional<ArchiveBase::Date> ArchiveBase::dateAfter(Date base, std::int64_t seconds) {
  using std::chrono::duration_cast;
  // Archives may claim any number of seconds; the clock holds about 292
  // years either side of 1970, and beyond that there is no date.
  const std::int64_t limit = duration_cast<std::chrono::seconds>(Date::duration::max()).count() - 1;
  std::int64_t total = 0;
  if (__builtin_add_overflow(duration_cast<std::chrono::seconds>(base.time_since_epoch()).count(),
                             seconds, &total) ||
      total > limit || total < -limit)
    return std::nullopt;
  return base + duration_cast<Date::duration>(std::chrono::seconds(seconds));
}

std::optional<ArchiveBase::Date> ArchiveBase::getDateWithInterval(std::int64_t seconds) const {
  if (seconds <= 0) return std::nullopt;
  return dateAfter(relativeDate_, seconds);
}

std::string ArchiveBase::tempRootDirectory() {
  return TempDirectoryUtil::archiveDirectory();
}

std::string ArchiveBase::tempItemDirectory() {
  std::string dir = (fs::path(tempRootDirectory()) / extraction::uniqueName()).string();
  FileUtil::createFolder(dir);
  return dir;
}

void ArchiveBase::refuse(const std::string& path, const std::string& reason) {
  refused_.push_back({path, reason});
  HB_LOG("ArchiveBase", "refused " + path + ": " + reason);
}

std::optional<std::string> ArchiveBase::safeTarget(const std::string& destination,
                                                   const std::string& relative) {
  std::string reason;
  auto target = extraction::safeTarget(destination, relative, reason);
  if (!target) refuse(relative, reason);
  return target;
}

bool ArchiveBase::makeLink(const std::string& destination, const std::string& linkPath,
                           const std::string& target, const std::string& entryPath) {
  if (!extraction::linkStaysInside(destination, linkPath, target)) {
    refuse(entryPath, "link points outside the destination");
    return true;  // neutralised, not a failure of the archive
  }
  if (extraction::replaceWithLink(linkPath, target)) return true;
  // The system refuses some targets (longer than a path may be, for one).
  setError(errorFailedToCreateFile(FileUtil::getFileName(linkPath)));
  return false;
}

bool ArchiveBase::writeFileAtomically(const std::string& target,
                                      const std::function<bool(const Sink&)>& produce) {
  switch (extraction::writeFileAtomically(target, produce)) {
    case extraction::WriteResult::written:
      return true;
    case extraction::WriteResult::produceFailed:
      if (!error_) setError(errorFailedToCreateFile(FileUtil::getFileName(target)));
      return false;
    case extraction::WriteResult::ioFailed:
      break;
  }
  setError(errorFailedToCreateFile(FileUtil::getFileName(target)));
  return false;
}

void ArchiveBase::applyAttributes(const std::string& path, unsigned mode,
                                  const std::optional<Date>& date) {
  FileModes::apply(path, FileModes::forArchiveEntry(mode, false));
  if (isArchiveFileTime_ && date) FileUtil::setFileModifiedDate(*date, path);
}

void ArchiveBase::addProgress(std::uint64_t bytes) {
  if (auto due = progressSize_.add(bytes); due && actionDelegate_) {
    actionDelegate_->progressFinished(*due);
  }
}

bool ArchiveBase::checkCancelled() {
  if (isCurrentThreadCancelled()) {
    setError(errorCancelOpertion());
    return true;
  }
  return false;
}

}  // namespace harbor

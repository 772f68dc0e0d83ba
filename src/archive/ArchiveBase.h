#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/ArchiveError.h"
#include "archive/IArchive.h"
#include "archive/ProgressStep.h"
#include "encoding/StringEncodings.h"

namespace harbor {

class ArchiveBase : public IArchive {
 public:
  using Date = std::chrono::system_clock::time_point;
  static constexpr std::uint64_t kNoForcedEncoding = ~std::uint64_t{0};
  static constexpr std::uint64_t kProgressStep = 1024000;

  ArchiveBase(std::string path, ZipEntry::Ptr rootEntry, IActionProgress* action,
              std::string password, std::uint64_t fileEncoding = kNoForcedEncoding);

  void setPassword(const std::string& password) override;
  bool unArchivePath(const std::string& destination) override {
    return unArchivePath(nullptr, destination);
  }
  using IArchive::unArchivePath;
  void setFileEncoding(std::uint64_t encoding) override { fileEncoding_ = encoding; }
  std::optional<Error> archiveError() const override { return error_; }
  bool isEncryptedFileName() const override { return isEncryptedFileName_; }
  bool isProgressListFiles() const override { return false; }
  void setIsArchiveFileTime(bool value) override { isArchiveFileTime_ = value; }
  std::string filePath() const override { return filePath_; }
  ZipEntry::Ptr rootEntry() const override { return rootEntry_; }
  void setActionDelegate(IActionProgress* delegate) override { actionDelegate_ = delegate; }
  const std::vector<RefusedEntry>& refusedEntries() const override { return refused_; }
  bool isPasswordFailure() const override { return passwordFailure_; }

  // The names FileUtil ignores, and anything below them, are never shown.
  static bool isIgnore(std::string_view path);
  // Raw name bytes to UTF-8: forced encoding, archive encoding, detection.
  std::string charToString(const char* bytes, std::size_t length) const;
  void appendDataToEncodingData(const char* bytes, std::size_t length);
  void convertDetectorEncoding();
  const std::string& encodingName() const { return encodingName_; }

  static Date dateFor1980();  // local time
  static Date dateFor1970();  // GMT
  std::optional<Date> getDateWithInterval(std::int64_t seconds) const;
  // `base` moved by `seconds` (either way); none when the clock cannot hold it.
  static std::optional<Date> dateAfter(Date base, std::int64_t seconds);

  static std::string tempRootDirectory();
  static std::string tempItemDirectory();  // a new folder each call

 protected:
  // The full path for an entry under `destination`, or none when the entry
  // would leave it (".." components, an absolute name, or a folder on the way
  // that is a link); refusals are recorded.
  std::optional<std::string> safeTarget(const std::string& destination,
                                        const std::string& relative);
  void refuse(const std::string& path, const std::string& reason);

  // Writes a file through `produce` (see extraction::writeFileAtomically) and
  // turns a failure into error 5 unless the producer set its own.
  using Sink = std::function<bool(const char*, std::size_t)>;
  bool writeFileAtomically(const std::string& target,
                           const std::function<bool(const Sink&)>& produce);
  bool makeLink(const std::string& destination, const std::string& linkPath,
                const std::string& target, const std::string& entryPath);
  void applyAttributes(const std::string& path, unsigned mode, const std::optional<Date>& date);

  // Adds to progressSize and reports past the step.
  void addProgress(std::uint64_t bytes);
  bool checkCancelled();  // sets error 100 when cancelled
  void setError(const Error& e) { error_ = e; }

  std::optional<Error> error_;
  ZipEntry::Ptr rootEntry_;
  std::string password_;
  std::string filePath_;
  std::string encodingData_;
  std::string encodingName_ = "utf-8";
  Date relativeDate_;
  StringEncoding encoding_ = kUTF8StringEncoding;
  std::uint64_t fileEncoding_ = kNoForcedEncoding;
  bool isEncryptedFileName_ = false;
  IActionProgress* actionDelegate_ = nullptr;
  ProgressStep progressSize_{kProgressStep};
  bool isArchiveFileTime_ = true;
  bool isContainsPassword_ = false;
  bool isCheckContainsPassword_ = false;
  bool passwordFailure_ = false;
  std::vector<RefusedEntry> refused_;
  std::mutex lock_;
};

}  // namespace harbor

#pragma once

#include <memory>

#include "archive/ArchiveBase.h"
#include "archive/tar/UTarManager.h"
#include "filemanager/IActionProgress.h"

namespace harbor {

// Gzip and bzip2 hold one stream: it is expanded whole into a temporary file,
// which is read as tar when its name ends in ".tar", else offered as one file.
class SingleStreamArchive : public ArchiveBase {
 public:
  using ArchiveBase::ArchiveBase;
  ~SingleStreamArchive() override;

  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override { return false; }
  bool isProgressListFiles() const override { return true; }
  std::optional<Error> archiveError() const override;
  const std::vector<RefusedEntry>& refusedEntries() const override;
  void setActionDelegate(IActionProgress* delegate) override;
  void setFileEncoding(std::uint64_t encoding) override;

  bool generateTempFile();
  void removeTempFile();
  bool isTar() const;
  const std::string& tempFile() const { return tempFile_; }

 protected:
  // Extensions whose stripped name gets ".tar" ("tgz" and the like).
  virtual bool isTarAlias(const std::string& lowerExtension) const = 0;
  // Expands the archive into `out`; sets the error on failure.
  virtual bool expand(FILE* out) = 0;
  // Counts `n` expanded bytes; past the step, reports how far into the
  // compressed file `position()` is (asked only then: it may cost a call).
  template <class Position>
  void addExpanded(std::uint64_t n, Position position) {
    if (progressSize_.add(n) && actionDelegate_) {
      actionDelegate_->progressUpdateCurrentSize(position());
    }
  }

 private:
  bool unArchiveNoTarFormat(const std::string& destination);

  std::string tempFile_;
  std::string tempFolder_;
  std::unique_ptr<UTarManager> tarManager_;
};

class UGZipArchive : public SingleStreamArchive {
 public:
  using SingleStreamArchive::SingleStreamArchive;
  std::string formatName() const override { return "gzip"; }

 protected:
  bool isTarAlias(const std::string& ext) const override { return ext == "tgz"; }
  bool expand(FILE* out) override;
};

class Bz2Manager : public SingleStreamArchive {
 public:
  using SingleStreamArchive::SingleStreamArchive;
  std::string formatName() const override { return "bzip2"; }

 protected:
  bool isTarAlias(const std::string& ext) const override { return ext == "tbz" || ext == "tbz2"; }
  bool expand(FILE* out) override;
};

}  // namespace harbor

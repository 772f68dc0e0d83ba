#pragma once

#include "archive/ArchiveBase.h"

namespace harbor::zipentry {
struct CurrentInfo;
}

namespace harbor {

// Reads zip archives through minizip. Names in legacy encodings are decoded
// with the charset detected from all names together.
class UZipArchive : public ArchiveBase {
 public:
  using ArchiveBase::ArchiveBase;
  ~UZipArchive() override;

  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override;
  std::string formatName() const override { return "zip"; }

  bool openArchive();
  void closeArchive();
  void detectorEncoding();

 private:
  bool unArchiveAll(const std::string& destination);
  bool unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& destination,
                                 const std::string& base);
  // Extracts the current entry to `relative` under `destination`.
  bool unArchiveFile(const std::string& destination, const std::string& relative,
                     const std::string& entryPath);

  // The entry's name as text with "/" separators.
  std::string entryName(const zipentry::CurrentInfo& ci) const;
  // Error 4 naming the entry and whether the password was missing or wrong.
  static Error damaged(const std::string& entry, const std::string& why, int code);
  Error passwordError(const zipentry::CurrentInfo& ci) const;

  void* zip_ = nullptr;  // unzFile
};

}  // namespace harbor

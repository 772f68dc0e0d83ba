#pragma once

#include "archive/ArchiveBase.h"

namespace harbor {

// Reads RAR 4 and RAR 5 archives through libarchive. Encrypted data or names
// cannot be read there, so they give an error that says so.
class URarArchive : public ArchiveBase {
 public:
  using ArchiveBase::ArchiveBase;

  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override;
  std::string formatName() const override { return "rar"; }

  // "a.part2.rar" and the like.
  static bool isRarPart(const std::string& path);

 private:
  bool walk(const ZipEntry* entry, const std::string* destination);
};

}  // namespace harbor

#pragma once

#include <cstdio>

#include "archive/ArchiveBase.h"
#include "archive/tar/TarHeader.h"

namespace harbor {

// Reads tar archives (ustar, GNU long names; pax records are skipped). A
// header whose checksum fails makes the archive damaged (error 4).
// Dates count from 1970 GMT.
class UTarManager : public ArchiveBase {
 public:
  UTarManager(std::string path, ZipEntry::Ptr rootEntry, IActionProgress* action,
              std::string password, std::uint64_t fileEncoding = kNoForcedEncoding);

  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override { return false; }
  std::string formatName() const override { return "tar"; }

  // Octal, or GNU base-256 when the first byte has its high bit set.
  static std::uint64_t charToUnsignedLongLong(const char* field, std::size_t length);

 private:
  // Walks the archive: listing (true) or extracting to destination_ (false).
  bool extractFile(bool list);
  std::string fullName(const TarHeader& header);
  bool createFile(const std::string& name, const TarHeader& header, std::uint64_t size, FILE* file,
                  const std::string& relativeBase);
  bool unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& base, FILE* file);

  std::string destination_;
  std::string longName_;
  std::string longLink_;  // from a pax record
};

}  // namespace harbor

#pragma once

#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <vector>

#include "archive/ArchiveBase.h"
#include "archive/tar/TarHeader.h"

namespace harbor {

// Reads tar archives: ustar, GNU long names and links, pax records (path,
// linkpath, size, mtime; per member and global), hard links. Members of other
// kinds are skipped and reported as not extracted. A header whose checksum
// fails makes the archive damaged (error 4). Dates count from 1970 GMT.
class UTarManager : public ArchiveBase {
 public:
  UTarManager(std::string path, ZipEntry::Ptr rootEntry, IActionProgress* action,
              std::string password, std::uint64_t fileEncoding = kNoForcedEncoding);

  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override { return false; }
  std::string formatName() const override { return "tar"; }

  // One stretch of data in a file with holes.
  struct SparsePiece {
    std::uint64_t offset;
    std::uint64_t length;
  };

  // Octal, or GNU base-256 when the first byte has its high bit set.
  static std::uint64_t charToUnsignedLongLong(const char* field, std::size_t length);

 private:
  // Walks the archive: listing (true) or extracting to destination_ (false).
  bool extractFile(bool list);
  std::string fullName(const TarHeader& header);
  bool createFile(const std::string& name, const TarHeader& header, std::uint64_t size, FILE* file,
                  const std::string& relativeBase);
  bool unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& base, FILE* file);

  // What pax records say about the next member (or, global, all after).
  struct Pax {
    std::optional<std::uint64_t> size;
    std::optional<std::int64_t> mtime;
    bool sparse = false;  // GNU sparse records: the data is a map, not the file
    std::string sparseName;
    int sparseMajor = 0;
    std::optional<std::uint64_t> sparseRealSize;
    std::string sparseMap;                     // 0.1: "offset,size,offset,size"
    std::vector<std::uint64_t> sparseOffsets;  // 0.0: one record each
    std::vector<std::uint64_t> sparseLengths;
  };

  // The pieces and full size of a sparse member, read from its pax records
  // (and, for version 1, from the start of its data); false when damaged.
  bool paxSparseMap(FILE* f, std::uint64_t dataSize, std::vector<SparsePiece>& map,
                    std::uint64_t& realSize, std::uint64_t& mapBytes);
  // Writes the pieces at their offsets and leaves the gaps as holes.
  bool writeSparse(const std::string& name, const TarHeader& header, FILE* f,
                   const std::vector<SparsePiece>& map, std::uint64_t realSize);
  void readPaxRecords(const std::string& raw, bool global);
  std::optional<std::chrono::system_clock::time_point> memberDate(const TarHeader& header) const;
  bool makeHardLink(const std::string& name, const std::string& targetName);

  std::string destination_;
  std::string longName_;
  std::string longLink_;  // from a pax record or a GNU long-link header
  Pax pax_;
  Pax globalPax_;
  std::map<std::string, std::uint64_t> listedSizes_;  // for hard links' sizes
};

}  // namespace harbor

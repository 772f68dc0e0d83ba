#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/ZipEntry.h"
#include "platform/Error.h"

namespace harbor {

class IActionProgress;

// An entry an extraction would not write, with why.
struct RefusedEntry {
  std::string path;
  std::string reason;
};

// A reader of one archive. Use: listFiles, isEncrypted, setPassword, then
// unArchivePath for everything or for one entry.
class IArchive {
 public:
  virtual ~IArchive() = default;
  virtual void setPassword(const std::string& password) = 0;
  virtual bool listFiles() = 0;
  virtual bool unArchivePath(const std::string& destination) = 0;
  // Extracts `entry` (null: everything) keeping its own last component.
  virtual bool unArchivePath(const ZipEntry* entry, const std::string& destination) = 0;
  virtual bool isEncrypted() = 0;
  virtual void setFileEncoding(std::uint64_t encoding) = 0;
  virtual std::optional<Error> archiveError() const = 0;
  virtual bool isEncryptedFileName() const = 0;
  virtual bool isProgressListFiles() const = 0;
  virtual void setIsArchiveFileTime(bool value) = 0;
  virtual std::string filePath() const = 0;
  virtual ZipEntry::Ptr rootEntry() const = 0;
  virtual void setActionDelegate(IActionProgress* delegate) = 0;
  // A short format name: "zip", "tar", "gzip", "bzip2", "rar".
  virtual std::string formatName() const = 0;
  // Entries the last extraction refused for leading outside the destination.
  virtual const std::vector<RefusedEntry>& refusedEntries() const = 0;
  // Whether the last failure came from a missing or wrong password.
  virtual bool isPasswordFailure() const = 0;
};

}  // namespace harbor

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "archive/7z/SevenZipFormat.h"
#include "archive/IArchive.h"
#include "platform/Error.h"

namespace harbor {
namespace sevenzip {
class InStream;
}

// One entry of a 7z archive as the reader reports it. Items made with a path
// and flags stand for folders the archive only implies.
class Archive7zItem {
 public:
  using Date = std::chrono::system_clock::time_point;
  enum Flags : std::uint32_t {
    kDirectory = 1u << 0,
    kEncrypted = 1u << 1,
    kHasCrc = 1u << 2,
    kHasStream = 1u << 3,
    kAnti = 1u << 4,
  };

  Archive7zItem() = default;
  // A folder the archive does not name ("a/b/"), carrying `flags`.
  Archive7zItem(const std::string& path, std::uint32_t flags);

  std::optional<std::string> directoryPath() const { return directoryPath_; }
  std::string fileName() const { return fileName_; }
  std::uint32_t crc32() const { return crc_; }
  std::uint64_t packedSize() const { return packedSize_; }
  std::uint64_t originalSize() const { return originalSize_; }
  std::optional<Date> modificationDate() const { return modificationDate_; }
  bool isDirectory() const { return (flags_ & kDirectory) != 0; }
  bool isEncrypted() const { return (flags_ & kEncrypted) != 0; }
  std::uint32_t flags() const { return flags_; }

  // The path in the archive with "/" separators (folders end in "/").
  std::string path() const;
  // Unix mode when the archive keeps one, else 0.
  unsigned mode() const { return mode_; }
  // Index into the archive's files, or -1 for a made folder.
  std::int64_t index() const { return index_; }

 private:
  friend class Archive7zReader;
  std::optional<std::string> directoryPath_;
  std::string fileName_;
  std::uint32_t crc_ = 0;
  std::uint64_t packedSize_ = 0;
  std::uint64_t originalSize_ = 0;
  std::optional<Date> modificationDate_;
  std::uint32_t flags_ = 0;
  unsigned mode_ = 0;
  std::int64_t index_ = -1;
};

class Archive7zReader;
class Archive7zWriter;

class Archive7zReaderDelegate {
 public:
  virtual ~Archive7zReaderDelegate() = default;
  // `fraction` from 0 to 1 of the bytes an extraction writes.
  virtual void onArchive7zReaderExtractProgress(Archive7zReader& reader, float fraction) = 0;
};

class Archive7zWriterDelegate {
 public:
  virtual ~Archive7zWriterDelegate() = default;
  virtual void onArchive7zWriterWriteProgress(Archive7zWriter& writer, float fraction) = 0;
};

// Reads 7z archives. Error codes ("ArchiveErrorDomain"): 1 the headers are
// encrypted and no right password was given; 4 damage or an unsupported
// method (named in the message); 5 a file could not be written; 100
// cancelled.
class Archive7zReader {
 public:
  using ItemPtr = std::shared_ptr<Archive7zItem>;

  explicit Archive7zReader(std::string path);
  ~Archive7zReader();
  Archive7zReader(const Archive7zReader&) = delete;
  Archive7zReader& operator=(const Archive7zReader&) = delete;

  void setDelegate(Archive7zReaderDelegate* delegate) { delegate_ = delegate; }
  void setPasswordGetter(std::function<std::string()> getter) {
    passwordGetter_ = std::move(getter);
  }
  // Restores stored dates on extracted files (on by default).
  void setRestoreDates(bool value) { restoreDates_ = value; }

  // Reads the headers. On failure `error` (when given) gets the reason.
  bool open(std::optional<Error>* error);
  // Visits each item in archive order until the handler answers false.
  void iterateWithHandler(const std::function<bool(const ItemPtr&)>& handler) const;
  // Extracts the items into `path`: with full paths each at its archive path,
  // otherwise under its file name.
  bool extract(const std::vector<ItemPtr>& items, const std::string& path, bool withFullPaths);
  // Extracts each item to its own path relative to `destination`.
  bool extractTo(const std::vector<std::pair<ItemPtr, std::string>>& items,
                 const std::string& destination);

  const std::optional<Error>& lastError() const { return lastError_; }
  // Whether the last failure came from a missing or wrong password.
  bool lastErrorIsPassword() const { return passwordFailure_; }
  // Entries the last extraction refused for leading outside the destination.
  const std::vector<RefusedEntry>& refusedEntries() const { return refused_; }
  const std::vector<ItemPtr>& items() const { return items_; }
  const sevenzip::Database& database() const { return db_; }

 private:
  bool fail(long code, const std::string& message, bool password = false);
  bool extractItems(const std::vector<std::pair<ItemPtr, std::string>>& items,
                    const std::string& destination);
  bool readHeaders();
  std::string password() const { return passwordGetter_ ? passwordGetter_() : std::string(); }
  // Writes one file's data from `stream` (already at its start) to `target`.
  bool writeEntry(const sevenzip::FileRecord& file, sevenzip::InStream* stream,
                  const std::string& destination, const std::string& target,
                  const std::string& relative, bool encrypted);
  bool skip(sevenzip::InStream* stream, std::uint64_t bytes);
  void progress(std::uint64_t bytes);

  std::string path_;
  int fd_ = -1;
  Archive7zReaderDelegate* delegate_ = nullptr;
  std::function<std::string()> passwordGetter_;
  bool restoreDates_ = true;
  sevenzip::Database db_;
  std::vector<std::uint64_t> packOffsets_;
  std::vector<ItemPtr> items_;
  std::optional<Error> lastError_;
  bool passwordFailure_ = false;
  std::vector<RefusedEntry> refused_;
  std::uint64_t progressDone_ = 0;
  std::uint64_t progressTotal_ = 0;
  std::uint64_t progressReported_ = 0;
};

}  // namespace harbor

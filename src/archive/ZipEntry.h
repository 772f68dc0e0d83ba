#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace harbor {

class IFileEntry {
 public:
  virtual ~IFileEntry() = default;
  virtual std::string name() const = 0;
  virtual std::string path() const = 0;
  virtual std::string modifiedString() const = 0;
  virtual std::string createdString() const = 0;
  virtual std::string filesizeString() const = 0;
  virtual std::string compressedString() const = 0;
  virtual std::uint64_t size() const = 0;
  virtual bool isLeaf() const = 0;
};

// Where an entry lives inside its archive: the zip directory position, or for
// tar the offset of the data.
struct FilePos {
  std::uint64_t pos_in_zip_directory = 0;
  std::uint64_t num_of_file = 0;
};

// One node of the archive tree. Folders own their children; a leaf has none.
// Folders that the archive never names are made on the way ("implied").
class ZipEntry : public IFileEntry {
 public:
  using Date = std::chrono::system_clock::time_point;
  using Ptr = std::shared_ptr<ZipEntry>;

  static Ptr rootEntry();
  // A leaf when the path has no trailing "/".
  ZipEntry(std::string path, FilePos pos, std::uint32_t crc, std::uint64_t compressedSize,
           std::uint64_t uncompressedSize, std::uint16_t compressionType,
           std::optional<std::string> aliasTargetPath, std::optional<Date> date);
  ZipEntry(std::string path, FilePos pos, std::uint32_t crc, std::uint64_t compressedSize,
           std::uint64_t uncompressedSize, std::uint16_t compressionType,
           std::optional<std::string> aliasTargetPath, std::optional<Date> date, bool isLeaf);

  std::string name() const override { return name_; }
  std::string path() const override { return path_; }
  std::string modifiedString() const override;
  std::string createdString() const override { return modifiedString(); }
  std::string filesizeString() const override;
  std::string compressedString() const override;
  std::uint64_t size() const override { return isLeaf_ ? uncompressedSize_ : totalSize_; }
  bool isLeaf() const override { return isLeaf_; }

  const std::vector<Ptr>& children() const { return childEntries_; }
  ZipEntry* parent() const { return parent_; }
  const std::string& leadingPath() const { return leadingPath_; }
  const std::optional<std::string>& aliasTargetPath() const { return aliasTargetPath_; }
  const std::optional<Date>& date() const { return date_; }
  std::uint32_t crc() const { return crc_; }
  std::uint64_t compressedSize() const { return compressedSize_; }
  std::uint64_t uncompressedSize() const { return uncompressedSize_; }
  std::uint16_t compressionType() const { return compressionType_; }
  FilePos getFilePos() const { return filePos_; }
  std::uint64_t totalSize() const { return totalSize_; }
  std::uint64_t compressTotalSize() const { return compressTotalSize_; }
  std::int64_t totalNumber() const { return totalNumber_; }
  bool isRootEntry() const { return path_ == "/"; }
  std::string displayName() const { return name_; }

  // Files `entry` under this root, making the folders of its leading path.
  void addToRootEntry(const Ptr& entry);
  bool addChildEntry(const Ptr& entry) { return addChildEntry(entry, false); }
  bool addChildEntry(const Ptr& entry, bool checkIfExists);
  Ptr findDirEntry(const std::string& name) const;
  Ptr findDirEntryCheckLeaf(const std::string& name, bool leaf) const;
  // Makes a folder entry for a path ("a/b/"): what implied folders are made of.
  using EntryClass = Ptr (*)(const std::string& folderPath);
  Ptr childDirectoryEntryWithName(const std::string& name) {
    return childDirectoryEntryWithName(name, &ZipEntry::makeFolder);
  }
  Ptr childDirectoryEntryWithName(const std::string& name, EntryClass cls);
  // The class of this entry, so that folders it implies share it.
  virtual EntryClass currentClass() const { return &ZipEntry::makeFolder; }
  static Ptr makeFolder(const std::string& folderPath);
  // Finds a node by its path ("a/b/" or "a/b/c.txt"); the root for "" or "/".
  Ptr findPath(const std::string& path);
  void clear();
  bool compare(const ZipEntry& other) const;  // true when this sorts first
  static std::uint64_t totalSizes(const std::vector<Ptr>& entries);

 private:
  ZipEntry() = default;

  std::string name_;
  std::string path_;
  std::optional<std::string> aliasTargetPath_;
  std::string leadingPath_;
  std::vector<Ptr> childEntries_;
  std::uint32_t crc_ = 0;
  std::uint64_t compressedSize_ = 0;
  std::uint64_t uncompressedSize_ = 0;
  std::uint16_t compressionType_ = 0;
  bool isLeaf_ = false;
  FilePos filePos_;
  std::optional<Date> date_;
  std::uint64_t totalSize_ = 0;
  std::uint64_t compressTotalSize_ = 0;
  std::int64_t totalNumber_ = 0;
  ZipEntry* parent_ = nullptr;
  std::weak_ptr<ZipEntry> self_;
};

}  // namespace harbor

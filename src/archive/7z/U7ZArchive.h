#pragma once

#include <memory>

#include "archive/7z/Archive7zReader.h"
#include "archive/ArchiveBase.h"

namespace harbor {

// A tree entry of a 7z archive; it keeps the reader's item, which extraction
// needs. Folders it implies are of this class too.
class U7zEntry : public ZipEntry {
 public:
  using ZipEntry::ZipEntry;
  const std::shared_ptr<Archive7zItem>& source() const { return _source; }
  void setSource(std::shared_ptr<Archive7zItem> source) { _source = std::move(source); }
  EntryClass currentClass() const override { return &U7zEntry::makeFolder; }
  static Ptr makeFolder(const std::string& folderPath);

 private:
  std::shared_ptr<Archive7zItem> _source;
};

// Reads 7z archives through Archive7zReader, which it keeps from listFiles on.
class U7ZArchive : public ArchiveBase, private Archive7zReaderDelegate {
 public:
  using ArchiveBase::ArchiveBase;

  // Parameter records of the older reading path; nothing reads them here.
  struct listParameter {
    void* item = nullptr;
    std::string filename;
    std::string time;
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    std::uint8_t isdir = 0;
  };
  struct progressParameter {
    void* item = nullptr;
    std::uint32_t size = 0;
    std::string time;
    std::string despath;
    std::string desFolder;
  };

  bool loadFile();
  bool listFiles() override;
  using ArchiveBase::unArchivePath;
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override;
  bool isEncrypted() override { return isContainsPassword_; }
  std::string formatName() const override { return "7z"; }

  // Gives every folder without an item one made from its path and the first
  // item's flags, so that extraction can handle every node.
  void dealwithNull7zObjcItem(ZipEntry& node, const Archive7zItem* firstItem);
  bool unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& destination,
                                 const std::string& base);

 private:
  void onArchive7zReaderExtractProgress(Archive7zReader& reader, float fraction) override;
  void progressUpdateCurrentSize(float size);
  // Folders made on the way and leaves to extract in one pass.
  bool collect(const ZipEntry& entry, const std::string& destination, const std::string& base,
               std::vector<std::pair<Archive7zReader::ItemPtr, std::string>>& leaves);
  bool extractLeaves(const std::vector<std::pair<Archive7zReader::ItemPtr, std::string>>& leaves,
                     const std::string& destination);

  std::unique_ptr<Archive7zReader> _reader;
  listParameter listParameter_;
  progressParameter progressParameter_;
};

}  // namespace harbor

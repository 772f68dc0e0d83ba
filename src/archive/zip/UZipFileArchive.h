#pragma once

#include <functional>

#include "archive/ZipBase.h"

namespace harbor {

// Writes zip archives through minizip: deflate, UTF-8 names, Unix modes,
// and, when a password is set, the traditional cipher or AES-256.
class UZipFileArchive : public ZipBase {
 public:
  UZipFileArchive(std::string filePath, IActionProgress* delegate, ZipPropertyOptions options);
  ~UZipFileArchive() override;  // closes as close() does

  bool isOpen() const { return zipFile_ != nullptr; }
  void zip(const std::string& path) override;
  // Finishes the archive and, when every item went in, moves it to its
  // name; otherwise removes it. True when the archive stands complete.
  bool close();

  // Zips `files` (files or folders) into `desPath`, every entry named
  // relative to the one folder `relative_const`. False when the archive
  // could not be written or the thread was cancelled.
  static bool zipFiles(const std::vector<std::string>& files, IActionProgress* delegate,
                       const std::string& desPath, const std::string& relative_const);

 private:
  void zipFolder(const std::string& path);
  void zipOnlyFolder(const std::string& path);
  void zipFileToDesFile(const std::string& path);
  bool zipOpenNewFile(const std::string& name, std::uint32_t attributes, bool isLargeFile,
                      std::uint32_t crc);

  // Copies an opened entry's data from `next` (0 ends), enciphering it when
  // a password is set, and closes the entry.
  void writeEntryData(const std::string& name, std::uint32_t crc,
                      const std::function<std::size_t(char*, std::size_t)>& next);
  void reportProgress(std::uint64_t bytes);
  bool aes() const {
    return !password_.empty() && propertyOptions_.encryption == ZipEncryption::aes256;
  }

  void* zipFile_ = nullptr;
  std::string tempPath_;
  bool cancelled_ = false;
  bool wroteAes_ = false;
};

}  // namespace harbor

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "filemanager/FilePropertyBase.h"

namespace harbor {

// What a size operation reports to its walker.
class IFileTotalSizeOperation {
 public:
  virtual ~IFileTotalSizeOperation() = default;
  virtual void increaseSize(std::uint64_t size) = 0;
  virtual void increaseFolderNumber() {}
  virtual void increaseFileNumber() {}
  virtual const FilePropertyOptions& propertyOptions() const = 0;
  virtual bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) = 0;
};

// Sums the files of one folder and hands each subfolder to a new operation.
// Links are not followed: a link counts as a file of its own size.
class FileTotalSizeOperation : public Operation {
 public:
  FileTotalSizeOperation(std::string path, IFileTotalSizeOperation* delegate)
      : path_(std::move(path)), delegate_(delegate) {}

 protected:
  void main() override;
  // Each entry, for the operations that count them.
  virtual void countEntry(bool isDirectory) { (void)isDirectory; }
  virtual std::shared_ptr<FileTotalSizeOperation> makeChild(std::string path) const;

  std::string path_;
  IFileTotalSizeOperation* delegate_;
};

// The same, counting files and folders as well.
class FilePropertyFileNumSizeOperation : public FileTotalSizeOperation {
 public:
  using FileTotalSizeOperation::FileTotalSizeOperation;

 protected:
  void countEntry(bool isDirectory) override;
  std::shared_ptr<FileTotalSizeOperation> makeChild(std::string path) const override;
};

// Total bytes of the files of a selection. Links at the top of the selection
// are followed, those found below are not, so a walk never loops.
class FilePropertyTotalSize : public FilePropertyBase, public IFileTotalSizeOperation {
 public:
  // A selection given as a list; a single folder in it does not count itself.
  explicit FilePropertyTotalSize(std::vector<std::string> urls);
  // A selection of one item that counts itself when it is a folder.
  static std::unique_ptr<FilePropertyTotalSize> instanceWithFileURL(const std::string& url);
  static std::unique_ptr<FilePropertyTotalSize> instanceWithURLs(std::vector<std::string> urls);

  static std::uint64_t filesizeWithURL(const std::string& url);
  static std::uint64_t filesizeWithURLs(std::vector<std::string> urls);

  // Walks the selection; blocks until done or cancelled.
  std::uint64_t execute();
  std::uint64_t totalSize() const;

  void increaseSize(std::uint64_t size) override;
  const FilePropertyOptions& propertyOptions() const override { return _propertyOptions; }
  bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) override {
    return FilePropertyBase::addOpeartion(std::move(operation), priority);
  }

 protected:
  virtual std::shared_ptr<FileTotalSizeOperation> makeOperation(std::string path);

 private:
  mutable std::mutex lock_;
  std::uint64_t totalSize_ = 0;
};

// Bytes, files and folders of a selection.
class FilePropertyFileNumAndSize : public FilePropertyTotalSize {
 public:
  explicit FilePropertyFileNumAndSize(std::vector<std::string> urls)
      : FilePropertyTotalSize(std::move(urls)) {}
  static std::unique_ptr<FilePropertyFileNumAndSize> instanceWithFileURL(const std::string& url);
  static std::unique_ptr<FilePropertyFileNumAndSize> instanceWithURLs(
      std::vector<std::string> urls);

  std::uint64_t fileNumber() const { return fileNumber_; }
  std::uint64_t folderNumber() const { return folderNumber_; }

  void increaseFolderNumber() override { ++folderNumber_; }
  void increaseFileNumber() override { ++fileNumber_; }

 protected:
  std::shared_ptr<FileTotalSizeOperation> makeOperation(std::string path) override;

 private:
  std::atomic<std::uint64_t> fileNumber_{0};
  std::atomic<std::uint64_t> folderNumber_{0};
};

}  // namespace harbor

#pragma once

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "filemanager/FilePropertyBase.h"

namespace harbor {

class IActionProgress;

// One block of a file as it was read; left unzeroed, the read fills it.
struct FileBlock {
  explicit FileBlock(std::size_t n) : bytes(new char[n]), size(n) {}
  FileBlock(std::size_t n, char fill) : FileBlock(n) { std::fill_n(bytes.get(), n, fill); }
  char* data() { return bytes.get(); }
  const char* data() const { return bytes.get(); }
  std::unique_ptr<char[]> bytes;
  std::size_t size;
};

// Where a block read takes its data.
class IFilePropertyCopyFileOperation {
 public:
  virtual ~IFilePropertyCopyFileOperation() = default;
  // True when the block was taken; false asks the reader to offer it again
  // shortly, which holds it back while the writer catches up.
  virtual bool onWriteBuffer(std::shared_ptr<const FileBlock> buffer,
                             std::uint64_t startPosition) = 0;
  // The block at `startPosition` could not be read in full.
  virtual void onReadFailed(std::uint64_t startPosition, int errorNumber) = 0;
};

// Reads one block of a file and offers it to the writer until it is taken.
class FilePropertyCopyFileOperation : public Operation {
 public:
  FilePropertyCopyFileOperation(int sourceFd, std::uint64_t startPosition,
                                std::uint64_t expectedSize,
                                IFilePropertyCopyFileOperation* delegate)
      : sourceFd_(sourceFd),
        startPosition_(startPosition),
        expectedSize_(expectedSize),
        delegate_(delegate) {}

 protected:
  void main() override;

 private:
  int sourceFd_;
  std::uint64_t startPosition_;
  std::uint64_t expectedSize_;
  IFilePropertyCopyFileOperation* delegate_;
};

// A copy of one file in blocks of 102400 bytes: up to six blocks are read at
// once, in any order, and written strictly in order; at most 19 blocks wait
// in memory. The target is made anew, with the source's permissions, when
// the object is built. A copy that fails or is cancelled removes what it
// wrote.
class FilePropertyCopyFile : public IFilePropertyCopyFileOperation {
 public:
  static constexpr std::uint64_t kBlockSize = 102400;
  static constexpr int kReaders = 6;
  static constexpr std::size_t kCacheLimit = 19;

  FilePropertyCopyFile(std::string sourcePath, std::string desPath, bool isOverWirte, bool isAppend,
                       IActionProgress* delegate);
  ~FilePropertyCopyFile() override;

  // True when the whole file reached the target. The reason of a false
  // answer goes to `error` when given.
  static bool execute(const std::string& sourcePath, const std::string& desPath, bool isOverWrite,
                      bool isAppend, IActionProgress* delegate, Error* error = nullptr);
  bool execute();
  void cancel() { queue_.cancel(); }

  const std::optional<Error>& error() const { return error_; }
  std::uint64_t totalSize() const { return totalSize_; }
  // How many block reads went to the queue; a file of one block is copied
  // on the caller's thread and queues none.
  std::size_t operationCount() const { return queue_.addedCount(); }

  bool onWriteBuffer(std::shared_ptr<const FileBlock> buffer, std::uint64_t startPosition) override;
  void onReadFailed(std::uint64_t startPosition, int errorNumber) override;

 private:
  bool queueRead(std::uint64_t startPosition);
  void fail(Error error);
  bool finish(bool ok);

  std::string _sourcePath;
  std::string _desPath;
  bool _isOverWirte;
  bool _isAppend;
  IActionProgress* _delegate;
  FilePropertyQueue queue_;

  std::mutex lock_;
  int writeHandle_ = -1;
  int sourceHandle_ = -1;
  dev_t targetDevice_ = 0;
  ino_t targetInode_ = 0;
  std::uint64_t currentReadPosition_ = 0;
  std::uint64_t currentWritePosition_ = 0;
  std::uint64_t totalSize_ = 0;
  std::map<std::uint64_t, std::shared_ptr<const FileBlock>> cacheDatas_;
  std::optional<Error> error_;
};

}  // namespace harbor

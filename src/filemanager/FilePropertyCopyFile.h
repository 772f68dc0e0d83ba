#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "filemanager/FileCopy.h"
#include "filemanager/FilePropertyBase.h"

namespace harbor {

class IActionProgress;

// A copy of one file into a target made anew, with the source's permission
// bits (see FileModes), when the object is built. The bytes go through
// FileCopy in blocks of at most 1 MiB, each reported through
// progressFinished; FilePropertyCancelNotification or cancel() stop it
// between blocks. A copy that fails or is cancelled removes what it wrote.
class FilePropertyCopyFile {
 public:
  static constexpr std::uint64_t kBlockSize = FileCopy::kMaxBlock;

  FilePropertyCopyFile(std::string sourcePath, std::string desPath, bool isOverWirte, bool isAppend,
                       IActionProgress* delegate);
  ~FilePropertyCopyFile();
  FilePropertyCopyFile(const FilePropertyCopyFile&) = delete;
  FilePropertyCopyFile& operator=(const FilePropertyCopyFile&) = delete;

  // True when the whole file reached the target. The reason of a false
  // answer goes to `error` when given.
  static bool execute(const std::string& sourcePath, const std::string& desPath, bool isOverWrite,
                      bool isAppend, IActionProgress* delegate, Error* error = nullptr);
  bool execute();
  void cancel() { queue_.cancel(); }

  const std::optional<Error>& error() const { return error_; }
  std::uint64_t totalSize() const { return totalSize_; }

 private:
  bool finish(bool ok);

  std::string _sourcePath;
  std::string _desPath;
  bool _isOverWirte;
  bool _isAppend;
  IActionProgress* _delegate;
  // Runs no work: it carries the cancel broadcast to this copy.
  FilePropertyQueue queue_;

  int writeHandle_ = -1;
  int sourceHandle_ = -1;
  dev_t targetDevice_ = 0;
  ino_t targetInode_ = 0;
  std::uint64_t totalSize_ = 0;
  std::optional<Error> error_;
};

}  // namespace harbor

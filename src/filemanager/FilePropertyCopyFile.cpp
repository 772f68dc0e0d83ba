#include "filemanager/FilePropertyCopyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "filemanager/FileModes.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/NotificationNames.h"

namespace harbor {

FilePropertyCopyFile::FilePropertyCopyFile(std::string sourcePath, std::string desPath,
                                           bool isOverWirte, bool isAppend,
                                           IActionProgress* delegate)
    : _sourcePath(std::move(sourcePath)),
      _desPath(std::move(desPath)),
      _isOverWirte(isOverWirte),
      _isAppend(isAppend),
      _delegate(delegate),
      queue_(1, "harbor-copy", {notifications::FilePropertyCancelNotification}) {
  // The source is opened first: the target takes its permissions, and must
  // never turn out to be the source itself before it is emptied.
  struct stat src, des;
  sourceHandle_ = ::open(_sourcePath.c_str(), O_RDONLY | O_CLOEXEC);
  if (sourceHandle_ < 0 || ::fstat(sourceHandle_, &src) != 0) {
    error_ = detail::posixError(errno, "cannot read " + _sourcePath);
    return;
  }
  if (!S_ISREG(src.st_mode)) {
    error_ = detail::posixError(EINVAL, _sourcePath + " is not a file");
    return;
  }
  totalSize_ = static_cast<std::uint64_t>(src.st_size);
  writeHandle_ =
      ::open(_desPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, FileModes::forCopy(src.st_mode));
  if (writeHandle_ < 0 || ::fstat(writeHandle_, &des) != 0) {
    error_ = detail::posixError(errno, "cannot create " + _desPath);
    return;
  }
  if (des.st_dev == src.st_dev && des.st_ino == src.st_ino) {
    error_ = detail::posixError(EINVAL, _desPath + " is the source itself");
    ::close(writeHandle_);
    writeHandle_ = -1;
    return;
  }
  targetDevice_ = des.st_dev;
  targetInode_ = des.st_ino;
  // A target that stood there already takes the source's bits as well.
  if ((des.st_mode & 07777) != FileModes::forCopy(src.st_mode)) {
    FileModes::apply(writeHandle_, FileModes::forCopy(src.st_mode));
  }
  if (des.st_size != 0 && ::ftruncate(writeHandle_, 0) != 0) {
    error_ = detail::posixError(errno, "cannot write " + _desPath);
  }
}

FilePropertyCopyFile::~FilePropertyCopyFile() {
  if (writeHandle_ >= 0) ::close(writeHandle_);
  if (sourceHandle_ >= 0) ::close(sourceHandle_);
}

bool FilePropertyCopyFile::execute(const std::string& sourcePath, const std::string& desPath,
                                   bool isOverWrite, bool isAppend, IActionProgress* delegate,
                                   Error* error) {
  FilePropertyCopyFile copy(sourcePath, desPath, isOverWrite, isAppend, delegate);
  bool ok = copy.execute();
  if (!ok && error && copy.error()) *error = *copy.error();
  return ok;
}

bool FilePropertyCopyFile::execute() {
  if (writeHandle_ < 0 || error_) return finish(false);
  const auto result = FileCopy::copyData(
      sourceHandle_, writeHandle_, totalSize_, kBlockSize,
      [this](std::uint64_t n) {
        if (_delegate) _delegate->progressFinished(n);
      },
      [this] { return queue_.isCancelled() || isCurrentThreadCancelled(); });
  switch (result.failure) {
    case FileCopy::Failure::none:
      if (result.copied != totalSize_)
        error_ = detail::posixError(EIO, _sourcePath + " changed during the copy");
      break;
    case FileCopy::Failure::cancelled:
      error_ = detail::posixError(ECANCELED, "copy of " + _sourcePath);
      break;
    case FileCopy::Failure::read:
      error_ = detail::posixError(result.errorNumber, "cannot read " + _sourcePath);
      break;
    case FileCopy::Failure::write:
      error_ = detail::posixError(result.errorNumber, "cannot write " + _desPath);
      break;
  }
  return finish(!error_);
}

bool FilePropertyCopyFile::finish(bool ok) {
  if (writeHandle_ >= 0) {
    if (::close(writeHandle_) != 0 && ok) {
      error_ = detail::posixError(errno, "cannot write " + _desPath);
      ok = false;
    }
    writeHandle_ = -1;
  }
  if (sourceHandle_ >= 0) {
    ::close(sourceHandle_);
    sourceHandle_ = -1;
  }
  if (!ok && targetInode_ != 0) {
    // Only the file this copy made goes, never whatever stands there now.
    struct stat st;
    if (::lstat(_desPath.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_dev == targetDevice_ &&
        st.st_ino == targetInode_) {
      ::unlink(_desPath.c_str());
    }
  }
  return ok;
}

}  // namespace harbor

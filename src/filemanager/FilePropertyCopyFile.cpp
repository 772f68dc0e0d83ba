#include "filemanager/FilePropertyCopyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "filemanager/FileModes.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/NotificationNames.h"

namespace harbor {

namespace {

bool writeAll(int fd, const char* data, std::size_t size, int& errorNumber) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      errorNumber = errno;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Reads `size` bytes at `offset` unless the file ends first; -1 on error.
ssize_t readAt(int fd, char* data, std::size_t size, std::uint64_t offset) {
  std::size_t got = 0;
  while (got < size) {
    ssize_t n = ::pread(fd, data + got, size - got, static_cast<off_t>(offset + got));
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  return static_cast<ssize_t>(got);
}

}  // namespace

void FilePropertyCopyFileOperation::main() {
  auto buffer = std::make_shared<FileBlock>(static_cast<std::size_t>(expectedSize_));
  ssize_t n = readAt(sourceFd_, buffer->data(), buffer->size, startPosition_);
  if (isCancelled()) return;
  if (n < 0 || static_cast<std::uint64_t>(n) != expectedSize_) {
    // A block that comes short means the file shrank under us: the writer
    // would wait for it forever.
    delegate_->onReadFailed(startPosition_, n < 0 ? errno : 0);
    return;
  }
  std::shared_ptr<const FileBlock> block = std::move(buffer);
  while (!delegate_->onWriteBuffer(block, startPosition_)) {
    if (isCancelled()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// ---------------------------------------------------------------------------

FilePropertyCopyFile::FilePropertyCopyFile(std::string sourcePath, std::string desPath,
                                           bool isOverWirte, bool isAppend,
                                           IActionProgress* delegate)
    : _sourcePath(std::move(sourcePath)),
      _desPath(std::move(desPath)),
      _isOverWirte(isOverWirte),
      _isAppend(isAppend),
      _delegate(delegate),
      queue_(kReaders, "harbor-copy", {notifications::FilePropertyCancelNotification}) {
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
  queue_.cancel();
  queue_.waitUntilFinished();
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
  if (totalSize_ == 0) return finish(true);

  if (totalSize_ <= kBlockSize) {
    // One block: a queue would only add a thread hand-over per small file.
    FileBlock block(static_cast<std::size_t>(totalSize_));
    ssize_t n = readAt(sourceHandle_, block.data(), block.size, 0);
    int writeError = 0;
    if (n < 0 || static_cast<std::uint64_t>(n) != totalSize_) {
      fail(detail::posixError(n < 0 ? errno : EIO, "cannot read " + _sourcePath));
    } else if (isCurrentThreadCancelled() || queue_.isCancelled()) {
      fail(detail::posixError(ECANCELED, "copy of " + _sourcePath));
    } else if (!writeAll(writeHandle_, block.data(), block.size, writeError)) {
      fail(detail::posixError(writeError, "cannot write " + _desPath));
    } else {
      currentWritePosition_ = totalSize_;
      if (_delegate) _delegate->progressFinished(totalSize_);
    }
    return finish(!error_);
  }

  {
    std::lock_guard lock(lock_);
    for (std::uint64_t offset = 0;
         offset < totalSize_ && offset < kBlockSize * static_cast<std::uint64_t>(kReaders);
         offset += kBlockSize) {
      currentReadPosition_ = offset;
      queueRead(offset);
    }
  }
  queue_.waitUntilFinished();
  std::lock_guard lock(lock_);
  if (!error_ && currentWritePosition_ != totalSize_) {
    error_ = queue_.isCancelled()
                 ? detail::posixError(ECANCELED, "copy of " + _sourcePath)
                 : detail::posixError(EIO, _sourcePath + " changed during the copy");
  }
  return finish(!error_);
}

bool FilePropertyCopyFile::queueRead(std::uint64_t startPosition) {
  const std::uint64_t expected = std::min(kBlockSize, totalSize_ - startPosition);
  return queue_.addOperation(
      std::make_shared<FilePropertyCopyFileOperation>(sourceHandle_, startPosition, expected, this),
      QueuePriority::Normal);
}

bool FilePropertyCopyFile::onWriteBuffer(std::shared_ptr<const FileBlock> buffer,
                                         std::uint64_t startPosition) {
  std::uint64_t written = 0;
  bool taken = true;
  bool failed = false;
  {
    std::lock_guard lock(lock_);
    if (error_) return true;
    // A block offered again after a refusal is already held.
    bool fresh = startPosition >= currentWritePosition_ && !cacheDatas_.count(startPosition);
    if (fresh) cacheDatas_.emplace(startPosition, std::move(buffer));
    for (auto it = cacheDatas_.find(currentWritePosition_); it != cacheDatas_.end();
         it = cacheDatas_.find(currentWritePosition_)) {
      int writeError = 0;
      if (!writeAll(writeHandle_, it->second->data(), it->second->size, writeError)) {
        error_ = detail::posixError(writeError, "cannot write " + _desPath);
        cacheDatas_.clear();
        failed = true;
        break;
      }
      currentWritePosition_ += it->second->size;
      written += it->second->size;
      cacheDatas_.erase(it);
    }
    // Each new block starts the read of the next one, keeping every reader
    // busy until the end of the file.
    if (fresh && !failed && currentReadPosition_ + kBlockSize < totalSize_) {
      currentReadPosition_ += kBlockSize;
      queueRead(currentReadPosition_);
    }
    taken = cacheDatas_.size() < kCacheLimit;
  }
  if (failed) {
    queue_.cancel();
    return true;
  }
  if (written != 0 && _delegate) _delegate->progressFinished(written);
  return taken;
}

void FilePropertyCopyFile::onReadFailed(std::uint64_t startPosition, int errorNumber) {
  (void)startPosition;
  fail(errorNumber != 0 ? detail::posixError(errorNumber, "cannot read " + _sourcePath)
                        : detail::posixError(EIO, _sourcePath + " changed during the copy"));
}

void FilePropertyCopyFile::fail(Error error) {
  {
    std::lock_guard lock(lock_);
    if (!error_) error_ = std::move(error);
  }
  queue_.cancel();
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

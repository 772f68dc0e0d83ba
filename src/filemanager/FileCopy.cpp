#include "filemanager/FileCopy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace harbor {

namespace {

// Errors that say the kernel cannot copy between these two files itself
// (other file systems, special files, an old kernel), not that the data is
// at fault: the copy goes on by read and write.
bool kernelCopyUnavailable(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
         error == EBADF || error == ETXTBSY || error == EPERM;
}

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

}  // namespace

FileCopy::Result FileCopy::copyData(int in, int out, std::uint64_t limit, std::size_t blockSize,
                                    const std::function<void(std::uint64_t)>& onBlock,
                                    const std::function<bool()>& isCancelled) {
  Result result;
  blockSize = std::clamp<std::size_t>(blockSize, 1, kMaxBlock);
  bool kernelCopy = true;
  std::unique_ptr<char[]> buffer;
  while (result.copied < limit) {
    if (isCancelled && isCancelled()) {
      result.failure = Failure::cancelled;
      return result;
    }
    const auto want =
        static_cast<std::size_t>(std::min<std::uint64_t>(blockSize, limit - result.copied));
    ssize_t n = -1;
    if (kernelCopy) {
      n = ::copy_file_range(in, nullptr, out, nullptr, want, 0);
      if (n < 0 && errno == EINTR) continue;
      // Only before anything went over: a failure later is a real one.
      if (n < 0 && result.copied == 0 && kernelCopyUnavailable(errno)) {
        kernelCopy = false;
        continue;
      }
      if (n < 0) {
        // The kernel does not say which side failed; a write error is the
        // likelier (a full disk, a file size limit).
        result.failure = errno == EIO ? Failure::read : Failure::write;
        result.errorNumber = errno;
        return result;
      }
    } else {
      if (!buffer) buffer.reset(new char[blockSize]);
      n = ::read(in, buffer.get(), want);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        result.failure = Failure::read;
        result.errorNumber = errno;
        return result;
      }
      if (n > 0 && !writeAll(out, buffer.get(), static_cast<std::size_t>(n), result.errorNumber)) {
        result.failure = Failure::write;
        return result;
      }
    }
    if (n == 0) break;
    result.copied += static_cast<std::uint64_t>(n);
    if (onBlock) onBlock(static_cast<std::uint64_t>(n));
  }
  return result;
}

}  // namespace harbor

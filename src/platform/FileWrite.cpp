#include "platform/FileWrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

Error fileError(const std::string& what, const fs::path& path, int err) {
  return Error{"File", err, what + " " + path.string() + ": " + std::strerror(err)};
}

std::string temporaryName(const fs::path& target) {
  static std::atomic<unsigned> counter{0};
  return "." + target.filename().string() + ".tmp-" + std::to_string(::getpid()) + "-" +
         std::to_string(counter++);
}

}  // namespace

std::optional<Error> writeFileAtomically(const fs::path& target, std::string_view bytes) {
  const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const fs::path temp = dir / temporaryName(target);
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) {
    Error e = fileError("Cannot write", target, errno);
    HB_LOG("FileWrite", e.message);
    return e;
  }
  auto failed = [&](const char* what, int err) -> std::optional<Error> {
    ::close(fd);
    ::unlink(temp.c_str());
    Error e = fileError(what, target, err);
    HB_LOG("FileWrite", e.message);
    return e;
  };
  struct stat st;
  if (::stat(target.c_str(), &st) == 0) ::fchmod(fd, st.st_mode & 07777);
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return failed("Cannot write", errno);
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0) return failed("Cannot flush", errno);
  if (::close(fd) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    return fileError("Cannot write", target, err);
  }
  if (::rename(temp.c_str(), target.c_str()) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    Error e = fileError("Cannot replace", target, err);
    HB_LOG("FileWrite", e.message);
    return e;
  }
  int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    ::fsync(dirFd);  // the rename itself must survive a crash
    ::close(dirFd);
  }
  return std::nullopt;
}

std::optional<Error> moveNoReplace(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return std::nullopt;
  }
  int err = errno;
  if (err == EINVAL || err == ENOSYS) {
    // File systems without the flag: look first, accepting the small race.
    std::error_code ec;
    if (fs::exists(fs::symlink_status(to, ec))) {
      err = EEXIST;
    } else if (::rename(from.c_str(), to.c_str()) == 0) {
      return std::nullopt;
    } else {
      err = errno;
    }
  }
  if (err == EEXIST) {
    return Error{"File", err, "\"" + to.filename().string() + "\" already exists"};
  }
  return fileError("Cannot move", from, err);
}

}  // namespace harbor

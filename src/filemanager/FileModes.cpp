#include "filemanager/FileModes.h"

#include "platform/ProcessUmask.h"

#include <sys/stat.h>

namespace harbor {

namespace {
constexpr unsigned kPermissionBits = 0777;
}

unsigned FileModes::umask() {
  return processUmask();
}

unsigned FileModes::forCopy(unsigned sourceMode) {
  return sourceMode & kPermissionBits & ~umask();
}

unsigned FileModes::forArchiveEntry(unsigned storedMode, bool isFolder) {
  unsigned mode = storedMode & kPermissionBits;
  if (mode == 0) mode = isFolder ? kNewFolder : kNewFile;
  if (isFolder) mode |= 0700;
  return mode & ~umask();
}

bool FileModes::apply(const std::string& path, unsigned mode) {
  return ::chmod(path.c_str(), static_cast<mode_t>(mode & kPermissionBits)) == 0;
}

bool FileModes::apply(int fd, unsigned mode) {
  return ::fchmod(fd, static_cast<mode_t>(mode & kPermissionBits)) == 0;
}

}  // namespace harbor

#include "filemanager/FileModes.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <mutex>

namespace harbor {

namespace {
constexpr unsigned kPermissionBits = 0777;
}

unsigned FileModes::umask() {
  // /proc gives the umask without the set-and-restore dance, which would
  // briefly let another thread create files under the wrong mask.
  if (FILE* f = std::fopen("/proc/self/status", "re")) {
    char line[256];
    unsigned value = 0;
    bool found = false;
    while (std::fgets(line, sizeof line, f)) {
      if (std::strncmp(line, "Umask:", 6) == 0) {
        found = std::sscanf(line + 6, "%o", &value) == 1;
        break;
      }
    }
    std::fclose(f);
    if (found) return value & kPermissionBits;
  }
  static std::mutex lock;
  std::lock_guard guard(lock);
  const mode_t old = ::umask(077);
  ::umask(old);
  return static_cast<unsigned>(old) & kPermissionBits;
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

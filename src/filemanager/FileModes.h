#pragma once

#include <string>

namespace harbor {

// The one rule for the permission bits of anything this program makes:
// new files 0666 and folders 0777, a copy its source's bits, an archive entry
// its stored bits without setuid, setgid or sticky; each masked by the
// process umask, so nothing becomes group- or world-writable unless the
// user's umask allows it.
class FileModes {
 public:
  FileModes() = delete;

  static constexpr unsigned kNewFile = 0666;
  static constexpr unsigned kNewFolder = 0777;

  // The process umask, read without changing it.
  static unsigned umask();
  static unsigned forNewFile() { return kNewFile & ~umask(); }
  static unsigned forNewFolder() { return kNewFolder & ~umask(); }
  // What a copy of a file or folder with `sourceMode` gets.
  static unsigned forCopy(unsigned sourceMode);
  // What an extracted entry gets. A stored mode without any permission bit
  // (archives written on systems without them) means the default for its
  // kind; a folder always keeps its owner's rwx, or its own entries could
  // not be written into it.
  static unsigned forArchiveEntry(unsigned storedMode, bool isFolder);

  // chmod to the given mode; false when the system refuses.
  static bool apply(const std::string& path, unsigned mode);
  static bool apply(int fd, unsigned mode);
};

}  // namespace harbor

#include "platform/ProcessUmask.h"

#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace harbor {
namespace {

constexpr unsigned kPermissionBits = 0777;
constexpr unsigned kUnknown = ~0u;
std::atomic<unsigned> cached{kUnknown};
std::mutex changing;

unsigned readUmask() {
  // /proc gives the mask without the set-and-restore dance, which would
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
  const mode_t old = ::umask(077);
  ::umask(old);
  return static_cast<unsigned>(old) & kPermissionBits;
}

}  // namespace

unsigned processUmask() {
  unsigned mask = cached.load(std::memory_order_acquire);
  if (mask != kUnknown) return mask;
  std::lock_guard guard(changing);
  mask = readUmask();
  cached.store(mask, std::memory_order_release);
  return mask;
}

unsigned setProcessUmask(unsigned mask) {
  std::lock_guard guard(changing);
  const unsigned old = static_cast<unsigned>(::umask(static_cast<mode_t>(mask & kPermissionBits)));
  cached.store(mask & kPermissionBits, std::memory_order_release);
  return old & kPermissionBits;
}

}  // namespace harbor

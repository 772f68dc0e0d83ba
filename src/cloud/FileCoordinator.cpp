#include "cloud/FileCoordinator.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "platform/Directories.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

std::string canonical(const std::string& path) {
  std::error_code ec;
  fs::path p = fs::weakly_canonical(fs::absolute(path), ec);
  return (ec ? fs::path(path).lexically_normal() : p).string();
}

std::uint64_t fnv1a(const std::string& s) {
  std::uint64_t h = 1469598103934665603ull;
  for (unsigned char c : s) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

class HeldLocks {
 public:
  ~HeldLocks() {
    for (auto it = fds_.rbegin(); it != fds_.rend(); ++it) ::close(*it);  // closing unlocks
  }
  bool take(const std::string& file, bool exclusive, Error* error) {
    int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return failed(file, error);
    int rc;
    do {
      rc = ::flock(fd, exclusive ? LOCK_EX : LOCK_SH);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
      ::close(fd);
      return failed(file, error);
    }
    fds_.push_back(fd);
    return true;
  }

 private:
  static bool failed(const std::string& file, Error* error) {
    if (error)
      *error =
          Error{"FileCoordinator", errno, "can not lock " + file + ": " + std::strerror(errno)};
    return false;
  }
  std::vector<int> fds_;
};

}  // namespace

std::string FileCoordinator::lockDirectory() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  fs::path base = runtime && *runtime ? fs::path(runtime) : Directories::temporaryDirectory();
  fs::path dir = base / "harbor" / "cloud-locks";
  std::error_code ec;
  fs::create_directories(dir, ec);
  return dir.string();
}

std::string FileCoordinator::lockFileFor(const std::string& path) {
  char name[32];
  std::snprintf(name, sizeof name, "%016llx.lock",
                static_cast<unsigned long long>(fnv1a(canonical(path))));
  return (fs::path(lockDirectory()) / name).string();
}

bool FileCoordinator::withLocks(std::vector<Request> requests, const std::function<void()>& body,
                                Error* error) {
  // Path -> exclusive; ancestors shared unless written themselves.
  std::map<std::string, bool> wanted;
  for (const auto& r : requests) {
    fs::path p = canonical(r.path);
    wanted[p.string()] = wanted[p.string()] || r.exclusive;
    for (fs::path a = p.parent_path(); !a.empty(); a = a.parent_path()) {
      wanted.emplace(a.string(), false);
      if (a == a.parent_path()) break;
    }
  }
  // Lock files sorted by path: the order every process follows.
  HeldLocks held;
  for (const auto& [path, exclusive] : wanted)
    if (!held.take(lockFileFor(path), exclusive, error)) return false;
  body();
  return true;
}

bool FileCoordinator::coordinateWriting(const std::string& url, int,
                                        const std::function<void(const std::string&)>& accessor,
                                        Error* error) {
  return withLocks(
      {{url, true}}, [&] { accessor(url); }, error);
}

bool FileCoordinator::coordinateWriting(
    const std::string& url1, int, const std::string& url2, int,
    const std::function<void(const std::string&, const std::string&)>& accessor, Error* error) {
  return withLocks(
      {{url1, true}, {url2, true}}, [&] { accessor(url1, url2); }, error);
}

bool FileCoordinator::coordinateReading(
    const std::string& readUrl, int, const std::string& writeUrl, int,
    const std::function<void(const std::string&, const std::string&)>& accessor, Error* error) {
  return withLocks(
      {{readUrl, false}, {writeUrl, true}}, [&] { accessor(readUrl, writeUrl); }, error);
}

}  // namespace harbor

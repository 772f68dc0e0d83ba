#include "archive/SafeExtraction.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <random>

#include "filemanager/FileUtil.h"

namespace harbor::extraction {
namespace fs = std::filesystem;
std::string uniqueName() {
  static thread_local std::mt19937_64 rng{std::random_device{}()};
  char buf[40];
  std::snprintf(buf, sizeof buf, "%016llx%016llx", static_cast<unsigned long long>(rng()),
                static_cast<unsigned long long>(rng()));
  return buf;
}

std::string temporaryBeside(const std::string& target) {
  const fs::path path(target);
  return (path.parent_path() / ("." + path.filename().string() + ".part-" + uniqueName())).string();
}

std::optional<std::string> safeTarget(const std::string& destination, const std::string& relative,
                                      std::string& reason) {
  std::string rel = relative;
  for (char& c : rel)
    if (c == '\\') c = '/';
  if (!rel.empty() && rel.front() == '/') {
    reason = "absolute path";
    return std::nullopt;
  }
  fs::path clean;
  for (const auto& part : fs::path(rel)) {
    const std::string p = part.string();
    if (p.empty() || p == ".") continue;
    if (p == "..") {
      reason = "path leads outside the destination";
      return std::nullopt;
    }
    clean /= part;
  }
  if (clean.empty()) return destination;
  fs::path cur = destination;
  for (auto it = clean.begin(); it != clean.end(); ++it) {
    cur /= *it;
    if (std::next(it) == clean.end()) break;
    struct stat st;
    if (lstat(cur.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
      reason = "path goes through a link";
      return std::nullopt;
    }
  }
  return (fs::path(destination) / clean).string();
}

bool linkStaysInside(const std::string& destination, const std::string& linkPath,
                     const std::string& target) {
  if (target.empty() || target.front() == '/') return false;
  fs::path resolved = (fs::path(linkPath).parent_path() / target).lexically_normal();
  fs::path rel = resolved.lexically_relative(fs::path(destination).lexically_normal());
  return !rel.empty() && *rel.begin() != "..";
}

bool replaceWithLink(const std::string& linkPath, const std::string& target) {
  std::error_code ec;
  fs::create_directories(fs::path(linkPath).parent_path(), ec);
  fs::remove(linkPath, ec);
  return FileUtil::createAliasPath(linkPath, target);
}

WriteResult writeFileAtomically(const std::string& target,
                                const std::function<bool(const Sink&)>& produce) {
  std::error_code ec;
  fs::create_directories(fs::path(target).parent_path(), ec);
  const std::string temp = temporaryBeside(target);
  FILE* out = std::fopen(temp.c_str(), "wb");
  if (!out) return WriteResult::ioFailed;
  bool writeOk = true;
  const bool ok = produce([&](const char* data, std::size_t n) {
    if (std::fwrite(data, 1, n, out) != n) writeOk = false;
    return writeOk;
  });
  const bool closed = std::fclose(out) == 0;
  if (!ok || !writeOk || !closed) {
    ::unlink(temp.c_str());
    return writeOk && closed ? WriteResult::produceFailed : WriteResult::ioFailed;
  }
  if (std::rename(temp.c_str(), target.c_str()) != 0) {
    ::unlink(temp.c_str());
    return WriteResult::ioFailed;
  }
  return WriteResult::written;
}

}  // namespace harbor::extraction

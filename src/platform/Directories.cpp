#include "platform/Directories.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <vector>

namespace harbor {
namespace fs = std::filesystem;
namespace {

std::mutex overrideMutex;
fs::path rootOverride;

fs::path envPath(const char* name) {
  const char* v = std::getenv(name);
  return (v && *v) ? fs::path(v) : fs::path();
}

fs::path userHome() {
  fs::path home = envPath("HOME");
  return home.empty() ? fs::temp_directory_path() : home;
}

fs::path made(fs::path p) {
  std::error_code ec;
  fs::create_directories(p, ec);
  return p;
}

}  // namespace

void Directories::setDocumentRootOverride(const fs::path& root) {
  std::lock_guard lock(overrideMutex);
  rootOverride = root.empty() ? fs::path() : fs::absolute(root).lexically_normal();
}

fs::path Directories::documentDirectory() {
  fs::path root;
  {
    std::lock_guard lock(overrideMutex);
    root = rootOverride;
  }
  if (root.empty()) root = envPath("HARBOR_ROOT");
  if (root.empty()) root = homeDirectory() / "Documents";
  root = fs::absolute(root).lexically_normal();
  // A trailing separator would make relative-path arithmetic uneven.
  if (root.has_relative_path() && !root.has_filename()) root = root.parent_path();
  return made(root);
}

fs::path Directories::homeDirectory() {
  fs::path data = envPath("XDG_DATA_HOME");
  if (data.empty()) data = userHome() / ".local" / "share";
  return made(data / "harbor");
}

fs::path Directories::applicationSupportDirectory() {
  return made(homeDirectory() / "Library" / "Application Support");
}

fs::path Directories::cachesDirectory() {
  return made(homeDirectory() / "Library" / "Caches");
}

fs::path Directories::temporaryDirectory() {
  return made(homeDirectory() / "tmp");
}

fs::path Directories::configDirectory() {
  fs::path config = envPath("XDG_CONFIG_HOME");
  if (config.empty()) config = userHome() / ".config";
  return made(config / "harbor");
}

const std::string& Directories::applicationIdentifier() {
  static const std::string id = "org.harbor.Harbor";
  return id;
}

}  // namespace harbor

#include "cloud/CloudProvider.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "filemanager/FileUtil.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {
std::mutex sharedMutex;
std::shared_ptr<CloudProvider> sharedProvider;

bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string sibling(const std::string& path, const std::string& prefix, const std::string& suffix) {
  fs::path p(path);
  return (p.parent_path() / (prefix + p.filename().string() + suffix)).string();
}

std::optional<std::uint64_t> placeholderSize(const std::string& placeholder) {
  std::ifstream in(placeholder);
  if (!in) return std::nullopt;
  std::string text;
  std::getline(in, text, '\0');
  try {
    std::size_t used = 0;
    unsigned long long v = std::stoull(text, &used);
    return v;
  } catch (...) {
    return std::uint64_t{0};
  }
}

std::optional<CloudItem> presentItem(const fs::path& p) {
  std::error_code ec;
  auto st = fs::symlink_status(p, ec);
  if (ec || !fs::exists(st)) return std::nullopt;
  CloudItem item;
  item.filename = p.filename().string();
  item.path = p.string();
  item.isDirectory = fs::is_directory(p, ec);
  item.totalBytes = item.isDirectory ? 0 : FileUtil::getFileSize(p.string());
  item.lastModifiedDate = FileUtil::getFileMidified(p.string());
  item.downloaded = item.uploaded = true;
  item.percentDownloaded = item.percentUploaded = 100;
  return item;
}
}  // namespace

std::shared_ptr<CloudProvider> CloudProvider::shared() {
  std::lock_guard lock(sharedMutex);
  return sharedProvider;
}

void CloudProvider::setShared(std::shared_ptr<CloudProvider> provider) {
  std::lock_guard lock(sharedMutex);
  sharedProvider = std::move(provider);
}

LocalSyncFolderProvider::LocalSyncFolderProvider(std::string containerDir)
    : container_(fs::path(containerDir).lexically_normal().string()) {
  while (container_.size() > 1 && container_.back() == '/') container_.pop_back();
}

std::shared_ptr<LocalSyncFolderProvider> LocalSyncFolderProvider::fromEnvironment(
    const std::string& cloudDir) {
  std::string dir = cloudDir;
  if (dir.empty()) {
    const char* env = std::getenv("HARBOR_CLOUD_DIR");
    if (env) dir = env;
  }
  if (dir.empty()) return nullptr;
  return std::make_shared<LocalSyncFolderProvider>(fs::absolute(dir).string());
}

bool LocalSyncFolderProvider::isAvailable() const {
  std::error_code ec;
  return !container_.empty() && fs::is_directory(container_, ec) &&
         ::access(container_.c_str(), W_OK) == 0;
}

std::string LocalSyncFolderProvider::placeholderPath(const std::string& path) {
  return sibling(path, ".", ".cloud");
}
std::string LocalSyncFolderProvider::requestPath(const std::string& path) {
  return sibling(path, ".", ".cloud-request");
}
std::string LocalSyncFolderProvider::partPath(const std::string& path) {
  return sibling(path, ".", ".cloud-part");
}

bool LocalSyncFolderProvider::isBookkeepingName(const std::string& name) {
  if (name.rfind(kTemporaryPrefix, 0) == 0) return true;
  if (name.empty() || name[0] != '.') return false;
  return endsWith(name, ".cloud") || endsWith(name, ".cloud-request") ||
         endsWith(name, ".cloud-part");
}

std::optional<CloudItem> LocalSyncFolderProvider::itemAt(const std::string& path) const {
  if (isBookkeepingName(fs::path(path).filename().string())) return std::nullopt;
  if (auto item = presentItem(path)) return item;
  const std::string placeholder = placeholderPath(path);
  auto size = placeholderSize(placeholder);
  // The sync client puts a downloaded file in place before it takes the
  // placeholder away: a placeholder gone since the first look means the file
  // is there now.
  if (!size) return presentItem(path);
  CloudItem item;
  item.filename = fs::path(path).filename().string();
  item.path = path;
  item.totalBytes = *size;
  item.lastModifiedDate = FileUtil::getFileMidified(placeholder);
  std::error_code ec;
  auto part = fs::file_size(partPath(path), ec);
  if (!ec && *size > 0)
    item.percentDownloaded = std::min(100.0, 100.0 * double(part) / double(*size));
  return item;
}

std::vector<CloudItem> LocalSyncFolderProvider::itemsIn(const std::string& folder) const {
  std::vector<CloudItem> items;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    std::string listed = name;
    if (name.size() > 7 && name[0] == '.' && endsWith(name, ".cloud"))
      listed = name.substr(1, name.size() - 7);
    else if (isBookkeepingName(name))
      continue;
    // A placeholder beside its downloaded item lists once.
    if (listed != name && fs::exists(fs::symlink_status(fs::path(folder) / listed, ec))) continue;
    if (auto item = itemAt((fs::path(folder) / listed).string())) items.push_back(*item);
  }
  std::sort(items.begin(), items.end(),
            [](const CloudItem& a, const CloudItem& b) { return a.filename < b.filename; });
  return items;
}

bool LocalSyncFolderProvider::startDownloading(const std::string& path, Error* error) {
  std::ofstream out(requestPath(path));
  if (!out) {
    if (error) *error = Error{"LocalSyncFolderProvider", 1, "can not ask for " + path};
    return false;
  }
  return true;
}

}  // namespace harbor

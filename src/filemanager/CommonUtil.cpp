#include "filemanager/CommonUtil.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "filemanager/FileUtil.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace fs = std::filesystem;

void CommonUtil::filesInCurrentFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                      bool containsFolder,
                                      const std::vector<std::string>& filters) {
  std::vector<std::string> found;
  std::error_code ec;
  fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
  for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name == ".DS_Store") continue;
    std::error_code kindEc;
    if (it->is_directory(kindEc)) {
      if (containsFolder) found.push_back(it->path().string());
      continue;
    }
    if (!filters.empty()) {
      std::string ext = toLower(FileUtil::getFileExtension(name));
      if (std::find(filters.begin(), filters.end(), ext) == filters.end()) continue;
    }
    found.push_back(it->path().string());
  }
  std::sort(found.begin(), found.end());
  tFiles.insert(tFiles.end(), found.begin(), found.end());
}

std::size_t CommonUtil::getFilesNumberInFolder(const std::string& folder, bool containsFolder,
                                               const std::vector<std::string>& filters) {
  return FileUtil::getFilesNumberInFolder(folder, containsFolder, filters);
}

void CommonUtil::checkBookMark() {
  UserDefaults& defaults = UserDefaults::standard();
  auto bookmarks = defaults.dictionaryForKey(kBookmarkKey);
  if (!bookmarks) return;
  const fs::path root = FileUtil::documentDirectory();
  std::size_t removed = std::erase_if(*bookmarks, [&](const auto& entry) {
    std::string rel = entry.first;
    rel.erase(0, rel.find_first_not_of('/'));
    std::error_code ec;
    return !fs::exists(fs::symlink_status(rel.empty() ? root : root / rel, ec));
  });
  if (removed == 0) return;
  defaults.setObject(kBookmarkKey, std::move(*bookmarks));
  defaults.synchronize();
}

std::string CommonUtil::formattedFileSizeAll(std::uint64_t size) {
  return FileUtil::formatSize(size);
}

std::string CommonUtil::formattedFileSize(std::uint64_t size) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.2f MB", static_cast<double>(size) / (1024.0 * 1024.0));
  return buf;
}

}  // namespace harbor

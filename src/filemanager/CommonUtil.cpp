#include "filemanager/CommonUtil.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "platform/Resources.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

FileUtil::Date dateOf(const struct stat& st) {
  auto since =
      std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
  return FileUtil::Date(std::chrono::duration_cast<FileUtil::Date::duration>(since));
}

bool passesFilter(const ExtensionMap* filters, std::string_view name) {
  if (!filters) return true;
  return filters->find(toLower(FileUtil::getFileExtension(name))) != filters->end();
}

}  // namespace

bool CommonUtil::entriesInCurrentFolder(const std::string& folder,
                                        std::vector<FolderEntry>& entries, bool containsFolder,
                                        const ExtensionMap* filters, bool withAttributes) {
  int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd < 0) return false;
  DIR* dir = ::fdopendir(dirFd);
  if (!dir) {
    ::close(dirFd);
    return false;
  }
  while (const dirent* e = ::readdir(dir)) {
    const char* name = e->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    FolderEntry entry;
    entry.name = name;
    bool known = false;
    if (!withAttributes && (e->d_type == DT_DIR || e->d_type == DT_REG)) {
      entry.isDirectory = e->d_type == DT_DIR;
      known = true;
    }
    if (!known) {
      struct stat st;
      if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
        entry.isDirectory = S_ISDIR(st.st_mode);
        entry.size = static_cast<std::uint64_t>(st.st_size);
        entry.modified = dateOf(st);
        // The link's own size and date stay; its kind is that of its target.
        struct stat target;
        if (S_ISLNK(st.st_mode) && ::fstatat(dirFd, name, &target, 0) == 0) {
          entry.isDirectory = S_ISDIR(target.st_mode);
        }
      }
    }
    if (entry.isDirectory ? !containsFolder : !passesFilter(filters, entry.name)) continue;
    entries.push_back(std::move(entry));
  }
  ::closedir(dir);
  return true;
}

void CommonUtil::filesnameInCurrentFolder(const std::string& folder,
                                          std::vector<std::string>& tFiles, bool containsFolder,
                                          const ExtensionMap* filters) {
  std::vector<FolderEntry> entries;
  entriesInCurrentFolder(folder, entries, containsFolder, filters, false);
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (auto& e : entries) names.push_back(std::move(e.name));
  std::sort(names.begin(), names.end());
  tFiles.insert(tFiles.end(), std::make_move_iterator(names.begin()),
                std::make_move_iterator(names.end()));
}

void CommonUtil::filesInCurrentFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                      bool containsFolder,
                                      const std::vector<std::string>& filters) {
  std::vector<std::string> found;
  std::error_code ec;
  fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
  for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (FileUtil::isIgnoredName(name)) continue;
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

bool CommonUtil::isMoreTime(const std::optional<FileUtil::Date>& since, double seconds) {
  if (!since) return true;
  const auto now = std::chrono::system_clock::now();
  if (*since > now) return true;
  return std::chrono::duration<double>(now - *since).count() >= seconds;
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

namespace {

std::optional<PlistValue::Map> recordFor(std::string_view key, const std::string& path) {
  auto all = UserDefaults::standard().dictionaryForKey(std::string(key));
  if (!all) return std::nullopt;
  auto it = all->find(FileUtil::getDocumentRelativePath(path));
  if (it == all->end() || !it->second.asMap()) return std::nullopt;
  return *it->second.asMap();
}

void storeRecord(std::string_view key, const std::string& path, PlistValue::Map record) {
  auto& defaults = UserDefaults::standard();
  const std::string name(key);
  PlistValue::Map all = defaults.dictionaryForKey(name).value_or(PlistValue::Map{});
  all[FileUtil::getDocumentRelativePath(path)] = PlistValue(std::move(record));
  defaults.setObject(name, PlistValue(std::move(all)));
}

}  // namespace

void CommonUtil::saveBookMarkPath(const std::string& path, long long textSize, long long scrollY,
                                  bool isSource) {
  storeRecord(kBookmarkKey, path,
              {{SYSTEM_BOOKMARK_FONT_SIZE, PlistValue(textSize)},
               {SYSTEM_BOOKMARK_SCROLLY, PlistValue(scrollY)},
               {SYSTEM_BOOKMARK_ISSOURCE, PlistValue(isSource)}});
}

std::optional<PlistValue::Map> CommonUtil::getBookMarkByPath(const std::string& path) {
  return recordFor(kBookmarkKey, path);
}

void UWebViewUtil::saveLastOpen(PlistValue::Map info, const std::string& path) {
  storeRecord(keys::SYSTEM_LASTOPEN_INFO, path, std::move(info));
}

std::optional<PlistValue::Map> UWebViewUtil::getLastOpenByPath(const std::string& path) {
  return recordFor(keys::SYSTEM_LASTOPEN_INFO, path);
}

std::string CommonUtil::formattedFileSizeAll(std::uint64_t size) {
  return FileUtil::formatSize(size);
}

std::string CommonUtil::formattedFileSize(std::uint64_t size) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.2f MB", static_cast<double>(size) / (1024.0 * 1024.0));
  return buf;
}

// ---- Display settings ------------------------------------------------------

int CommonUtil::getFileDisplayType() {
  auto value = UserDefaults::standard().objectForKey(kFileTypeOrderKey);
  if (!value) return 0;
  if (const std::string* s = value->asString()) {
    // The decimal string of the number, as it was written.
    char* end = nullptr;
    long n = std::strtol(s->c_str(), &end, 10);
    return end != s->c_str() ? static_cast<int>(n) : 0;
  }
  if (value->isNumber()) return static_cast<int>(value->asInteger().value_or(0));
  return 0;
}

void CommonUtil::setFileDisplayType(int type) {
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(kFileTypeOrderKey, std::to_string(type));
  defaults.synchronize();
}

std::string CommonUtil::getFileDisplayTypeString(int type) {
  switch (type) {
    case 1:
      return localizedString("Date");
    case 2:
      return localizedString("Type");
    case 3:
      return localizedString("Size");
    default:
      return localizedString("Name");
  }
}

int CommonUtil::getShowItemsOptionsValue(int defaultShowItemsType) {
  auto value = UserDefaults::standard().objectForKey(kShowItemsOptionsKey);
  if (value && value->isNumber()) {
    auto n = value->asInteger();
    if (n && (*n == 0 || *n == 1)) return static_cast<int>(*n);
  }
  return defaultShowItemsType;
}

std::string CommonUtil::getShowItemsOptionsString(int value) {
  return localizedString(value == 1 ? "Show items as icons" : "Show items as list");
}

// ---- Icons and types -------------------------------------------------------

std::string CommonUtil::getFileTypeImageByName(std::string_view name) {
  return getFileTypeImageByExtension(FileUtil::getFileExtension(name));
}

std::string CommonUtil::getFileTypeImageByExtension(std::string_view extension) {
  if (extension.empty()) return "unknow.png";
  const std::string lower = toLower(extension);
  const std::string own = lower + ".png";
  // Extensions become file names here; one that would leave the folder has
  // no image of its own.
  if (lower.find('/') == std::string::npos &&
      resourcePath(std::string(kFileTypeImageFolder) + "/" + own)) {
    return own;
  }
  const auto& table = USupportFile::directlyDisplayType();
  if (auto it = table.find(lower); it != table.end()) return it->second;
  if (USupportFile::isSystemEditExtension(lower)) return "text.png";
  return "unknow.png";
}

std::string CommonUtil::getEmailMimeType(std::string_view path) {
  static const ExtensionMap types = [] {
    ExtensionMap map;
    std::ifstream in("/etc/mime.types");
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream words(line);
      std::string type, extension;
      if (!(words >> type)) continue;
      while (words >> extension) map.emplace(toLower(extension), type);
    }
    return map;
  }();
  auto it = types.find(toLower(FileUtil::getFileExtension(path)));
  return it == types.end() ? "application/octet-stream" : it->second;
}

}  // namespace harbor

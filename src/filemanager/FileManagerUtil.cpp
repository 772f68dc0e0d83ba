#include "filemanager/FileManagerUtil.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "filemanager/FilePasswordCipher.h"
#include "filemanager/FileUtil.h"
#include "platform/Paths.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

// The password key of a full path: "" for the root, "/a/b" below it, nothing
// outside it.
std::optional<std::string> relativeKey(const std::string& path) {
  const std::string root = FileUtil::documentDirectory();
  if (path.empty() || !isPathAtOrBelow(path, root)) return std::nullopt;
  return FileUtil::getRelativePath(path, root);
}

std::string fullPathOfKey(const std::string& key) {
  const std::string root = FileUtil::documentDirectory();
  std::size_t b = key.find_first_not_of('/');
  if (b == std::string::npos) return root;
  return root + "/" + key.substr(b);
}

// Keys name the same item whether or not they carry the leading "/".
bool sameKey(const std::string& a, const std::string& b) {
  return isPathAtOrBelow(a, b) && isPathAtOrBelow(b, a);
}

PlistValue::Map passwordMap() {
  return UserDefaults::standard()
      .dictionaryForKey(FileManagerUtil::kFilePasswordKey)
      .value_or(PlistValue::Map{});
}

void storePasswordMap(PlistValue::Map map) {
  UserDefaults& defaults = UserDefaults::standard();
  if (map.empty()) {
    defaults.removeObjectForKey(FileManagerUtil::kFilePasswordKey);
  } else {
    defaults.setObject(FileManagerUtil::kFilePasswordKey, std::move(map));
  }
  defaults.synchronize();
}

const std::string* storedValue(const PlistValue::Map& map, const std::string& key) {
  for (const auto& [k, v] : map) {
    if (sameKey(k, key)) return v.asString();
  }
  return nullptr;
}

std::size_t eraseKey(PlistValue::Map& map, const std::string& key) {
  return std::erase_if(map, [&](const auto& entry) { return sameKey(entry.first, key); });
}

std::mutex& generatorMutex() {
  static std::mutex m;
  return m;
}

FileManagerUtil::ThumbnailGenerator& generator() {
  static FileManagerUtil::ThumbnailGenerator g;
  return g;
}

bool isNewer(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  if (sa.st_mtim.tv_sec != sb.st_mtim.tv_sec) return sa.st_mtim.tv_sec > sb.st_mtim.tv_sec;
  return sa.st_mtim.tv_nsec > sb.st_mtim.tv_nsec;
}

bool entryExists(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

std::string cachedImage(const std::string& path, bool screen) {
  const std::string folder = FileManagerUtil::thumbnailCacheFolder(path);
  if (folder.empty() || !FileUtil::isReguralFilePath(path)) return {};
  const std::string name = FileUtil::getFileName(path);
  const std::string thumb = folder + "/" + name + "_75_75.jpg";
  const std::string full = folder + "/" + name + "_screen.jpg";
  const std::string& wanted = screen ? full : thumb;
  if (entryExists(wanted) && !isNewer(path, wanted)) return wanted;
  FileManagerUtil::ThumbnailGenerator make;
  {
    std::lock_guard lock(generatorMutex());
    make = generator();
  }
  if (!make || !FileUtil::createFolder(folder)) return {};
  make(path, thumb, full);
  return entryExists(wanted) ? wanted : std::string();
}

// Moves or copies a cache folder, replacing what is at the target.
void carryCache(const std::string& from, const std::string& to, bool isCopy) {
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(from, ec))) return;
  fs::remove_all(to, ec);
  fs::create_directories(fs::path(to).parent_path(), ec);
  if (isCopy) {
    fs::copy(from, to, fs::copy_options::recursive, ec);
  } else {
    fs::rename(from, to, ec);
  }
}

}  // namespace

// ---- Passwords -------------------------------------------------------------

std::map<std::string, std::string> FileManagerUtil::getPasswordHashTable() {
  std::map<std::string, std::string> out;
  for (const auto& [key, value] : passwordMap()) {
    if (const std::string* s = value.asString()) out.emplace(key, *s);
  }
  return out;
}

bool FileManagerUtil::saveFilePassword(const std::string& path, const std::string& password) {
  auto key = relativeKey(path);
  if (!key) return false;
  PlistValue::Map map = passwordMap();
  eraseKey(map, *key);
  if (!password.empty()) {
    std::string encoded = FilePasswordCipher::encode(password);
    if (encoded.empty()) return false;
    map.emplace(*key, std::move(encoded));
  }
  storePasswordMap(std::move(map));
  return true;
}

std::optional<std::string> FileManagerUtil::getFilePassword(const std::string& path) {
  auto key = relativeKey(path);
  if (!key) return std::nullopt;
  const PlistValue::Map map = passwordMap();
  const std::string* stored = storedValue(map, *key);
  if (!stored || stored->empty()) return std::nullopt;
  return FilePasswordCipher::decode(*stored);
}

void FileManagerUtil::removeFilePassword(const std::string& path) {
  auto key = relativeKey(path);
  if (!key) return;
  PlistValue::Map map = passwordMap();
  if (eraseKey(map, *key) != 0) storePasswordMap(std::move(map));
}

void FileManagerUtil::removeFileAndChildrenPassword(const std::string& path) {
  std::vector<std::string> none;
  removeFileAndChildrenPassword(path, none);
}

void FileManagerUtil::removeFileAndChildrenPassword(const std::string& path,
                                                    std::vector<std::string>& passwordRows) {
  std::erase_if(passwordRows, [&](const std::string& row) { return isPathAtOrBelow(row, path); });
  // Another thread may store an entry below the path meanwhile: look again
  // until nothing is left, but never spin on a store that refuses changes.
  for (int round = 0; round < 8; ++round) {
    std::vector<std::string> locked = getAllPasswordFileList(path);
    if (locked.empty()) return;
    PlistValue::Map map = passwordMap();
    std::size_t removed = 0;
    for (const auto& full : locked) {
      if (auto key = relativeKey(full)) removed += eraseKey(map, *key);
    }
    if (removed == 0) return;
    storePasswordMap(std::move(map));
  }
}

void FileManagerUtil::removeAllFilesPassword() {
  UserDefaults& defaults = UserDefaults::standard();
  defaults.removeObjectForKey(kFilePasswordKey);
  defaults.synchronize();
}

bool FileManagerUtil::isPasswordFile(const std::string& path) {
  auto password = getFilePassword(path);
  return password && !password->empty();
}

bool FileManagerUtil::isSamePasswordFile(const std::string& path, const std::string& pwd) {
  return isSamePassword(getFilePassword(path).value_or(std::string()), pwd);
}

bool FileManagerUtil::isSamePassword(const std::string& stored, const std::string& password) {
  if (stored.empty()) return true;
  if (password == stored) return true;
  return !password.empty() && FilePasswordCipher::encode(password) == stored;
}

bool FileManagerUtil::isExistsPasswordInPathComponents(const std::string& path) {
  return getPasswordPathInPathComponents(path).has_value();
}

std::optional<std::string> FileManagerUtil::getPasswordPathInPathComponents(
    const std::string& path) {
  std::string rel = path;
  if (auto key = relativeKey(path)) rel = *key;
  const PlistValue::Map map = passwordMap();
  if (map.empty()) return std::nullopt;
  for (;;) {
    const std::string* stored = storedValue(map, rel);
    if (stored && FilePasswordCipher::decode(*stored)) {
      std::size_t end = rel.find_last_not_of('/');
      if (end == std::string::npos) return std::string();
      rel.erase(end + 1);
      return rel.front() == '/' ? rel : "/" + rel;
    }
    std::size_t end = rel.find_last_not_of('/');
    if (end == std::string::npos) return std::nullopt;  // the root was the last level
    std::size_t slash = rel.rfind('/', end);
    rel = slash == std::string::npos ? std::string() : rel.substr(0, slash);
  }
}

std::vector<std::string> FileManagerUtil::getAllPasswordFileList(const std::string& path) {
  std::vector<std::string> out;
  for (const auto& [key, value] : passwordMap()) {
    std::string full = fullPathOfKey(key);
    if (isPathAtOrBelow(full, path)) out.push_back(std::move(full));
  }
  return out;
}

void FileManagerUtil::copyFileAndPassword(const std::string& path, const std::string& desPath) {
  dealwithFileAndPassword(path, desPath, true);
}

void FileManagerUtil::cutFileAndPassword(const std::string& path, const std::string& desPath) {
  dealwithFileAndPassword(path, desPath, false);
}

void FileManagerUtil::dealwithFileAndPassword(const std::string& path, const std::string& desPath,
                                              bool isCopy) {
  auto target = relativeKey(desPath);
  if (!target) return;
  PlistValue::Map map = passwordMap();
  PlistValue::Map carried;
  bool changed = false;
  for (const auto& full : getAllPasswordFileList(path)) {
    auto key = relativeKey(full);
    if (!key) continue;
    const std::string* stored = storedValue(map, *key);
    if (!stored) continue;
    // Below the source, the same place below the target.
    std::string below = FileUtil::getRelativePath(full, path);
    carried[*target + below] = *stored;
    if (!isCopy) eraseKey(map, *key);
    changed = true;
  }
  if (!changed) return;
  for (auto& [key, value] : carried) {
    eraseKey(map, key);
    map.emplace(key, std::move(value));
  }
  storePasswordMap(std::move(map));
}

void FileManagerUtil::checkPasswordFileIsExists() {
  UserDefaults& defaults = UserDefaults::standard();
  auto passwords = defaults.dictionaryForKey(kFilePasswordKey);
  if (!passwords) return;
  const fs::path root = FileUtil::documentDirectory();
  std::size_t removed = std::erase_if(*passwords, [&](const auto& entry) {
    std::string rel = entry.first;
    rel.erase(0, rel.find_first_not_of('/'));
    // The root's own entry guards the whole browser; the root never vanishes.
    if (rel.empty()) return false;
    std::error_code ec;
    return !fs::exists(fs::symlink_status(root / rel, ec));
  });
  if (passwords->empty()) {
    defaults.removeObjectForKey(kFilePasswordKey);
  } else if (removed != 0) {
    defaults.setObject(kFilePasswordKey, std::move(*passwords));
  } else {
    return;
  }
  defaults.synchronize();
}

// ---- Thumbnails ------------------------------------------------------------

std::string FileManagerUtil::thumbnailDirectory() {
  return (fs::path(FileUtil::cachePath()) / "Thumbnails").string();
}

std::string FileManagerUtil::thumbnailCacheFolder(const std::string& path) {
  auto key = relativeKey(path);
  if (!key || key->empty()) return {};
  return thumbnailDirectory() + *key + "_thumb";
}

void FileManagerUtil::setThumbnailGenerator(ThumbnailGenerator generatorFunction) {
  std::lock_guard lock(generatorMutex());
  generator() = std::move(generatorFunction);
}

std::string FileManagerUtil::getThumbnailImage(const std::string& path) {
  return cachedImage(path, false);
}

std::string FileManagerUtil::getFullScreenImage(const std::string& path) {
  return cachedImage(path, true);
}

void FileManagerUtil::removeThumbAndScreenImage(const std::string& path) {
  const std::string folder = thumbnailCacheFolder(path);
  if (!folder.empty()) FileUtil::deleteFile(folder);
}

void FileManagerUtil::removeDirectoryThumbAndScreenImage(const std::string& path) {
  auto key = relativeKey(path);
  if (!key || key->empty()) return;
  FileUtil::deleteFile(thumbnailDirectory() + *key);
}

void FileManagerUtil::dealwithThumbnailAndScreenImage(const std::string& path,
                                                      const std::string& desPath, bool isCopy) {
  auto from = relativeKey(path);
  auto to = relativeKey(desPath);
  if (!from || !to || from->empty() || to->empty()) return;
  const std::string base = thumbnailDirectory();
  // After a move only the target is there to say what kind the item is.
  const bool folder = FileUtil::isDirectoryFilePath(entryExists(desPath) ? desPath : path);
  if (folder) {
    carryCache(base + *from, base + *to, isCopy);
    return;
  }
  const std::string target = base + *to + "_thumb";
  carryCache(base + *from + "_thumb", target, isCopy);
  const std::string oldName = FileUtil::getFileName(path);
  const std::string newName = FileUtil::getFileName(desPath);
  if (oldName == newName) return;
  for (const char* suffix : {"_75_75.jpg", "_screen.jpg"}) {
    std::error_code ec;
    fs::rename(target + "/" + oldName + suffix, target + "/" + newName + suffix, ec);
  }
}

void FileManagerUtil::removeFileImageLocalCache() {
  FileUtil::deleteFiles(FileUtil::getCurrentFilesAndFoldersFullPath(thumbnailDirectory()));
}

bool FileManagerUtil::removePath(const std::string& path) {
  if (FileUtil::isDirectoryFileType(path)) {
    removeDirectoryThumbAndScreenImage(path);
  } else {
    removeThumbAndScreenImage(path);
  }
  if (!FileUtil::deleteFile(path)) return false;
  removeFileAndChildrenPassword(path);
  return true;
}

// ---- Names -----------------------------------------------------------------

bool FileManagerUtil::isHiddenDirectory(std::string_view path) {
  const std::string name = FileUtil::getFileName(path);
  return !name.empty() && name.front() == '.';
}

std::string FileManagerUtil::trimLeftPoingOfFileName(std::string_view path) {
  std::string name = FileUtil::getFileName(path);
  if (!name.empty() && name.front() == '.') name.erase(0, 1);
  return name;
}

void FileManagerUtil::ignoreFile(std::vector<std::string>& files) {
  std::erase_if(files, [](const std::string& f) {
    return FileUtil::isIgnoredName(FileUtil::getFileName(f));
  });
}

std::string FileManagerUtil::getRelativeTo(const std::string& path, const std::string& sourcePath) {
  return relativePathBelow(path, sourcePath);
}

}  // namespace harbor

#include "filemanager/FileUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <thread>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileCopy.h"
#include "filemanager/FileModes.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Directories.h"
#include "platform/Log.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kCopyBlockSize = 0x100000;  // 1,048,576 bytes

std::string made(const fs::path& p) {
  std::error_code ec;
  fs::create_directories(p, ec);
  return p.string();
}

// Whether anything, even a dangling link, occupies the path.
bool entryExists(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

std::string joinPath(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  if (folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

std::string backslashesToSlashes(std::string_view path) {
  std::string s(path);
  std::replace(s.begin(), s.end(), '\\', '/');
  return s;
}

// "file:///a%20b" -> "/a b"; anything else is taken as a path already.
std::string urlToPath(const std::string& url) {
  constexpr std::string_view scheme = "file://";
  if (url.size() < scheme.size() || !equalsIgnoreCase(url.substr(0, scheme.size()), scheme)) {
    return url;
  }
  std::string_view rest = std::string_view(url).substr(scheme.size());
  // "file://localhost/a" names the same place as "file:///a".
  if (!rest.empty() && rest.front() != '/') {
    std::size_t slash = rest.find('/');
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
  }
  rest = rest.substr(0, rest.find_first_of("?#"));
  std::string out;
  out.reserve(rest.size());
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] == '%' && i + 2 < rest.size() && hex(rest[i + 1]) >= 0 && hex(rest[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hex(rest[i + 1]) * 16 + hex(rest[i + 2])));
      i += 2;
    } else {
      out.push_back(rest[i]);
    }
  }
  return out;
}

bool setTimes(const std::string& path, FileUtil::Date date) {
  auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(date.time_since_epoch()).count();
  timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;  // leave the access time alone
  times[1].tv_sec = static_cast<time_t>(ns / 1000000000);
  times[1].tv_nsec = static_cast<long>(ns % 1000000000);
  if (times[1].tv_nsec < 0) {
    times[1].tv_nsec += 1000000000;
    times[1].tv_sec -= 1;
  }
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

enum class Walk { All, FilesOnly, FoldersOnly };

// Full paths of the entries below `path`, sorted. Links are listed but not
// walked into; so in a deep walk a link to a folder counts as a file, while
// one level down it counts as the folder it shows.
std::vector<std::string> listEntries(const std::string& path, bool recursive, Walk what,
                                     bool skipIgnored) {
  std::vector<std::string> out;
  // False for an ignored entry, whose contents are ignored with it.
  auto keep = [&](const fs::directory_entry& entry) {
    if (skipIgnored && FileUtil::isIgnoredName(entry.path().filename().string())) return false;
    if (what != Walk::All) {
      std::error_code ec;
      bool dir = entry.is_directory(ec) && !(recursive && entry.is_symlink(ec));
      if ((what == Walk::FoldersOnly) != dir) return true;
    }
    out.push_back(entry.path().string());
    return true;
  };
  std::error_code ec;
  if (recursive) {
    fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (!keep(*it)) it.disable_recursion_pending();
    }
  } else {
    fs::directory_iterator it(path, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) keep(*it);
  }
  std::sort(out.begin(), out.end());
  return out;
}

// Runs `work` on a thread of its own; if no thread can be had, runs it here.
template <typename F>
void detach(const char* function, F work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error& e) {
    logMessage("FileUtil", function, std::string("cannot start a thread: ") + e.what());
    work();
  }
}

}  // namespace

// ---- Directories -----------------------------------------------------------

std::string FileUtil::documentDirectory() {
  return Directories::documentDirectory().string();
}

std::string FileUtil::appliationSupportDirectory() {
  return Directories::applicationSupportDirectory().string();
}

std::string FileUtil::systemPath() {
  return made(Directories::applicationSupportDirectory() / "System");
}

std::string FileUtil::cachePath() {
  return Directories::cachesDirectory().string();
}

std::string FileUtil::tempDirectory() {
  return Directories::temporaryDirectory().string();
}

std::string FileUtil::tempBundleIdDirectory() {
  return made(Directories::temporaryDirectory() / Directories::applicationIdentifier());
}

// ---- Sizes -----------------------------------------------------------------

std::uint64_t FileUtil::getFileSize(const std::string& path) {
  struct stat st;
  if (path.empty() || ::lstat(path.c_str(), &st) != 0) return 0;
  return static_cast<std::uint64_t>(st.st_size);
}

std::uint64_t FileUtil::fileSizeAtPath(const std::string& path) {
  return getFileSize(path);
}

std::uint64_t FileUtil::folderSize(const std::string& path) {
  std::uint64_t items = 0;
  return folderSize(path, items);
}

std::uint64_t FileUtil::folderSize(const std::string& path, std::uint64_t& itemNumber) {
  itemNumber = 0;
  std::error_code ec;
  if (!fs::is_directory(fs::status(path, ec))) return getFileSize(path);
  std::uint64_t total = 0;
  fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied, ec);
  for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (isCurrentThreadCancelled()) break;
    ++itemNumber;
    std::error_code kindEc;
    if (!it->is_symlink(kindEc) && it->is_directory(kindEc)) continue;
    total += getFileSize(it->path().string());
  }
  return total;
}

std::uint64_t FileUtil::getFileSizeFiles(const std::vector<std::string>& files) {
  std::uint64_t total = 0;
  for (const auto& file : files) {
    if (isCurrentThreadCancelled()) break;
    total += folderSize(file);
  }
  return total;
}

FileUtil::Date FileUtil::getFileMidified(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return Date();
  auto since =
      std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
  return Date(std::chrono::duration_cast<Date::duration>(since));
}

std::string FileUtil::formatSize(std::uint64_t size) {
  if (size == 0) return localizedString("ZeroKB");
  char buf[64];
  constexpr std::uint64_t kb = 1024, mb = kb * 1024, gb = mb * 1024;
  double s = static_cast<double>(size);
  if (size < kb) {
    std::snprintf(buf, sizeof buf, "%lluB", static_cast<unsigned long long>(size));
  } else if (size < mb) {
    std::snprintf(buf, sizeof buf, "%.1fK", s * (1.0 / 1024));
  } else if (size < gb) {
    std::snprintf(buf, sizeof buf, "%.2fM", s * (1.0 / 1024) * (1.0 / 1024));
  } else {
    std::snprintf(buf, sizeof buf, "%.3fG", s * (1.0 / 1024) * (1.0 / 1024) * (1.0 / 1024));
  }
  return buf;
}

// ---- Names -----------------------------------------------------------------

std::string FileUtil::getFileName(std::string_view path) {
  std::string s = backslashesToSlashes(path);
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  if (s == "/") return s;
  std::size_t slash = s.rfind('/');
  return slash == std::string::npos ? s : s.substr(slash + 1);
}

std::string FileUtil::getFileDirectory(std::string_view path) {
  std::string s = backslashesToSlashes(path);
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  std::size_t slash = s.rfind('/');
  if (slash == std::string::npos) return {};
  if (slash == 0) return "/";
  s.resize(slash);
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

std::string FileUtil::getFileExtension(std::string_view path) {
  std::size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return std::string(name.substr(dot + 1));
}

std::string FileUtil::getFileNameNoExtension(std::string_view path) {
  std::size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return std::string(name);
  return std::string(name.substr(0, dot));
}

std::string FileUtil::getUrlExtension(std::string_view url) {
  url = url.substr(0, url.find('?'));
  std::size_t slash = url.rfind('/');
  if (slash != std::string_view::npos) url = url.substr(slash + 1);
  std::size_t dot = url.rfind('.');
  return dot == std::string_view::npos ? std::string() : std::string(url.substr(dot + 1));
}

std::string FileUtil::getDocumentRelativePath(std::string_view path) {
  return getRelativePath(path, documentDirectory());
}

std::string FileUtil::getApplicationSupportRelativePath(std::string_view path) {
  return getRelativePath(path, appliationSupportDirectory());
}

std::string FileUtil::getRelativePath(std::string_view path, std::string_view baseRelative) {
  return relativePathBelow(path, baseRelative);
}

const std::vector<std::string>& FileUtil::ignoreFileNames() {
  static const std::vector<std::string> names{".DS_Store", "__MACOSX", "Thumbs.db"};
  return names;
}

bool FileUtil::isIgnoredName(std::string_view name) {
  const auto& names = ignoreFileNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool FileUtil::isIgnoredPath(std::string_view path) {
  for (std::size_t start = 0; start <= path.size();) {
    std::size_t slash = std::min(path.find('/', start), path.size());
    if (isIgnoredName(path.substr(start, slash - start))) return true;
    start = slash + 1;
  }
  return false;
}

std::string FileUtil::getCreateFileName(const std::string& folder, const std::string& filename,
                                        const std::string& extension) {
  const std::string suffix = extension.empty() ? std::string() : "." + extension;
  std::string candidate = joinPath(folder, filename + suffix);
  if (!entryExists(candidate)) return candidate;
  // "report.tar" + ".gz" numbers the stem: "report 2.tar.gz".
  std::string base = filename;
  std::string inner;
  if (!suffix.empty()) {
    inner = getFileExtension(filename);
    if (!inner.empty()) base = getFileNameNoExtension(filename);
  }
  const std::string tail = (inner.empty() ? std::string() : "." + inner) + suffix;
  for (unsigned long n = 2;; ++n) {
    candidate = joinPath(folder, base + " " + std::to_string(n) + tail);
    if (!entryExists(candidate)) return candidate;
  }
}

std::string FileUtil::getCreateFileName(const std::string& folder, const std::string& filename,
                                        const std::string& extension,
                                        const std::unordered_set<std::string>& files) {
  const std::string suffix = extension.empty() ? std::string() : "." + extension;
  auto join = [&](const std::string& name) {
    return folder.empty() ? name : joinPath(folder, name);
  };
  auto taken = [&](const std::string& path) { return files.count(toLower(path)) > 0; };
  std::string candidate = join(filename + suffix);
  if (!taken(candidate)) return candidate;
  for (unsigned long n = 2;; ++n) {
    candidate = join(filename + " " + std::to_string(n) + suffix);
    if (!taken(candidate)) return candidate;
  }
}

std::string FileUtil::getCreateFolderName(const std::string& folder, const std::string& filename) {
  std::string candidate = joinPath(folder, filename);
  if (!entryExists(candidate)) return candidate;
  const std::string extension = getFileExtension(filename);
  const std::string base = extension.empty() ? filename : getFileNameNoExtension(filename);
  const std::string tail = extension.empty() ? std::string() : "." + extension;
  for (unsigned long n = 2;; ++n) {
    candidate = joinPath(folder, base + " " + std::to_string(n) + tail);
    if (!entryExists(candidate)) return candidate;
  }
}

std::string FileUtil::getCreateName(const std::string& folder, const std::string& filename) {
  std::string joined = joinPath(folder, filename);
  if (!entryExists(joined)) return joined;
  if (isDirectoryFilePath(joined)) return getCreateFolderName(folder, filename);
  return getCreateFileName(folder, getFileNameNoExtension(filename), getFileExtension(filename));
}

// ---- Listing ---------------------------------------------------------------

std::vector<std::string> FileUtil::subpathsAtPaths(const std::string& path) {
  std::vector<std::string> out = listEntries(path, true, Walk::All, false);
  const std::size_t cut = path.size() + (path.empty() || path.back() == '/' ? 0 : 1);
  for (auto& p : out) p.erase(0, cut);
  return out;
}

std::vector<std::string> FileUtil::subpathsFullPathAtPath(const std::string& path) {
  return listEntries(path, true, Walk::All, false);
}

std::vector<std::string> FileUtil::subpathsFullPathAtPaths(const std::vector<std::string>& paths) {
  std::vector<std::string> out;
  for (const auto& path : paths) {
    auto sub = subpathsFullPathAtPath(path);
    out.insert(out.end(), sub.begin(), sub.end());
  }
  return out;
}

std::vector<std::string> FileUtil::getTotalAllFilesFullPath(const std::string& path) {
  return listEntries(path, true, Walk::FilesOnly, true);
}

std::vector<std::string> FileUtil::getTotalFoldersFullPath(const std::string& path) {
  return listEntries(path, true, Walk::FoldersOnly, false);
}

std::vector<std::string> FileUtil::getCurrentFilesFullPath(const std::string& path) {
  return listEntries(path, false, Walk::FilesOnly, false);
}

std::vector<std::string> FileUtil::getCurrentFoldersFullPath(const std::string& path) {
  return listEntries(path, false, Walk::FoldersOnly, false);
}

std::vector<std::string> FileUtil::getCurrentFilesAndFoldersFullPath(const std::string& path) {
  return listEntries(path, false, Walk::All, false);
}

std::vector<std::string> FileUtil::getCurrentFilesAndFoldersFullPath(const std::string& path,
                                                                     bool checkFile) {
  return listEntries(path, false, Walk::All, checkFile);
}

std::size_t FileUtil::getFileCountInDirectory(const std::string& path) {
  return listEntries(path, false, Walk::All, false).size();
}

std::size_t FileUtil::getFilesNumberInFolder(const std::string& folder, bool containsFolder,
                                             const std::vector<std::string>& filters) {
  std::vector<std::string> files;
  CommonUtil::filesInCurrentFolder(folder, files, containsFolder, filters);
  return files.size();
}

void FileUtil::contentsOfFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                const std::vector<std::string>& filters) {
  for (auto& path : listEntries(folder, true, Walk::FilesOnly, true)) {
    if (!filters.empty()) {
      std::string ext = toLower(getFileExtension(path));
      if (std::find(filters.begin(), filters.end(), ext) == filters.end()) continue;
    }
    tFiles.push_back(std::move(path));
  }
}

// ---- File changes ----------------------------------------------------------

bool FileUtil::createFolder(const std::string& path) {
  if (path.empty()) return false;
  std::error_code ec;
  fs::create_directories(path, ec);
  return fs::is_directory(fs::status(path, ec));
}

bool FileUtil::createFolder(const std::string& path, Date date) {
  return createFolder(path) && setTimes(path, date);
}

bool FileUtil::createFolder(const std::string& path, Date date, Date created) {
  (void)created;
  return createFolder(path, date);
}

bool FileUtil::createFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FileModes::kNewFile);
  if (fd < 0) return false;
  return ::close(fd) == 0;
}

bool FileUtil::createFile(const std::string& path, const FileAttributes& attr) {
  if (!createFile(path)) return false;
  bool ok = true;
  if (attr.permissions) ok = setFilePermission(path, *attr.permissions) && ok;
  if (attr.modificationDate) ok = setTimes(path, *attr.modificationDate) && ok;
  return ok;
}

bool FileUtil::deleteFile(const std::string& path) {
  if (path.empty() || !entryExists(path)) return true;
  std::error_code ec;
  fs::remove_all(path, ec);
  if (ec) HB_LOG("FileUtil", path + ": " + ec.message());
  return !ec;
}

bool FileUtil::deleteFiles(const std::vector<std::string>& paths) {
  bool ok = true;
  for (const auto& path : paths) ok = deleteFile(path) && ok;
  return ok;
}

// A freedesktop trash would need cross-device moves and its own bookkeeping
// for little gain here; callers already confirm before they trash.
bool FileUtil::trashFile(const std::string& path) {
  return deleteFile(path);
}

void FileUtil::deleteFileInThread(const std::string& path) {
  detach(__func__, [path] { deleteFile(path); });
}

void FileUtil::trashFileInThread(const std::string& path) {
  detach(__func__, [path] { trashFile(path); });
}

void FileUtil::deleteSubFilesInThread(const std::string& folder) {
  detach(__func__, [folder] { deleteFiles(getCurrentFilesAndFoldersFullPath(folder)); });
}

bool FileUtil::copyFile(const std::string& path, const std::string& desPath, bool isOverWrite,
                        bool isAppend, IActionProgress* delegate) {
  (void)isAppend;  // a kept target is always appended to
  int in = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  struct stat src;
  if (::fstat(in, &src) != 0 || S_ISDIR(src.st_mode)) {
    ::close(in);
    return false;
  }
  if (isOverWrite && entryExists(desPath)) {
    std::error_code ec;
    fs::remove(desPath, ec);
  }
  // The kernel masks a new file's mode with the umask; a kept target keeps
  // its own. Not O_APPEND: the kernel copy refuses such targets.
  int out =
      ::open(desPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, FileModes::forCopy(src.st_mode));
  if (out < 0) {
    ::close(in);
    return false;
  }
  // Appending a file to itself would never reach the end: copy what was there.
  struct stat des;
  std::uint64_t limit = UINT64_MAX;
  if (::fstat(out, &des) == 0 && des.st_dev == src.st_dev && des.st_ino == src.st_ino) {
    limit = static_cast<std::uint64_t>(src.st_size);
  }
  bool ok = ::lseek(out, 0, SEEK_END) >= 0;
  if (ok) {
    const auto result = FileCopy::copyData(
        in, out, limit, kCopyBlockSize,
        [delegate](std::uint64_t n) {
          if (delegate) delegate->progressFinished(n);
        },
        [] { return isCurrentThreadCancelled(); });
    ok = result.ok();
  }
  ::close(in);
  if (::close(out) != 0) ok = false;
  return ok;
}

bool FileUtil::copyItem(const std::string& path, const std::string& desPath,
                        IActionProgress* delegate) {
  std::error_code ec;
  auto status = fs::status(path, ec);
  if (!fs::exists(status)) return false;
  if (!fs::is_directory(status)) return copyFile(path, desPath, true, false, delegate);

  // Listed before the target exists, so a copy into the source's own tree
  // does not copy itself.
  const std::vector<std::string> subpaths = subpathsAtPaths(path);
  if (!createFolder(desPath)) return false;
  bool ok = true;
  for (const auto& rel : subpaths) {
    if (isCurrentThreadCancelled()) return false;
    const std::string from = joinPath(path, rel);
    const std::string to = joinPath(desPath, rel);
    auto entry = fs::symlink_status(from, ec);
    if (fs::is_directory(entry)) {
      ok = createFolder(to) && ok;
      continue;
    }
    // A link is copied as the file it points to; one that leads to a folder
    // or nowhere has no file content to give.
    if (fs::is_symlink(entry) && !fs::is_regular_file(fs::status(from, ec))) continue;
    ok = copyFile(from, to, true, false, delegate) && ok;
  }
  return ok && !isCurrentThreadCancelled();
}

bool FileUtil::appendDataToFile(const std::string& path, std::string_view data) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, FileModes::kNewFile);
  if (fd < 0) return false;
  bool ok = writeAll(fd, data.data(), data.size());
  return ::close(fd) == 0 && ok;
}

bool FileUtil::emptyFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) return false;
  return ::close(fd) == 0;
}

bool FileUtil::setFileModifiedDate(Date date, const std::string& fullPath) {
  return setTimes(fullPath, date);
}

bool FileUtil::setFileModifiedDate(Date date, Date created, const std::string& fullPath) {
  (void)created;
  return setTimes(fullPath, date);
}

bool FileUtil::setfullPermission(const std::string& path) {
  return FileModes::apply(
      path, isDirectoryFileType(path) ? FileModes::forNewFolder() : FileModes::forNewFile());
}

unsigned FileUtil::getFilePermission(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return 0;
  return static_cast<unsigned>(st.st_mode & 07777);
}

bool FileUtil::setFilePermission(const std::string& path, unsigned permission) {
  return ::chmod(path.c_str(), static_cast<mode_t>(permission & 07777)) == 0;
}

// ---- Kinds -----------------------------------------------------------------

bool FileUtil::isDirectoryFilePath(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::is_directory(fs::status(path, ec));
}

bool FileUtil::isDirectoryFileType(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::is_directory(fs::symlink_status(path, ec));
}

bool FileUtil::isDirectoryFileURL(const std::string& url) {
  return isDirectoryFilePath(urlToPath(url));
}

bool FileUtil::isReguralFilePath(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::is_regular_file(fs::symlink_status(path, ec));
}

bool FileUtil::isReguralFileURL(const std::string& url) {
  return isReguralFilePath(urlToPath(url));
}

bool FileUtil::isSybolicLinkPath(const std::string& path, std::string* destination) {
  std::error_code ec;
  fs::path target = fs::read_symlink(path, ec);
  if (ec) return false;
  if (destination) *destination = target.string();
  return true;
}

bool FileUtil::fileIsAlias(const std::string& path, std::string* destination) {
  std::error_code ec;
  fs::path target = fs::read_symlink(path, ec);
  if (ec) return false;
  if (destination) {
    if (target.is_relative()) target = fs::path(path).parent_path() / target;
    *destination = fs::absolute(target, ec).lexically_normal().string();
  }
  return true;
}

std::string FileUtil::resolvingAlias(const std::string& path) {
  std::string current = path;
  // The kernel gives up on chains this long as well (ELOOP).
  for (int hops = 0; hops < 40; ++hops) {
    std::string next;
    if (!fileIsAlias(current, &next)) return current;
    current = std::move(next);
  }
  return {};
}

std::string FileUtil::pathFromURL(const std::string& url) {
  return urlToPath(url);
}

std::string FileUtil::resolvingAliasURL(const std::string& url) {
  return resolvingAlias(urlToPath(url));
}

bool FileUtil::createAliasPath(const std::string& path, const std::string& targetPath,
                               Error* error) {
  std::error_code ec;
  fs::create_symlink(targetPath, path, ec);
  if (ec && error) *error = Error{"FileUtil", ec.value(), ec.message()};
  return !ec;
}

}  // namespace harbor

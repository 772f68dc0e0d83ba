#include "filemanager/FilePropertyCopyURLS.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>

#include "filemanager/FilePropertyCopyFile.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/NotificationNames.h"

namespace harbor {

namespace detail {

std::string makeUUID() {
  static thread_local std::mt19937_64 engine{std::random_device{}()};
  std::uint64_t hi = engine(), lo = engine();
  hi = (hi & 0xffffffffffff0fffULL) | 0x0000000000004000ULL;  // version 4
  lo = (lo & 0x3fffffffffffffffULL) | 0x8000000000000000ULL;  // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%08llX-%04llX-%04llX-%04llX-%012llX",
                static_cast<unsigned long long>(hi >> 32),
                static_cast<unsigned long long>((hi >> 16) & 0xffff),
                static_cast<unsigned long long>(hi & 0xffff),
                static_cast<unsigned long long>(lo >> 48),
                static_cast<unsigned long long>(lo & 0xffffffffffffULL));
  return text;
}

}  // namespace detail

namespace {

std::string readLink(int dirFd, const char* name) {
  std::string target(256, '\0');
  for (;;) {
    ssize_t n = ::readlinkat(dirFd, name, target.data(), target.size());
    if (n < 0) return {};
    if (static_cast<std::size_t>(n) < target.size()) {
      target.resize(static_cast<std::size_t>(n));
      return target;
    }
    target.resize(target.size() * 2);
  }
}

// 0 when `from` now stands at `to`, which did not exist; else the errno.
int renameNoReplace(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system without the flag: the free name was checked just before.
  struct stat st;
  if (::lstat(to.c_str(), &st) == 0) return EEXIST;
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

bool sameDevice(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev;
}

}  // namespace

void FilePropertyCopyURLSOperaion::main() {
  const std::string target = delegate_->tempFolder() + relativePath_ + "/" + folderName_;
  if (!delegate_->createFolder(target)) return;
  const std::string childRelative = relativePath_ + "/" + folderName_;
  const bool skipHidden = delegate_->propertyOptions()._isIgnoreHiddenFile;
  bool readable = detail::scanDirectory(sourceFolder_, [&](int dirFd, const dirent& e) {
    if (isCancelled()) return false;
    if (skipHidden && e.d_name[0] == '.') return true;
    std::string child = detail::joinPath(sourceFolder_, e.d_name);
    // A copy into its own source must not take in its staging folder.
    if (child == delegate_->tempFolder()) return true;
    unsigned char type = e.d_type;
    if (type == DT_UNKNOWN) {
      struct stat st;
      if (::fstatat(dirFd, e.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        delegate_->copyFailed(detail::posixError(errno, "cannot read " + child));
        return false;
      }
      type = S_ISDIR(st.st_mode)   ? DT_DIR
             : S_ISLNK(st.st_mode) ? DT_LNK
             : S_ISREG(st.st_mode) ? DT_REG
                                   : DT_UNKNOWN;
    }
    const std::string destination = detail::joinPath(target, e.d_name);
    if (type == DT_DIR) {
      delegate_->addOpeartion(std::make_shared<FilePropertyCopyURLSOperaion>(
                                  std::move(child), childRelative, e.d_name, delegate_),
                              kSubdirectoryPriority);
    } else if (type == DT_LNK) {
      return delegate_->createSymblink(child, destination, readLink(dirFd, e.d_name));
    } else if (type == DT_REG) {
      return delegate_->createFile(child, destination);
    }
    return true;
  });
  if (!readable) {
    delegate_->copyFailed(detail::posixError(errno, "cannot read the folder " + sourceFolder_));
  }
}

// ---------------------------------------------------------------------------

FilePropertyCopyURLS::FilePropertyCopyURLS(std::vector<std::string> urls, std::string desFolder,
                                           IActionProgress* delegate)
    : FilePropertyBase(std::move(urls), 4, "harbor-copy-urls",
                       {notifications::FilePropertyCancelNotification}),
      _desFolder(FileUtil::pathFromURL(desFolder)),
      _progressDelegate(delegate) {
  while (_desFolder.size() > 1 && _desFolder.back() == '/') _desFolder.pop_back();
  const std::string temp = FileUtil::tempBundleIdDirectory();
  const std::string uuid = detail::makeUUID();
  _tempFolder =
      sameDevice(temp, _desFolder) ? temp + "/" + uuid : _desFolder + "/.harbor-staging-" + uuid;
}

FilePropertyCopyURLS::~FilePropertyCopyURLS() {
  cancel();
  waitUntilFinished();
}

bool FilePropertyCopyURLS::executeWithFileURL(const std::string& url, const std::string& desFolder,
                                              IActionProgress* delegate, Error* error) {
  return executeWithURLs({url}, desFolder, delegate, error);
}

bool FilePropertyCopyURLS::executeWithURLs(std::vector<std::string> urls,
                                           const std::string& desFolder, IActionProgress* delegate,
                                           Error* error) {
  FilePropertyCopyURLS copy(std::move(urls), desFolder, delegate);
  bool ok = copy.execute();
  if (!ok && error) {
    if (auto e = copy.error()) *error = *e;
  }
  return ok;
}

std::optional<Error> FilePropertyCopyURLS::error() const {
  std::lock_guard lock(lock_);
  return error_;
}

std::vector<std::string> FilePropertyCopyURLS::copiedPaths() const {
  std::lock_guard lock(lock_);
  return copied_;
}

void FilePropertyCopyURLS::copyFailed(Error error) {
  {
    std::lock_guard lock(lock_);
    if (!error_) error_ = std::move(error);
  }
  cancel();
}

bool FilePropertyCopyURLS::execute() {
  if (!FileUtil::isDirectoryFilePath(_desFolder)) {
    copyFailed(detail::posixError(ENOTDIR, _desFolder));
    return false;
  }
  if (!createFolder(_tempFolder)) return false;

  struct Staged {
    std::string path;
    std::string name;  // the source's, which may differ from the staged one
    bool isFolder;
  };
  std::vector<Staged> staged;
  for (const auto& path : selectionPaths()) {
    if (isCancelled() || isCurrentThreadCancelled()) break;
    std::string name = FileUtil::getFileName(path);
    // Two items of the same name from different folders both get a place.
    std::string stagedPath = FileUtil::getCreateName(_tempFolder, name);
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
      copyFailed(detail::posixError(errno, "cannot read " + path));
      break;
    }
    if (S_ISDIR(st.st_mode)) {
      // Made now, so a later item of the same name sees the place taken.
      if (!createFolder(stagedPath)) break;
      staged.push_back({stagedPath, name, true});
      addOpeartion(std::make_shared<FilePropertyCopyURLSOperaion>(
                       path, std::string(), FileUtil::getFileName(stagedPath), this),
                   kTopLevelPriority);
    } else if (S_ISLNK(st.st_mode)) {
      std::string target;
      FileUtil::isSybolicLinkPath(path, &target);
      if (!createSymblink(path, stagedPath, target)) break;
      staged.push_back({stagedPath, name, false});
    } else if (S_ISREG(st.st_mode)) {
      if (!createFile(path, stagedPath)) break;
      staged.push_back({stagedPath, name, false});
    }
  }
  waitUntilFinished();

  if (isCancelled() || isCurrentThreadCancelled()) {
    FileUtil::deleteFile(_tempFolder);
    std::lock_guard lock(lock_);
    if (!error_) error_ = detail::posixError(ECANCELED, "copy");
    return false;
  }
  for (const auto& item : staged) {
    std::string landed;
    if (!moveIntoPlace(item.path, item.name, item.isFolder, landed)) break;
    std::lock_guard lock(lock_);
    copied_.push_back(std::move(landed));
  }
  FileUtil::deleteFile(_tempFolder);
  return !error();
}

bool FilePropertyCopyURLS::moveIntoPlace(const std::string& staged, const std::string& name,
                                         bool isFolder, std::string& landed) {
  auto freeName = [&] {
    return isFolder
               ? FileUtil::getCreateFolderName(_desFolder, name)
               : FileUtil::getCreateFileName(_desFolder, FileUtil::getFileNameNoExtension(name),
                                             FileUtil::getFileExtension(name));
  };
  std::string from = staged;
  std::string partial;
  for (int attempt = 0; attempt < 100; ++attempt) {
    landed = freeName();
    int err = renameNoReplace(from, landed);
    if (err == 0) return true;
    if (err == EEXIST || err == ENOTEMPTY) continue;  // taken meanwhile: next free name
    if (err == EXDEV && partial.empty()) {
      // Staging and destination are on different mounts of one device:
      // copy under a hidden name beside the target, then rename that.
      partial = _desFolder + "/.harbor-partial-" + detail::makeUUID();
      if (!FileUtil::copyItem(from, partial, nullptr)) {
        FileUtil::deleteFile(partial);
        copyFailed(detail::posixError(EIO, "cannot copy into " + _desFolder));
        return false;
      }
      from = partial;
      --attempt;
      continue;
    }
    if (!partial.empty()) FileUtil::deleteFile(partial);
    copyFailed(detail::posixError(err, "cannot move " + name + " into " + _desFolder));
    return false;
  }
  if (!partial.empty()) FileUtil::deleteFile(partial);
  copyFailed(detail::posixError(EEXIST, "no free name for " + name + " in " + _desFolder));
  return false;
}

bool FilePropertyCopyURLS::createFolder(const std::string& path) {
  {
    std::lock_guard lock(lock_);
    if (FileUtil::createFolder(path)) return true;
  }
  copyFailed(detail::posixError(errno != 0 ? errno : EIO, "cannot create " + path));
  return false;
}

bool FilePropertyCopyURLS::createFile(const std::string& path, const std::string& destPath) {
  Error error;
  if (FilePropertyCopyFile::execute(path, destPath, true, false, _progressDelegate, &error)) {
    return true;
  }
  if (error.code == ENOENT &&
      !FileUtil::isDirectoryFilePath(FileUtil::getFileDirectory(destPath))) {
    // The folder the file goes in is made on demand.
    if (!createFolder(FileUtil::getFileDirectory(destPath))) return false;
    if (FilePropertyCopyFile::execute(path, destPath, true, false, _progressDelegate, &error)) {
      return true;
    }
  }
  copyFailed(error);
  return false;
}

bool FilePropertyCopyURLS::createSymblink(const std::string& path, const std::string& destPath,
                                          const std::string& targetPath) {
  if (targetPath.empty()) {
    copyFailed(detail::posixError(EINVAL, "cannot read the link " + path));
    return false;
  }
  if (::symlink(targetPath.c_str(), destPath.c_str()) == 0) return true;
  int err = errno;
  if (err == ENOENT && createFolder(FileUtil::getFileDirectory(destPath)) &&
      ::symlink(targetPath.c_str(), destPath.c_str()) == 0) {
    return true;
  }
  copyFailed(detail::posixError(err, "cannot make the link " + destPath));
  return false;
}

}  // namespace harbor

#include "browser/FilePropertyController.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <thread>

#include "browser/BrowserSupport.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FilePropertyTotalSize.h"
#include "filemanager/FileUtil.h"
#include "filemanager/USupportFile.h"
#include "platform/MainQueue.h"
#include "platform/Paths.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {

FilePropertyInfo::Date fromTimespec(std::int64_t seconds, std::uint32_t nanoseconds) {
  return FilePropertyInfo::Date(std::chrono::duration_cast<FilePropertyInfo::Date::duration>(
      std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds)));
}

}  // namespace

FilePropertyController::FilePropertyController(std::string path) : _path(std::move(path)) {
  while (_path.size() > 1 && _path.back() == '/') _path.pop_back();
}

FilePropertyController::~FilePropertyController() {
  _walk.cancel();
}

std::shared_ptr<FilePropertyController> FilePropertyController::instanceWithPath(
    const std::string& path) {
  return std::make_shared<FilePropertyController>(path);
}

std::string FilePropertyController::permissionText(unsigned mode) {
  static const char kLetters[] = "rwx";
  std::string text;
  for (int bit = 8; bit >= 0; --bit) text += (mode & (1u << bit)) ? kLetters[(8 - bit) % 3] : '-';
  return text;
}

std::string FilePropertyController::kindOf(const std::string& path, bool isDirectory) {
  if (isDirectory) return "Folder";
  if (USupportFile::isArchive(path)) return "Archive";
  if (USupportFile::isSystemPreview(path)) return "Image";
  if (USupportFile::isMusicMedia(path) || USupportFile::isSysMusicMedia(path)) return "Music";
  if (USupportFile::isMoveMedia(path)) return "Movie";
  const std::string extension = USupportFile::lowerExtension(path);
  if (CodeFactory::isSupportTextFormat(extension, path)) return "Text";
  return "File";
}

FilePropertyInfo FilePropertyController::readInfo(const std::string& path) {
  FilePropertyInfo info;
  info.path = path;
  info.name = FileUtil::getFileName(path);
  const std::string root = FileUtil::documentDirectory();
  if (isPathAtOrBelow(path, root)) {
    info.relativePath = FileUtil::getDocumentRelativePath(path);
    if (info.relativePath.empty()) info.relativePath.push_back('/');  // the root
  }
  struct statx stx {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &stx) !=
      0)
    return info;
  info.exists = true;
  info.isSymbolicLink = S_ISLNK(stx.stx_mode);
  if (info.isSymbolicLink) FileUtil::isSybolicLinkPath(path, &info.linkTarget);
  // A link shows what it points at, as a tap would open it.
  info.isDirectory = FileUtil::isDirectoryFilePath(path);
  info.kind = kindOf(path, info.isDirectory);
  if (!info.isDirectory) {
    info.extension = USupportFile::lowerExtension(path);
    info.mimeType = MimeTypes::getEmailMimeType(path);
    info.size = stx.stx_size;
  }
  info.permissions = stx.stx_mode & 07777;
  if (stx.stx_mask & STATX_BTIME)
    info.created = fromTimespec(stx.stx_btime.tv_sec, stx.stx_btime.tv_nsec);
  if (stx.stx_mask & STATX_MTIME)
    info.modified = fromTimespec(stx.stx_mtime.tv_sec, stx.stx_mtime.tv_nsec);
  if (stx.stx_mask & STATX_ATIME)
    info.accessed = fromTimespec(stx.stx_atime.tv_sec, stx.stx_atime.tv_nsec);
  info.isLocked = FileManagerUtil::isPasswordFile(path);
  return info;
}

void FilePropertyController::viewDidLoad() {
  FilePropertyInfo info = readInfo(_path);
  const bool walk = info.exists && info.isDirectory;
  info.counting = walk;
  {
    std::lock_guard lock(_mutex);
    _info = info;
  }
  auto port = _port ? _port : ScreenPort::shared();
  port->setTitle(info.name.empty() ? "/" : info.name);
  if (!walk) return;
  // The walk holds the screen weakly: leaving the screen ends it.
  std::weak_ptr<FilePropertyController> weak = weak_from_this();
  CancellationToken token = _walk;
  std::string path = _path;
  std::thread([weak, token, path] {
    CurrentCancellationScope scope(token);
    auto walker = FilePropertyFileNumAndSize::instanceWithURLs({path});
    const std::uint64_t size = walker->execute();
    const std::uint64_t files = walker->fileNumber();
    const std::uint64_t folders = walker->folderNumber();
    const bool cancelled = token.isCancelled() || walker->isCancelled();
    MainQueue::shared().post([weak, size, files, folders, cancelled] {
      if (auto self = weak.lock()) self->countFinished(size, files, folders, cancelled);
    });
  }).detach();
}

void FilePropertyController::countFinished(std::uint64_t size, std::uint64_t files,
                                           std::uint64_t folders, bool cancelled) {
  FilePropertyInfo shown;
  {
    std::lock_guard lock(_mutex);
    _info.size = size;
    _info.fileNumber = files;
    _info.folderNumber = folders;
    _info.counting = false;
    _info.countCancelled = cancelled;
    shown = _info;
  }
  if (_onChange) _onChange(shown);
}

void FilePropertyController::viewDidDisappear() {
  cancel();
}

void FilePropertyController::cancel() {
  _walk.cancel();
}

FilePropertyInfo FilePropertyController::info() const {
  std::lock_guard lock(_mutex);
  return _info;
}

bool FilePropertyController::isCounting() const {
  std::lock_guard lock(_mutex);
  return _info.counting;
}

}  // namespace harbor

#include "filemanager/FilePropertyTotalSize.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/NotificationNames.h"

namespace harbor {

namespace {
bool hiddenName(const std::string& path) {
  const std::string name = FileUtil::getFileName(path);
  return !name.empty() && name.front() == '.';
}
}  // namespace

void FileTotalSizeOperation::main() {
  const bool skipHidden = delegate_->propertyOptions()._isIgnoreHiddenFile;
  std::uint64_t sum = 0;
  detail::scanDirectory(path_, [&](int dirFd, const dirent& e) {
    if (isCancelled()) return false;
    if (skipHidden && e.d_name[0] == '.') return true;
    bool isDirectory = e.d_type == DT_DIR;
    if (!isDirectory) {
      // Unreadable attributes (the entry vanished) count as an empty file.
      struct stat st;
      if (::fstatat(dirFd, e.d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
        isDirectory = S_ISDIR(st.st_mode);
        if (!isDirectory) sum += static_cast<std::uint64_t>(st.st_size);
      }
    }
    countEntry(isDirectory);
    if (isDirectory) {
      delegate_->addOpeartion(makeChild(detail::joinPath(path_, e.d_name)), kSubdirectoryPriority);
    }
    return true;
  });
  // Also after a cancel: what was summed so far counts.
  delegate_->increaseSize(sum);
}

std::shared_ptr<FileTotalSizeOperation> FileTotalSizeOperation::makeChild(std::string path) const {
  return std::make_shared<FileTotalSizeOperation>(std::move(path), delegate_);
}

void FilePropertyFileNumSizeOperation::countEntry(bool isDirectory) {
  if (isDirectory) {
    delegate_->increaseFolderNumber();
  } else {
    delegate_->increaseFileNumber();
  }
}

std::shared_ptr<FileTotalSizeOperation> FilePropertyFileNumSizeOperation::makeChild(
    std::string path) const {
  return std::make_shared<FilePropertyFileNumSizeOperation>(std::move(path), delegate_);
}

// ---------------------------------------------------------------------------

FilePropertyTotalSize::FilePropertyTotalSize(std::vector<std::string> urls)
    : FilePropertyBase(std::move(urls), 3, "harbor-size",
                       {notifications::FilePropertyCancelNotification,
                        notifications::FilePropertyTotalSizeCancelNotification}) {}

std::unique_ptr<FilePropertyTotalSize> FilePropertyTotalSize::instanceWithFileURL(
    const std::string& url) {
  auto p = std::make_unique<FilePropertyTotalSize>(std::vector<std::string>{url});
  p->setIsContainsSelf(true);
  return p;
}

std::unique_ptr<FilePropertyTotalSize> FilePropertyTotalSize::instanceWithURLs(
    std::vector<std::string> urls) {
  return std::make_unique<FilePropertyTotalSize>(std::move(urls));
}

std::uint64_t FilePropertyTotalSize::filesizeWithURL(const std::string& url) {
  return instanceWithFileURL(url)->execute();
}

std::uint64_t FilePropertyTotalSize::filesizeWithURLs(std::vector<std::string> urls) {
  return instanceWithURLs(std::move(urls))->execute();
}

std::shared_ptr<FileTotalSizeOperation> FilePropertyTotalSize::makeOperation(std::string path) {
  return std::make_shared<FileTotalSizeOperation>(std::move(path), this);
}

std::uint64_t FilePropertyTotalSize::totalSize() const {
  std::lock_guard lock(lock_);
  return totalSize_;
}

void FilePropertyTotalSize::increaseSize(std::uint64_t size) {
  std::lock_guard lock(lock_);
  totalSize_ += size;
}

std::uint64_t FilePropertyTotalSize::execute() {
  std::vector<std::string> paths = selectionPaths();
  // Only what the caller named is followed when it is a link; the entries
  // of a folder are measured by themselves, at this level as below.
  bool followLinks = true;
  if (paths.size() == 1 && FileUtil::isDirectoryFilePath(paths.front())) {
    if (isContainsSelf()) increaseFolderNumber();
    paths = detail::childPaths(paths.front());
    followLinks = false;
  }
  const bool skipHidden = _propertyOptions._isIgnoreHiddenFile;
  for (const auto& path : paths) {
    if (isCancelled() || isCurrentThreadCancelled()) break;
    if (skipHidden && hiddenName(path)) continue;
    // A dangling or looping link has no readable attributes and counts as
    // an empty file.
    struct stat st;
    const bool readable =
        (followLinks ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st)) == 0;
    if (readable && S_ISDIR(st.st_mode)) {
      if (!isDirectoryAndExecute(path)) continue;
      increaseFolderNumber();
      addOpeartion(makeOperation(path), kTopLevelPriority);
    } else {
      increaseFileNumber();
      increaseSize(readable ? static_cast<std::uint64_t>(st.st_size) : 0);
    }
  }
  waitUntilFinished();
  std::lock_guard lock(lock_);
  return totalSize_;
}

// ---------------------------------------------------------------------------

std::unique_ptr<FilePropertyFileNumAndSize> FilePropertyFileNumAndSize::instanceWithFileURL(
    const std::string& url) {
  auto p = std::make_unique<FilePropertyFileNumAndSize>(std::vector<std::string>{url});
  p->setIsContainsSelf(true);
  return p;
}

std::unique_ptr<FilePropertyFileNumAndSize> FilePropertyFileNumAndSize::instanceWithURLs(
    std::vector<std::string> urls) {
  return std::make_unique<FilePropertyFileNumAndSize>(std::move(urls));
}

std::shared_ptr<FileTotalSizeOperation> FilePropertyFileNumAndSize::makeOperation(
    std::string path) {
  return std::make_shared<FilePropertyFileNumSizeOperation>(std::move(path), this);
}

}  // namespace harbor

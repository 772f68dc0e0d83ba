#include "filemanager/FilePropertyTotalFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "filemanager/CaseFold.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/NotificationNames.h"

namespace harbor {

namespace {

char asciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

bool hiddenName(const std::string& path) {
  const std::string name = FileUtil::getFileName(path);
  return !name.empty() && name.front() == '.';
}

}  // namespace

NameMatcher::NameMatcher(std::string_view text) : isAscii_(isAsciiText(text)) {
  if (isAscii_) {
    ascii_.reserve(text.size());
    for (char c : text) ascii_.push_back(asciiLower(c));
  }
  folded_ = foldCase16(text);
}

bool NameMatcher::matches(std::string_view name) const {
  if (folded_.empty()) return false;
  if (isAscii_ && isAsciiText(name)) {
    auto it = std::search(name.begin(), name.end(), ascii_.begin(), ascii_.end(),
                          [](char a, char b) { return asciiLower(a) == b; });
    return it != name.end();
  }
  return foldCase16(name).find(folded_) != std::u16string::npos;
}

// ---------------------------------------------------------------------------

void FilePropertyTotalFilesOperation::loadFiles() {
  const bool skipHidden = delegate_->propertyOptions()._isIgnoreHiddenFile;
  std::vector<std::string> found;
  std::vector<std::string> folders;
  detail::scanDirectory(path_, [&](int dirFd, const dirent& e) {
    if (isCancelled()) return false;
    if (skipHidden && e.d_name[0] == '.') return true;
    bool isDirectory = e.d_type == DT_DIR;
    if (e.d_type == DT_UNKNOWN) {
      struct stat st;
      isDirectory =
          ::fstatat(dirFd, e.d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
    }
    const bool hit = delegate_->isHit(e.d_name);
    if (!hit && !isDirectory) return true;
    std::string path = detail::joinPath(path_, e.d_name);
    if (isDirectory && delegate_->isWalkable(path)) folders.push_back(path);
    if (hit) found.push_back(std::move(path));
    return true;
  });
  if (!found.empty()) delegate_->addFiles(std::move(found));
  for (auto& folder : folders) {
    if (isCancelled()) break;
    delegate_->addOpeartion(makeChild(std::move(folder)), kSubdirectoryPriority);
  }
}

std::shared_ptr<FilePropertyTotalFilesOperation> FilePropertyTotalFilesOperation::makeChild(
    std::string path) const {
  return std::make_shared<FilePropertyTotalFilesOperation>(std::move(path), delegate_);
}

std::shared_ptr<FilePropertyTotalFilesOperation> FilePropertySearchFilesOperation::makeChild(
    std::string path) const {
  return std::make_shared<FilePropertySearchFilesOperation>(std::move(path), delegate_);
}

// ---------------------------------------------------------------------------

FilePropertyTotalFiles::FilePropertyTotalFiles(std::vector<std::string> urls)
    : FilePropertyTotalFiles(std::move(urls), "harbor-files") {}

FilePropertyTotalFiles::FilePropertyTotalFiles(std::vector<std::string> urls, std::string queueName)
    : FilePropertyBase(std::move(urls), 3, std::move(queueName),
                       {notifications::FilePropertyCancelNotification}) {}

std::unique_ptr<FilePropertyTotalFiles> FilePropertyTotalFiles::instanceWithFileURL(
    const std::string& url) {
  auto p = std::make_unique<FilePropertyTotalFiles>(std::vector<std::string>{url});
  p->setIsContainsSelf(true);
  return p;
}

std::vector<std::string> FilePropertyTotalFiles::filesizeWithURL(const std::string& url) {
  return instanceWithFileURL(url)->execute();
}

std::vector<std::string> FilePropertyTotalFiles::filesizeWithURLs(std::vector<std::string> urls) {
  return FilePropertyTotalFiles(std::move(urls)).execute();
}

std::vector<std::string> FilePropertyTotalFiles::execute() {
  std::vector<std::string> paths = selectionPaths();
  if (paths.size() == 1) {
    addFiles0(paths.front());
    // A single file is the whole answer; a folder goes on with its children.
    paths = FileUtil::isDirectoryFilePath(paths.front()) ? detail::childPaths(paths.front())
                                                         : std::vector<std::string>{};
  }
  loadURLS(paths);
  waitUntilFinished();
  return files();
}

void FilePropertyTotalFiles::loadURLS(const std::vector<std::string>& paths) {
  const bool skipHidden = _propertyOptions._isIgnoreHiddenFile;
  for (const auto& path : paths) {
    if (isCancelled() || isCurrentThreadCancelled()) break;
    if (skipHidden && hiddenName(path)) continue;
    // The top follows links; below it they are plain entries.
    const bool folder = FileUtil::isDirectoryFilePath(path);
    if (isHit(FileUtil::getFileName(path))) addFiles({path});
    if (folder && isDirectoryAndExecute(path)) addOpeartion(makeOperation(path), kTopLevelPriority);
  }
}

std::shared_ptr<FilePropertyTotalFilesOperation> FilePropertyTotalFiles::makeOperation(
    std::string path) {
  return std::make_shared<FilePropertyTotalFilesOperation>(std::move(path), this);
}

void FilePropertyTotalFiles::addFiles0(const std::string& path) {
  addFiles({path});
}

void FilePropertyTotalFiles::addFiles(std::vector<std::string> files) {
  std::lock_guard lock(lock_);
  if (files_.empty()) {
    files_ = std::move(files);
  } else {
    files_.insert(files_.end(), std::make_move_iterator(files.begin()),
                  std::make_move_iterator(files.end()));
  }
}

std::vector<std::string> FilePropertyTotalFiles::files() const {
  std::lock_guard lock(lock_);
  return files_;
}

std::size_t FilePropertyTotalFiles::fileCount() const {
  std::lock_guard lock(lock_);
  return files_.size();
}

// ---------------------------------------------------------------------------

FilePropertySearchFiles::FilePropertySearchFiles(std::vector<std::string> urls,
                                                 std::string searchText)
    : FilePropertyTotalFiles(std::move(urls), "harbor-search"),
      searchText_(std::move(searchText)),
      matcher_(searchText_) {
  auto table = FileManagerUtil::getPasswordHashTable();
  if (table.empty()) return;
  const std::string root = FileUtil::documentDirectory();
  std::map<std::string, std::string> byPath;
  for (auto& [key, value] : table) {
    std::string full = std::filesystem::path(root + "/" + key).lexically_normal().string();
    while (full.size() > 1 && full.back() == '/') full.pop_back();
    byPath.emplace(std::move(full), std::move(value));
  }
  passwordHash_ = std::move(byPath);
}

std::vector<std::string> FilePropertySearchFiles::searchWithURL(const std::string& url,
                                                                const std::string& searchText) {
  FilePropertySearchFiles search({url}, searchText);
  search.setIsContainsSelf(true);
  return search.execute();
}

std::vector<std::string> FilePropertySearchFiles::searchWithURLs(std::vector<std::string> urls,
                                                                 const std::string& searchText) {
  return FilePropertySearchFiles(std::move(urls), searchText).execute();
}

void FilePropertySearchFiles::addFiles(std::vector<std::string> files) {
  FilePropertyTotalFiles::addFiles(std::move(files));
  if (fileCount() >= kHitLimit) {
    truncated_ = true;
    cancel();
  }
}

bool FilePropertySearchFiles::isWalkable(const std::string& folder) const {
  return !passwordHash_ || passwordHash_->count(folder) == 0;
}

bool FilePropertySearchFiles::isDirectoryAndExecute(const std::string& path) {
  return FilePropertyTotalFiles::isDirectoryAndExecute(path) && isWalkable(path);
}

std::shared_ptr<FilePropertyTotalFilesOperation> FilePropertySearchFiles::makeOperation(
    std::string path) {
  return std::make_shared<FilePropertySearchFilesOperation>(std::move(path), this);
}

}  // namespace harbor

#include "filemanager/FileListItem.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "filemanager/FilePropertyBase.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"

namespace harbor {

std::string BaseModeObject::parentPath() const {
  std::vector<std::string> names;
  for (const ModelObject* p = _parent; p; p = p->parent()) names.push_back(p->filename());
  std::string out;
  for (auto it = names.rbegin(); it != names.rend(); ++it) {
    if (!out.empty()) out += '/';
    out += *it;
  }
  return out.empty() ? "/" : out;
}

FileListItem::FileListItem(std::string path) : _path(std::move(path)) {
  struct stat st;
  if (::lstat(_path.c_str(), &st) == 0) {
    _isDirectory = S_ISDIR(st.st_mode);
    _totalBytes = static_cast<std::uint64_t>(st.st_size);
  }
}

std::string FileListItem::filename() const {
  return FileUtil::getFileName(_path);
}

FileUtil::Date FileListItem::lastModifiedDate() const {
  return FileUtil::getFileMidified(_path);
}

std::string FileListItem::URL() const {
  std::string url = "file://";
  for (unsigned char c : _path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      url.push_back(static_cast<char>(c));
    } else {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", c);
      url += hex;
    }
  }
  if (_isDirectory && url.back() != '/') url.push_back('/');
  return url;
}

void FileListItem::addChild(std::shared_ptr<ModelObject> child) {
  if (!child) return;
  child->setParent(this);
  if (auto* item = dynamic_cast<FileListItem*>(child.get())) item->setParentid(_identifier);
  _childrens.push_back(std::move(child));
}

std::string FileListItem::parentPath() const {
  return FileUtil::getFileDirectory(_path);
}

int FileListItem::compare(const ModelObject& other) const {
  return filename().compare(other.filename());
}

namespace {

void fill(FileListItem& node, const std::function<void(FileListItem&)>* block) {
  for (const auto& child : detail::childPaths(node.path())) {
    if (isCurrentThreadCancelled()) return;
    if (FileUtil::isIgnoredName(FileUtil::getFileName(child))) continue;
    auto item = std::make_shared<FileListItem>(child);
    node.addChild(item);
    if (block && *block) (*block)(*item);
    if (item->isDirectory()) fill(*item, block);
  }
}

}  // namespace

void FileUtil::recuriseFileModelList(FileListItem& root) {
  fill(root, nullptr);
}

void FileUtil::recuriseFileModelList(FileListItem& root,
                                     const std::function<void(FileListItem&)>& block) {
  fill(root, &block);
}

}  // namespace harbor

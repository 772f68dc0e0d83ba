#include "cloud/DocumentBrowserQuery.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "filemanager/watcher/DirectoryWatcher.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace fs = std::filesystem;

class DocumentBrowserQuery::Watch : public DirectoryWatcherDelegate {
 public:
  Watch(DocumentBrowserQuery& query, const std::string& folder)
      : query_(query), watcher_(DirectoryWatcher::watchFolderWithPath(folder, this, true)) {}
  bool active() const { return watcher_ != nullptr; }
  void directoryDidChange(DirectoryWatcher&) override {
    // The resync may drop this very watch (its folder went), so nothing of
    // `this` is touched after it.
    DocumentBrowserQuery& query = query_;
    // Everything is looked at again, so an overflowed event queue loses nothing.
    auto changes = query.update();
    if (query._isRecurive) query.syncWatches();
    if (!changes.empty() && query.changed_) query.changed_(changes);
  }

 private:
  DocumentBrowserQuery& query_;
  std::unique_ptr<DirectoryWatcher> watcher_;
};

DocumentBrowserQuery::DocumentBrowserQuery(std::shared_ptr<CloudProvider> provider,
                                           std::string folder, bool recursive)
    : provider_(std::move(provider)), folder_(std::move(folder)), _isRecurive(recursive) {}

DocumentBrowserQuery::~DocumentBrowserQuery() {
  stopWatching();
}

void DocumentBrowserQuery::startWatching(std::function<void(const Changes&)> changed) {
  changed_ = std::move(changed);
  syncWatches();
}

void DocumentBrowserQuery::stopWatching() {
  watches_.clear();
  changed_ = nullptr;
}

void DocumentBrowserQuery::syncWatches() {
  std::vector<std::string> folders{folder_};
  if (_isRecurive) {
    std::error_code ec;
    for (const auto& o : _previousQueryObjects)
      if (o._isDirectory && !fs::is_symlink(o._URL, ec)) folders.push_back(o._URL);
  }
  std::map<std::string, std::unique_ptr<Watch>> next;
  for (const auto& f : folders) {
    auto it = watches_.find(f);
    if (it != watches_.end()) {
      next.emplace(f, std::move(it->second));
      continue;
    }
    auto watch = std::make_unique<Watch>(*this, f);
    if (watch->active()) next.emplace(f, std::move(watch));
  }
  watches_.swap(next);
}

void DocumentBrowserQuery::scanInto(const std::string& folder, const std::string& prefix,
                                    std::vector<DocumentBrowserModelObject>& out) const {
  for (const CloudItem& item : provider_->itemsIn(folder)) {
    DocumentBrowserModelObject o;
    o._displayName = o._filename = item.filename;
    o._URL = item.path;
    o.totalBytes = item.totalBytes;
    o.lastModifiedDate = item.lastModifiedDate;
    o._isDirectory = item.isDirectory;
    o._identifier = prefix + item.filename;
    o._subtitle = item.downloadingStatus();
    o._metadataItem = item;
    out.push_back(o);
    // Links to folders are listed, never entered: they may lead anywhere.
    std::error_code ec;
    if (_isRecurive && item.isDirectory && !fs::is_symlink(item.path, ec))
      scanInto(item.path, o._identifier + "/", out);
  }
}

std::vector<DocumentBrowserModelObject> DocumentBrowserQuery::scan() const {
  std::vector<DocumentBrowserModelObject> out;
  if (provider_) scanInto(folder_, "", out);
  std::sort(out.begin(), out.end(),
            [](const auto& a, const auto& b) { return a._identifier < b._identifier; });
  return out;
}

DocumentBrowserQuery::Changes DocumentBrowserQuery::update() {
  auto now = scan();
  Changes changes;
  std::map<std::string, const DocumentBrowserModelObject*> before;
  for (const auto& o : _previousQueryObjects) before[o._identifier] = &o;
  for (const auto& o : now) {
    auto it = before.find(o._identifier);
    if (it == before.end()) {
      changes.added.push_back(o._identifier);
    } else {
      if (!(*it->second == o)) changes.changed.push_back(o._identifier);
      before.erase(it);
    }
  }
  for (const auto& [id, o] : before) changes.removed.push_back(id);
  _previousQueryObjects = std::move(now);
  return changes;
}

std::vector<DocumentBrowserModelObject> DocumentBrowserQuery::tree() const {
  // Objects are sorted by identifier, so a folder comes before its items.
  std::vector<DocumentBrowserModelObject> top;
  std::map<std::string, std::vector<DocumentBrowserModelObject>> below;  // by parent identifier
  for (const auto& o : _previousQueryObjects) {
    const auto slash = o._identifier.rfind('/');
    if (slash == std::string::npos)
      top.push_back(o);
    else
      below[o._identifier.substr(0, slash)].push_back(o);
  }
  std::function<void(DocumentBrowserModelObject&)> fill = [&](DocumentBrowserModelObject& o) {
    auto it = below.find(o._identifier);
    if (it == below.end()) return;
    o._childrens = std::move(it->second);
    below.erase(it);
    for (auto& c : o._childrens) fill(c);
  };
  for (auto& o : top) fill(o);
  return top;
}

std::uint64_t ICloudDriveUtil::getItemSize(const DocumentBrowserModelObject& item) {
  if (!item._isDirectory) return item.totalBytes;
  std::uint64_t total = 0;
  for (const auto& c : item._childrens) total += getItemSize(c);
  return total;
}

std::uint64_t ICloudDriveUtil::totalFileSize(const std::vector<DocumentBrowserModelObject>& items) {
  std::uint64_t total = 0;
  for (const auto& i : items) total += i.totalBytes;
  return total;
}

namespace {
std::optional<CloudItem> itemOf(const std::string& path) {
  auto p = CloudProvider::shared();
  return p ? p->itemAt(path) : std::nullopt;
}
}  // namespace

bool ICloudDriveUtil::isExistsICloudDocument(const std::string& path) {
  return itemOf(path).has_value();
}
std::uint64_t ICloudDriveUtil::getICloudFileSize(const std::string& path) {
  auto i = itemOf(path);
  return i ? i->totalBytes : 0;
}
CloudItem::Date ICloudDriveUtil::getICloudModifiedDate(const std::string& path) {
  auto i = itemOf(path);
  return i ? i->lastModifiedDate : CloudItem::Date{};
}
bool ICloudDriveUtil::getICloudISDirectory(const std::string& path) {
  auto i = itemOf(path);
  return i && i->isDirectory;
}
void ICloudDriveUtil::removeOperationItems() {
  UserDefaults::standard().removeObjectForKey(kOperationItemsKey);
}

}  // namespace harbor

#include "cloud/DocumentBrowserQuery.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/UserDefaults.h"

namespace harbor {
namespace fs = std::filesystem;

DocumentBrowserQuery::DocumentBrowserQuery(std::shared_ptr<CloudProvider> provider,
                                           std::string folder, bool recursive)
    : provider_(std::move(provider)), folder_(std::move(folder)), _isRecurive(recursive) {}

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

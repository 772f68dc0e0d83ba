#include "app/ICloudDriveController.h"

#include <algorithm>

#include "cloud/CloudProvider.h"
#include "platform/Strings.h"

namespace harbor {

ICloudDriveController::ICloudDriveController(std::string folder, bool isImport, PickFile onPickFile,
                                             int depth)
    : _folder(std::move(folder)),
      _isImport(isImport),
      _onPickFile(std::move(onPickFile)),
      _depth(depth) {}

IScreenPort& ICloudDriveController::port() const {
  return _port ? *_port : *ScreenPort::shared();
}

std::string ICloudDriveController::relativeFolder() const {
  auto provider = CloudProvider::shared();
  const std::string top = provider ? provider->documentsURL() : std::string();
  if (_folder.empty() || _folder == top) return "/";
  if (!top.empty() && _folder.starts_with(top + "/")) return _folder.substr(top.size());
  return _folder;
}

void ICloudDriveController::viewDidLoad() {
  auto provider = CloudProvider::shared();
  const bool top = _folder.empty();
  if (top && provider) _folder = provider->documentsURL();
  port().setTitle(top ? localizedString("Cloud Drive")
                      : _folder.substr(_folder.find_last_of('/') + 1));
  _items.clear();
  if (!provider || _folder.empty()) return;
  DocumentBrowserQuery query(provider, _folder, false);
  _items = query.scan();
}

bool ICloudDriveController::tapRow(const std::string& name) {
  auto it = std::find_if(_items.begin(), _items.end(),
                         [&](const auto& item) { return item._displayName == name; });
  if (it == _items.end()) return false;
  if (it->_isDirectory) {
    auto next =
        std::make_shared<ICloudDriveController>(it->_URL, _isImport, _onPickFile, _depth + 1);
    next->_port = _port;
    port().push(next);
    next->viewDidLoad();
    return true;
  }
  if (_onPickFile) _onPickFile(it->_URL, _depth);
  return true;
}

}  // namespace harbor

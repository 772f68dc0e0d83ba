#include "net/share/FileShareController.h"

#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "prefs/FileShareUtil.h"

namespace harbor {

FileShareController::FileShareController(std::shared_ptr<WiFiShare> httpServer)
    : httpServer_(std::move(httpServer)) {}

FileShareController::~FileShareController() {
  if (observer_) NotificationCenter::defaultCenter().removeObserver(observer_);
  if (networkObserver_) NotificationCenter::defaultCenter().removeObserver(networkObserver_);
}

void FileShareController::viewDidLoad() {
  title_ = localizedString("Sharing");
  loadPreferences();
  observer_ = NotificationCenter::defaultCenter().addObserver(
      notifications::FileShareChangeNotifiation, [this](const auto&) {
        loadPreferences();
        if (reloadData) reloadData();
      });
  // The address shown follows the network; the news comes on another thread.
  std::weak_ptr<bool> alive = alive_;
  networkObserver_ = NotificationCenter::defaultCenter().addObserver(
      notifications::kNetworkReachabilityChangedNotification, [this, alive](const auto&) {
        MainQueue::shared().post([this, alive] {
          if (!alive.lock()) return;
          loadPreferences();
          if (reloadData) reloadData();
        });
      });
}

void FileShareController::viewWillAppear() {
  auto& hooks = ShareHooks::shared();
  if (hooks.unLockScreen) hooks.unLockScreen();
  if (httpServer_) httpServer_->startHttpServer();
  loadPreferences();
  if (reloadData) reloadData();
}

void FileShareController::viewDidDisappear() {
  if (!FileShareUtil::isAutomaticallyOpenShare() && httpServer_) httpServer_->stopHttpServer();
  auto& hooks = ShareHooks::shared();
  if (hooks.lockScreen) hooks.lockScreen();
}

std::string FileShareController::address() const {
  std::string a = localAddress ? localAddress() : std::string();
  if (a.empty() || !httpServer_ || !httpServer_->webServer()) return {};
  // Stopped, the server has no bound port: the address is the one it will use.
  const HTTPServer& server = *httpServer_->webServer();
  const std::uint16_t port = server.isRunning() ? server.listeningPort() : server.port();
  return "http://" + a + ":" + std::to_string(port);
}

bool FileShareController::IsWIFIConnection() {
  return !WiFiShareBase::address().empty();
}

void FileShareController::loadPreferences() {
  sectionArray_.clear();
  Section wifi;
  wifi.title = "Wifi";
  std::string url = address();
  Row addressRow = {{"control_row_text", url.empty() ? localizedString("EnterWifiAddress") : url},
                    {"control_event", "loadWifiInfo:"}};
  if (url.empty()) addressRow["CONTROL_ROW_DETAIL_TEXT"] = localizedString("EnterWifiAddress");
  wifi.rows.push_back(addressRow);
  wifi.rows.push_back(
      {{"control_row_text", localizedString("Automatically open")},
       {"control_row_accessory_type", "switch"},
       {"control_name", "AutomaticallyOpenShare"},
       {"CONTROL_ROW_DETAIL_TEXT", FileShareUtil::isAutomaticallyOpenShare() ? "1" : "0"}});
  sectionArray_.push_back(wifi);
  if (isSupportICloudDrive()) {
    Section cloud;
    cloud.title = "CloudStorage";
    cloud.rows.push_back({{"control_row_text", "iCloud Drive"},
                          {"control_image_name", "iCloud Drive.png"},
                          {"control_event", "loadICloudDrive:"}});
    sectionArray_.push_back(cloud);
  }
}

}  // namespace harbor

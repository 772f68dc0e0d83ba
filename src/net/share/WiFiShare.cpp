#include "net/share/WiFiShare.h"

#include <filesystem>

#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "net/share/UHTTPConnection.h"
#include "net/share/VipsThumbnail.h"
#include "net/webdav/DAVConnection.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Resources.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

std::mutex& itemsMutex() {
  static std::mutex m;
  return m;
}
std::map<std::string, std::shared_ptr<WifiDownloadItem>>& downloadItemsInfo() {
  static std::map<std::string, std::shared_ptr<WifiDownloadItem>> items;
  return items;
}

}  // namespace

WiFiShare::WiFiShare() = default;

WiFiShare::~WiFiShare() {
  stopHttpServer();
}

std::string WiFiShare::zipDirectory() {
  return (fs::path(FileUtil::appliationSupportDirectory()) / "WifiShareZip").string();
}

void WiFiShare::removeTempDirectory() {
  TempDirectoryUtil::deleteHttpServerDirectory();
  std::error_code ec;
  fs::remove_all(zipDirectory(), ec);
}

void WiFiShare::initHttpServer() {
  webServer_ = std::make_unique<HTTPServer>();
  auto& hooks = ShareHooks::shared();
  webServer_->setPort(hooks.httpServerPort ? hooks.httpServerPort() : kDefaultPort);
  webServer_->setDocumentRoot((resourceDirectory() / "web").string());
  webServer_->setType("_http._tcp.");
  webServer_->setConnectionClass(
      hooks.httpConnectionClass
          ? hooks.httpConnectionClass
          : [](std::shared_ptr<AsyncSocket> s,
               std::shared_ptr<const HTTPConfig> c) -> std::shared_ptr<HTTPConnection> {
        return std::make_shared<UHTTPConnection>(std::move(s), std::move(c));
      });
  removeAllDownloadItems();
  // The list shows thumbnails of images.
  VipsThumbnail::install();
}

bool WiFiShare::startHttpServer(Error* error) {
  if (!webServer_ || webServer_->isRunning()) return webServer_ != nullptr;
  removeTempDirectory();
  bool ok = webServer_->start(error);
  if (ok) NotificationCenter::defaultCenter().post(notifications::FileShareChangeNotifiation);
  return ok;
}

void WiFiShare::stopHttpServer() {
  if (webServer_ && webServer_->isRunning()) {
    webServer_->stop();
    removeTempDirectory();
  }
  removeAllDownloadItems();
}

void WiFiShare::enterBackground() {
  stopHttpServer();
  removeAllLoginGuid();
  TempDirectoryUtil::deleteHttpServerDirectory();
}

void WiFiShare::enterForeground() {
  startHttpServer();
}

void WiFiShare::addDownloadItem(std::shared_ptr<WifiDownloadItem> item) {
  if (!item) return;
  std::lock_guard lock(itemsMutex());
  downloadItemsInfo()[item->_guid] = std::move(item);
}

std::shared_ptr<WifiDownloadItem> WiFiShare::getDownloadItem(const std::string& guid) {
  std::lock_guard lock(itemsMutex());
  auto it = downloadItemsInfo().find(guid);
  return it == downloadItemsInfo().end() ? nullptr : it->second;
}

void WiFiShare::removeAllDownloadItems() {
  std::lock_guard lock(itemsMutex());
  downloadItemsInfo().clear();
}

void WiFiShare::updateDownloaditem(const std::string& guid, std::uint64_t size) {
  if (auto item = getDownloadItem(guid)) item->addProgressSize(size);
}

void WiFiShare::updateDownloaditemFinish(const std::string& guid) {
  if (auto item = getDownloadItem(guid)) item->finishedDownload();
}

void WebDavShare::initHttpServer() {
  webServer_ = std::make_unique<HTTPServer>();
  webServer_->setPort(kDefaultPort);
  webServer_->setDocumentRoot(FileUtil::documentDirectory());
  webServer_->setType("_http._tcp.");
  webServer_->setConnectionClass(
      [](std::shared_ptr<AsyncSocket> s,
         std::shared_ptr<const HTTPConfig> c) -> std::shared_ptr<HTTPConnection> {
        return std::make_shared<DAVConnection>(std::move(s), std::move(c));
      });
}

}  // namespace harbor

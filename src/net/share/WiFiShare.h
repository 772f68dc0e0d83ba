#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "net/share/WiFiShareBase.h"
#include "net/share/WifiDownloadItem.h"

namespace harbor {

// The web file manager share: the page from resources/web, the connection
// class from the hooks (the web file manager's by default).
class WiFiShare : public WiFiShareBase {
 public:
  static constexpr std::uint16_t kDefaultPort = 41491;

  WiFiShare();
  ~WiFiShare() override;

  void initHttpServer() override;
  bool startHttpServer(Error* error = nullptr) override;
  void stopHttpServer() override;
  void enterBackground();
  void enterForeground();

  void addDownloadItem(std::shared_ptr<WifiDownloadItem> item);
  std::shared_ptr<WifiDownloadItem> getDownloadItem(const std::string& guid);
  void updateDownloaditem(const std::string& guid, std::uint64_t size);
  void updateDownloaditemFinish(const std::string& guid);

  // The running Wi-Fi share, for connections to find their download items.
  static WiFiShare* current();
  // Where zip downloads are built, under Application Support.
  static std::string zipDirectory();
  // Clears upload and zip work folders.
  static void removeTempDirectory();

 private:
  std::mutex itemsMutex_;
  std::map<std::string, std::shared_ptr<WifiDownloadItem>> downloadItemsInfo_;
};

// The WebDAV share of the Documents folder; served by the plain connection
// until WebDAV lands. With a Wi-Fi password set it asks for Digest.
class WebDavShare : public WiFiShareBase {
 public:
  static constexpr std::uint16_t kDefaultPort = 51491;
  void initHttpServer() override;
};

}  // namespace harbor

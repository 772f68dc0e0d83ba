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

  // Download items by guid. They are process-wide, as zip workers may still
  // report after the share that started them has gone.
  static void addDownloadItem(std::shared_ptr<WifiDownloadItem> item);
  static std::shared_ptr<WifiDownloadItem> getDownloadItem(const std::string& guid);
  static void updateDownloaditem(const std::string& guid, std::uint64_t size);
  static void updateDownloaditemFinish(const std::string& guid);
  static void removeAllDownloadItems();

  // Where zip downloads are built, under Application Support.
  static std::string zipDirectory();
  // Clears upload and zip work folders.
  static void removeTempDirectory();
};

// The WebDAV share of the Documents folder. With a Wi-Fi password set it
// asks for Digest.
class WebDavShare : public WiFiShareBase {
 public:
  static constexpr std::uint16_t kDefaultPort = 51491;
  void initHttpServer() override;
};

}  // namespace harbor

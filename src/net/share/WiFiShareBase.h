#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "net/http/HTTPServer.h"

namespace harbor {

// What the application above hands the share layer at launch.
struct ShareHooks {
  std::function<void()> unLockScreen;
  std::function<void()> lockScreen;
  std::function<std::uint16_t()> httpServerPort;  // the Wi-Fi share's port
  HTTPServer::ConnectionClass httpConnectionClass;
  static ShareHooks& shared();
};

// Owns one HTTP server, and keeps which folders each browser session has
// unlocked, process-wide, until sharing stops.
class WiFiShareBase {
 public:
  WiFiShareBase();
  virtual ~WiFiShareBase();

  virtual void initHttpServer() = 0;
  virtual bool startHttpServer(Error* error = nullptr);
  virtual void stopHttpServer();
  bool isRunning() const;
  HTTPServer* webServer() const { return webServer_.get(); }

  // Addresses of this machine: the first up, non-loopback IPv4 address whose
  // interface name starts with `name` ("" for any).
  static std::string getLocalAddress(const std::string& name);
  static std::vector<std::string> getLocalAddress();
  // Wireless first, then wired: "wl*", "en*", "eth*".
  static std::string address();

  static void addLoginGuid(const std::string& guid, const std::string& filepath);
  static bool isLoginGuid(const std::string& guid, const std::string& filepath);
  static void removeAllLoginGuid();

 protected:
  std::unique_ptr<HTTPServer> webServer_;
};

}  // namespace harbor

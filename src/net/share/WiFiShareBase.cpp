#include "net/share/WiFiShareBase.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace harbor {
namespace {

std::mutex& loginMutex() {
  static std::mutex m;
  return m;
}

std::map<std::string, std::vector<std::string>>& loginMap() {
  static std::map<std::string, std::vector<std::string>> m;
  return m;
}

}  // namespace

ShareHooks& ShareHooks::shared() {
  static ShareHooks hooks;
  return hooks;
}

WiFiShareBase::WiFiShareBase() = default;
WiFiShareBase::~WiFiShareBase() = default;

bool WiFiShareBase::startHttpServer(Error* error) {
  if (!webServer_ || webServer_->isRunning()) return webServer_ != nullptr;
  return webServer_->start(error);
}

void WiFiShareBase::stopHttpServer() {
  if (webServer_ && webServer_->isRunning()) webServer_->stop();
}

bool WiFiShareBase::isRunning() const {
  return webServer_ && webServer_->isRunning();
}

std::vector<std::string> WiFiShareBase::getLocalAddress() {
  std::vector<std::string> out;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return out;
  for (ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
    if (!(i->ifa_flags & IFF_UP) || (i->ifa_flags & IFF_LOOPBACK)) continue;
    char buf[INET_ADDRSTRLEN] = {0};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, buf, sizeof buf);
    out.push_back(std::string(i->ifa_name) + "=" + buf);
  }
  freeifaddrs(list);
  return out;
}

std::string WiFiShareBase::getLocalAddress(const std::string& name) {
  for (const auto& entry : getLocalAddress()) {
    std::size_t eq = entry.find('=');
    if (entry.compare(0, name.size(), name) == 0 && eq >= name.size()) {
      return entry.substr(eq + 1);
    }
  }
  return {};
}

std::string WiFiShareBase::address() {
  for (const char* prefix : {"wl", "en", "eth"}) {
    std::string a = getLocalAddress(prefix);
    if (!a.empty()) return a;
  }
  return getLocalAddress("");
}

void WiFiShareBase::addLoginGuid(const std::string& guid, const std::string& filepath) {
  if (guid.empty()) return;
  std::lock_guard lock(loginMutex());
  auto& paths = loginMap()[guid];
  if (std::find(paths.begin(), paths.end(), filepath) == paths.end()) paths.push_back(filepath);
}

bool WiFiShareBase::isLoginGuid(const std::string& guid, const std::string& filepath) {
  std::lock_guard lock(loginMutex());
  auto it = loginMap().find(guid);
  if (it == loginMap().end()) return false;
  return std::find(it->second.begin(), it->second.end(), filepath) != it->second.end();
}

void WiFiShareBase::removeAllLoginGuid() {
  std::lock_guard lock(loginMutex());
  loginMap().clear();
}

}  // namespace harbor

#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <thread>

namespace harbor {

// Whether this machine is on a network, and a notifier that posts
// "kNetworkReachabilityChangedNotification" when links, addresses or routes
// change. The kernel tells us (rtnetlink), so nothing polls; bursts of
// changes are posted once.
class Reachability {
 public:
  enum NetworkStatus { NotReachable = 0, ReachableViaWiFi = 1, ReachableViaWWAN = 2 };
  // How long a burst of kernel messages is gathered before one post.
  static constexpr int kCoalesceMs = 100;

  static std::shared_ptr<Reachability> reachabilityForInternetConnection();
  ~Reachability();
  Reachability(const Reachability&) = delete;
  Reachability& operator=(const Reachability&) = delete;

  // False when the kernel's route messages cannot be had.
  bool startNotifier();
  void stopNotifier();
  // A local network counts as Wi-Fi here: an up, non-loopback IPv4 address.
  NetworkStatus currentReachabilityStatus() const;
  bool connectionRequired() const { return false; }

  // Whether one rtnetlink datagram reports a change of links, addresses or
  // routes. Malformed datagrams report nothing.
  static bool isNetworkChange(std::string_view datagram);

 private:
  Reachability() = default;
  void run(int netlink, int wake);

  std::thread thread_;
  int wakeFD_ = -1;
};

}  // namespace harbor

#include "net/share/Reachability.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "net/share/WiFiShareBase.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor {

std::shared_ptr<Reachability> Reachability::reachabilityForInternetConnection() {
  return std::shared_ptr<Reachability>(new Reachability());
}

Reachability::~Reachability() {
  stopNotifier();
}

Reachability::NetworkStatus Reachability::currentReachabilityStatus() const {
  return WiFiShareBase::address().empty() ? NotReachable : ReachableViaWiFi;
}

bool Reachability::isNetworkChange(std::string_view datagram) {
  bool change = false;
  std::size_t at = 0;
  while (datagram.size() - at >= sizeof(nlmsghdr)) {
    nlmsghdr h;
    std::memcpy(&h, datagram.data() + at, sizeof h);
    if (h.nlmsg_len < sizeof(nlmsghdr) || h.nlmsg_len > datagram.size() - at) break;
    switch (h.nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
      case RTM_NEWADDR:
      case RTM_DELADDR:
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
        change = true;
        break;
      default:
        break;
    }
    std::size_t step = NLMSG_ALIGN(h.nlmsg_len);
    if (step > datagram.size() - at) break;
    at += step;
  }
  return change;
}

bool Reachability::startNotifier() {
  if (thread_.joinable()) return true;
  int netlink = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (netlink < 0) {
    HB_LOG("Reachability", std::string("no route socket: ") + std::strerror(errno));
    return false;
  }
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (::bind(netlink, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    HB_LOG("Reachability", std::string("cannot listen for routes: ") + std::strerror(errno));
    ::close(netlink);
    return false;
  }
  wakeFD_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeFD_ < 0) {
    ::close(netlink);
    return false;
  }
  int wake = wakeFD_;
  thread_ = std::thread([this, netlink, wake] { run(netlink, wake); });
  return true;
}

void Reachability::stopNotifier() {
  if (!thread_.joinable()) return;
  std::uint64_t one = 1;
  ssize_t n = ::write(wakeFD_, &one, sizeof one);
  (void)n;
  thread_.join();
  ::close(wakeFD_);
  wakeFD_ = -1;
}

void Reachability::run(int netlink, int wake) {
  using Clock = std::chrono::steady_clock;
  bool pending = false;
  Clock::time_point due{};
  alignas(nlmsghdr) char buffer[16384];
  while (true) {
    int timeout = -1;
    if (pending) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now());
      timeout = static_cast<int>(std::max<long long>(0, left.count()));
    }
    pollfd fds[2] = {{netlink, POLLIN, 0}, {wake, POLLIN, 0}};
    int r = ::poll(fds, 2, timeout);
    if (r < 0 && errno != EINTR) break;
    if (fds[1].revents) break;
    if (r > 0 && fds[0].revents) {
      while (true) {
        sockaddr_nl from{};
        socklen_t fromLength = sizeof from;
        ssize_t n = ::recvfrom(netlink, buffer, sizeof buffer, 0,
                               reinterpret_cast<sockaddr*>(&from), &fromLength);
        bool change = false;
        if (n < 0) {
          if (errno == EINTR) continue;
          // Messages were lost: something changed, we don't know what.
          change = errno == ENOBUFS;
          if (!change) break;
        } else if (from.nl_pid == 0) {  // only the kernel's word counts
          change = isNetworkChange(std::string_view(buffer, static_cast<std::size_t>(n)));
        }
        if (change && !pending) {
          pending = true;
          due = Clock::now() + std::chrono::milliseconds(kCoalesceMs);
        }
      }
    }
    if (pending && Clock::now() >= due) {
      pending = false;
      NotificationCenter::defaultCenter().post(
          notifications::kNetworkReachabilityChangedNotification);
    }
  }
  ::close(netlink);
}

}  // namespace harbor

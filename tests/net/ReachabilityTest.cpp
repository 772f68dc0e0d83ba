#include <gtest/gtest.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "net/share/Reachability.h"
#include "net/share/WiFiShareBase.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor {
namespace {

std::string message(std::uint16_t type, std::size_t payload = 16) {
  std::string m(NLMSG_ALIGN(NLMSG_LENGTH(payload)), '\0');
  nlmsghdr h{};
  h.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(payload));
  h.nlmsg_type = type;
  std::memcpy(m.data(), &h, sizeof h);
  return m;
}

TEST(ReachabilityTest, OnlyLinkAddressAndRouteMessagesCountAsChanges) {
  EXPECT_TRUE(Reachability::isNetworkChange(message(RTM_NEWADDR)));
  EXPECT_TRUE(Reachability::isNetworkChange(message(NLMSG_NOOP) + message(RTM_DELLINK)));
  EXPECT_TRUE(Reachability::isNetworkChange(message(RTM_NEWROUTE, 0)));
  EXPECT_FALSE(Reachability::isNetworkChange(message(NLMSG_DONE)));
  EXPECT_FALSE(Reachability::isNetworkChange(message(RTM_NEWNEIGH)));
  EXPECT_FALSE(Reachability::isNetworkChange(""));
  // A length past the datagram, or below a header, ends the walk.
  std::string cut = message(RTM_NEWADDR);
  EXPECT_FALSE(Reachability::isNetworkChange(cut.substr(0, cut.size() - 1)));
  std::string small = message(RTM_NEWADDR);
  small[0] = 4;
  small[1] = small[2] = small[3] = 0;
  EXPECT_FALSE(Reachability::isNetworkChange(small + message(RTM_NEWADDR)));
  EXPECT_FALSE(Reachability::isNetworkChange(std::string(7, '\xff')));
}

TEST(ReachabilityTest, StatusFollowsTheAddressAndTheNotifierStopsCleanly) {
  auto r = Reachability::reachabilityForInternetConnection();
  EXPECT_EQ(r->currentReachabilityStatus(), WiFiShareBase::address().empty()
                                                ? Reachability::NotReachable
                                                : Reachability::ReachableViaWiFi);
  EXPECT_FALSE(r->connectionRequired());
  ASSERT_TRUE(r->startNotifier());
  EXPECT_TRUE(r->startNotifier());  // once is enough
  r->stopNotifier();
  r->stopNotifier();
  ASSERT_TRUE(r->startNotifier());  // and again after a stop
}

// In a network namespace of its own a child may change a link without any
// privilege on the machine: bringing its loopback up must be noticed.
TEST(ReachabilityTest, ALinkComingUpIsPostedOnce) {
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) _exit(77);
    std::atomic<int> posts{0};
    NotificationCenter::defaultCenter().addObserver(
        notifications::kNetworkReachabilityChangedNotification, [&](const auto&) { ++posts; });
    auto r = Reachability::reachabilityForInternetConnection();
    if (!r->startNotifier()) _exit(77);
    int s = ::socket(AF_INET, SOCK_DGRAM, 0);
    ifreq ifr{};
    std::strcpy(ifr.ifr_name, "lo");
    if (::ioctl(s, SIOCGIFFLAGS, &ifr) != 0) _exit(77);
    ifr.ifr_flags |= IFF_UP;
    if (::ioctl(s, SIOCSIFFLAGS, &ifr) != 0) _exit(77);
    for (int i = 0; i < 300 && posts == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // The link and its addresses come as a burst: one post for it.
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * Reachability::kCoalesceMs));
    r->stopNotifier();
    _exit(posts == 1 ? 0 : 10 + std::min(posts.load(), 9));
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no network namespace for this user";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "posts: " << WEXITSTATUS(status) - 10;
}

}  // namespace
}  // namespace harbor

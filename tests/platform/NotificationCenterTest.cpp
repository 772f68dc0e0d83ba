#include "platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace harbor {
namespace {

TEST(NotificationCenter, DeliversByNameWithTheObject) {
  NotificationCenter center;
  std::vector<std::string> seen;
  auto token = center.addObserver("saved", [&](const NotificationCenter::Notification& n) {
    seen.push_back(n.name + ":" + std::any_cast<std::string>(n.object));
  });
  center.addObserver("", [&](const auto& n) { seen.push_back("any:" + n.name); });

  center.post("saved", std::string("a.txt"));
  center.post("other");
  center.removeObserver(token);
  center.post("saved", std::string("b.txt"));

  EXPECT_EQ(seen, (std::vector<std::string>{"saved:a.txt", "any:saved", "any:other", "any:saved"}));
}

TEST(NotificationCenter, ObserversChangeTheListDuringAPost) {
  NotificationCenter center;
  std::vector<std::string> calls;
  NotificationCenter::Token self = 0, later = 0;
  self = center.addObserver("n", [&](const auto&) {
    calls.push_back("self");
    center.removeObserver(self);
    center.removeObserver(later);  // removed before its turn: not called
    center.addObserver("n", [&](const auto&) { calls.push_back("added"); });
    center.post("nested");  // a post from inside a post does not deadlock
  });
  later = center.addObserver("n", [&](const auto&) { calls.push_back("later"); });
  center.addObserver("nested", [&](const auto&) { calls.push_back("nested"); });

  center.post("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"self", "nested"}));
  calls.clear();
  center.post("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"added"}));
}

TEST(NotificationCenter, PostsFromSeveralThreads) {
  NotificationCenter center;
  std::atomic<int> delivered{0};
  center.addObserver("tick", [&](const auto& n) { delivered += std::any_cast<int>(n.object); });

  std::atomic<bool> done{false};
  std::thread churn([&] {  // observers come and go meanwhile
    while (!done) {
      auto t = center.addObserver("tick", [](const auto&) {});
      center.removeObserver(t);
    }
  });
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&] {
      for (int j = 0; j < 2000; ++j) center.post("tick", 1);
    });
  }
  for (auto& t : posters) t.join();
  done = true;
  churn.join();
  EXPECT_EQ(delivered, 8000);
}

}  // namespace
}  // namespace harbor

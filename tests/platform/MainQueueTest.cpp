#include "platform/MainQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace harbor {
namespace {
using namespace std::chrono_literals;

class MainQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    main.adoptCurrentThread();
    main.runPending();  // nothing left over from another test
  }
  MainQueue& main = MainQueue::shared();
};

TEST_F(MainQueueTest, PostsFromWorkersRunOnTheMainThreadInOrder) {
  const auto mainId = std::this_thread::get_id();
  std::vector<std::pair<int, int>> ran;  // touched only on the main thread
  std::atomic<bool> offMain{false};
  std::vector<std::thread> workers;
  for (int w = 0; w < 3; ++w) {
    workers.emplace_back([&, w] {
      EXPECT_FALSE(main.isMainThread());
      for (int i = 0; i < 100; ++i) {
        main.post([&, w, i] {
          if (std::this_thread::get_id() != mainId) offMain = true;
          ran.emplace_back(w, i);
        });
      }
    });
  }
  EXPECT_TRUE(main.runUntil([&] { return ran.size() == 300; }, 5s));
  for (auto& t : workers) t.join();
  EXPECT_FALSE(offMain);
  std::vector<int> next(3, 0);
  for (auto [w, i] : ran) EXPECT_EQ(i, next[w]++);  // each worker's posts keep their order
}

TEST_F(MainQueueTest, PostAndWaitWhileTheLoopRuns) {
  int value = 0;
  std::thread worker([&] {
    main.postAndWait([&] { value = 1; });
    // The work has run by the time postAndWait returns.
    main.postAndWait([&] { value *= 10; });
    main.stop();
  });
  main.run();
  worker.join();
  EXPECT_EQ(value, 10);

  bool inline_ = false;
  main.postAndWait([&] { inline_ = true; });  // on the main thread: runs at once
  EXPECT_TRUE(inline_);
}

TEST_F(MainQueueTest, PostAndWaitBlocksUntilSomeoneRunsTheLoop) {
  std::atomic<bool> returned{false};
  std::thread worker([&] {
    main.postAndWait([] {});
    returned = true;
  });
  std::this_thread::sleep_for(20ms);
  EXPECT_FALSE(returned);
  EXPECT_TRUE(main.runUntil([&] { return returned.load(); }, 5s));
  worker.join();
}

TEST_F(MainQueueTest, RunPendingRunsOnlyWhatIsQueuedNow) {
  int count = 0;
  main.post([&] {
    ++count;
    main.post([&] { ++count; });
  });
  EXPECT_EQ(main.runPending(), 1u);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(main.runPending(), 1u);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(main.runPending(), 0u);

  EXPECT_FALSE(main.runUntil([] { return false; }, 10ms));
  main.stop();  // an early stop is not lost: run() returns at once
  main.run();
}

TEST_F(MainQueueTest, DispatcherTakesOverPosts) {
  int ran = 0;
  main.post([&] { ++ran; });  // queued before: handed over
  std::vector<std::function<void()>> handed;
  main.setDispatcher([&](std::function<void()> work) { handed.push_back(std::move(work)); });
  main.post([&] { ++ran; });
  main.setDispatcher(nullptr);
  EXPECT_EQ(main.runPending(), 0u);
  ASSERT_EQ(handed.size(), 2u);
  for (auto& work : handed) work();
  EXPECT_EQ(ran, 2);
}

TEST_F(MainQueueTest, TimersFireOnceInDueOrderAndCancelStopsThem) {
  main.setManualClock(true);
  std::vector<std::string> fired;
  auto late = main.postAfter(6s, [&] { fired.push_back("late"); });
  auto early = main.postAfter(1s, [&] { fired.push_back("early"); });
  auto dropped = main.postAfter(2s, [&] { fired.push_back("dropped"); });
  main.advanceClock(999ms);
  main.runPending();
  EXPECT_TRUE(fired.empty()) << "nothing is due before its time";
  dropped->cancel();
  main.advanceClock(1s);
  main.runPending();
  EXPECT_EQ(fired, (std::vector<std::string>{"early"}));
  // Cancelled after it was posted but before the loop ran it: still nothing.
  main.advanceClock(5s);
  late->cancel();
  main.runPending();
  main.advanceClock(60s);
  main.runPending();
  EXPECT_EQ(fired, (std::vector<std::string>{"early"}));
  main.setManualClock(false);
}

TEST_F(MainQueueTest, TimersOnTheSteadyClockReachALoopThatWaits) {
  std::atomic<bool> fired{false};
  const auto start = std::chrono::steady_clock::now();
  main.postAfter(30ms, [&] { fired = true; });
  EXPECT_TRUE(main.runUntil([&] { return fired.load(); }, 5s));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

}  // namespace
}  // namespace harbor

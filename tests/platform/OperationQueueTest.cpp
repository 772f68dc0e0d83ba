#include "platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/Log.h"

namespace harbor {
namespace {
using namespace std::chrono_literals;

// Polls `cond` for up to five seconds; tests wait on states, never on timings.
template <typename F>
bool eventually(F cond) {
  for (auto end = std::chrono::steady_clock::now() + 5s; std::chrono::steady_clock::now() < end;) {
    if (cond()) return true;
    std::this_thread::sleep_for(1ms);
  }
  return cond();
}

// Operations block on a gate until the test opens it.
class Gate {
 public:
  void wait() {
    std::unique_lock lock(m_);
    cv_.wait(lock, [&] { return open_; });
  }
  void open() {
    std::lock_guard lock(m_);
    open_ = true;
    cv_.notify_all();
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool open_ = false;
};

TEST(OperationQueue, NeverRunsMoreThanTheLimit) {
  OperationQueue queue(3, "limit");
  Gate gate;
  std::atomic<int> running{0}, most{0}, ran{0};
  for (int i = 0; i < 20; ++i) {
    queue.addOperation([&] {
      int now = ++running;
      for (int m = most; now > m && !most.compare_exchange_weak(m, now);) {
      }
      gate.wait();
      --running;
      ++ran;
    });
  }
  ASSERT_TRUE(eventually([&] { return running == 3; }));
  std::this_thread::sleep_for(20ms);  // a fourth would have started by now
  EXPECT_EQ(most, 3);
  EXPECT_EQ(queue.operationCount(), 20u);

  queue.setMaxConcurrentOperationCount(5);
  EXPECT_TRUE(eventually([&] { return running == 5; }));
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, 20);
  EXPECT_EQ(most, 5);
  EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueue, HigherPriorityStartsFirstFifoWithin) {
  OperationQueue queue(1);
  std::vector<std::string> order;  // one at a time: no lock needed
  queue.setSuspended(true);
  auto add = [&](std::string name, QueuePriority p) {
    queue.addOperation([&order, name] { order.push_back(name); }, p);
  };
  add("low", QueuePriority::Low);
  add("normal1", QueuePriority::Normal);
  add("veryHigh", QueuePriority::VeryHigh);
  add("normal2", QueuePriority::Normal);
  add("veryLow", QueuePriority::VeryLow);
  add("high", QueuePriority::High);
  std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(order.empty());
  queue.setSuspended(false);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(order,
            (std::vector<std::string>{"veryHigh", "high", "normal1", "normal2", "low", "veryLow"}));
}

TEST(OperationQueue, CancelAllReachesQueuedAndRunningWork) {
  OperationQueue queue(1);
  std::atomic<bool> started{false}, sawCancel{false}, queuedRan{false};
  std::atomic<int> completions{0};
  auto running = queue.addOperation([&] {
    started = true;
    // Code far from the queue sees the cancel through the thread's token.
    sawCancel = eventually([] { return isCurrentThreadCancelled(); });
  });
  std::vector<std::shared_ptr<Operation>> queued;
  for (int i = 0; i < 3; ++i) {
    auto op = std::make_shared<BlockOperation>([&] { queuedRan = true; });
    op->setCompletionBlock([&] { ++completions; });
    queue.addOperation(op);
    queued.push_back(op);
  }
  ASSERT_TRUE(eventually([&] { return started.load(); }));
  EXPECT_FALSE(isCurrentThreadCancelled());  // this thread has no token

  queue.cancelAllOperations();
  for (auto& op : queued) {
    EXPECT_TRUE(op->isFinished());
    EXPECT_TRUE(op->isCancelled());
  }
  EXPECT_EQ(completions, 3);
  queue.waitUntilAllOperationsAreFinished();
  running->waitUntilFinished();
  EXPECT_TRUE(sawCancel);
  EXPECT_FALSE(queuedRan);
  EXPECT_EQ(queue.operationCount(), 0u);

  // The queue still works after a cancel.
  auto after = queue.addOperation([] {});
  after->waitUntilFinished();
  EXPECT_FALSE(after->isCancelled());
}

TEST(OperationQueue, DestructorDropsQueuedAndWaitsForRunning) {
  Gate gate;
  std::atomic<bool> started{false}, firstDone{false}, secondRan{false};
  std::shared_ptr<Operation> second;
  std::thread opener;
  {
    OperationQueue queue(1);
    queue.addOperation([&] {
      started = true;
      gate.wait();
      firstDone = true;
    });
    second = queue.addOperation([&] { secondRan = true; });
    ASSERT_TRUE(eventually([&] { return started.load(); }));
    opener = std::thread([&] {
      std::this_thread::sleep_for(10ms);
      gate.open();
    });
  }
  opener.join();
  EXPECT_TRUE(firstDone);
  EXPECT_FALSE(secondRan);
  EXPECT_TRUE(second->isFinished());
}

TEST(OperationQueue, ThrowingWorkIsLoggedAndTheQueueGoesOn) {
  std::vector<std::string> lines;
  LogSink previous = setLogSink([&](const std::string& l) { lines.push_back(l); });
  OperationQueue queue(1);
  auto bad = queue.addOperation([] { throw std::runtime_error("boom"); });
  auto good = queue.addOperation([] {});
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(bad->isFinished());
  EXPECT_TRUE(good->isFinished());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("boom"), std::string::npos);

  // An operation is run once: adding it again is ignored.
  queue.addOperation(good);
  EXPECT_EQ(queue.operationCount(), 0u);
  EXPECT_EQ(lines.size(), 2u);
  setLogSink(previous);
}

TEST(OperationQueue, SharedBackgroundQueueAndDetachedThreads) {
  std::atomic<bool> ran{false};
  OperationQueue::backgroundQueue().addOperation([&] { ran = true; })->waitUntilFinished();
  EXPECT_TRUE(ran);
  EXPECT_EQ(OperationQueue::backgroundQueue().maxConcurrentOperationCount(), 4);

  std::atomic<bool> stopped{false};
  CancellationToken token = CancellableThread::startDetached([&] {
    while (!isCurrentThreadCancelled()) std::this_thread::sleep_for(1ms);
    stopped = true;
  });
  std::this_thread::sleep_for(5ms);
  EXPECT_FALSE(stopped);
  token.cancel();
  EXPECT_TRUE(eventually([&] { return stopped.load(); }));
}

}  // namespace
}  // namespace harbor

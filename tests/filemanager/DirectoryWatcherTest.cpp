// Every expectation waits for the callback it needs, up to a generous
// deadline, instead of sleeping for a fixed window: a slow machine delays a
// test but never decides it. What must not be reported is checked on the
// watched event set, and end to end by a marker change made afterwards,
// whose callback has to be the only one.
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>

#include "filemanager/watcher/DirectoryWatcher.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::writeFile;

constexpr auto kDeadline = 10s;

class CountingDelegate : public DirectoryWatcherDelegate {
 public:
  void directoryDidChange(DirectoryWatcher& watcher) override {
    ++calls;
    onMainThread = onMainThread && MainQueue::shared().isMainThread();
    lastTag = watcher.tag();
  }
  int calls = 0;
  int lastTag = -1;
  bool onMainThread = true;
};

class Watching : public ::testing::Test {
 protected:
  void SetUp() override {
    MainQueue::shared().adoptCurrentThread();
    MainQueue::shared().runPending();
    fs::create_directories(dir / "sub");
  }
  // Runs the main queue until the delegate has had `calls` callbacks.
  bool waitForCalls(int calls) {
    return MainQueue::shared().runUntil([&] { return delegate.calls >= calls; }, kDeadline);
  }
  // A change that must be reported, made after changes that must not: its
  // callback is the next one, and the only one once the queue is idle.
  void expectOnlyTheMarkerReported(const std::string& marker) {
    const int before = delegate.calls;
    writeFile(dir / marker, "");
    ASSERT_TRUE(waitForCalls(before + 1));
    MainQueue::shared().runPending();
    EXPECT_EQ(delegate.calls, before + 1);
  }
  test::ScratchDir dir;
  CountingDelegate delegate;
};

TEST(WatchedEvents, OnlyTheFoldersOwnEntriesCount) {
  for (std::uint32_t event : {IN_CREATE, IN_DELETE, IN_MOVED_FROM, IN_MOVED_TO, IN_DELETE_SELF})
    EXPECT_NE(DirectoryWatcher::kWatchedEvents & event, 0u) << event;
  // Writing into a file, reading it or touching its attributes is no change
  // of the folder.
  for (std::uint32_t event : {IN_MODIFY, IN_CLOSE_WRITE, IN_ATTRIB, IN_OPEN, IN_ACCESS})
    EXPECT_EQ(DirectoryWatcher::kWatchedEvents & event, 0u) << event;
}

TEST_F(Watching, OneCallbackPerChangeOfTheFoldersOwnEntries) {
  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  watcher->setTag(7);
  writeFile(dir / "new.txt", "hello");
  ASSERT_TRUE(waitForCalls(1));
  EXPECT_EQ(delegate.lastTag, 7);
  EXPECT_TRUE(delegate.onMainThread);

  // Inside a subfolder, or inside a file, nothing reaches this watch.
  writeFile(dir / "sub/deeper.txt", "x");
  writeFile(dir / "new.txt", "rewritten");
  expectOnlyTheMarkerReported("marker1");

  fs::rename(dir / "new.txt", dir / "renamed.txt");
  ASSERT_TRUE(waitForCalls(3));
  fs::remove(dir / "renamed.txt");
  ASSERT_TRUE(waitForCalls(4));
}

// Holds what the watcher posts to the main queue, so a test knows for sure
// that a callback is on its way.
class HeldPosts {
 public:
  HeldPosts() {
    MainQueue::shared().setDispatcher([this](std::function<void()> work) {
      std::lock_guard lock(mutex_);
      posts_.push_back(std::move(work));
      posted_.notify_all();
    });
  }
  ~HeldPosts() { MainQueue::shared().setDispatcher(nullptr); }
  bool waitForOne() {
    std::unique_lock lock(mutex_);
    return posted_.wait_for(lock, kDeadline, [&] { return !posts_.empty(); });
  }
  void runAll() {
    std::deque<std::function<void()>> posts;
    {
      std::lock_guard lock(mutex_);
      posts.swap(posts_);
    }
    for (auto& work : posts) work();
  }

 private:
  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<std::function<void()>> posts_;
};

TEST_F(Watching, StartIsRefusedWhileActiveAndInvalidateReleasesAll) {
  EXPECT_EQ(DirectoryWatcher::watchFolderWithPath((dir / "missing").string(), &delegate), nullptr);
  EXPECT_EQ(DirectoryWatcher::watchFolderWithPath(dir.path().string(), nullptr), nullptr);

  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  EXPECT_FALSE(watcher->startMonitoring());
  EXPECT_EQ(watcher->folderPath(), dir.path().string());

  {
    // A change already on its way when the watch ends is dropped.
    HeldPosts held;
    writeFile(dir / "a", "");
    ASSERT_TRUE(held.waitForOne());
    watcher->invalidate();
    EXPECT_FALSE(watcher->isActive());
    held.runAll();
    EXPECT_EQ(delegate.calls, 0);
  }
  // Nothing is watched until it starts again; then the first change after
  // the start is the first callback.
  writeFile(dir / "b", "");
  EXPECT_TRUE(watcher->startMonitoring());
  expectOnlyTheMarkerReported("c");
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Watching, ABurstOfChangesIsCoalesced) {
  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  // Made while the main queue is not running: one callback is pending at
  // most, and one more may follow if the reader was still draining when
  // the first ran; never one per change.
  for (int i = 0; i < 50; ++i) writeFile(dir / ("f" + std::to_string(i)), "");
  ASSERT_TRUE(waitForCalls(1));
  MainQueue::shared().runPending();
  EXPECT_LE(delegate.calls, 2);
}

}  // namespace
}  // namespace harbor

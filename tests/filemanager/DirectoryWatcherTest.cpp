#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "filemanager/watcher/DirectoryWatcher.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::writeFile;

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
  // Lets the main queue run long enough for any callback to arrive.
  void settle() {
    MainQueue::shared().runUntil([] { return false; }, 300ms);
  }
  test::ScratchDir dir;
  CountingDelegate delegate;
};

TEST_F(Watching, OneCallbackPerChangeOfTheFoldersOwnEntries) {
  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  watcher->setTag(7);
  writeFile(dir / "new.txt", "hello");
  settle();
  EXPECT_EQ(delegate.calls, 1);
  EXPECT_EQ(delegate.lastTag, 7);
  EXPECT_TRUE(delegate.onMainThread);

  // Inside a subfolder, or inside a file, nothing reaches this watch.
  writeFile(dir / "sub/deeper.txt", "x");
  writeFile(dir / "new.txt", "rewritten");
  settle();
  EXPECT_EQ(delegate.calls, 1);

  fs::rename(dir / "new.txt", dir / "renamed.txt");
  settle();
  EXPECT_EQ(delegate.calls, 2);
  fs::remove(dir / "renamed.txt");
  settle();
  EXPECT_EQ(delegate.calls, 3);
}

TEST_F(Watching, StartIsRefusedWhileActiveAndInvalidateReleasesAll) {
  EXPECT_EQ(DirectoryWatcher::watchFolderWithPath((dir / "missing").string(), &delegate), nullptr);
  EXPECT_EQ(DirectoryWatcher::watchFolderWithPath(dir.path().string(), nullptr), nullptr);

  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  EXPECT_FALSE(watcher->startMonitoring());
  EXPECT_EQ(watcher->folderPath(), dir.path().string());

  // A change already on its way when the watch ends is dropped.
  writeFile(dir / "a", "");
  std::this_thread::sleep_for(100ms);
  watcher->invalidate();
  EXPECT_FALSE(watcher->isActive());
  settle();
  EXPECT_EQ(delegate.calls, 0);
  writeFile(dir / "b", "");
  settle();
  EXPECT_EQ(delegate.calls, 0);

  // It may start again afterwards.
  EXPECT_TRUE(watcher->startMonitoring());
  writeFile(dir / "c", "");
  settle();
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Watching, ABurstOfChangesIsCoalesced) {
  auto watcher = DirectoryWatcher::watchFolderWithPath(dir.path().string(), &delegate);
  ASSERT_NE(watcher, nullptr);
  for (int i = 0; i < 50; ++i) writeFile(dir / ("f" + std::to_string(i)), "");
  settle();
  EXPECT_GE(delegate.calls, 1);
  EXPECT_LT(delegate.calls, 50);
}

}  // namespace
}  // namespace harbor

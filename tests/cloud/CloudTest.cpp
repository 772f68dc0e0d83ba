#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

#include "cloud/CloudPath.h"
#include "cloud/CloudProvider.h"
#include "cloud/DocumentBrowserQuery.h"
#include "cloud/FileCoordinator.h"
#include "cloud/ICloudBase.h"
#include "cloud/MetadataQuery.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

struct Progress : ActionProgressCounter {
  void progressUpdateCurrentSize(std::uint64_t position) override {
    std::lock_guard lock(m);
    positions.push_back(position);
  }
  std::mutex m;
  std::vector<std::uint64_t> positions;
};

class CloudTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    runtime = home() / "run";
    fs::create_directories(runtime);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    provider = std::make_shared<LocalSyncFolderProvider>((home() / "cloud").string());
    fs::create_directories(provider->documentsURL());
    CloudProvider::setShared(provider);
    docs = provider->documentsURL();
  }
  void TearDown() override {
    CloudProvider::setShared(nullptr);
    unsetenv("XDG_RUNTIME_DIR");
    TempHome::TearDown();
  }
  // Runs an operation to its end as the command does.
  void run(ICloudBase& op) {
    op.start();
    op.waitRun();
  }
  std::vector<std::string> hiddenEntries(const fs::path& dir) {
    std::vector<std::string> out;
    for (const auto& e : fs::recursive_directory_iterator(dir))
      if (e.path().filename().string()[0] == '.') out.push_back(e.path().string());
    return out;
  }
  fs::path runtime;
  std::shared_ptr<LocalSyncFolderProvider> provider;
  fs::path docs;
};

TEST_F(CloudTest, ListingShowsPlaceholdersAsItemsAndHidesBookkeeping) {
  writeFile(docs / "here.txt", "abc");
  writeFile(docs / ".away.bin.cloud", "1000");
  writeFile(docs / ".away.bin.cloud-part", std::string(250, 'x'));
  writeFile(docs / ".away.bin.cloud-request", "");
  writeFile(docs / ".harbor-tmp-123-here.txt", "half");
  // The client left the placeholder beside the finished file.
  writeFile(docs / "both.txt", "b");
  writeFile(docs / ".both.txt.cloud", "1");
  auto items = provider->itemsIn(docs.string());
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].filename, "away.bin");
  EXPECT_FALSE(items[0].downloaded);
  EXPECT_EQ(items[0].totalBytes, 1000u);
  EXPECT_DOUBLE_EQ(items[0].percentDownloaded, 25.0);
  EXPECT_EQ(items[1].filename, "both.txt");
  EXPECT_TRUE(items[1].downloaded);
  EXPECT_EQ(items[2].filename, "here.txt");
  EXPECT_STREQ(items[2].downloadingStatus(), "current");
  EXPECT_FALSE(provider->itemAt((docs / "missing").string()));
}

TEST_F(CloudTest, DownloadOfCurrentItemCopiesAtOnce) {
  writeFile(docs / "a.txt", "current");
  auto op = ICloudDownload::instanceWithPath((docs / "a.txt").string(), (home() / "a.txt").string(),
                                             nullptr);
  run(*op);
  EXPECT_TRUE(op->isSuccess()) << op->errorMessage();
  EXPECT_FALSE(op->usedQuery());
  EXPECT_FALSE(fs::exists(docs / ".a.txt.cloud-request"));
  EXPECT_EQ(readFile(home() / "a.txt"), "current");
  // Copies never overwrite.
  auto again = ICloudDownload::instanceWithPath((docs / "a.txt").string(),
                                                (home() / "a.txt").string(), nullptr);
  run(*again);
  EXPECT_FALSE(again->isSuccess());
  EXPECT_EQ(again->error()->code, EEXIST);
}

TEST_F(CloudTest, DownloadWaitsForALateSyncClient) {
  const std::string content(4000, 'z');
  writeFile(docs / ".big.dat.cloud", std::to_string(content.size()));
  std::thread client([&] {
    // Answers only after the request, and slowly.
    while (!fs::exists(docs / ".big.dat.cloud-request")) std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(200ms);
    writeFile(docs / ".big.dat.cloud-part", content.substr(0, 1000));
    std::this_thread::sleep_for(150ms);
    writeFile(docs / ".big.dat.cloud-part", content);
    fs::rename(docs / ".big.dat.cloud-part", docs / "big.dat");
    fs::remove(docs / ".big.dat.cloud");
    fs::remove(docs / ".big.dat.cloud-request");
  });
  Progress progress;
  auto op = ICloudDownload::instanceWithPath((docs / "big.dat").string(),
                                             (home() / "big.dat").string(), &progress);
  run(*op);
  client.join();
  EXPECT_TRUE(op->isSuccess()) << op->errorMessage();
  EXPECT_TRUE(op->usedQuery());
  EXPECT_EQ(readFile(home() / "big.dat"), content);
  std::lock_guard lock(progress.m);
  ASSERT_FALSE(progress.positions.empty());
  EXPECT_EQ(progress.positions.front(), 0u);
  EXPECT_NE(std::find(progress.positions.begin(), progress.positions.end(), 1000u),
            progress.positions.end());
}

TEST_F(CloudTest, ItemThatVanishesIsNotFound) {
  writeFile(docs / ".gone.txt.cloud", "10");
  std::thread client([&] {
    while (!fs::exists(docs / ".gone.txt.cloud-request")) std::this_thread::sleep_for(5ms);
    fs::remove(docs / ".gone.txt.cloud");
  });
  auto op = ICloudDownload::instanceWithPath((docs / "gone.txt").string(),
                                             (home() / "gone.txt").string(), nullptr);
  run(*op);
  client.join();
  ASSERT_FALSE(op->isSuccess());
  EXPECT_EQ(op->errorMessage(), "Not found file");
  EXPECT_EQ(op->error()->code, -1);
  EXPECT_EQ(op->error()->domain, "iCloud Drive error");
  EXPECT_FALSE(fs::exists(home() / "gone.txt"));
}

TEST_F(CloudTest, StopDuringAQueryEndsTheWaitWithCodeMinusOne) {
  writeFile(docs / ".never.txt.cloud", "10");
  auto op = ICloudDownload::instanceWithPath((docs / "never.txt").string(),
                                             (home() / "never.txt").string(), nullptr);
  std::thread stopper([&] {
    while (!fs::exists(docs / ".never.txt.cloud-request")) std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(50ms);
    op->stop("Cancelled by test");
  });
  run(*op);
  stopper.join();
  ASSERT_TRUE(op->error());
  EXPECT_EQ(op->error()->code, -1);
  EXPECT_EQ(op->errorMessage(), "Cancelled by test");
  EXPECT_FALSE(op->isContinuingWaiting());
}

TEST_F(CloudTest, UploadReplacesFilesAndFoldersWithoutAGap) {
  writeFile(home() / "v1/inner/one.txt", "1");
  writeFile(home() / "v2/inner/two.txt", "2");
  writeFile(docs / "target/old.txt", "old");
  std::atomic<bool> done{false}, gap{false};
  std::thread reader([&] {
    while (!done)
      if (!fs::exists(docs / "target")) gap = true;
  });
  for (const char* v : {"v1", "v2"}) {
    Progress progress;
    auto op = ICloudUpload::instanceWithPath((home() / v).string(), (docs / "target").string(),
                                             &progress);
    run(*op);
    EXPECT_TRUE(op->isSuccess()) << op->errorMessage();
    EXPECT_EQ(progress.currentSize(), 1u);  // the source's size, reported once uploaded
  }
  done = true;
  reader.join();
  EXPECT_FALSE(gap);
  EXPECT_EQ(readFile(docs / "target/inner/two.txt"), "2");
  EXPECT_FALSE(fs::exists(docs / "target/inner/one.txt"));
  EXPECT_FALSE(fs::exists(docs / "target/old.txt"));

  writeFile(docs / "f.txt", "before");
  writeFile(home() / "f.txt", "after");
  auto op = ICloudUpload::instanceWithPath((home() / "f.txt").string(), (docs / "f.txt").string(),
                                           nullptr);
  run(*op);
  EXPECT_TRUE(op->isSuccess());
  EXPECT_EQ(readFile(docs / "f.txt"), "after");
  EXPECT_TRUE(hiddenEntries(docs).empty());
}

TEST_F(CloudTest, MkdirMoveAndDelete) {
  auto mk = ICloudCreateDir::instanceWithPath((docs / "a/b").string(), nullptr);
  run(*mk);
  EXPECT_TRUE(mk->isSuccess());
  EXPECT_TRUE(fs::is_directory(docs / "a/b"));

  writeFile(docs / "x.txt", "x");
  writeFile(docs / "y.txt", "y");
  auto clash =
      ICloudMove::instanceWithPath((docs / "x.txt").string(), (docs / "y.txt").string(), nullptr);
  run(*clash);
  EXPECT_FALSE(clash->isSuccess());
  EXPECT_EQ(readFile(docs / "y.txt"), "y");
  auto mv = ICloudMove::instanceWithPath((docs / "x.txt").string(), (docs / "a/b/x.txt").string(),
                                         nullptr);
  run(*mv);
  EXPECT_TRUE(mv->isSuccess()) << mv->errorMessage();
  EXPECT_EQ(readFile(docs / "a/b/x.txt"), "x");

  // Removing a link leaves what it points at.
  writeFile(home() / "outside/keep.txt", "keep");
  fs::create_directory_symlink(home() / "outside", docs / "lnk");
  auto rm = ICloudDelete::instanceWithPath((docs / "lnk").string(), nullptr);
  run(*rm);
  EXPECT_TRUE(rm->isSuccess());
  EXPECT_FALSE(fs::exists(fs::symlink_status(docs / "lnk")));
  EXPECT_EQ(readFile(home() / "outside/keep.txt"), "keep");
  auto rmDir = ICloudDelete::instanceWithPath((docs / "a").string(), nullptr);
  run(*rmDir);
  EXPECT_FALSE(fs::exists(docs / "a"));
}

TEST_F(CloudTest, PathsLeavingTheDriveAreRefused) {
  fs::create_directory_symlink(home(), docs / "out");
  fs::create_directories(docs / "in");
  const std::string d = docs.string();
  EXPECT_FALSE(cloudPathInside(d, "../x"));
  EXPECT_FALSE(cloudPathInside(d, "in/../../x"));
  EXPECT_FALSE(cloudPathInside(d, "/etc/passwd"));
  EXPECT_FALSE(cloudPathInside(d, "out/secret"));
  EXPECT_FALSE(cloudPathInside(d, "out"));
  // The link itself may be acted on (removed), not gone through.
  EXPECT_EQ(cloudPathInside(d, "out", true), (fs::weakly_canonical(docs) / "out").string());
  EXPECT_FALSE(cloudPathInside(d, "out/x", true));
  EXPECT_EQ(cloudPathInside(d, "in/./new.txt"),
            (fs::weakly_canonical(docs) / "in/new.txt").string());
}

TEST_F(CloudTest, BrowserQueryReportsAddedRemovedAndChanged) {
  DocumentBrowserQuery query(provider, docs.string(), true);
  writeFile(docs / "a.txt", "a");
  writeFile(docs / "sub/b.txt", "b");
  auto first = query.update();
  EXPECT_EQ(first.added, (std::vector<std::string>{"a.txt", "sub", "sub/b.txt"}));
  EXPECT_TRUE(query.update().empty());
  writeFile(docs / "sub/b.txt", "bigger");
  fs::remove(docs / "a.txt");
  writeFile(docs / ".c.txt.cloud", "9");
  auto next = query.update();
  EXPECT_EQ(next.added, (std::vector<std::string>{"c.txt"}));
  EXPECT_EQ(next.removed, (std::vector<std::string>{"a.txt"}));
  EXPECT_EQ(next.changed, (std::vector<std::string>{"sub/b.txt"}));
}

// Drives the main queue, where the watches report, until `done` or 5 s.
bool pumpUntil(const std::function<bool()>& done) {
  return MainQueue::shared().runUntil(done, 5s);
}

TEST_F(CloudTest, WatchedBrowserQueryFollowsNewFoldersAndFileContents) {
  writeFile(docs / "sub/b.txt", "b");
  DocumentBrowserQuery query(provider, docs.string(), true);
  query.update();
  std::vector<DocumentBrowserQuery::Changes> seen;
  query.startWatching([&](const auto& c) { seen.push_back(c); });
  auto sawChange = [&](auto pick, const std::string& id) {
    return pumpUntil([&] {
      for (const auto& c : seen)
        for (const auto& x : pick(c))
          if (x == id) return true;
      return false;
    });
  };
  const auto added = [](const auto& c) { return c.added; };
  const auto changed = [](const auto& c) { return c.changed; };
  const auto removed = [](const auto& c) { return c.removed; };

  // A write into a file below: the content watch, not only the entries'.
  writeFile(docs / "sub/b.txt", "longer now");
  EXPECT_TRUE(sawChange(changed, "sub/b.txt"));
  // A folder made after the watch began is watched in turn.
  fs::create_directories(docs / "new");
  EXPECT_TRUE(sawChange(added, "new"));
  writeFile(docs / "new/deep.txt", "x");
  EXPECT_TRUE(sawChange(added, "new/deep.txt"));
  fs::remove_all(docs / "new");
  EXPECT_TRUE(sawChange(removed, "new/deep.txt"));

  // The tree nests what the scan found, and a folder's size is its items'.
  writeFile(docs / "sub/c.txt", "12345");
  EXPECT_TRUE(sawChange(added, "sub/c.txt"));
  const auto tree = query.tree();
  ASSERT_EQ(tree.size(), 1u);
  EXPECT_EQ(tree[0]._identifier, "sub");
  ASSERT_EQ(tree[0]._childrens.size(), 2u);
  EXPECT_EQ(ICloudDriveUtil::getItemSize(tree[0]), 10u + 5u);

  query.stopWatching();
  const auto count = seen.size();
  writeFile(docs / "after.txt", "x");
  MainQueue::shared().runUntil([] { return false; }, 200ms);
  EXPECT_EQ(seen.size(), count) << "no report after the watch stopped";
}

TEST_F(CloudTest, MetadataQueryFollowsADownloadWithoutPolling) {
  const fs::path item = docs / "movie.bin";
  writeFile(docs / ".movie.bin.cloud", "100");
  std::mutex m;
  std::vector<std::optional<CloudItem>> answers;
  MetadataQuery query(provider, item.string());
  auto record = [&](const std::optional<CloudItem>& i) {
    std::lock_guard lock(m);
    answers.push_back(i);
  };
  query.startQuery(record, record);
  auto answered = [&](auto test) {
    return pumpUntil([&] {
      std::lock_guard lock(m);
      return !answers.empty() && test(answers.back());
    });
  };
  ASSERT_TRUE(answered([](const auto& i) { return i && !i->downloaded; }));
  // The sync client's part file growing moves the percentage.
  writeFile(docs / ".movie.bin.cloud-part", std::string(40, 'x'));
  EXPECT_TRUE(answered([](const auto& i) { return i && i->percentDownloaded > 0; }));
  writeFile(docs / "movie.bin", std::string(100, 'x'));
  fs::remove(docs / ".movie.bin.cloud-part");
  fs::remove(docs / ".movie.bin.cloud");
  EXPECT_TRUE(answered([](const auto& i) { return i && i->downloaded; }));
  fs::remove(item);
  EXPECT_TRUE(answered([](const auto& i) { return !i.has_value(); }));
  EXPECT_EQ(query.resultCount(), 0u);

  // Nothing is looked at once stopped.
  query.stopQuery();
  std::size_t count;
  {
    std::lock_guard lock(m);
    count = answers.size();
  }
  writeFile(item, "back");
  MainQueue::shared().runUntil([] { return false; }, 200ms);
  std::lock_guard lock(m);
  EXPECT_EQ(answers.size(), count);
}

// One process holds a write; another waits for it, and gets it at once when
// the holder is killed.
TEST_F(CloudTest, TwoProcessesCoordinateAndADeadHolderReleases) {
  const std::string item = (docs / "shared.txt").string();
  const fs::path held = home() / "held", released = home() / "released";
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Error e;
    FileCoordinator::coordinateWriting(
        item, FileCoordinator::kForReplacing,
        [&](const std::string&) {
          writeFile(held, "");
          usleep(400 * 1000);
          writeFile(released, "");
        },
        &e);
    _exit(0);
  }
  while (!fs::exists(held)) std::this_thread::sleep_for(2ms);
  bool sawRelease = false;
  Error e;
  // A read of the folder above conflicts too: the writer holds its ancestors shared
  // and the item exclusive, and this takes the item shared.
  ASSERT_TRUE(FileCoordinator::coordinateReading(
      item, FileCoordinator::kNone, (docs / "other.txt").string(), FileCoordinator::kNone,
      [&](const std::string&, const std::string&) { sawRelease = fs::exists(released); }, &e));
  EXPECT_TRUE(sawRelease);
  int status = 0;
  waitpid(child, &status, 0);

  fs::remove(held);
  child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Error e2;
    FileCoordinator::coordinateWriting(
        item, FileCoordinator::kNone,
        [&](const std::string&) {
          writeFile(held, "");
          pause();
        },
        &e2);
    _exit(0);
  }
  while (!fs::exists(held)) std::this_thread::sleep_for(2ms);
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  bool ran = false;
  EXPECT_TRUE(FileCoordinator::coordinateWriting(
      item, FileCoordinator::kNone, [&](const std::string&) { ran = true; }, &e));
  EXPECT_TRUE(ran);
  // Locks live outside the synced folder.
  EXPECT_EQ(FileCoordinator::lockFileFor(item).rfind((runtime / "harbor/cloud-locks").string(), 0),
            0u);
  EXPECT_TRUE(hiddenEntries(docs).empty());
}

}  // namespace
}  // namespace harbor::test

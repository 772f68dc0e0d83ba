#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <mutex>
#include <random>

#include "ProgressRecorder.h"
#include "filemanager/FilePropertyCopyFile.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;
constexpr std::size_t kBlock = FilePropertyCopyFile::kBlockSize;

std::string noise(std::size_t size, unsigned salt = 7) {
  std::mt19937 engine(salt);
  std::string s(size, '\0');
  for (auto& c : s) c = static_cast<char>(engine());
  return s;
}

using test::RecordingProgress;

// Runs `hook` once, on the first progress report of a copy; reports may
// come from several copies at once.
class OnFirstProgress : public ActionProgressCounter {
 public:
  explicit OnFirstProgress(std::function<void()> hook) : hook_(std::move(hook)) {}
  using ActionProgressCounter::progressFinished;
  void progressFinished(std::uint64_t units) override {
    ActionProgressCounter::progressFinished(units);
    std::call_once(once_, hook_);
  }

 private:
  std::function<void()> hook_;
  std::once_flag once_;
};

// Files may not grow past `bytes` while it lives: a disk that fills up.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &saved_);
    oldHandler_ = ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{bytes, saved_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &saved_);
    ::signal(SIGXFSZ, oldHandler_);
  }

 private:
  rlimit saved_{};
  sighandler_t oldHandler_;
};

class Copying : public test::TempHome {
 protected:
  void SetUp() override {
    test::TempHome::SetUp();
    src = root() / "src";
    dst = root() / "dst";
    fs::create_directories(src);
    fs::create_directories(dst);
  }
  bool stagingLeft() const {
    std::error_code ec;
    return !fs::is_empty(FileUtil::tempBundleIdDirectory(), ec);
  }
  std::vector<std::string> names(const fs::path& dir) const {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  }
  fs::path src, dst;
};

TEST_F(Copying, OneFileInBlocks) {
  writeFile(src / "empty", "");
  EXPECT_TRUE(FilePropertyCopyFile::execute((src / "empty").string(), (dst / "empty").string(),
                                            true, false, nullptr));
  EXPECT_TRUE(fs::exists(dst / "empty"));
  EXPECT_EQ(fs::file_size(dst / "empty"), 0u);

  const std::string many = noise(3 * kBlock + 17, 3);
  writeFile(src / "many", many);
  writeFile(dst / "many", noise(5 * kBlock));  // a longer old target is replaced whole
  RecordingProgress progress;
  ASSERT_TRUE(FilePropertyCopyFile::execute((src / "many").string(), (dst / "many").string(), true,
                                            false, &progress));
  EXPECT_EQ(readFile(dst / "many"), many);
  EXPECT_EQ(progress.currentSize(), many.size());
  EXPECT_GE(progress.blocks.size(), 4u);
  for (auto units : progress.blocks) EXPECT_LE(units, kBlock);

  // Copying a file onto itself must not empty it.
  Error error;
  EXPECT_FALSE(FilePropertyCopyFile::execute((src / "many").string(), (src / "many").string(), true,
                                             false, nullptr, &error));
  EXPECT_EQ(readFile(src / "many"), many);
  EXPECT_FALSE(FilePropertyCopyFile::execute((src / "missing").string(), (dst / "missing").string(),
                                             true, false, nullptr, &error));
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_FALSE(fs::exists(dst / "missing"));
}

TEST_F(Copying, CancellationStopsBetweenBlocksAndRemovesThePart) {
  writeFile(src / "big", noise(4 * kBlock));
  RecordingProgress progress;
  FilePropertyCopyFile cancelled((src / "big").string(), (dst / "big").string(), true, false,
                                 &progress);
  progress.onBlock = [&] { cancelled.cancel(); };
  EXPECT_FALSE(cancelled.execute());
  EXPECT_EQ(progress.blocks.size(), 1u);
  ASSERT_TRUE(cancelled.error());
  EXPECT_EQ(cancelled.error()->code, ECANCELED);
  EXPECT_FALSE(fs::exists(dst / "big"));
}

TEST_F(Copying, ASelectionLandsUnderFreeNames) {
  writeFile(src / "data/a.txt", "a");
  writeFile(src / "data/deep/er/b.txt", "b");
  fs::create_directories(src / "data/empty");
  fs::create_symlink("a.txt", src / "data/link");
  writeFile(src / "notes.txt", "n");
  writeFile(src / "other/notes.txt", "other");
  writeFile(src / "other/data/c.txt", "c");
  writeFile(dst / "notes.txt", "old");
  fs::create_directories(dst / "data");

  // Items of the same name, from different folders, all get a place.
  FilePropertyCopyURLS copy({(src / "data").string(), (src / "notes.txt").string(),
                             (src / "other/notes.txt").string(), (src / "other/data").string()},
                            dst.string(), nullptr);
  ASSERT_TRUE(copy.execute()) << copy.error()->message;
  EXPECT_EQ(copy.copiedPaths(),
            (std::vector<std::string>{(dst / "data 2").string(), (dst / "notes 2.txt").string(),
                                      (dst / "notes 3.txt").string(), (dst / "data 3").string()}));
  EXPECT_EQ(readFile(dst / "notes.txt"), "old");
  EXPECT_EQ(readFile(dst / "notes 3.txt"), "other");
  EXPECT_EQ(readFile(dst / "data 2/deep/er/b.txt"), "b");
  EXPECT_EQ(names(dst / "data 3"), std::vector<std::string>{"c.txt"});
  EXPECT_TRUE(fs::is_directory(dst / "data 2/empty"));
  EXPECT_EQ(fs::read_symlink(dst / "data 2/link"), "a.txt");
  EXPECT_FALSE(stagingLeft());
}

TEST_F(Copying, AFolderCopiedIntoItselfHoldsWhatItHeldBefore) {
  writeFile(src / "a.txt", "a");
  fs::create_directories(src / "inner");
  ASSERT_TRUE(
      FilePropertyCopyURLS::executeWithFileURL(src.string(), (src / "inner").string(), nullptr));
  EXPECT_EQ(names(src / "inner/src"), (std::vector<std::string>{"a.txt", "inner"}));
  EXPECT_TRUE(fs::is_empty(src / "inner/src/inner"));
}

TEST_F(Copying, CancelledCopyLeavesTheDestinationUntouched) {
  for (int i = 0; i < 4; ++i)
    writeFile(src / "tree" / ("f" + std::to_string(i)), noise(5 * kBlock));
  OnFirstProgress cancelSoon([] {
    NotificationCenter::defaultCenter().post(notifications::FilePropertyCancelNotification);
  });
  Error error;
  EXPECT_FALSE(FilePropertyCopyURLS::executeWithURLs({(src / "tree").string()}, dst.string(),
                                                     &cancelSoon, &error));
  EXPECT_EQ(error.code, ECANCELED);
  EXPECT_TRUE(fs::is_empty(dst));
  EXPECT_FALSE(stagingLeft());
}

TEST_F(Copying, AFullDiskIsReportedAndThePartialFileRemoved) {
  writeFile(src / "big", noise(1024 * 1024));
  writeFile(src / "folder/big", noise(1024 * 1024));
  Error single, staged;
  bool singleOk = true, stagedOk = true;
  {
    FileSizeLimit limit(300000);
    singleOk = FilePropertyCopyFile::execute((src / "big").string(), (dst / "big").string(), true,
                                             false, nullptr, &single);
    stagedOk = FilePropertyCopyURLS::executeWithURLs({(src / "folder").string()}, dst.string(),
                                                     nullptr, &staged);
  }
  EXPECT_FALSE(singleOk);
  EXPECT_EQ(single.code, EFBIG);
  EXPECT_FALSE(stagedOk);
  EXPECT_EQ(staged.code, EFBIG);
  EXPECT_TRUE(fs::is_empty(dst));
  EXPECT_FALSE(stagingLeft());
}

TEST_F(Copying, ASourceThatShrinksOrVanishesFailsCleanly) {
  const fs::path shrinking = src / "shrinking";
  writeFile(shrinking, noise(3 * 1024 * 1024));
  OnFirstProgress truncate([&] { fs::resize_file(shrinking, 100); });
  Error error;
  EXPECT_FALSE(FilePropertyCopyFile::execute(shrinking.string(), (dst / "s").string(), true, false,
                                             &truncate, &error));
  EXPECT_EQ(error.code, EIO);
  EXPECT_FALSE(fs::exists(dst / "s"));

  EXPECT_FALSE(FilePropertyCopyURLS::executeWithURLs({(src / "gone").string(), shrinking.string()},
                                                     dst.string(), nullptr, &error));
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_TRUE(fs::is_empty(dst));
  EXPECT_FALSE(stagingLeft());
}

}  // namespace
}  // namespace harbor

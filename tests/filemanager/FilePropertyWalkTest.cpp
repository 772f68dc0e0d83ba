#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "filemanager/FileManagerUtil.h"
#include "filemanager/FilePropertyTotalFiles.h"
#include "filemanager/FilePropertyTotalSize.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::writeFile;
using Paths = std::vector<std::string>;

Paths sorted(Paths p) {
  std::sort(p.begin(), p.end());
  return p;
}

class TreeWalk : public test::TempHome {
 protected:
  // top/ a.txt(3) .git/{x(5), deep/y(7)} sub/{b.bin(11), .hidden(13), sub2/c(17)}
  void SetUp() override {
    test::TempHome::SetUp();
    top = (root() / "top").string();
    writeFile(top + "/a.txt", "123");
    writeFile(top + "/.git/x", std::string(5, 'x'));
    writeFile(top + "/.git/deep/y", std::string(7, 'y'));
    writeFile(top + "/sub/b.bin", std::string(11, 'b'));
    writeFile(top + "/sub/.hidden", std::string(13, 'h'));
    writeFile(top + "/sub/sub2/c", std::string(17, 'c'));
  }
  std::string top;
};

TEST_F(TreeWalk, SizesAndCountsOfASelection) {
  auto one = FilePropertyFileNumAndSize::instanceWithFileURL(top);
  EXPECT_EQ(one->execute(), 56u);
  EXPECT_EQ(one->fileNumber(), 6u);
  // The folder itself, .git, .git/deep, sub, sub/sub2.
  EXPECT_EQ(one->folderNumber(), 5u);
  // The same folder given as a list of one does not count itself.
  auto list = FilePropertyFileNumAndSize::instanceWithURLs({"file://" + top});
  EXPECT_EQ(list->execute(), 56u);
  EXPECT_EQ(list->folderNumber(), 4u);

  EXPECT_EQ(FilePropertyTotalSize::filesizeWithURLs({top + "/sub", top + "/.git"}), 41u + 12u);
  EXPECT_EQ(FilePropertyTotalSize::filesizeWithURL(top + "/a.txt"), 3u);

  FilePropertyTotalSize hidden({top});
  hidden.setPropertyOptions({true, ""});
  EXPECT_EQ(hidden.execute(), 3u + 11u + 17u);
}

TEST_F(TreeWalk, SystemDirectoryIsSkippedAtTheTopOnly) {
  writeFile(top + "/sub/Inbox/z", "zz");
  writeFile(top + "/Inbox/w", "www");
  auto walk = FilePropertyTotalSize::instanceWithFileURL(top);
  walk->setSytemDirectory(top + "/Inbox/");
  EXPECT_EQ(walk->execute(), 56u + 2u);
  walk = FilePropertyTotalSize::instanceWithFileURL(top);
  walk->setSytemDirectory(top + "/sub/Inbox");
  EXPECT_EQ(walk->execute(), 56u + 2u + 3u);
}

TEST_F(TreeWalk, LinksAreFollowedAtTheTopOnlyAndNeverLoop) {
  fs::create_directory_symlink(top + "/sub", root() / "sublink");
  fs::create_directory_symlink(top, top + "/sub/up");  // a loop below the top
  fs::create_symlink(root() / "nowhere", root() / "dangling");
  fs::create_symlink(root() / "l2", root() / "l1");
  fs::create_symlink(root() / "l1", root() / "l2");
  const auto upSize = FileUtil::getFileSize(top + "/sub/up");

  // A folder reached twice, once through a link, counts twice.
  EXPECT_EQ(FilePropertyTotalSize::filesizeWithURLs({top + "/sub", (root() / "sublink").string()}),
            2 * (41u + upSize));
  auto odd = FilePropertyFileNumAndSize::instanceWithURLs(
      {(root() / "dangling").string(), (root() / "l1").string()});
  EXPECT_EQ(odd->execute(), 0u);
  EXPECT_EQ(odd->fileNumber(), 2u);

  Paths all = FilePropertyTotalFiles::filesizeWithURL(top);
  EXPECT_EQ(all.size(), 12u);  // itself, 6 files, 4 folders and the link
  EXPECT_EQ(all.front(), top);
  EXPECT_EQ(std::count(all.begin(), all.end(), top + "/sub/up"), 1);
}

TEST_F(TreeWalk, ALinkStandingInTheSelectedFolderIsNotFollowed) {
  fs::create_directory_symlink(top + "/sub", top + "/direct");
  const auto linkSize = FileUtil::getFileSize(top + "/direct");
  auto expectLinkAlone = [&](FilePropertyFileNumAndSize& walk) {
    EXPECT_EQ(walk.execute(), 56u + linkSize);
    EXPECT_EQ(walk.fileNumber(), 7u);
  };
  expectLinkAlone(*FilePropertyFileNumAndSize::instanceWithFileURL(top));
  expectLinkAlone(*FilePropertyFileNumAndSize::instanceWithURLs({top}));
  // Named one level up, the same link counts the same.
  EXPECT_EQ(FilePropertyTotalSize::filesizeWithURLs({top, top + "/a.txt"}), 56u + linkSize + 3u);
}

TEST_F(TreeWalk, AllPathsListParentsBeforeTheirContents) {
  EXPECT_EQ(sorted(FilePropertyTotalFiles::filesizeWithURLs({top + "/a.txt", top + "/sub/sub2"})),
            sorted({top + "/a.txt", top + "/sub/sub2", top + "/sub/sub2/c"}));
  for (int i = 0; i < 20; ++i) writeFile(top + "/sub/sub2/n" + std::to_string(i) + "/f", "");
  Paths all = FilePropertyTotalFiles::filesizeWithURL(top);
  auto position = [&](const std::string& p) {
    return std::find(all.begin(), all.end(), p) - all.begin();
  };
  for (const auto& p : all) {
    if (p == top) continue;
    EXPECT_LT(position(FileUtil::getFileDirectory(p)), position(p)) << p;
  }
}

TEST_F(TreeWalk, SearchByNamePartIgnoringCase) {
  const std::string alpha = (root() / "Alpha").string();
  writeFile(alpha + "/data.txt", "");
  writeFile(alpha + "/Beta/ALPACA.md", "");
  writeFile(alpha + "/Straße/x", "");
  // The root of the search is never a hit itself.
  EXPECT_EQ(
      sorted(FilePropertySearchFiles::searchWithURL(alpha, "A")),
      sorted({alpha + "/data.txt", alpha + "/Beta", alpha + "/Beta/ALPACA.md", alpha + "/Straße"}));
  EXPECT_EQ(FilePropertySearchFiles::searchWithURL(alpha, "STRASSE"), Paths{alpha + "/Straße"});
  EXPECT_TRUE(FilePropertySearchFiles::searchWithURL(alpha, "").empty());
  // Names that are not UTF-8 are searched without trouble.
  writeFile(alpha +
                "/bad\xff\xfe"
                "data",
            "");
  EXPECT_EQ(FilePropertySearchFiles::searchWithURL(alpha, "data").size(), 2u);
}

TEST_F(TreeWalk, ALockedFolderMayMatchButIsNotSearched) {
  const std::string docs = (root() / "docs").string();
  writeFile(docs + "/secret/secret-plan.txt", "");
  writeFile(docs + "/open/secret-note.txt", "");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs + "/secret", "pw"));
  EXPECT_EQ(sorted(FilePropertySearchFiles::searchWithURL(docs, "secret")),
            sorted({docs + "/secret", docs + "/open/secret-note.txt"}));
}

TEST_F(TreeWalk, SearchStopsSoonAfterAThousandHits) {
  const std::string many = (root() / "many").string();
  for (int d = 0; d < 40; ++d) {
    for (int f = 0; f < 50; ++f) {
      writeFile(many + "/d" + std::to_string(d) + "/hit" + std::to_string(f), "");
    }
  }
  FilePropertySearchFiles search({many}, "hit");
  Paths hits = search.execute();
  EXPECT_GE(hits.size(), 1001u);
  EXPECT_LT(hits.size(), 2000u);
  EXPECT_TRUE(search.isTruncated());
  FilePropertySearchFiles few({many}, "hit49");
  EXPECT_EQ(few.execute().size(), 40u);
  EXPECT_FALSE(few.isTruncated());
}

TEST_F(TreeWalk, CancellationReachesEveryLiveWalker) {
  FilePropertyTotalSize size({top});
  FilePropertyTotalFiles files({top});
  FilePropertyTotalSize other({top});
  NotificationCenter::defaultCenter().post(notifications::FilePropertyCancelNotification);
  EXPECT_EQ(size.execute(), 0u);
  EXPECT_EQ(size.operationCount(), 0u);
  EXPECT_TRUE(other.isCancelled());
  EXPECT_TRUE(files.isCancelled());
  EXPECT_EQ(files.execute(), Paths{top});

  // The size walkers have a broadcast of their own.
  FilePropertyTotalFiles untouched({top});
  FilePropertyTotalSize sized({top});
  NotificationCenter::defaultCenter().post(notifications::FilePropertyTotalSizeCancelNotification);
  EXPECT_TRUE(sized.isCancelled());
  EXPECT_FALSE(untouched.isCancelled());

  // A walker whose own thread is cancelled stops as well.
  std::uint64_t total = 1;
  std::thread([&] {
    CancellationToken token;
    token.cancel();
    CurrentCancellationScope scope(token);
    total = FilePropertyTotalSize::filesizeWithURL(top);
  }).join();
  EXPECT_EQ(total, 0u);
}

TEST_F(TreeWalk, UnreadableFoldersAddNothing) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not stop root";
  fs::permissions(top + "/sub", fs::perms::none);
  auto walk = FilePropertyFileNumAndSize::instanceWithFileURL(top);
  EXPECT_EQ(walk->execute(), 3u + 12u);
  fs::permissions(top + "/sub", fs::perms::owner_all);
}

}  // namespace
}  // namespace harbor

#include <gtest/gtest.h>

#include "archive/ArchiveBase.h"
#include "archive/ProgressStep.h"
#include "archive/ZipBase.h"
#include "archive/ZipEntry.h"

namespace harbor {
namespace {

ZipEntry::Ptr leaf(const std::string& path, std::uint64_t size = 10) {
  return std::make_shared<ZipEntry>(path, FilePos{}, 0, size / 2, size, 8, std::nullopt,
                                    std::nullopt);
}

TEST(ZipEntryTree, ImpliedFoldersAndCounts) {
  auto root = ZipEntry::rootEntry();
  root->addToRootEntry(leaf("a/b/one.txt", 10));
  root->addToRootEntry(leaf("a/b/two.txt", 20));
  root->addToRootEntry(leaf("a/b/three.txt", 30));
  auto a = root->findPath("a");
  ASSERT_TRUE(a);
  EXPECT_FALSE(a->isLeaf());
  EXPECT_EQ(a->path(), "a/");
  auto b = root->findPath("a/b/");
  ASSERT_TRUE(b);
  EXPECT_EQ(b->path(), "a/b/");
  EXPECT_EQ(b->children().size(), 3u);
  // The folder counts all entries below it: b and its three files.
  EXPECT_EQ(a->totalNumber(), 4);
  EXPECT_EQ(root->totalSize(), 60u);
  EXPECT_EQ(root->compressTotalSize(), 30u);
  EXPECT_EQ(b->findPath("two.txt")->size(), 20u);
}

TEST(ZipEntryTree, LateDirectoryEntryFillsImpliedFolder) {
  auto root = ZipEntry::rootEntry();
  root->addToRootEntry(leaf("dir/file.txt"));
  const auto when = std::chrono::system_clock::from_time_t(1700000000);
  root->addToRootEntry(
      std::make_shared<ZipEntry>("dir/", FilePos{}, 0, 0, 0, 0, std::nullopt, when));
  ASSERT_EQ(root->children().size(), 1u);
  EXPECT_EQ(root->children()[0]->date(), when);
  EXPECT_EQ(root->totalNumber(), 2);
}

TEST(ZipEntryTree, LeafRefusesChildrenAndClearEmpties) {
  auto root = ZipEntry::rootEntry();
  auto f = leaf("f.txt");
  root->addToRootEntry(f);
  EXPECT_FALSE(f->addChildEntry(leaf("x")));
  root->clear();
  EXPECT_TRUE(root->children().empty());
  EXPECT_EQ(root->totalSize(), 0u);
}

TEST(ArchiveProgress, StepsLetGatheredBytesThroughPastTheStep) {
  ProgressStep step(10);
  EXPECT_FALSE(step.add(4));
  EXPECT_FALSE(step.add(6));  // reaching the step is not passing it
  EXPECT_EQ(step.add(1), 11u);
  EXPECT_FALSE(step.add(3));
  EXPECT_EQ(step.pending(), 3u);
  step.reset();
  EXPECT_EQ(step.add(25), 25u);
}

TEST(ArchiveBaseNames, IgnoredNames) {
  EXPECT_TRUE(ArchiveBase::isIgnore("__MACOSX/a/._x"));
  EXPECT_TRUE(ArchiveBase::isIgnore("a/.DS_Store"));
  EXPECT_TRUE(ArchiveBase::isIgnore("Thumbs.db"));
  EXPECT_FALSE(ArchiveBase::isIgnore("a/Thumbs.db.txt"));
  EXPECT_FALSE(ArchiveBase::isIgnore("MACOSX/a"));
}

TEST(ArchiveUtilsPaths, RelativeToBase) {
  EXPECT_EQ(ArchiveUtils::getTempRelative("/a/b", "/a/b/c/d.txt"), "c/d.txt");
  EXPECT_EQ(ArchiveUtils::getTempRelative("/a/b/", "/a/b/c"), "c");
  EXPECT_EQ(ArchiveUtils::getTempRelative("", "/x/y"), "/x/y");
  // A sibling with a common prefix is not inside the base.
  EXPECT_EQ(ArchiveUtils::getTempRelative("/a/b", "/a/bc/d"), "/a/bc/d");
}

TEST(ArchiveBaseDates, IntervalsAndEpochs) {
  EXPECT_EQ(std::chrono::system_clock::to_time_t(ArchiveBase::dateFor1970()), 0);
  std::tm tm{};
  std::time_t t = std::chrono::system_clock::to_time_t(ArchiveBase::dateFor1980());
  localtime_r(&t, &tm);
  EXPECT_EQ(tm.tm_year, 80);
  EXPECT_EQ(tm.tm_mday, 1);
  EXPECT_EQ(tm.tm_hour, 0);

  // Any claimed number of seconds: a date when the clock can hold it, else none.
  const auto epoch = ArchiveBase::dateFor1970();
  EXPECT_EQ(std::chrono::system_clock::to_time_t(*ArchiveBase::dateAfter(epoch, 1700000000)),
            1700000000);
  EXPECT_EQ(std::chrono::system_clock::to_time_t(*ArchiveBase::dateAfter(epoch, -86400)), -86400);
  EXPECT_FALSE(ArchiveBase::dateAfter(epoch, 14362818247));  // a 12-digit octal tar time
  EXPECT_FALSE(ArchiveBase::dateAfter(ArchiveBase::dateFor1980(), INT64_MAX));
  EXPECT_FALSE(ArchiveBase::dateAfter(epoch, INT64_MIN));
}

}  // namespace
}  // namespace harbor

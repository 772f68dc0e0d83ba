#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "ProgressRecorder.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::ScratchDir;
using test::writeFile;

constexpr std::size_t kBlock = 1 << 20;

// Bytes that differ from block to block, so a misplaced block shows.
std::string pattern(std::size_t size) {
  std::string s(size, '\0');
  for (std::size_t i = 0; i < size; ++i) s[i] = static_cast<char>((i * 131 + i / 4099) & 0xff);
  return s;
}

using test::RecordingProgress;

TEST(FileUtilCopy, OverwriteReplacesAndKeepAppends) {
  ScratchDir dir;
  writeFile(dir / "src", "new");
  writeFile(dir / "des", "old content");
  const std::string src = (dir / "src").string(), des = (dir / "des").string();

  EXPECT_TRUE(FileUtil::copyFile(src, des, true, false, nullptr));
  EXPECT_EQ(readFile(des), "new");
  // Without overwrite the target grows, whatever isAppend says.
  EXPECT_TRUE(FileUtil::copyFile(src, des, false, false, nullptr));
  EXPECT_EQ(readFile(des), "newnew");
  EXPECT_TRUE(FileUtil::copyFile(src, des, false, true, nullptr));
  EXPECT_EQ(readFile(des), "newnewnew");
  // Appending a file to itself doubles it once instead of running forever.
  EXPECT_TRUE(FileUtil::copyFile(src, src, false, true, nullptr));
  EXPECT_EQ(readFile(src), "newnew");

  EXPECT_FALSE(
      FileUtil::copyFile((dir / "missing").string(), (dir / "t").string(), true, false, nullptr));
  EXPECT_FALSE(fs::exists(dir / "t"));
}

TEST(FileUtilCopy, LargeFileIsExactAndReportedPerBlock) {
  ScratchDir dir;
  const std::string data = pattern(3 * kBlock + 17);
  writeFile(dir / "big", data);
  RecordingProgress progress;
  ASSERT_TRUE(
      FileUtil::copyFile((dir / "big").string(), (dir / "copy").string(), true, false, &progress));
  EXPECT_TRUE(readFile(dir / "copy") == data);
  EXPECT_EQ(progress.currentSize(), data.size());
  ASSERT_EQ(progress.blocks.size(), 4u);
  for (auto units : progress.blocks) EXPECT_LE(units, kBlock);
}

TEST(FileUtilCopy, CancellationStopsAfterTheCurrentBlock) {
  ScratchDir dir;
  writeFile(dir / "big", pattern(3 * kBlock));
  CancellationToken token;
  CurrentCancellationScope scope(token);
  RecordingProgress progress;
  progress.onBlock = [&] { token.cancel(); };
  EXPECT_FALSE(
      FileUtil::copyFile((dir / "big").string(), (dir / "copy").string(), true, false, &progress));
  EXPECT_EQ(progress.blocks.size(), 1u);
  EXPECT_EQ(fs::file_size(dir / "copy"), progress.currentSize());

  // A cancelled folder copy stops between items.
  fs::create_directories(dir / "tree");
  for (char c : std::string("abcdef")) writeFile(dir / "tree" / std::string(1, c), "x");
  EXPECT_FALSE(FileUtil::copyItem((dir / "tree").string(), (dir / "tree2").string(), nullptr));
  EXPECT_TRUE(fs::is_empty(dir / "tree2"));
}

TEST(FileUtilCopy, FolderTreeWithLinks) {
  ScratchDir dir;
  writeFile(dir / "src/top.txt", "top");
  writeFile(dir / "src/sub/deeper/leaf.txt", "leaf");
  fs::create_directories(dir / "src/empty");
  fs::create_symlink("sub/deeper/leaf.txt", dir / "src/link.txt");
  fs::create_directory_symlink("sub", dir / "src/dirlink");
  fs::create_symlink("gone", dir / "src/dangling");

  ActionProgressCounter progress;
  const std::string des = (dir / "des").string();
  EXPECT_TRUE(FileUtil::copyItem((dir / "src").string(), des, &progress));
  EXPECT_EQ(readFile(dir / "des/top.txt"), "top");
  EXPECT_EQ(readFile(dir / "des/sub/deeper/leaf.txt"), "leaf");
  EXPECT_TRUE(fs::is_directory(dir / "des/empty"));
  // The link arrives as a plain file with its target's content.
  EXPECT_FALSE(fs::is_symlink(dir / "des/link.txt"));
  EXPECT_EQ(readFile(dir / "des/link.txt"), "leaf");
  EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "des/dirlink")));
  EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "des/dangling")));
  EXPECT_EQ(progress.currentSize(), 3u + 4u + 4u);

  // A copy into the source's own tree does not chase itself.
  EXPECT_TRUE(
      FileUtil::copyItem((dir / "src/sub").string(), (dir / "src/sub/again").string(), nullptr));
  EXPECT_EQ(readFile(dir / "src/sub/again/deeper/leaf.txt"), "leaf");
  EXPECT_FALSE(fs::exists(dir / "src/sub/again/again"));

  EXPECT_FALSE(FileUtil::copyItem((dir / "none").string(), des, nullptr));
}

TEST(FileUtilSizes, LinksAreMeasuredByThemselves) {
  ScratchDir dir;
  writeFile(dir / "f/a.bin", std::string(1000, 'a'));
  writeFile(dir / "f/sub/b.bin", std::string(24, 'b'));
  const std::string target = "sub/b.bin";
  fs::create_symlink(target, dir / "f/link");

  EXPECT_EQ(FileUtil::getFileSize((dir / "f/link").string()), target.size());
  EXPECT_EQ(FileUtil::getFileSize((dir / "missing").string()), 0u);
  std::uint64_t items = 0;
  EXPECT_EQ(FileUtil::folderSize((dir / "f").string(), items), 1000u + 24u + target.size());
  EXPECT_EQ(items, 4u);  // a.bin, sub, sub/b.bin, link
  EXPECT_EQ(FileUtil::getFileSizeFiles({(dir / "f/a.bin").string(), (dir / "f/sub").string()}),
            1024u);
}

TEST(FileUtilFiles, ChangesAndKinds) {
  ScratchDir dir;
  const std::string file = (dir / "made").string();
  ASSERT_TRUE(FileUtil::createFile(file));
  EXPECT_TRUE(FileUtil::appendDataToFile(file, "abc"));
  EXPECT_TRUE(FileUtil::emptyFile(file));
  EXPECT_EQ(fs::file_size(file), 0u);
  EXPECT_FALSE(FileUtil::emptyFile((dir / "nothing").string()));

  EXPECT_TRUE(FileUtil::createFolder((dir / "a/b/c").string()));
  EXPECT_TRUE(FileUtil::createFolder((dir / "a/b/c").string()));
  EXPECT_FALSE(FileUtil::createFolder(file));

  std::string raw, full;
  ASSERT_TRUE(FileUtil::createAliasPath((dir / "a/link").string(), "b/c"));
  EXPECT_TRUE(FileUtil::isSybolicLinkPath((dir / "a/link").string(), &raw));
  EXPECT_EQ(raw, "b/c");
  EXPECT_TRUE(FileUtil::fileIsAlias((dir / "a/link").string(), &full));
  EXPECT_EQ(full, (dir / "a/b/c").string());
  EXPECT_TRUE(FileUtil::isDirectoryFilePath((dir / "a/link").string()));
  EXPECT_FALSE(FileUtil::isDirectoryFileType((dir / "a/link").string()));
  EXPECT_TRUE(FileUtil::isDirectoryFileURL("file://" + (dir / "a/b").string()));
  EXPECT_EQ(FileUtil::resolvingAlias((dir / "a/link").string()), (dir / "a/b/c").string());
  EXPECT_EQ(FileUtil::resolvingAlias(file), file);
  Error error;
  EXPECT_FALSE(FileUtil::createAliasPath((dir / "a/link").string(), "x", &error));
  EXPECT_NE(error.code, 0);

  EXPECT_TRUE(FileUtil::deleteFile((dir / "a").string()));
  EXPECT_FALSE(fs::exists(dir / "a"));
  EXPECT_TRUE(FileUtil::deleteFile((dir / "a").string()));
}

}  // namespace
}  // namespace harbor

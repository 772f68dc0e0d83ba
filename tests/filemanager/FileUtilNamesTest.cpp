#include <gtest/gtest.h>

#include <filesystem>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::ScratchDir;
using test::writeFile;

TEST(FileUtilFreeNames, FileNamesCountUpFromTwo) {
  ScratchDir dir;
  const std::string folder = dir.path().string();
  EXPECT_EQ(FileUtil::getCreateFileName(folder, "a", "txt"), folder + "/a.txt");
  writeFile(dir / "a.txt", "1");
  std::string second = FileUtil::getCreateFileName(folder, "a", "txt");
  EXPECT_EQ(second, folder + "/a 2.txt");
  writeFile(second, "2");
  EXPECT_EQ(FileUtil::getCreateFileName(folder, "a", "txt"), folder + "/a 3.txt");

  // The number goes before the inner extension of a double extension.
  writeFile(dir / "report.tar.gz", "");
  EXPECT_EQ(FileUtil::getCreateFileName(folder, "report.tar", "gz"), folder + "/report 2.tar.gz");

  // Without an extension the whole name is the stem, dots and all.
  writeFile(dir / "README", "");
  writeFile(dir / "archive.tar", "");
  EXPECT_EQ(FileUtil::getCreateFileName(folder, "README", ""), folder + "/README 2");
  EXPECT_EQ(FileUtil::getCreateFileName(folder, "archive.tar", ""), folder + "/archive.tar 2");

  // A dangling link still takes its name.
  fs::create_symlink("nowhere", dir / "ghost.txt");
  EXPECT_EQ(FileUtil::getCreateFileName(folder + "/", "ghost", "txt"), folder + "/ghost 2.txt");
}

TEST(FileUtilFreeNames, FolderNamesAndTheMixedRule) {
  ScratchDir dir;
  const std::string folder = dir.path().string();
  fs::create_directory(dir / "data");
  fs::create_directory(dir / "my.folder");
  EXPECT_EQ(FileUtil::getCreateFolderName(folder, "data"), folder + "/data 2");
  EXPECT_EQ(FileUtil::getCreateFolderName(folder, "my.folder"), folder + "/my 2.folder");
  EXPECT_EQ(FileUtil::getCreateFolderName(folder, "fresh"), folder + "/fresh");

  writeFile(dir / "report.tar.gz", "");
  EXPECT_EQ(FileUtil::getCreateName(folder, "free.txt"), folder + "/free.txt");
  EXPECT_EQ(FileUtil::getCreateName(folder, "my.folder"), folder + "/my 2.folder");
  EXPECT_EQ(FileUtil::getCreateName(folder, "report.tar.gz"), folder + "/report 2.tar.gz");
}

TEST(FileUtilNames, ComponentsAndExtensions) {
  EXPECT_EQ(FileUtil::getFileName("a\\b.txt"), "b.txt");
  EXPECT_EQ(FileUtil::getFileName("/x/y/"), "y");
  EXPECT_EQ(FileUtil::getFileName("/"), "/");
  EXPECT_EQ(FileUtil::getFileName(""), "");
  EXPECT_EQ(FileUtil::getFileDirectory("a\\b.txt"), "a");
  EXPECT_EQ(FileUtil::getFileDirectory("/a"), "/");
  EXPECT_EQ(FileUtil::getFileDirectory("b.txt"), "");

  EXPECT_EQ(FileUtil::getFileExtension("/x.y/archive.tar.gz"), "gz");
  EXPECT_EQ(FileUtil::getFileExtension("/x.y/README"), "");
  EXPECT_EQ(FileUtil::getFileExtension("/home/.bashrc"), "");
  EXPECT_EQ(FileUtil::getFileNameNoExtension("/x.y/archive.tar.gz"), "archive.tar");
  EXPECT_EQ(FileUtil::getFileNameNoExtension("/home/.bashrc"), ".bashrc");

  EXPECT_EQ(FileUtil::getUrlExtension("http://h/p/file.JS?v=1.2"), "JS");
  EXPECT_EQ(FileUtil::getUrlExtension("http://h/dir.d/file?x=a.b"), "");
}

TEST(FileUtilNames, RelativePathsCompareWholeComponents) {
  EXPECT_EQ(FileUtil::getRelativePath("/a/ab/x/y.txt", "/a/ab"), "/x/y.txt");
  EXPECT_EQ(FileUtil::getRelativePath("/a/ab/x/", "a/ab/"), "/x");
  EXPECT_EQ(FileUtil::getRelativePath("/a/abc/x", "/a/ab"), "");
  EXPECT_EQ(FileUtil::getRelativePath("/a/ab", "/a/abc"), "");
  EXPECT_EQ(FileUtil::getRelativePath("/a/ab", "/a/ab/"), "");
}

class FileUtilDocumentPaths : public test::TempHome {};

TEST_F(FileUtilDocumentPaths, RelativeToTheRoots) {
  const std::string root = FileUtil::documentDirectory();
  EXPECT_EQ(FileUtil::getDocumentRelativePath(root + "/notes/a.txt"), "/notes/a.txt");
  EXPECT_EQ(FileUtil::getDocumentRelativePath(root), "");
  EXPECT_EQ(FileUtil::getDocumentRelativePath(root + "x/a.txt"), "");
  EXPECT_EQ(FileUtil::getApplicationSupportRelativePath(FileUtil::systemPath()), "/System");
  EXPECT_EQ(FileUtil::tempBundleIdDirectory(),
            FileUtil::tempDirectory() + "/" + Directories::applicationIdentifier());
}

TEST(FileUtilFormatSize, UnitBoundaries) {
  EXPECT_NE(FileUtil::formatSize(0), "0B");
  EXPECT_FALSE(FileUtil::formatSize(0).empty());
  EXPECT_EQ(FileUtil::formatSize(1), "1B");
  EXPECT_EQ(FileUtil::formatSize(1023), "1023B");
  EXPECT_EQ(FileUtil::formatSize(1024), "1.0K");
  EXPECT_EQ(FileUtil::formatSize(1536), "1.5K");
  EXPECT_EQ(FileUtil::formatSize((1u << 20) - 1), "1024.0K");
  EXPECT_EQ(FileUtil::formatSize(1u << 20), "1.00M");
  EXPECT_EQ(FileUtil::formatSize((1ull << 30) - 1), "1024.00M");
  EXPECT_EQ(FileUtil::formatSize(1ull << 30), "1.000G");
  EXPECT_EQ(FileUtil::formatSize(5ull << 40), "5120.000G");

  EXPECT_EQ(CommonUtil::formattedFileSizeAll(0), FileUtil::formatSize(0));
  EXPECT_EQ(CommonUtil::formattedFileSizeAll(1024), "1.0K");
  EXPECT_EQ(CommonUtil::formattedFileSize(3u << 19), "1.50 MB");
  EXPECT_EQ(CommonUtil::formattedFileSize(0), "0.00 MB");
}

}  // namespace
}  // namespace harbor

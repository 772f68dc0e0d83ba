#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileListItem.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "platform/UserDefaults.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::writeFile;

class FileBookkeeping : public test::TempHome {
 protected:
  PlistValue::Map mapFor(std::string_view key) {
    return defaults()->dictionaryForKey(key).value_or(PlistValue::Map{});
  }
};

TEST_F(FileBookkeeping, BookmarksOfVanishedFilesGo) {
  writeFile(root() / "kept.txt", "");
  writeFile(root() / "dir/inner.txt", "");
  PlistValue::Map marks{{"/kept.txt", PlistValue::Map{{"SYSTEM_BOOKMARK_SCROLLY", 10}}},
                        {"dir/inner.txt", 1},
                        {"/gone.txt", 2},
                        {"/dir/gone/deeper.txt", 3}};
  defaults()->setObject("SYSTEM_BOOKMARK", marks);
  CommonUtil::checkBookMark();
  auto after = mapFor("SYSTEM_BOOKMARK");
  EXPECT_EQ(after.size(), 2u);
  EXPECT_EQ(after.count("/kept.txt"), 1u);
  EXPECT_EQ(after.count("dir/inner.txt"), 1u);
  EXPECT_EQ(after["/kept.txt"], marks["/kept.txt"]);

  CommonUtil::checkBookMark();
  EXPECT_EQ(mapFor("SYSTEM_BOOKMARK"), after);
}

TEST_F(FileBookkeeping, PasswordsOfVanishedFilesGoButTheRootStays) {
  fs::create_directories(root() / "locked");
  defaults()->setObject("SYSTEM_FILE_PASSWORD",
                        PlistValue::Map{{"/", "r"}, {"/locked", "l"}, {"/vanished", "v"}});
  FileManagerUtil::checkPasswordFileIsExists();
  EXPECT_EQ(mapFor("SYSTEM_FILE_PASSWORD"), (PlistValue::Map{{"/", "r"}, {"/locked", "l"}}));

  defaults()->setObject("SYSTEM_FILE_PASSWORD", PlistValue::Map{{"", "r"}, {"/vanished", "v"}});
  FileManagerUtil::checkPasswordFileIsExists();
  EXPECT_EQ(mapFor("SYSTEM_FILE_PASSWORD"), (PlistValue::Map{{"", "r"}}));

  // Emptied completely, the key goes.
  defaults()->setObject("SYSTEM_FILE_PASSWORD", PlistValue::Map{{"/vanished", "v"}});
  FileManagerUtil::checkPasswordFileIsExists();
  EXPECT_FALSE(defaults()->objectForKey("SYSTEM_FILE_PASSWORD").has_value());
}

TEST_F(FileBookkeeping, ListingOneFolder) {
  writeFile(root() / "in/b.PNG", "");
  writeFile(root() / "in/a.txt", "");
  writeFile(root() / "in/.DS_Store", "");
  writeFile(root() / "in/sub/deep.png", "");
  const std::string in = (root() / "in").string();

  std::vector<std::string> files{"preset"};
  CommonUtil::filesInCurrentFolder(in, files, true, {});
  EXPECT_EQ(files, (std::vector<std::string>{"preset", in + "/a.txt", in + "/b.PNG", in + "/sub"}));
  files.clear();
  CommonUtil::filesInCurrentFolder(in, files, false, {"png"});
  EXPECT_EQ(files, std::vector<std::string>{in + "/b.PNG"});
  EXPECT_EQ(FileUtil::getFilesNumberInFolder(in, true, {"png"}), 2u);

  EXPECT_EQ(FileUtil::getTotalAllFilesFullPath(in),
            (std::vector<std::string>{in + "/a.txt", in + "/b.PNG", in + "/sub/deep.png"}));
  EXPECT_EQ(FileUtil::subpathsAtPaths(in),
            (std::vector<std::string>{".DS_Store", "a.txt", "b.PNG", "sub", "sub/deep.png"}));
  // A link to a folder is a folder one level down, a file in a deep walk.
  fs::create_directory_symlink("in", root() / "alias");
  const std::string alias = (root() / "alias").string();
  EXPECT_EQ(FileUtil::getCurrentFoldersFullPath(root().string()),
            (std::vector<std::string>{alias, in}));
  EXPECT_EQ(FileUtil::getTotalFoldersFullPath(root().string()),
            (std::vector<std::string>{in, in + "/sub"}));

  std::vector<std::string> pngs;
  FileUtil::contentsOfFolder(in, pngs, {"png"});
  EXPECT_EQ(pngs, (std::vector<std::string>{in + "/b.PNG", in + "/sub/deep.png"}));
}

TEST_F(FileBookkeeping, EveryListingIgnoresTheSameNames) {
  const std::string in = (root() / "in").string();
  writeFile(in + "/a.txt", "");
  for (const auto& name : FileUtil::ignoreFileNames()) writeFile(in + "/" + name + "/inner", "");
  writeFile(in + "/sub/Thumbs.db", "");
  writeFile(in + "/sub/.DS_Store", "");
  const std::vector<std::string> onlyA{in + "/a.txt"};

  std::vector<std::string> files;
  CommonUtil::filesInCurrentFolder(in, files, true, {});
  EXPECT_EQ(files, (std::vector<std::string>{in + "/a.txt", in + "/sub"}));
  EXPECT_EQ(FileUtil::getTotalAllFilesFullPath(in), onlyA);
  files.clear();
  FileUtil::contentsOfFolder(in, files, {});
  EXPECT_EQ(files, onlyA);
  EXPECT_EQ(FileUtil::getCurrentFilesAndFoldersFullPath(in, true),
            (std::vector<std::string>{in + "/a.txt", in + "/sub"}));
  FileListItem tree(in);
  FileUtil::recuriseFileModelList(tree);
  std::vector<std::string> names;
  for (const auto& child : tree.childrens()) names.push_back(child->filename());
  EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "sub"}));

  files = FileUtil::ignoreFileNames();
  files.push_back("keep");
  FileManagerUtil::ignoreFile(files);
  EXPECT_EQ(files, std::vector<std::string>{"keep"});
  EXPECT_TRUE(FileUtil::isIgnoredPath("x/__MACOSX/y"));
  EXPECT_FALSE(FileUtil::isIgnoredPath("x/Thumbs.db.txt"));
}

TEST_F(FileBookkeeping, TemporaryFolders) {
  const std::string temp = FileUtil::tempDirectory();
  const std::string work = TempDirectoryUtil::archiveDirectory("job");
  EXPECT_EQ(FileUtil::getRelativePath(work, temp), "/Archive/job");
  EXPECT_EQ(FileUtil::getFileDirectory(TempDirectoryUtil::httpServerDirectory()), temp);
  writeFile(fs::path(work) / "part", "x");
  writeFile(fs::path(temp) / "loose.tmp", "x");
  EXPECT_TRUE(TempDirectoryUtil::deleteArchiveDirectory());
  EXPECT_FALSE(fs::exists(work));

  TempDirectoryUtil::deleteTemp();
  EXPECT_TRUE(fs::is_directory(temp));
  EXPECT_TRUE(fs::is_empty(temp));

  // The threaded form returns at once and the work lands shortly after.
  writeFile(fs::path(temp) / "a/b", "x");
  FileUtil::deleteSubFilesInThread(temp);
  for (int i = 0; i < 500 && !fs::is_empty(temp); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(fs::is_empty(temp));
}

}  // namespace
}  // namespace harbor

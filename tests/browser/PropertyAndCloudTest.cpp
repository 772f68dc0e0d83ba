// The property screen, the cloud drive entries, files arriving from other
// applications and the browser's background duties.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "app/ApplicationServices.h"
#include "app/HarborFileManagerController.h"
#include "app/ICloudDriveController.h"
#include "browser/BrowserTestSupport.h"
#include "browser/FilePropertyController.h"
#include "cloud/CloudProvider.h"
#include "filemanager/FileManagerUtil.h"

namespace harbor::test {
namespace {

class PropertyTest : public BrowserTest {
 protected:
  // Runs the main queue until the walk has reported.
  void waitForCount(FilePropertyController& screen) {
    MainQueue::shared().runUntil([&] { return !screen.isCounting(); }, std::chrono::seconds(30));
  }
};

TEST_F(PropertyTest, FolderFiguresComeFromAWalkOffTheMainThread) {
  write("tree/a.txt", "12345");
  write("tree/sub/b.bin", std::string(1000, 'x'));
  write("tree/sub/deeper/c.md", "abc");
  auto browser = screen<FileManagerController>(docs());
  browser->selectedRows().assign(1, docs("tree"));
  std::vector<FilePropertyInfo> told;
  auto property = browser->showProperty();
  property->setOnChange([&](const FilePropertyInfo& info) { told.push_back(info); });
  EXPECT_EQ(port->last("push")->screenClass, "FilePropertyController");
  EXPECT_EQ(port->last("title")->text, "tree");
  waitForCount(*property);
  drain();
  ASSERT_EQ(told.size(), 1u);
  const FilePropertyInfo& info = told.front();
  EXPECT_TRUE(info.isDirectory);
  EXPECT_EQ(info.kind, "Folder");
  EXPECT_EQ(info.relativePath, "/tree");
  EXPECT_EQ(info.size, 1008u);
  EXPECT_EQ(info.fileNumber, 3u);
  EXPECT_EQ(info.folderNumber, 2u);  // sub and deeper, not tree itself
  EXPECT_FALSE(info.countCancelled);
  EXPECT_TRUE(info.modified.has_value());
}

TEST_F(PropertyTest, FileFiguresAreAtHandAndALockedFolderSaysSo) {
  write("notes/readme.txt", "hello world");
  FileManagerUtil::saveFilePassword(docs("notes"), "pw");
  auto file = FilePropertyController::readInfo(docs("notes/readme.txt"));
  EXPECT_TRUE(file.exists);
  EXPECT_EQ(file.size, 11u);
  EXPECT_EQ(file.kind, "Text");
  EXPECT_EQ(file.extension, "txt");
  EXPECT_EQ(file.mimeType, "text/plain");
  EXPECT_FALSE(file.isLocked);
  EXPECT_TRUE(FilePropertyController::readInfo(docs("notes")).isLocked);
  EXPECT_FALSE(FilePropertyController::readInfo(docs("gone")).exists);
  EXPECT_EQ(FilePropertyController::permissionText(0754), "rwxr-xr--");

  // With nothing selected the sheet's "Property" describes this folder.
  auto browser = screen<FileManagerController>(docs("notes"));
  port->sheetAnswers.push_back("Property");
  browser->openSheet();
  drain();
  auto property = std::dynamic_pointer_cast<FilePropertyController>(port->pushed.back());
  ASSERT_TRUE(property);
  waitForCount(*property);
  EXPECT_EQ(property->info().relativePath, "/notes");
  EXPECT_EQ(property->info().size, 11u);
}

TEST_F(PropertyTest, LeavingTheScreenStopsTheWalk) {
  for (int i = 0; i < 20; ++i) write("big/d" + std::to_string(i) + "/f.txt", "x");
  auto property = FilePropertyController::instanceWithPath(docs("big"));
  property->setPort(port);
  property->viewDidDisappear();  // gone before the walk could start
  property->viewDidLoad();
  waitForCount(*property);
  EXPECT_TRUE(property->info().countCancelled);
  EXPECT_LT(property->info().fileNumber, 20u);
}

class CloudEntriesTest : public BrowserTest {
 protected:
  void SetUp() override {
    BrowserTest::SetUp();
    drive = home() / "drive";
    fs::create_directories(drive / "Documents" / "reports");
    std::ofstream(drive / "Documents" / "reports" / "q1.txt") << "first quarter";
    provider = std::make_shared<LocalSyncFolderProvider>(drive.string());
    CloudProvider::setShared(provider);
    saved = ApplicationServices::shared().cloudIdentityAvailable;
    ApplicationServices::shared().cloudIdentityAvailable = [this] { return available; };
  }
  void TearDown() override {
    ApplicationServices::shared().cloudIdentityAvailable = saved;
    CloudProvider::setShared(nullptr);
    BrowserTest::TearDown();
  }
  std::shared_ptr<ICloudDriveController> openDrive(HarborFileManagerController& browser,
                                                   const std::string& entry) {
    port->sheetAnswers.push_back(entry);
    browser.openSheet();
    drain();
    if (port->pushed.empty()) return nullptr;
    return std::dynamic_pointer_cast<ICloudDriveController>(port->pushed.back());
  }

  fs::path drive;
  std::shared_ptr<LocalSyncFolderProvider> provider;
  std::function<bool()> saved;
  bool available = true;
};

TEST_F(CloudEntriesTest, OnlyTheRootBrowserOffersTheDriveBeforePreferences) {
  auto plain = screen<FileManagerController>(docs());
  auto rows = plain->actionSheetNoEditRows();
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Cloud Drive"), 0);

  auto root = screen<HarborFileManagerController>(docs());
  rows = root->actionSheetNoEditRows();
  auto at = std::find(rows.begin(), rows.end(), "Cloud Drive");
  ASSERT_NE(at, rows.end());
  EXPECT_EQ(*(at + 1), "Import File From Cloud Drive");
  EXPECT_EQ(*(at + 2), "Preferences");
}

TEST_F(CloudEntriesTest, AnUnavailableDriveSaysSoAndOpensNothing) {
  available = false;
  auto root = screen<HarborFileManagerController>(docs());
  openDrive(*root, "Cloud Drive");
  EXPECT_EQ(port->all("push").size(), 0u);
  ASSERT_TRUE(port->last("message"));
  EXPECT_EQ(port->last("message")->text, "Cloud Drive unavailable");
}

TEST_F(CloudEntriesTest, ImportDownloadsIntoThisFolderUnderAFreeName) {
  write("q1.txt", "already here");
  auto root = screen<HarborFileManagerController>(docs());
  auto top = openDrive(*root, "Import File From Cloud Drive");
  ASSERT_TRUE(top);
  EXPECT_TRUE(top->isImport());
  ASSERT_EQ(top->items().size(), 1u);
  EXPECT_FALSE(top->tapRow("nothing"));
  ASSERT_TRUE(top->tapRow("reports"));
  auto inner = std::dynamic_pointer_cast<ICloudDriveController>(port->pushed.back());
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->depth(), 2);
  ASSERT_TRUE(inner->tapRow("q1.txt"));
  settle(*root);
  EXPECT_EQ(port->pops, 2);  // both drive screens closed
  EXPECT_EQ(readFile(docs("q1 2.txt")), "first quarter");
  EXPECT_EQ(readFile(docs("q1.txt")), "already here");
  // The download's work folder is gone.
  for (const auto& e : fs::directory_iterator(docs()))
    EXPECT_NE(e.path().filename().string().front(), '.') << e.path();
}

TEST_F(CloudEntriesTest, OpeningAFileShowsItAloneWithoutTouchingTheFolder) {
  auto root = screen<HarborFileManagerController>(docs());
  auto top = openDrive(*root, "Cloud Drive");
  ASSERT_TRUE(top);
  top->tapRow("reports");
  std::dynamic_pointer_cast<ICloudDriveController>(port->pushed.back())->tapRow("q1.txt");
  settle(*root);
  auto opened = port->last("open");
  ASSERT_TRUE(opened);
  EXPECT_EQ(opened->route, ScreenRoute::Editor);
  ASSERT_EQ(opened->files.size(), 1u);
  EXPECT_EQ(readFile(opened->files.front()), "first quarter");
  EXPECT_TRUE(fs::is_empty(docs()));
}

TEST_F(BrowserTest, IncomingFilesMoveFromInboxUnderFreeNames) {
  write("Inbox/report.pdf", "new");
  write("Inbox/photos/p.png", "png");
  write("Imported/report.pdf", "old");
  auto browser = screen<FileManagerController>(docs());
  browser->handleOpenURL("file:///ignored");
  EXPECT_TRUE(fs::is_empty(docs("Inbox")));
  EXPECT_EQ(readFile(docs("Imported/report.pdf")), "old");
  EXPECT_EQ(readFile(docs("Imported/report 2.pdf")), "new");
  EXPECT_TRUE(fs::exists(docs("Imported/photos/p.png")));
}

TEST_F(BrowserTest, RunningWorkAnywhereOnTheStackIsSeen) {
  fs::create_directories(docs("a"));
  auto bottom = screen<FileManagerController>(docs());
  auto upper = screen<FileManagerController>(docs("a"));
  std::vector<std::shared_ptr<ViewController>> stack{bottom, upper};
  EXPECT_FALSE(FileManagerBaseController::isExistsExcutingInFileManagers(stack));
  std::atomic<bool> release{false};
  bottom->startThread(
      [&] {
        while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      },
      false);
  EXPECT_TRUE(FileManagerBaseController::isExistsExcutingInFileManagers(stack));
  release = true;
  settle(*bottom);
  EXPECT_FALSE(FileManagerBaseController::isExistsExcutingInFileManagers(stack));
}

TEST_F(BrowserTest, BackgroundDropsThumbnailsUnlessAnImageViewerShows) {
  const fs::path thumbs = FileManagerUtil::thumbnailDirectory();
  fs::create_directories(thumbs);
  std::ofstream(thumbs / "t1.png") << "x";
  auto browser = screen<FileManagerController>(docs());
  FileManagerController::setImageViewerInFront([] { return true; });
  browser->enterBackground();
  EXPECT_TRUE(fs::exists(thumbs / "t1.png"));
  FileManagerController::setImageViewerInFront({});
  browser->enterBackground();
  EXPECT_FALSE(fs::exists(thumbs / "t1.png"));
}

}  // namespace
}  // namespace harbor::test

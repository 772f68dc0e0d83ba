// The cloud screen over a sync folder that the test itself keeps, as a sync
// client would.
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <filesystem>
#include <fstream>
#include <memory>

#include "app/ApplicationServices.h"
#include "app/HarborFileManagerController.h"
#include "gui/CloudView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/ShareView.h"
#include "platform/Strings.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {
namespace fs = std::filesystem;

class CloudViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    provider_ = std::make_shared<LocalSyncFolderProvider>((home() / "cloud").string());
    CloudProvider::setShared(provider_);
    docs_ = provider_->documentsURL();
    test::writeFile(docs_ / "present.txt", "here already");
    // Not downloaded yet: the placeholder holds the size.
    test::writeFile(docs_ / ".later.txt.cloud", "11");
    test::writeFile(docs_ / "sub" / "inner.txt", "deep");
  }
  void TearDown() override {
    view_.reset();
    // A window made here set the notice sink to itself; it is gone now.
    QtScreenPort::noticeSink() = nullptr;
    CloudProvider::setShared(nullptr);
    TempHome::TearDown();
  }

  CloudView& open() {
    view_ = std::make_unique<CloudView>(provider_);
    view_->resize(800, 500);
    view_->show();
    QApplication::processEvents();
    return *view_;
  }
  QTreeWidgetItem* row(const QString& name) const {
    const auto found = view_->tree()->findItems(name, Qt::MatchExactly | Qt::MatchRecursive);
    return found.isEmpty() ? nullptr : found.first();
  }
  QString status(const QString& name) const {
    QTreeWidgetItem* item = row(name);
    return item ? item->text(CloudView::kStatusColumn) : QStringLiteral("<missing>");
  }
  static QString text(const char* key) { return QString::fromStdString(localizedString(key)); }
  bool waitDone(QSignalSpy& spy) { return spy.count() > 0 || spy.wait(15000); }

  std::shared_ptr<LocalSyncFolderProvider> provider_;
  fs::path docs_;
  std::unique_ptr<CloudView> view_;
};

TEST_F(CloudViewTest, TreeShowsEachItemsDownloadState) {
  open();
  EXPECT_FALSE(view_->findChild<QLabel*>(QStringLiteral("cloudUnavailable"))->isVisible());
  EXPECT_EQ(status(QStringLiteral("present.txt")), text("CloudDownloaded"));
  EXPECT_EQ(status(QStringLiteral("later.txt")), text("CloudNotDownloaded"));
  ASSERT_NE(row(QStringLiteral("inner.txt")), nullptr);
  EXPECT_EQ(row(QStringLiteral("inner.txt"))->parent(), row(QStringLiteral("sub")));
  // The client's own files never list.
  EXPECT_EQ(row(QStringLiteral(".later.txt.cloud")), nullptr);

  // A file the client adds shows without asking.
  test::writeFile(docs_ / "arrived.txt", "new");
  EXPECT_TRUE(QTest::qWaitFor([&] { return row(QStringLiteral("arrived.txt")) != nullptr; }, 5000));
}

TEST_F(CloudViewTest, DownloadOfAPlaceholderWaitsForTheClientThenLandsInDocuments) {
  open();
  QTreeWidgetItem* item = row(QStringLiteral("later.txt"));
  ASSERT_NE(item, nullptr);
  view_->tree()->setCurrentItem(item);
  auto* download = view_->findChild<QPushButton*>(QStringLiteral("cloudDownload"));
  ASSERT_TRUE(download->isEnabled());
  QSignalSpy done(view_.get(), &CloudView::operationFinished);
  QTest::mouseClick(download, Qt::LeftButton);
  EXPECT_TRUE(view_->isBusy());
  EXPECT_FALSE(download->isEnabled()) << "one operation at a time";

  // The request reaches the client, which then delivers the file.
  const std::string target = (docs_ / "later.txt").string();
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return fs::exists(LocalSyncFolderProvider::requestPath(target)); }, 5000));
  test::writeFile(LocalSyncFolderProvider::partPath(target), "from client");
  fs::rename(LocalSyncFolderProvider::partPath(target), target);
  fs::remove(LocalSyncFolderProvider::placeholderPath(target));
  fs::remove(LocalSyncFolderProvider::requestPath(target));

  ASSERT_TRUE(waitDone(done));
  EXPECT_TRUE(done.first().at(0).toBool()) << done.first().at(1).toString().toStdString();
  std::ifstream in(root() / "later.txt");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "from client");
  EXPECT_EQ(status(QStringLiteral("later.txt")), text("CloudDownloaded"));
  EXPECT_FALSE(view_->isBusy());
}

TEST_F(CloudViewTest, CancelEndsADownloadTheClientNeverDelivers) {
  open();
  QSignalSpy done(view_.get(), &CloudView::operationFinished);
  ASSERT_TRUE(view_->download((docs_ / "later.txt").string()));
  QTest::mouseClick(view_->findChild<QPushButton*>(QStringLiteral("cloudCancel")), Qt::LeftButton);
  ASSERT_TRUE(waitDone(done));
  EXPECT_FALSE(done.first().at(0).toBool());
  EXPECT_FALSE(fs::exists(root() / "later.txt"));
  EXPECT_FALSE(view_->isBusy());
}

TEST_F(CloudViewTest, UploadMoveAndDeleteChangeTheDriveAndTheTree) {
  open();
  test::writeFile(root() / "local.txt", "mine");
  QSignalSpy done(view_.get(), &CloudView::operationFinished);
  ASSERT_TRUE(view_->upload((root() / "local.txt").string(), docs_.string()));
  ASSERT_TRUE(waitDone(done));
  EXPECT_TRUE(done.takeFirst().at(0).toBool());
  EXPECT_TRUE(fs::exists(docs_ / "local.txt"));
  EXPECT_NE(row(QStringLiteral("local.txt")), nullptr);

  ASSERT_TRUE(view_->move((docs_ / "local.txt").string(), (docs_ / "sub").string()));
  ASSERT_TRUE(waitDone(done));
  EXPECT_TRUE(done.takeFirst().at(0).toBool());
  EXPECT_TRUE(fs::exists(docs_ / "sub" / "local.txt"));
  ASSERT_NE(row(QStringLiteral("local.txt")), nullptr);
  EXPECT_EQ(row(QStringLiteral("local.txt"))->parent(), row(QStringLiteral("sub")));

  ASSERT_TRUE(view_->remove((docs_ / "sub").string()));
  ASSERT_TRUE(waitDone(done));
  EXPECT_TRUE(done.takeFirst().at(0).toBool());
  EXPECT_FALSE(fs::exists(docs_ / "sub"));
  EXPECT_EQ(row(QStringLiteral("inner.txt")), nullptr);
}

TEST_F(CloudViewTest, WithoutACloudFolderTheScreenSaysSo) {
  view_ = std::make_unique<CloudView>(nullptr);
  view_->show();
  EXPECT_TRUE(view_->findChild<QLabel*>(QStringLiteral("cloudUnavailable"))->isVisible());
  EXPECT_FALSE(view_->tree()->isVisible());
  EXPECT_FALSE(view_->download((docs_ / "present.txt").string()));
}

TEST_F(CloudViewTest, SharingScreensCloudRowAndShowNameOpenTheCloudScreen) {
  registerViews();
  auto& services = ApplicationServices::shared();
  const auto savedIdentity = services.cloudIdentityAvailable;
  services.cloudIdentityAvailable = [] { return true; };
  auto share = std::make_shared<WiFiShare>();
  auto controller = std::make_shared<HarborFileShareController>(share);
  controller->viewDidLoad();
  MainWindow window;
  window.setRoot(makeEmptyRoot(&window), QStringLiteral("Documents"));
  auto* shareView = new ShareView(controller, nullptr, &window);
  window.push(shareView, shareView->windowTitle());
  window.show();
  QTest::mouseClick(shareView->findChild<QPushButton*>(QStringLiteral("cloudButton")),
                    Qt::LeftButton);
  auto* cloud = qobject_cast<CloudView*>(window.top());
  ASSERT_NE(cloud, nullptr) << "the cloud row pushed nothing";
  EXPECT_NE(cloud->tree()->findItems(QStringLiteral("present.txt"), Qt::MatchRecursive).size(), 0);

  ASSERT_TRUE(window.showNamed("cloud", ""));
  EXPECT_NE(qobject_cast<CloudView*>(window.top()), cloud);
  EXPECT_NE(qobject_cast<CloudView*>(window.top()), nullptr);
  services.cloudIdentityAvailable = savedIdentity;
}

}  // namespace
}  // namespace harbor::gui

namespace harbor::gui {
namespace {

TEST_F(CloudViewTest, BrowsersDriveEntryPicksAFileThroughItsControllerAndImportsIt) {
  auto& services = ApplicationServices::shared();
  auto savedIdentity = services.cloudIdentityAvailable;
  services.cloudIdentityAvailable = [] { return true; };
  registerViews();
  MainWindow window;
  window.setRoot(makeEmptyRoot(&window), QStringLiteral("Documents"));
  window.show();
  auto browser = HarborFileManagerController::createRoot();
  browser->setPort(std::make_shared<WindowPort>(&window, window));
  browser->loadICloudDrive(true);

  auto list = [&] {
    QApplication::processEvents();
    return window.top()->findChild<QListWidget*>(QStringLiteral("cloudPickList"));
  };
  auto rowNamed = [&](const QString& name) -> QListWidgetItem* {
    QListWidget* shown = list();
    if (!shown) return nullptr;
    auto found = shown->findItems(name, Qt::MatchExactly);
    return found.isEmpty() ? nullptr : found.first();
  };
  ASSERT_EQ(window.depth(), 2);
  ASSERT_TRUE(QTest::qWaitFor([&] { return rowNamed(QStringLiteral("sub")) != nullptr; }, 5000));
  EXPECT_NE(rowNamed(QStringLiteral("present.txt")), nullptr);

  // A folder is a screen of its own; a file closes every drive screen and
  // lands in the browser's folder.
  emit list()->itemActivated(rowNamed(QStringLiteral("sub")));
  ASSERT_EQ(window.depth(), 3);
  ASSERT_TRUE(
      QTest::qWaitFor([&] { return rowNamed(QStringLiteral("inner.txt")) != nullptr; }, 5000));
  emit list()->itemActivated(rowNamed(QStringLiteral("inner.txt")));
  EXPECT_EQ(window.depth(), 1);
  EXPECT_TRUE(QTest::qWaitFor([&] { return fs::exists(root() / "inner.txt"); }, 15000));
  EXPECT_EQ(test::readFile(root() / "inner.txt"), "deep");
  services.cloudIdentityAvailable = savedIdentity;
}

}  // namespace
}  // namespace harbor::gui

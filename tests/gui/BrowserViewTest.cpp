// The file browser screen driven as a user would, on Qt's offscreen platform:
// what the widgets do must end up in the controller and on disk.
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDropEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QToolBar>
#include <filesystem>
#include <memory>

#include "app/AppDelegate.h"
#include "browser/FileManagerController.h"
#include "gui/Application.h"
#include "gui/BrowserView.h"
#include "gui/EditorView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

namespace fs = std::filesystem;

class BrowserViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
  }
  void TearDown() override {
    window_.reset();
    // The window's notice line goes with it.
    QtScreenPort::noticeSink() = nullptr;
    QApplication::processEvents();
    TempHome::TearDown();
  }

  // A window whose root is the browser of the document root.
  BrowserView& open() {
    window_ = std::make_unique<MainWindow>();
    window_->resize(800, 600);
    auto browser = std::make_shared<FileManagerController>(root().string());
    window_->showRootScreen(browser);
    window_->show();
    auto* view = qobject_cast<BrowserView*>(window_->top());
    EXPECT_NE(view, nullptr) << "no browser view is registered for the root";
    QApplication::processEvents();
    return *view;
  }

  BrowserView* top() const { return qobject_cast<BrowserView*>(window_->top()); }

  static QPoint rowCentre(BrowserView& view, const QString& name) {
    for (int row = 0; row < view.model()->rowCount(); ++row) {
      const QModelIndex index = view.model()->index(row);
      if (index.data().toString() == name) {
        view.listView()->scrollTo(index);
        return view.listView()->visualRect(index).center();
      }
    }
    ADD_FAILURE() << "no row " << name.toStdString();
    return {};
  }
  static void click(BrowserView& view, const QString& name,
                    Qt::KeyboardModifiers mods = Qt::NoModifier) {
    QTest::mouseClick(view.listView()->viewport(), Qt::LeftButton, mods, rowCentre(view, name));
  }
  static void key(BrowserView& view, int k, Qt::KeyboardModifiers mods = Qt::NoModifier) {
    QTest::keyClick(view.listView(), static_cast<Qt::Key>(k), mods);
    QApplication::processEvents();
  }

  QDialog* waitDialog(int tag) {
    QDialog* found = nullptr;
    (void)QTest::qWaitFor(
        [&] {
          for (QDialog* d : window_->findChildren<QDialog*>(QStringLiteral("alert%1").arg(tag)))
            if (d->isVisible()) found = d;
          return found != nullptr;
        },
        5000);
    return found;
  }
  static void answer(QDialog* dialog, int button, const QString& field = {}) {
    ASSERT_NE(dialog, nullptr);
    if (!field.isNull()) dialog->findChild<QLineEdit*>()->setText(field);
    dialog->findChild<QPushButton*>(QStringLiteral("button%1").arg(button))->click();
    QApplication::processEvents();
  }
  static void settle(BrowserView& view) {
    (void)QTest::qWaitFor([&] { return !view.controller().isWorking(); }, 20000);
    for (int i = 0; i < 5; ++i) QApplication::processEvents();
  }
  static std::vector<std::string> selected(BrowserView& view) {
    std::vector<std::string> names;
    for (const auto& path : view.controller().selectedRows())
      names.push_back(fs::path(path).filename().string());
    return names;
  }

  std::unique_ptr<MainWindow> window_;
};

TEST_F(BrowserViewTest, ListFollowsTheControllersOrderAndModes) {
  test::writeFile(root() / "b.txt", "bb");
  test::writeFile(root() / "a.txt", "aaaaaaa");
  test::writeFile(root() / "c.txt", "c");
  fs::create_directories(root() / "Sub");
  BrowserView& view = open();
  auto rowNames = [&] {
    QStringList names;
    for (const auto& row : view.controller().rows()) names << QString::fromStdString(row.name);
    return names;
  };
  EXPECT_EQ(view.shownNames(), rowNames());
  EXPECT_EQ(view.shownNames().size(), 4);

  // Size order through the order box: the controller sorts, the view follows.
  const QStringList byName = view.shownNames();
  view.orderBox()->setCurrentIndex(3);
  emit view.orderBox()->activated(3);
  QApplication::processEvents();
  EXPECT_EQ(view.shownNames(), rowNames());
  EXPECT_NE(view.shownNames(), byName);

  // A file created behind the view's back shows after the controller reloads.
  test::writeFile(root() / "d.txt", "d");
  view.controller().reloadData();
  EXPECT_TRUE(view.shownNames().contains(QStringLiteral("d.txt")));

  // Typing in the search field lists the hits the controller found.
  QTest::keyClicks(view.searchField(), QStringLiteral("b."));
  (void)QTest::qWaitFor([&] { return view.shownNames() == QStringList{"b.txt"}; }, 5000);
  EXPECT_EQ(view.shownNames(), QStringList{QStringLiteral("b.txt")});
  view.searchField()->clear();
  (void)QTest::qWaitFor(
      [&] { return view.shownNames().size() == 5 && !view.controller().isCurrentSearching(); },
      5000);
  EXPECT_EQ(view.shownNames(), rowNames());

  // The options sheet switches to icons.
  auto* browser = dynamic_cast<FileManagerController*>(&view.controller());
  ASSERT_TRUE(
      browser->sheetChosen(FileManagerBaseController::kTagSheetNoEdit, "Show items as icons"));
  EXPECT_TRUE(view.isIconMode());
  EXPECT_EQ(view.shownNames(), rowNames());

  // Enter on a text file opens it where the controller sends it: the editor.
  click(view, QStringLiteral("a.txt"));
  key(view, Qt::Key_Return);
  EXPECT_NE(qobject_cast<EditorView*>(window_->top()), nullptr);
}

TEST_F(BrowserViewTest, LockedFolderAsksBeforeListingAndBackspaceGoesUp) {
  BrowserView& view = open();
  auto* browser = dynamic_cast<FileManagerController*>(&view.controller());
  Error error;
  ASSERT_TRUE(browser->createFolder("Vault", "secret", &error)) << error.message;
  test::writeFile(root() / "Vault" / "inside.txt", "x");
  browser->reloadData();

  click(view, QStringLiteral("Vault"));
  key(view, Qt::Key_Return);
  QDialog* ask = waitDialog(FileManagerBaseController::kTagOpen);
  ASSERT_NE(ask, nullptr) << "no password prompt";
  EXPECT_EQ(ask->findChild<QLineEdit*>()->echoMode(), QLineEdit::Password);
  EXPECT_EQ(window_->depth(), 1) << "listed before the password";
  answer(ask, 1, QStringLiteral("wrong"));
  EXPECT_EQ(window_->depth(), 1);

  key(view, Qt::Key_Return);
  answer(waitDialog(FileManagerBaseController::kTagOpen), 1, QStringLiteral("secret"));
  (void)QTest::qWaitFor([&] { return window_->depth() == 2; }, 5000);
  ASSERT_EQ(window_->depth(), 2);
  BrowserView* inside = top();
  ASSERT_NE(inside, nullptr);
  EXPECT_EQ(inside->shownNames(), QStringList{QStringLiteral("inside.txt")});

  key(*inside, Qt::Key_Backspace);
  QApplication::processEvents();
  EXPECT_EQ(window_->depth(), 1);
}

TEST_F(BrowserViewTest, ArchiveOpensItsSheet) {
  test::writeFile(root() / "bundle.zip", "PK\x05\x06" + std::string(18, '\0'));
  BrowserView& view = open();
  click(view, QStringLiteral("bundle.zip"));
  key(view, Qt::Key_Return);
  QMenu* sheet = nullptr;
  (void)QTest::qWaitFor(
      [&] {
        sheet = view.findChild<QMenu*>(
            QStringLiteral("sheet%1").arg(FileManagerBaseController::kTagArchiveSheet));
        return sheet != nullptr;
      },
      5000);
  ASSERT_NE(sheet, nullptr);
  QStringList entries;
  for (QAction* a : sheet->actions()) entries << a->text();
  EXPECT_EQ(entries, (QStringList{"Extract", "Extract As...", "View File", "Cancel"}));
  sheet->close();
}

TEST_F(BrowserViewTest, TwoDroppedFilesOfOneNameGetFreeNames) {
  AppDelegate app;  // the importer
  test::ScratchDir outside;
  test::writeFile(outside.path() / "one" / "name.ext", "first");
  test::writeFile(outside.path() / "two" / "name.ext", "second");
  BrowserView& view = open();

  QMimeData mime;
  mime.setUrls(QList<QUrl>{
      QUrl::fromLocalFile(QString::fromStdString((outside.path() / "one/name.ext").string())),
      QUrl::fromLocalFile(QString::fromStdString((outside.path() / "two/name.ext").string()))});
  QWidget* target = view.listView()->viewport();
  const QPoint at(20, target->height() - 10);
  QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  // No window system proposes an action here; a desktop would propose Copy.
  enter.setDropAction(Qt::CopyAction);
  QApplication::sendEvent(target, &enter);
  ASSERT_TRUE(enter.isAccepted());
  QDragMoveEvent move(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  move.setDropAction(Qt::CopyAction);
  QApplication::sendEvent(target, &move);
  QDropEvent drop(QPointF(at), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  drop.setDropAction(Qt::CopyAction);
  QApplication::sendEvent(target, &drop);
  (void)QTest::qWaitFor([&] { return fs::exists(root() / "Imported" / "name 2.ext"); }, 5000);

  EXPECT_EQ(test::readFile(root() / "Imported" / "name.ext"), "first");
  EXPECT_EQ(test::readFile(root() / "Imported" / "name 2.ext"), "second");
  EXPECT_TRUE(view.shownNames().contains(QStringLiteral("Imported")));

  // Our own rows dragged back onto the list are no import.
  QMimeData* own = view.model()->mimeData({view.model()->index(0)});
  EXPECT_FALSE(view.model()->canDropMimeData(own, Qt::CopyAction, -1, -1, {}));
  delete own;
}

TEST_F(BrowserViewTest, CancelDuringPasteLeavesNoPartialFile) {
  const std::string block(4 << 20, 'z');
  for (int i = 0; i < 12; ++i)
    test::writeFile(root() / ("big" + std::to_string(i) + ".bin"), block);
  fs::create_directories(root() / "dest");
  BrowserView& view = open();
  key(view, Qt::Key_A, Qt::ControlModifier);
  // The folder itself goes out of the selection: copy files only.
  click(view, QStringLiteral("dest"), Qt::ControlModifier);
  ASSERT_EQ(view.controller().selectedRows().size(), 12u);
  key(view, Qt::Key_C, Qt::ControlModifier);

  click(view, QStringLiteral("dest"));
  key(view, Qt::Key_Return);
  ASSERT_EQ(window_->depth(), 2);
  BrowserView& dest = *top();
  key(dest, Qt::Key_V, Qt::ControlModifier);
  (void)QTest::qWaitFor([&] { return dest.cancelButton()->isVisible(); }, 5000);
  ASSERT_TRUE(dest.cancelButton()->isVisible()) << "no Cancel while pasting";
  dest.cancelButton()->click();
  settle(dest);

  // Whatever arrived arrived whole; nothing else is left in the folder.
  std::size_t whole = 0;
  for (const auto& entry : fs::directory_iterator(root() / "dest")) {
    EXPECT_EQ(entry.path().extension(), ".bin") << entry.path();
    EXPECT_EQ(fs::file_size(entry.path()), block.size()) << entry.path();
    ++whole;
  }
  EXPECT_LT(whole, 12u) << "the paste ended before the cancel";
  EXPECT_FALSE(dest.cancelButton()->isVisible());
}

TEST_F(BrowserViewTest, ClicksWithShiftAndCtrlSelectAndEditModeFollows) {
  for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt", "e.txt"})
    test::writeFile(root() / name, name);
  BrowserView& view = open();
  auto toolbarKeys = [&] {
    QStringList keys;
    for (QAction* a : view.toolbar()->actions()) keys << a->objectName();
    return keys;
  };

  click(view, QStringLiteral("b.txt"));
  EXPECT_EQ(selected(view), (std::vector<std::string>{"b.txt"}));
  EXPECT_FALSE(view.controller().isEditing());

  click(view, QStringLiteral("d.txt"), Qt::ShiftModifier);
  EXPECT_EQ(selected(view), (std::vector<std::string>{"b.txt", "c.txt", "d.txt"}));
  EXPECT_TRUE(view.controller().isEditing());
  EXPECT_TRUE(view.editButton()->isChecked());
  EXPECT_TRUE(toolbarKeys().contains(QStringLiteral("DELETE_ITEM")));

  click(view, QStringLiteral("c.txt"), Qt::ControlModifier);
  EXPECT_EQ(selected(view), (std::vector<std::string>{"b.txt", "d.txt"}));

  // Select All is the controller's: it marks every row, then the view.
  key(view, Qt::Key_A, Qt::ControlModifier);
  EXPECT_EQ(view.controller().selectedRows().size(), 5u);
  EXPECT_EQ(view.listView()->selectionModel()->selectedIndexes().size(), 5);

  key(view, Qt::Key_Escape);
  EXPECT_FALSE(view.controller().isEditing());
  EXPECT_TRUE(view.controller().selectedRows().empty());
  EXPECT_TRUE(view.listView()->selectionModel()->selectedIndexes().isEmpty());
  EXPECT_FALSE(toolbarKeys().contains(QStringLiteral("DELETE_ITEM")));
}

TEST_F(BrowserViewTest, F2RenamesAndDeleteRemovesAfterConfirming) {
  test::writeFile(root() / "old.txt", "keep me");
  test::writeFile(root() / "x.txt", "x");
  test::writeFile(root() / "y.txt", "y");
  BrowserView& view = open();

  click(view, QStringLiteral("old.txt"));
  key(view, Qt::Key_F2);
  QDialog* rename = waitDialog(FileManagerBaseController::kTagRename);
  ASSERT_NE(rename, nullptr);
  EXPECT_EQ(rename->findChild<QLineEdit*>()->text(), QStringLiteral("old.txt"));
  answer(rename, 1, QStringLiteral("new.txt"));
  (void)QTest::qWaitFor([&] { return view.shownNames().contains(QStringLiteral("new.txt")); },
                        5000);
  EXPECT_EQ(test::readFile(root() / "new.txt"), "keep me");
  EXPECT_FALSE(fs::exists(root() / "old.txt"));
  EXPECT_FALSE(view.shownNames().contains(QStringLiteral("old.txt")));

  click(view, QStringLiteral("x.txt"));
  click(view, QStringLiteral("y.txt"), Qt::ControlModifier);
  key(view, Qt::Key_Delete);
  QDialog* confirm = waitDialog(FileManagerBaseController::kTagDeleteConfirm);
  ASSERT_NE(confirm, nullptr) << "Delete must ask first";
  EXPECT_TRUE(fs::exists(root() / "x.txt"));
  answer(confirm, 1);
  settle(view);
  EXPECT_FALSE(fs::exists(root() / "x.txt"));
  EXPECT_FALSE(fs::exists(root() / "y.txt"));
  EXPECT_EQ(view.shownNames(), QStringList{QStringLiteral("new.txt")});
}

}  // namespace
}  // namespace harbor::gui

namespace harbor::gui {
namespace {

TEST_F(BrowserViewTest, LastFolderComesBackAtTheNextStart) {
  test::writeFile(root() / "Work" / "Deep" / "plan.txt", "p");
  {
    BrowserView& view = open();
    click(view, QStringLiteral("Work"));
    key(view, Qt::Key_Return);
    ASSERT_NE(top(), nullptr);
    click(*top(), QStringLiteral("Deep"));
    key(*top(), Qt::Key_Return);
    ASSERT_EQ(window_->depth(), 3);
  }
  window_.reset();
  open();
  (void)QTest::qWaitFor([&] { return window_->depth() == 3; }, 5000);
  ASSERT_EQ(window_->depth(), 3);
  EXPECT_EQ(top()->shownNames(), QStringList{QStringLiteral("plan.txt")});

  // Going back up is remembered too.
  key(*top(), Qt::Key_Up, Qt::AltModifier);
  key(*top(), Qt::Key_Up, Qt::AltModifier);
  ASSERT_EQ(window_->depth(), 1);
  window_.reset();
  open();
  QTest::qWait(50);
  EXPECT_EQ(window_->depth(), 1);
}

}  // namespace
}  // namespace harbor::gui

namespace harbor::gui {
namespace {

// Files named at launch open where the browser would open them.
TEST_F(BrowserViewTest, LaunchFilesTakeTheBrowsersRoute) {
  test::writeFile(root() / "notes.txt", "text");
  test::writeFile(root() / "bundle.zip", "PK\x05\x06" + std::string(18, '\0'));
  DesktopApplication desktop;
  desktop.launch({(root() / "bundle.zip").string()});
  QApplication::processEvents();
  QMenu* sheet = nullptr;
  (void)QTest::qWaitFor(
      [&] {
        for (QMenu* m : desktop.window().findChildren<QMenu*>(
                 QStringLiteral("sheet%1").arg(FileManagerBaseController::kTagArchiveSheet)))
          sheet = m;
        return sheet != nullptr;
      },
      5000);
  EXPECT_NE(sheet, nullptr) << "the archive did not ask what to do";
  if (sheet) sheet->close();

  // A text file is the editor's.
  auto* browser = dynamic_cast<FileManagerController*>(
      &qobject_cast<BrowserView*>(desktop.window().top())->controller());
  ASSERT_NE(browser, nullptr);
  browser->loadFilePathFromServer((root() / "notes.txt").string());
  EXPECT_NE(qobject_cast<EditorView*>(desktop.window().top()), nullptr);
}

}  // namespace
}  // namespace harbor::gui

// The archive browser's widgets over real zip files made by our own writer.
#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>

#include "ViewerSamples.h"
#include "browser/ViewArchiveController.h"
#include "gui/ArchiveView.h"
#include "gui/EditorView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

namespace fs = std::filesystem;

class ArchiveViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
    window = std::make_unique<MainWindow>();
    window->setRoot(makeEmptyRoot(window.get()), QStringLiteral("Documents"));
  }
  void TearDown() override {
    window.reset();
    QApplication::processEvents();
    TempHome::TearDown();
  }

  // What the file browser does: pushes the archive's screen.
  ArchiveView* open(const fs::path& archive) {
    auto controller = std::make_shared<ViewArchiveController>(archive.string());
    EXPECT_TRUE(window->pushScreen(controller));
    auto* view = qobject_cast<ArchiveView*>(window->top());
    EXPECT_TRUE(view);
    return view;
  }

  static QStringList names(ArchiveView& view) {
    QStringList out;
    for (int i = 0; i < view.list()->topLevelItemCount(); ++i)
      out << view.list()->topLevelItem(i)->text(0);
    return out;
  }

  static bool settle(ArchiveView& view) {
    return QTest::qWaitFor(
        [&] { return view.controller().isListed() && !view.controller().isWorking(); }, 20000);
  }

  static QDialog* waitForDialog(const QString& name, int waitMs = 20000) {
    QDialog* found = nullptr;
    (void)!QTest::qWaitFor(
        [&] {
          for (QWidget* w : QApplication::topLevelWidgets()) {
            if (w->objectName() == name && w->isVisible()) found = qobject_cast<QDialog*>(w);
          }
          return found != nullptr;
        },
        waitMs);
    return found;
  }

  // Every file named `name` under the document root, outside hidden folders.
  std::vector<fs::path> filesNamed(const std::string& name) const {
    std::vector<fs::path> out;
    for (auto it = fs::recursive_directory_iterator(root()); it != fs::end(it); ++it) {
      if (it->path().filename().string().starts_with('.')) {
        if (it->is_directory()) it.disable_recursion_pending();
        continue;
      }
      if (it->is_regular_file() && it->path().filename() == name) out.push_back(it->path());
    }
    return out;
  }

  std::unique_ptr<MainWindow> window;
};

TEST_F(ArchiveViewTest, ListsFoldersOpensThemAndExtractsOneEntry) {
  const fs::path zip = root() / "bundle.zip";
  samples::writeZip(
      zip, {{"top.txt", "top"}, {"docs/readme.txt", "read me"}, {"docs/notes/n1.txt", "n1"}});
  ArchiveView* view = open(zip);
  ASSERT_TRUE(view);
  ASSERT_TRUE(settle(*view));
  QStringList shown = names(*view);
  shown.sort();
  EXPECT_EQ(shown, (QStringList{"docs", "top.txt"}));
  // A folder row tells how many items it holds.
  auto rows = view->list()->findItems(QStringLiteral("docs"), Qt::MatchExactly);
  ASSERT_EQ(rows.size(), 1);
  EXPECT_TRUE(rows[0]->text(1).contains(QLatin1String("(3 ")) ||
              rows[0]->text(1).contains(QLatin1String("(2 ")))
      << rows[0]->text(1).toStdString();

  // A folder opens as a screen of its own over the same reader.
  view->activate(QStringLiteral("docs"));
  auto* inner = qobject_cast<ArchiveView*>(window->top());
  ASSERT_TRUE(inner && inner != view);
  QStringList innerNames = names(*inner);
  innerNames.sort();
  EXPECT_EQ(innerNames, (QStringList{"notes", "readme.txt"}));
  EXPECT_EQ(inner->controller().archiveDelegate, view->controller().archiveDelegate);
  window->pop(inner);
  QApplication::processEvents();
  ASSERT_EQ(window->top(), view);

  // A right click marks the entry and offers the sheet; Extract takes only it.
  view->hold(QStringLiteral("top.txt"));
  QApplication::processEvents();
  auto* sheet = view->findChild<QMenu*>(QStringLiteral("sheet80003"));
  ASSERT_TRUE(sheet);
  sheet->close();
  view->findChild<QToolButton*>(QStringLiteral("extract"))->click();
  ASSERT_TRUE(QTest::qWaitFor([&] { return filesNamed("top.txt").size() == 1; }, 20000));
  ASSERT_TRUE(settle(*view));
  EXPECT_TRUE(filesNamed("readme.txt").empty());
  EXPECT_EQ(test::readFile(filesNamed("top.txt").front()), "top");
}

TEST_F(ArchiveViewTest, SevenZipBrowsesLikeAZip) {
  const fs::path archive = root() / "bundle.7z";
  samples::writeZip(archive, {{"a.txt", "a"}, {"docs/b.txt", "b"}});
  ArchiveView* view = open(archive);
  ASSERT_TRUE(view);
  ASSERT_TRUE(settle(*view));
  QStringList shown = names(*view);
  shown.sort();
  EXPECT_EQ(shown, (QStringList{"a.txt", "docs"}));
  view->activate(QStringLiteral("docs"));
  auto* inner = qobject_cast<ArchiveView*>(window->top());
  ASSERT_TRUE(inner && inner != view);
  EXPECT_EQ(names(*inner), QStringList{"b.txt"});
}

TEST_F(ArchiveViewTest, EncryptedArchiveAsksForThePasswordOnceThenOpensTheMember) {
  const fs::path zip = root() / "locked.zip";
  samples::writeZip(zip, {{"secret.txt", "the tide turns at six"}}, "harbour");
  ArchiveView* view = open(zip);
  ASSERT_TRUE(view);
  int asked = 0;
  // The reader decides whether listing already needs the password or only
  // opening a member does; the dialog is answered wherever it comes.
  auto answerIfAsked = [&](int waitMs) {
    QDialog* ask = waitForDialog(QStringLiteral("alert2023"), waitMs);
    if (!ask) return;
    ++asked;
    auto* field = ask->findChild<QLineEdit*>();
    ASSERT_TRUE(field);
    field->setText(QStringLiteral("harbour"));
    for (QPushButton* b : ask->findChildren<QPushButton*>())
      if (b->isDefault()) b->click();
  };
  answerIfAsked(3000);
  ASSERT_TRUE(settle(*view));
  ASSERT_EQ(names(*view), QStringList{"secret.txt"});

  view->activate(QStringLiteral("secret.txt"));
  answerIfAsked(asked ? 500 : 20000);
  EXPECT_EQ(asked, 1) << "the password is asked once for the whole archive";

  // The member opens alone in the editor, with its plain text.
  ASSERT_TRUE(QTest::qWaitFor([&] { return qobject_cast<EditorView*>(window->top()); }, 20000));
  auto* editor = qobject_cast<EditorView*>(window->top());
  ASSERT_TRUE(QTest::qWaitFor([&] { return !editor->controller().isLoading(); }, 20000));
  EXPECT_EQ(editor->textWidget()->toPlainText(), QStringLiteral("the tide turns at six"));
}

}  // namespace
}  // namespace harbor::gui

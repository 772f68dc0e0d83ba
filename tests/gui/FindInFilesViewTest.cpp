// Find in files: the results tree, opening a hit, and Cancel.
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>
#include <string>

#include "editor/EditorBaseController.h"
#include "editor/FindTextInString.h"
#include "gui/EditorView.h"
#include "gui/FindInFilesView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "platform/Strings.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

class FindInFilesViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
    window_ = std::make_unique<MainWindow>();
    window_->setRoot(makeEmptyRoot(window_.get()), QStringLiteral("Documents"));
    window_->resize(900, 600);
    window_->show();
  }
  void TearDown() override {
    window_.reset();
    // The window set itself as the place for notices; it is gone now.
    QtScreenPort::noticeSink() = nullptr;
    TempHome::TearDown();
  }

  // The screen as `--show find-in-files` opens it.
  FindInFilesView* show(const std::string& path) {
    EXPECT_TRUE(window_->showNamed("find-in-files", path));
    return qobject_cast<FindInFilesView*>(window_->top());
  }

  static void runSearch(FindInFilesView& view, const QString& pattern) {
    view.patternField()->clear();
    QTest::keyClicks(view.patternField(), pattern);
    QTest::mouseClick(view.findButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view.isRunning(); }, 20000));
    QApplication::processEvents();
  }

  static void doubleClick(QTreeWidget* tree, QTreeWidgetItem* item) {
    tree->scrollToItem(item);
    const QPoint at = tree->visualItemRect(item).center();
    // A real double click starts with a press of its own; the view wants it.
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, Qt::NoModifier, at);
    QTest::mouseDClick(tree->viewport(), Qt::LeftButton, Qt::NoModifier, at);
  }

  std::unique_ptr<MainWindow> window_;
};

TEST_F(FindInFilesViewTest, ListsHitsByFileAndADoubleClickOpensTheEditorAtTheHit) {
  test::writeFile(root() / "a.txt", "alpha\n  needle here\n");
  test::writeFile(root() / "sub" / "b.cpp", "x needle;\nint needle = 2;\n");
  test::writeFile(root() / "sub" / "none.txt", "nothing to see\n");
  test::writeFile(root() / "blob.bin", std::string("needle\0needle", 13));
  FindInFilesView* view = show(root().string());
  ASSERT_NE(view, nullptr);
  runSearch(*view, "needle");

  QTreeWidget* tree = view->resultTree();
  ASSERT_EQ(tree->topLevelItemCount(), 2);  // no row for a file without hits or a binary one
  QTreeWidgetItem* a = tree->topLevelItem(0);
  QTreeWidgetItem* b = tree->topLevelItem(1);
  EXPECT_EQ(a->text(0), QStringLiteral("a.txt"));
  EXPECT_EQ(b->text(0), QStringLiteral("sub/b.cpp"));
  ASSERT_EQ(a->childCount(), 1);
  ASSERT_EQ(b->childCount(), 2);
  EXPECT_EQ(a->child(0)->text(0), QStringLiteral("2"));
  EXPECT_EQ(a->child(0)->text(1), QStringLiteral("needle here"));
  EXPECT_EQ(b->child(1)->text(0), QStringLiteral("2"));
  EXPECT_EQ(b->child(1)->text(1), QStringLiteral("int needle = 2;"));
  EXPECT_TRUE(view->findButton()->isEnabled());
  EXPECT_FALSE(view->cancelButton()->isEnabled());

  doubleClick(tree, b->child(1));
  auto* editor = qobject_cast<EditorView*>(window_->top());
  ASSERT_NE(editor, nullptr);
  EXPECT_EQ(editor->controller().filePath(), (root() / "sub" / "b.cpp").string());
  const TextRange hit{14, 6};  // "needle" on the second line
  ASSERT_TRUE(QTest::qWaitFor([&] { return editor->controller().selection() == hit; }, 20000));
  QApplication::processEvents();
  const QTextCursor c = editor->textWidget()->textCursor();
  EXPECT_EQ(c.selectedText(), QStringLiteral("needle"));
  EXPECT_EQ(c.selectionStart(), 14);
}

TEST_F(FindInFilesViewTest, OptionsReachTheSearchAndABrokenPatternIsSaidOnce) {
  test::writeFile(root() / "c.txt", "Word word words\n");
  FindInFilesView* view = show(root().string());
  ASSERT_NE(view, nullptr);
  view->caseBox()->setChecked(true);
  view->wordBox()->setChecked(true);
  runSearch(*view, "word");
  ASSERT_EQ(view->resultTree()->topLevelItemCount(), 1);
  EXPECT_EQ(view->resultTree()->topLevelItem(0)->childCount(), 1);

  view->regexBox()->setChecked(true);
  runSearch(*view, "wor(d");
  EXPECT_EQ(view->resultTree()->topLevelItemCount(), 0);
  EXPECT_FALSE(view->statusLabel()->text().isEmpty());
}

TEST_F(FindInFilesViewTest, CancelStopsARunningSearch) {
  // Each file holds a line a backtracking pattern needs ages to give up on;
  // only the cancel can end the search in time.
  const std::int32_t limit = FindTextInString::regexTimeLimit();
  FindTextInString::setRegexTimeLimit(120000);
  const std::string slow(48, 'a');
  for (int i = 0; i < 12; ++i) {
    test::writeFile(root() / ("slow" + std::to_string(i) + ".txt"), slow + "\n");
  }
  FindInFilesView* view = show(root().string());
  ASSERT_NE(view, nullptr);
  view->regexBox()->setChecked(true);
  QTest::keyClicks(view->patternField(), "(a|aa)+b");
  QTest::mouseClick(view->findButton(), Qt::LeftButton);
  ASSERT_TRUE(view->isRunning());
  EXPECT_TRUE(view->cancelButton()->isEnabled());
  QTest::qWait(500);
  ASSERT_TRUE(view->isRunning());  // the workers are inside the pattern
  QTest::mouseClick(view->cancelButton(), Qt::LeftButton);
  const bool stopped = QTest::qWaitFor([&] { return !view->isRunning(); }, 15000);
  FindTextInString::setRegexTimeLimit(limit);
  ASSERT_TRUE(stopped);
  EXPECT_EQ(view->statusLabel()->text(),
            QString::fromStdString(localizedString("UserCancelAction")));
  EXPECT_EQ(view->resultTree()->topLevelItemCount(), 0);
  EXPECT_TRUE(view->findButton()->isEnabled());
}

}  // namespace
}  // namespace harbor::gui

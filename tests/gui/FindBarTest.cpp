// The editor's find and replace bar, driven through its widgets.
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <memory>

#include "editor/EditorBaseController.h"
#include "gui/EditorView.h"
#include "gui/FindBar.h"
#include "gui/QtScreenPort.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

class FindBarTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
  }

  std::unique_ptr<EditorView> open(const std::string& name, std::string_view content,
                                   bool editing = true) {
    const auto path = root() / name;
    test::writeFile(path, content);
    auto view = std::make_unique<EditorView>(path.string());
    view->resize(800, 500);
    view->show();
    view->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(view.get(), 5000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !view->controller().isLoading(); }, 20000));
    QApplication::processEvents();
    if (editing) view->editButton()->click();
    view->textWidget()->setFocus();
    return view;
  }

  // Ctrl+F in the text, as a user opens the bar.
  static FindBar* openBar(EditorView& view) {
    QTest::keyClick(view.textWidget(), Qt::Key_F, Qt::ControlModifier);
    auto* bar = view.findChild<FindBar*>(QStringLiteral("findBar"));
    EXPECT_NE(bar, nullptr);
    EXPECT_TRUE(bar && bar->isVisible());
    return bar;
  }

  static void search(FindBar& bar, const QString& text) {
    bar.findField()->clear();
    QTest::keyClicks(bar.findField(), text);
    // The search runs when typing pauses.
    EXPECT_TRUE(QTest::qWaitFor([&] { return !bar.isSearchPending(); }, 5000));
  }

  static void click(FindBar& bar, const char* name) {
    auto* button = bar.findChild<QPushButton*>(QLatin1String(name));
    ASSERT_NE(button, nullptr) << name;
    ASSERT_TRUE(button->isEnabled()) << name;
    QTest::mouseClick(button, Qt::LeftButton);
  }

  static TextRange widgetSelection(EditorView& view) {
    const QTextCursor c = view.textWidget()->textCursor();
    return TextRange{static_cast<std::size_t>(c.selectionStart()),
                     static_cast<std::size_t>(c.selectionEnd() - c.selectionStart())};
  }
};

TEST_F(FindBarTest, ReplaceAllIsOneUndoStepThroughTheController) {
  auto view = open("pets.txt", "cat dog cat\ncatalog cat\n");
  FindBar* bar = openBar(*view);
  search(*bar, "cat");
  EXPECT_EQ(bar->hits().size(), 4u);
  EXPECT_EQ(view->textWidget()->extraSelections().size(), 4);
  QTest::keyClicks(bar->replaceField(), "cow");
  click(*bar, "replaceAll");

  const std::u16string replaced = u"cow dog cow\ncowalog cow\n";
  EXPECT_EQ(view->controller().text(), replaced);
  EXPECT_EQ(view->textWidget()->toPlainText().toStdU16String(), replaced);
  EXPECT_TRUE(bar->hits().empty());

  // One undo takes every replacement back, one redo puts them all again.
  QTest::keyClick(view->textWidget(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(view->controller().text(), u"cat dog cat\ncatalog cat\n");
  EXPECT_EQ(view->textWidget()->toPlainText(), QStringLiteral("cat dog cat\ncatalog cat\n"));
  QTest::keyClick(view->textWidget(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(view->controller().text(), replaced);
  // The hits follow the text as undo changes it.
  QTest::keyClick(view->textWidget(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_TRUE(QTest::qWaitFor([&] { return bar->hits().size() == 4u; }, 2000));
}

TEST_F(FindBarTest, NextAndPreviousSelectTheNeighbouringHitsAndWrapOnlyWhenAsked) {
  auto view = open("words.txt", "one two one three one\n", false);
  FindBar* bar = openBar(*view);
  search(*bar, "one");
  ASSERT_EQ(bar->hits().size(), 3u);
  const TextRange first{0, 3}, second{8, 3}, third{18, 3};

  click(*bar, "findNext");
  EXPECT_EQ(view->controller().selection(), first);
  EXPECT_EQ(widgetSelection(*view), first);
  QTest::keyClick(bar->findField(), Qt::Key_Return);
  EXPECT_EQ(view->controller().selection(), second);
  click(*bar, "findNext");
  EXPECT_EQ(view->controller().selection(), third);
  EXPECT_EQ(widgetSelection(*view), third);
  EXPECT_EQ(bar->countLabel()->text(), QStringLiteral("3 / 3"));
  click(*bar, "findNext");  // wraps to the top
  EXPECT_EQ(view->controller().selection(), first);
  click(*bar, "findPrevious");  // and back round to the bottom
  EXPECT_EQ(view->controller().selection(), third);
  click(*bar, "findPrevious");
  EXPECT_EQ(view->controller().selection(), second);

  // Without wrapping the ends stop the search where it is.
  bar->loopBox()->setChecked(false);
  click(*bar, "findNext");
  EXPECT_FALSE(bar->findNext());
  EXPECT_EQ(view->controller().selection(), third);

  // Reading mode finds but does not replace.
  EXPECT_FALSE(bar->findChild<QPushButton*>(QStringLiteral("replaceAll"))->isEnabled());

  QTest::keyClick(bar->findField(), Qt::Key_Escape);
  EXPECT_FALSE(bar->isVisible());
  EXPECT_TRUE(view->textWidget()->extraSelections().isEmpty());
  EXPECT_EQ(view->controller().text(), u"one two one three one\n");
}

TEST_F(FindBarTest, OptionsChangeWhatMatchesAndRegexTemplatesTakeGroups) {
  auto view = open("items.txt", "Item1 item22 items item-3\n");
  FindBar* bar = openBar(*view);

  bar->regexBox()->setChecked(true);
  search(*bar, "item(\\d+)");
  EXPECT_EQ(bar->hits().size(), 2u);  // case is ignored unless asked
  bar->caseBox()->setChecked(true);
  EXPECT_EQ(bar->hits().size(), 1u);
  bar->caseBox()->setChecked(false);

  // A replacement of one hit uses the template and moves to the next hit.
  QTest::keyClicks(bar->replaceField(), "n$1");
  click(*bar, "findNext");
  click(*bar, "replaceOne");
  EXPECT_EQ(view->controller().text(), u"n1 item22 items item-3\n");
  EXPECT_EQ(view->controller().selection(), (TextRange{3, 6}));
  click(*bar, "replaceOne");
  EXPECT_EQ(view->controller().text(), u"n1 n22 items item-3\n");

  // Whole words: "-" counts as part of a word, so "item-3" is no hit either.
  bar->regexBox()->setChecked(false);
  bar->wordBox()->setChecked(true);
  search(*bar, "item");
  EXPECT_TRUE(bar->hits().empty());
  bar->wordBox()->setChecked(false);
  EXPECT_EQ(bar->hits().size(), 2u);

  // A broken pattern says so and offers nothing to step through or replace.
  bar->regexBox()->setChecked(true);
  search(*bar, "item(");
  EXPECT_TRUE(bar->hits().empty());
  EXPECT_FALSE(bar->countLabel()->text().isEmpty());
  EXPECT_FALSE(bar->findChild<QPushButton*>(QStringLiteral("findNext"))->isEnabled());
  EXPECT_FALSE(bar->findChild<QPushButton*>(QStringLiteral("replaceAll"))->isEnabled());
}

TEST_F(FindBarTest, OpeningTakesASelectedWordAsTheSearch) {
  auto view = open("pick.txt", "alpha beta alpha\n", false);
  QTextCursor c = view->textWidget()->textCursor();
  c.setPosition(6);
  c.setPosition(10, QTextCursor::KeepAnchor);
  view->textWidget()->setTextCursor(c);
  FindBar* bar = openBar(*view);
  EXPECT_EQ(bar->findField()->text(), QStringLiteral("beta"));
  EXPECT_EQ(bar->hits().size(), 1u);
  EXPECT_TRUE(bar->findField()->hasFocus());
}

}  // namespace
}  // namespace harbor::gui

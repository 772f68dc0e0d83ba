// The editor screen's widgets, driven as a user would, on Qt's offscreen platform.
#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QKeyEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <chrono>
#include <memory>

#include "editor/EditorBaseController.h"
#include "gui/EditorView.h"
#include "gui/EncodingPicker.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/WebPageView.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"
#include "syntax/CodeFormatParser.h"

namespace harbor::gui {
namespace {

using namespace std::chrono_literals;

class EditorViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
  }

  std::unique_ptr<EditorView> open(const std::string& name, std::string_view content) {
    const auto path = root() / name;
    test::writeFile(path, content);
    auto view = std::make_unique<EditorView>(path.string());
    view->resize(700, 500);
    view->show();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !view->controller().isLoading(); }, 20000));
    QApplication::processEvents();
    return view;
  }

  static void startEditing(EditorView& view) {
    view.editButton()->click();
    ASSERT_TRUE(view.controller().isEditable());
    view.textWidget()->setFocus();
  }

  static void placeCaret(EditorView& view, int offset) {
    QTextCursor c = view.textWidget()->textCursor();
    c.setPosition(offset);
    view.textWidget()->setTextCursor(c);
  }

  static QString widgetText(EditorView& view) { return view.textWidget()->toPlainText(); }

  static std::optional<Color> storageColor(EditorView& view, std::size_t offset) {
    return view.controller().textStorage().attributesAt(offset).foregroundColor;
  }

  static QColor widgetColor(EditorView& view, int offset) {
    QApplication::processEvents();
    return view.textWidget()->formatAt(offset).foreground().color();
  }

  static QColor qcolor(const Color& c) { return QColor(c.red, c.green, c.blue); }
};

TEST_F(EditorViewTest, KeywordColourReachesTheWidgetAndFollowsTypedText) {
  auto view = open("main.cpp", "int value;\nreturn value;\n");
  const int keyword = static_cast<int>(widgetText(*view).indexOf(QLatin1String("return")));
  const auto colour = storageColor(*view, static_cast<std::size_t>(keyword));
  ASSERT_TRUE(colour.has_value()) << "the pass coloured no keyword";
  const auto identifier = storageColor(*view, 4);
  ASSERT_NE(colour, identifier);
  EXPECT_EQ(widgetColor(*view, keyword), qcolor(*colour));
  EXPECT_EQ(widgetColor(*view, keyword + 5), qcolor(*colour));

  // Typing in the middle moves the run with its word, and the new text
  // before it does not take the keyword's colour.
  startEditing(*view);
  placeCaret(*view, keyword);
  QTest::keyClicks(view->textWidget(), "xyz ");
  EXPECT_EQ(widgetText(*view), QStringLiteral("int value;\nxyz return value;\n"));
  EXPECT_EQ(widgetColor(*view, keyword + 4), qcolor(*colour));
  EXPECT_NE(widgetColor(*view, keyword), qcolor(*colour));
  EXPECT_EQ(view->textWidget()->textCursor().position(), keyword + 4);

  // Undo and redo go through the controller's journal and the widget follows.
  QTest::keyClick(view->textWidget(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(widgetText(*view), QStringLiteral("int value;\nreturn value;\n"));
  EXPECT_EQ(widgetColor(*view, keyword), qcolor(*colour));
  QTest::keyClick(view->textWidget(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(widgetText(*view), QStringLiteral("int value;\nxyz return value;\n"));

  // Deleting a word goes through the controller too: widget and text agree.
  placeCaret(*view, keyword + 3);
  QTest::keyClick(view->textWidget(), Qt::Key_Backspace, Qt::ControlModifier);
  EXPECT_EQ(widgetText(*view), QStringLiteral("int value;\n return value;\n"));
  EXPECT_EQ(view->controller().text(), u"int value;\n return value;\n");
}

TEST_F(EditorViewTest, RestylingTouchesOnlyTheParagraphsAPassWrote) {
  std::string text;
  for (int i = 0; i < 200; ++i)
    text += "int v" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
  auto view = open("many.cpp", text);
  EXPECT_GE(view->restyledParagraphs(), 200);  // the first pass colours every line
  startEditing(*view);
  placeCaret(*view, static_cast<int>(text.size() / 2));
  QTest::keyClick(view->textWidget(), Qt::Key_Space);
  // At most the paragraph typed in (the document may carry its formats along).
  EXPECT_LE(view->restyledParagraphs(), 2);
}

TEST_F(EditorViewTest, ALargeFileColoursTheScreenFirstAndTheRestWhenIdle) {
  std::string text;
  for (int i = 0; i < 6000; ++i) text += "return v" + std::to_string(i) + "; // note\n";
  auto view = open("large.cpp", text);
  const QString shown = widgetText(*view);
  const Color keyword = *storageColor(*view, 0);
  const auto at = [&](int line) {
    return static_cast<int>(view->textWidget()->document()->findBlockByNumber(line).position());
  };
  // The window's lines have their colours; the far end waits for idle time.
  EXPECT_EQ(view->textWidget()->formatAt(at(1)).foreground().color(), qcolor(keyword));
  EXPECT_LT(view->restyledParagraphs(), 200);
  // Scrolling to the end shows coloured text at once.
  view->textWidget()->verticalScrollBar()->setValue(
      view->textWidget()->verticalScrollBar()->maximum());
  EXPECT_EQ(view->textWidget()->formatAt(at(5990)).foreground().color(), qcolor(keyword));
  // And idle time finishes the middle.
  ASSERT_TRUE(QTest::qWaitFor(
      [&] {
        return view->textWidget()->formatAt(at(3000)).foreground().color() == qcolor(keyword);
      },
      20000));

  // A keystroke in the middle re-scans a few lines and restyles one or two.
  startEditing(*view);
  placeCaret(*view, at(3000) + 2);
  QTest::keyClick(view->textWidget(), Qt::Key_X);
  EXPECT_LE(view->restyledParagraphs(), 2);
  // Commenting the line out colours it whole, and its neighbours keep theirs.
  placeCaret(*view, at(3000));
  QTest::keyClicks(view->textWidget(), "//");
  EXPECT_EQ(widgetColor(*view, at(3000) + 3), qcolor(CodeFormatParser::commentColor()));
  EXPECT_EQ(widgetColor(*view, at(3001)), qcolor(keyword));
  EXPECT_EQ(widgetColor(*view, at(2999)), qcolor(keyword));
}

TEST_F(EditorViewTest, CarriageReturnsKeepOffsetsAndCopyGivesThemBack) {
  auto view = open("crlf.cpp", "int a;\r\nreturn a;\r\n");
  const auto& text = view->controller().text();
  const auto keyword = text.find(u"return");
  ASSERT_NE(keyword, std::u16string::npos);
  EXPECT_EQ(view->textWidget()->document()->characterCount() - 1, static_cast<int>(text.size()));
  EXPECT_EQ(widgetColor(*view, static_cast<int>(keyword)), qcolor(*storageColor(*view, keyword)));
  view->textWidget()->selectAll();
  view->textWidget()->copy();
  EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("int a;\r\nreturn a;\r\n"));
}

TEST_F(EditorViewTest, BarKeysEnterTheirTextAndPlaceTheCaret) {
  auto view = open("page.html", "<p></p>");
  startEditing(*view);
  placeCaret(*view, 2);
  const auto& keys = view->controller().keys();
  const auto find = [&](const std::u16string& tag) {
    for (std::size_t i = 0; i < keys.size(); ++i)
      if (keys[i].stringTag == tag) return static_cast<int>(i);
    return -1;
  };
  // In a page a quote key enters a pair and stands between its halves.
  const int quote = find(u"\"");
  ASSERT_GE(quote, 0);
  QTest::mouseClick(view->keyBar()->keyButton(quote), Qt::LeftButton);
  EXPECT_EQ(widgetText(*view), QStringLiteral("<p\"\"></p>"));
  EXPECT_EQ(view->textWidget()->textCursor().position(), 3);
  // A right click is the long press: the plain quote.
  view->keyBar()->keyButton(quote)->customContextMenuRequested(QPoint(1, 1));
  QApplication::processEvents();
  EXPECT_EQ(widgetText(*view), QStringLiteral("<p\"\"\"></p>"));
  EXPECT_EQ(view->textWidget()->textCursor().position(), 4);
  // Holding a key as long as a long press does the same, once, without a tap.
  const int less = find(u"<");
  ASSERT_GE(less, 0);
  QToolButton* button = view->keyBar()->keyButton(less);
  QTest::mousePress(button, Qt::LeftButton);
  QTest::qWait(KeyBar::kLongPressMs + 150);
  QTest::mouseRelease(button, Qt::LeftButton);
  EXPECT_EQ(widgetText(*view), QStringLiteral("<p\"\"<>\"></p>"));
  EXPECT_EQ(view->textWidget()->textCursor().position(), 5);
}

TEST_F(EditorViewTest, SuggestionsShowAtTheCaretAndReturnTakesTheHighlightedOne) {
  auto view = open("s.html", "\n");
  startEditing(*view);
  placeCaret(*view, 0);
  QTest::keyClicks(view->textWidget(), "<di");
  QApplication::processEvents();
  QListWidget* list = view->suggestionList();
  ASSERT_TRUE(list->isVisible());
  ASSERT_GE(list->count(), 2);
  EXPECT_EQ(list->currentRow(), 0);
  // Below the caret's line.
  EXPECT_GE(list->geometry().top(), view->textWidget()->cursorRect().bottom());
  QTest::keyClick(view->textWidget(), Qt::Key_Down);
  EXPECT_EQ(list->currentRow(), 1);
  QTest::keyClick(view->textWidget(), Qt::Key_Up);
  QTest::keyClick(view->textWidget(), Qt::Key_Up);  // no wrap past the top
  EXPECT_EQ(list->currentRow(), 0);
  const QString chosen = list->item(0)->text();
  QTest::keyClick(view->textWidget(), Qt::Key_Return);
  EXPECT_FALSE(list->isVisible());
  EXPECT_TRUE(widgetText(*view).startsWith(QLatin1Char('<') + chosen))
      << widgetText(*view).toStdString();
  EXPECT_FALSE(widgetText(*view).contains(QStringLiteral("\n\n")));  // Return entered no line

  // Escape closes the list and keeps the text.
  QTest::keyClicks(view->textWidget(), " <sp");
  QApplication::processEvents();
  ASSERT_TRUE(list->isVisible());
  const QString before = widgetText(*view);
  QTest::keyClick(view->textWidget(), Qt::Key_Escape);
  EXPECT_FALSE(list->isVisible());
  EXPECT_EQ(widgetText(*view), before);
}

TEST_F(EditorViewTest, SaveWritesUtf8AndReopeningRestoresThePlace) {
  std::string text;
  for (int i = 0; i < 400; ++i) text += "// line " + std::to_string(i) + "\n";
  const auto path = root() / "long.cpp";
  {
    auto view = open("long.cpp", text);
    startEditing(*view);
    placeCaret(*view, 0);
    // One non-ASCII letter, as a keyboard layout delivers it.
    QKeyEvent letter(QEvent::KeyPress, 0, Qt::NoModifier, QString::fromUtf8("\xc3\xa9"));
    QApplication::sendEvent(view->textWidget(), &letter);
    view->scrollToOffset(view->controller().text().find(u"line 200"));
    QApplication::processEvents();
    QTest::keyClick(view->textWidget(), Qt::Key_S, Qt::ControlModifier);
  }
  EXPECT_EQ(test::readFile(path), "\xc3\xa9" + text);

  auto again = std::make_unique<EditorView>(path.string());
  again->resize(700, 500);
  again->show();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !again->controller().isLoading(); }, 20000));
  QApplication::processEvents();
  const QTextBlock first = again->textWidget()->topBlock();
  EXPECT_TRUE(first.text().contains(QStringLiteral("line 200")) ||
              first.text().contains(QStringLiteral("line 199")))
      << first.text().toStdString();
}

TEST_F(EditorViewTest, ClosingWithUnsavedTextAsksAndCancelKeepsTheEditor) {
  MainWindow window;
  window.setRoot(makeEmptyRoot(&window), QStringLiteral("Documents"));
  test::writeFile(root() / "a.cpp", "int a;\n");
  EditorView* view = window.openEditor((root() / "a.cpp").string());
  window.show();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !view->controller().isLoading(); }, 20000));
  QApplication::processEvents();
  EXPECT_EQ(window.depth(), 2);
  EXPECT_EQ(window.breadcrumb(), QStringLiteral("Documents \u203a a.cpp"));

  startEditing(*view);
  QTest::keyClicks(view->textWidget(), "x");
  view->requestClose();
  QDialog* ask = nullptr;
  ASSERT_TRUE(QTest::qWaitFor(
      [&] {
        ask = window.findChild<QDialog*>(
            QStringLiteral("alert%1").arg(EditorBaseController::kTagSaveChanges));
        return ask && ask->isVisible();
      },
      5000));
  QTest::mouseClick(ask->findChild<QPushButton*>(QStringLiteral("button0")),
                    Qt::LeftButton);  // Cancel
  QTest::qWait(50);
  // Cancel throws the change away (into the backup) and closes without saving.
  EXPECT_TRUE(QTest::qWaitFor([&] { return window.depth() == 1; }, 5000));
  EXPECT_EQ(test::readFile(root() / "a.cpp"), "int a;\n");
}

TEST_F(EditorViewTest, QuittingAsksEachUnsavedEditorAndEscapeKeepsEverything) {
  MainWindow window;
  window.setRoot(makeEmptyRoot(&window), QStringLiteral("Documents"));
  test::writeFile(root() / "one.cpp", "int one;\n");
  test::writeFile(root() / "two.cpp", "int two;\n");
  window.show();
  for (const char* name : {"one.cpp", "two.cpp"}) {
    EditorView* view = window.openEditor((root() / name).string());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view->controller().isLoading(); }, 20000));
    QApplication::processEvents();
    startEditing(*view);
    QTest::keyClicks(view->textWidget(), "x");
  }
  const QString tag = QStringLiteral("alert%1").arg(EditorBaseController::kTagSaveChanges);
  const auto question = [&] {
    QDialog* ask = nullptr;
    (void)QTest::qWaitFor(
        [&] {
          for (QDialog* d : window.findChildren<QDialog*>(tag))
            if (d->isVisible()) ask = d;
          return ask != nullptr;
        },
        5000);
    return ask;
  };

  // Escape answers nothing: no editor goes, no text is lost, the window stays.
  window.close();
  QDialog* ask = question();
  ASSERT_NE(ask, nullptr);
  QTest::keyClick(ask, Qt::Key_Escape);
  QTest::qWait(50);
  EXPECT_EQ(window.depth(), 3);
  EXPECT_TRUE(window.isVisible());

  // Now OK saves the top one, and the one below is asked in turn.
  window.close();
  ask = question();
  ASSERT_NE(ask, nullptr);
  QTest::mouseClick(ask->findChild<QPushButton*>(QStringLiteral("button1")), Qt::LeftButton);
  ASSERT_TRUE(QTest::qWaitFor([&] { return window.depth() == 2; }, 5000));
  EXPECT_EQ(test::readFile(root() / "two.cpp"), "xint two;\n");
  ask = question();
  ASSERT_NE(ask, nullptr);
  QTest::mouseClick(ask->findChild<QPushButton*>(QStringLiteral("button0")), Qt::LeftButton);
  EXPECT_TRUE(QTest::qWaitFor([&] { return !window.isVisible(); }, 5000));
  // Cancel there closes without saving; what was typed stays in the backup.
  EXPECT_EQ(test::readFile(root() / "one.cpp"), "int one;\n");
}

TEST_F(EditorViewTest, PickingAnEncodingReadsTheFileAgainWithIt) {
  auto view = open("cafe.txt", "caf\xc3\xa9\n");
  EXPECT_EQ(widgetText(*view), QString::fromUtf8("caf\xc3\xa9\n"));
  view->pickEncoding((root() / "cafe.txt").string(), view->controller().encodingString());
  auto* picker = view->findChild<EncodingPicker*>();
  ASSERT_NE(picker, nullptr);
  const auto rows = picker->list()->findItems(QStringLiteral("8859-1"), Qt::MatchContains);
  ASSERT_FALSE(rows.isEmpty());
  QTest::mouseClick(picker->list()->viewport(), Qt::LeftButton, {},
                    picker->list()->visualItemRect(rows.front()).center());
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return widgetText(*view).startsWith(QString::fromUtf8("caf\xc3\x83")); }, 5000))
      << widgetText(*view).toStdString();
  EXPECT_NE(view->controller().encodingString().find("8859-1"), std::string::npos);
}

}  // namespace
}  // namespace harbor::gui

// Qt, fontconfig and glib keep process-lifetime caches that the leak checker
// of the sanitizer build would report; our own code gets no such pass.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libQt6Core.so\nleak:libQt6Gui.so\nleak:libQt6Widgets.so\nleak:libfontconfig.so\n"
         "leak:libglib-2.0.so\nleak:libfreetype.so\nleak:libQt6WebEngineCore.so\n"
         "leak:libQt6Pdf.so\nleak:libQt6Multimedia.so\nleak:libpulse.so\n";
}

// The web engine's own code frees some objects through a base of another
// size, which the sanitizer build stops on inside the library. This binary
// only: the other suites keep the check.
extern "C" const char* __asan_default_options() {
  return "new_delete_type_mismatch=0";
}

int main(int argc, char** argv) {
  // Widgets without a display.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--no-sandbox");
  harbor::gui::registerViewerSchemes();
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

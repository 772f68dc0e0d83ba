// The editor screen through a recording port: every save case, the alerts and
// their answers, and the rule that no text is ever lost.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "editor/EditorBak.h"
#include "editor/EditorBaseController.h"
#include "filemanager/CommonUtil.h"
#include "platform/MainQueue.h"
#include "platform/Unicode.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

struct Port : IEditorView {
  std::vector<ScreenAlert> alerts;
  AlertReply alertReply;
  std::vector<ScreenSheet> sheets;
  SheetReply sheetReply;
  std::vector<std::string> messages;
  std::vector<std::pair<std::string, std::string>> previews;
  int closed = 0;

  void showAlert(const ScreenAlert& a, AlertReply reply) override {
    alerts.push_back(a);
    alertReply = std::move(reply);
  }
  void showSheet(const ScreenSheet& s, SheetReply reply) override {
    sheets.push_back(s);
    sheetReply = std::move(reply);
  }
  void showMessage(const std::string& key, const std::string&) override { messages.push_back(key); }
  void setTitle(const std::string&) override {}
  void setBusy(bool) override {}
  void close() override { ++closed; }
  void scrollToOffset(std::size_t offset) override { offsets.push_back(offset); }
  void scrollToHeight(double y) override { heights.push_back(y); }
  double contentHeight() const override { return content; }
  double viewHeight() const override { return shown; }
  std::vector<std::size_t> offsets;
  std::vector<double> heights;
  double content = 0, shown = 0;
  bool supportsRoute(ScreenRoute) const override { return true; }
  void openRoute(ScreenRoute, const std::string& path, const std::string& title) override {
    previews.emplace_back(path, title);
  }
  void answer(int button, std::vector<std::string> fields = {}) {
    auto reply = std::move(alertReply);
    ASSERT_TRUE(reply);
    reply(button, fields);
  }
  void choose(const std::string& row) {
    ASSERT_FALSE(sheets.empty());
    auto& rows = sheets.back().rows;
    auto at = std::find(rows.begin(), rows.end(), row);
    ASSERT_NE(at, rows.end()) << row;
    sheetReply(static_cast<int>(at - rows.begin()));
  }
};

// A folder nobody can write into, also for root; undone on destruction.
class LockedFolder {
 public:
  explicit LockedFolder(fs::path dir) : dir_(std::move(dir)) {
    if (::geteuid() == 0) {
      immutable_ = std::system(("chattr +i '" + dir_.string() + "' 2>/dev/null").c_str()) == 0;
    } else {
      fs::permissions(dir_, fs::perms::owner_read | fs::perms::owner_exec);
      immutable_ = true;
    }
  }
  ~LockedFolder() {
    if (::geteuid() == 0) {
      std::system(("chattr -i '" + dir_.string() + "' 2>/dev/null").c_str());
    } else {
      fs::permissions(dir_, fs::perms::owner_all);
    }
  }
  bool locked() const { return immutable_; }

 private:
  fs::path dir_;
  bool immutable_ = false;
};

class EditorController : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
  }

  std::shared_ptr<EditorBaseController> open(const fs::path& path, bool isNew = false) {
    auto editor = EditorBaseController::instanceWithPath(path.string(), &port);
    editor->_isAddFile = isNew;
    editor->viewDidLoad();
    editor->viewDidAppear();
    MainQueue::shared().runUntil([&] { return !editor->isLoading(); }, std::chrono::seconds(30));
    return editor;
  }
  void type(EditorBaseController& editor, const std::u16string& text) {
    for (char16_t c : text)
      ASSERT_TRUE(editor.changeText(editor.selection(), std::u16string(1, c)));
  }
  std::vector<std::string> backups() const {
    std::vector<std::string> out;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(EditorBak::bakDirectory(false), ec)) {
      out.push_back(test::readFile(e.path()));
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  std::vector<std::string> namesIn(const fs::path& dir) const {
    std::vector<std::string> out;
    for (auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  }

  Port port;
};

TEST_F(EditorController, PlainSaveKeepsCrlfBacksUpAndRemembersThePosition) {
  fs::path file = root() / "a.c";
  test::writeFile(file, "int a;\r\nint b;\r\n");
  auto editor = open(file);
  EXPECT_FALSE(editor->isEditable());  // read-only until Edit
  EXPECT_FALSE(editor->changeText({0, 0}, u"x"));
  editor->setEditing(true);
  editor->setSelectedRange({6, 0});
  type(*editor, u" // ok");
  editor->setFirstVisibleOffset(8);
  editor->alertActionSheet();
  port.choose("Save");
  EXPECT_EQ(test::readFile(file), "int a; // ok\r\nint b;\r\n");
  EXPECT_EQ(port.closed, 1);
  // The opening copy and the copy of the saved text.
  EXPECT_EQ(backups(),
            (std::vector<std::string>{"int a;\r\nint b;\r\n", "int a; // ok\r\nint b;\r\n"}));
  auto record = UWebViewUtil::getLastOpenByPath(file.string());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->at(SYSTEM_BOOKMARK_TEXT_START).asInteger(), 8);
}

TEST_F(EditorController, CleanCloseAsksNothingAndUndoneEditsCountAsClean) {
  fs::path file = root() / "b.txt";
  test::writeFile(file, "hello");
  auto editor = open(file);
  editor->setEditing(true);
  type(*editor, u"abc");
  editor->undoAction();
  EXPECT_EQ(editor->text(), u"hello");
  EXPECT_FALSE(editor->canUndo());
  editor->cancelAct();
  EXPECT_TRUE(port.alerts.empty());
  EXPECT_EQ(port.closed, 1);
  EXPECT_TRUE(UWebViewUtil::getLastOpenByPath(file.string()));
}

TEST_F(EditorController, DiscardingChangesLeavesThemInTheBackupFolder) {
  fs::path file = root() / "c.txt";
  test::writeFile(file, "old");
  auto editor = open(file);
  editor->setEditing(true);
  editor->changeText({0, 3}, u"new text");
  editor->cancelAct();
  ASSERT_EQ(port.alerts.size(), 1u);
  EXPECT_EQ(port.alerts[0].tag, EditorBaseController::kTagSaveChanges);
  EXPECT_EQ(port.alerts[0].buttons.size(), 2u);
  port.answer(0);
  EXPECT_EQ(test::readFile(file), "old");
  EXPECT_EQ(port.closed, 1);
  EXPECT_EQ(backups(), (std::vector<std::string>{"new text", "old"}));
}

TEST_F(EditorController, NewFileAsksForANameAndEachSaveMakesAnotherFile) {
  fs::path proposed = root() / "untitled.txt";
  auto editor = open(proposed, true);
  EXPECT_TRUE(editor->isEditable());
  EXPECT_EQ(editor->text(), u"");  // no template for .txt
  type(*editor, u"hi");
  auto rows = editor->optionRows();
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "ChangeEncoding"), 0);
  editor->alertActionSheet();
  port.choose("Save");
  ASSERT_EQ(port.alerts.size(), 1u);
  EXPECT_EQ(port.alerts[0].tag, EditorBaseController::kTagNameBeforeSave);
  EXPECT_EQ(port.alerts[0].fields[0].text, "untitled");
  EXPECT_EQ(port.alerts[0].fields[1].text, "txt");
  port.answer(1, {"  notes ", "md "});
  EXPECT_EQ(test::readFile(root() / "notes.md"), "hi");
  EXPECT_EQ(port.closed, 1);
  editor->viewText();  // preview saves again: a new file, never over the first
  EXPECT_EQ(test::readFile(root() / "notes 2.md"), "hi");
  ASSERT_EQ(port.previews.size(), 1u);
}

TEST_F(EditorController, RenameOntoAnExistingFileLosesNothing) {
  fs::path file = root() / "d.txt";
  test::writeFile(file, "mine");
  test::writeFile(root() / "taken.txt", "theirs");
  auto editor = open(file);
  editor->setEditing(true);
  editor->changeText({4, 0}, u"!");
  editor->alertViewChangeFileName(EditorBaseController::kTagRename);
  port.answer(1, {"taken", "txt"});
  EXPECT_EQ(editor->fileNameCommon(), "taken.txt");
  editor->saveAndClose();
  EXPECT_EQ(port.closed, 0);  // the text stays on screen
  ASSERT_EQ(port.alerts.size(), 2u);
  EXPECT_NE(port.alerts[1].text.find("taken.txt"), std::string::npos);
  EXPECT_EQ(test::readFile(file), "mine");
  EXPECT_EQ(test::readFile(root() / "taken.txt"), "theirs");

  editor->alertViewChangeFileName(EditorBaseController::kTagRename);
  port.answer(1, {"free", "txt"});
  editor->saveAndClose();
  EXPECT_EQ(test::readFile(root() / "free.txt"), "mine!");
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(editor->filePath(), file.string());  // the old path stays
}

TEST_F(EditorController, FailedWriteKeepsTheOldFileAndClosesOnlyWithABackup) {
  fs::path dir = root() / "locked";
  fs::create_directories(dir);
  fs::path file = dir / "e.txt";
  test::writeFile(file, "before");
  {
    auto editor = open(file);
    editor->setEditing(true);
    editor->changeText({0, 6}, u"after");
    LockedFolder lock(dir);
    if (!lock.locked()) GTEST_SKIP() << "cannot make a folder read-only here";
    editor->saveAndClose();
    EXPECT_EQ(port.closed, 1);  // the backup holds the text
    EXPECT_EQ(namesIn(dir), (std::vector<std::string>{"e.txt"}));
    EXPECT_EQ(test::readFile(file), "before");
  }
  EXPECT_EQ(backups(), (std::vector<std::string>{"after", "before"}));

  EditorBak::saveSystemEditorAutoBak(false);
  auto editor = open(file);
  editor->setEditing(true);
  editor->changeText({0, 6}, u"again");
  LockedFolder lock(dir);
  editor->saveAndClose();
  EXPECT_EQ(port.closed, 1);  // still only the first close
  ASSERT_FALSE(port.alerts.empty());
  EXPECT_NE(port.alerts.back().text.find("e.txt"), std::string::npos);
  EXPECT_EQ(test::readFile(file), "before");
  EXPECT_EQ(namesIn(dir), (std::vector<std::string>{"e.txt"}));
}

TEST_F(EditorController, UnreadableFileOpensEmptyReadOnlyAndIsNeverOverwritten) {
  fs::path file = root() / "bad.txt";
  test::writeFile(file, std::string("\xff\xfe\x00\xd8\x00", 5));  // a lone surrogate in UTF-16
  auto editor = open(file);
  if (!editor->text().empty()) GTEST_SKIP() << "the detector decoded it";
  editor->setEditing(true);
  EXPECT_FALSE(editor->isEditable());
  EXPECT_EQ(editor->encodingString(), "");
  editor->saveAndClose();
  EXPECT_EQ(test::readFile(file), std::string("\xff\xfe\x00\xd8\x00", 5));
}

TEST_F(EditorController, OptionRowsFollowTheState) {
  fs::path file = root() / "f.html";
  test::writeFile(file, "<p>x</p>");
  auto editor = open(file);
  auto rows = editor->optionRows();
  EXPECT_EQ(rows, (std::vector<std::string>{"Save", "Rename", "Preview", "ChangeEncoding",
                                            "Comments", "Cancel"}));
  EditorHooks::isQuillpad = [] { return true; };
  editor->setEditing(true);
  editor->changeText({0, 0}, u" ");
  rows = editor->optionRows();
  EditorHooks::isQuillpad = [] { return false; };
  EXPECT_EQ(rows, (std::vector<std::string>{"Save", "Rename", "Preview", "Undo", "Get html text",
                                            "Comments", "Cancel"}));
}

TEST_F(EditorController, FontSizeMovesInEvenStepsBetweenTenAndSixty) {
  fs::path file = root() / "g.txt";
  test::writeFile(file, "x");
  auto editor = open(file);
  for (int i = 0; i < 30; ++i) editor->enlargeFontSize();
  EXPECT_EQ(editor->fontSize(), 60);
  for (int i = 0; i < 30; ++i) editor->reduceFontSize();
  EXPECT_EQ(editor->fontSize(), 10);
  editor->saveBookMark();
  EXPECT_EQ(port.messages, (std::vector<std::string>{"AddBookMarkSuccess"}));
  auto mark = CommonUtil::getBookMarkByPath(file.string());
  ASSERT_TRUE(mark);
  EXPECT_TRUE(mark->at(SYSTEM_BOOKMARK_FONT_SIZE).isInteger());
}

TEST_F(EditorController, ButtonsUndoTwoStepsAndTypingGroupsElevenKeystrokes) {
  fs::path file = root() / "h.txt";
  test::writeFile(file, "");
  auto editor = open(file);
  editor->setEditing(true);
  type(*editor, u"abcdefghijklmnopqrstuvwxyz");  // steps of 10, 11 and 5 keys
  editor->changeText({0, 1}, u"A");              // a replacement is its own step
  editor->undoAction();
  EXPECT_EQ(editor->text(), u"abcdefghijklmnopqrstu");
  EXPECT_EQ(editor->selection(), (TextRange{21, 0}));
  editor->redoAction();
  EXPECT_EQ(editor->text(), u"Abcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(editor->selection(), (TextRange{1, 0}));
}

TEST_F(EditorController, ClosingDuringALoadWritesNothing) {
  fs::path file = root() / "big.txt";
  test::writeFile(file, std::string(4 << 20, 'a'));
  auto editor = EditorBaseController::instanceWithPath(file.string(), &port);
  editor->viewDidLoad();
  editor->endScreen();
  editor.reset();
  MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(300));
  EXPECT_FALSE(fs::exists(EditorBak::bakDirectory(false)) &&
               !fs::is_empty(EditorBak::bakDirectory(false)));
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

struct Store : ICreateFile {
  bool accept = true;
  std::vector<std::pair<std::string, std::u16string>> calls;
  bool CreateFile(const std::string& name, const std::u16string& content, bool, const std::string&,
                  const std::string&, void*) override {
    calls.emplace_back(name, content);
    return accept;
  }
};

TEST_F(EditorController, OnlineSaveGoesToTheDelegateAndClosesOnlyWhenStored) {
  Store store;
  auto editor = EditorBaseController::instanceWithPath((root() / "cloud.txt").string(), &port);
  editor->_isOnline = true;
  editor->_isAddFile = true;
  editor->_delegate = &store;
  editor->viewDidLoad();
  type(*editor, u"up");
  // The store is asked on the screen's thread; its answer comes back here.
  const auto settle = [&] {
    MainQueue::shared().runUntil([&] { return !editor->isBusy(); }, std::chrono::seconds(10));
  };
  store.accept = false;
  editor->saveAndClose();
  settle();
  EXPECT_EQ(port.closed, 0);
  EXPECT_EQ(port.messages, (std::vector<std::string>{"NameNotNull"}));
  store.accept = true;
  editor->saveAndClose();
  settle();
  EXPECT_EQ(port.closed, 1);
  ASSERT_EQ(store.calls.size(), 2u);
  EXPECT_EQ(store.calls[1], (std::pair<std::string, std::u16string>{"cloud.txt", u"up"}));
  EXPECT_FALSE(fs::exists(root() / "cloud.txt"));  // nothing local but the backup
  EXPECT_EQ(backups(), (std::vector<std::string>{"up", "up"}));

  editor->alertViewChangeFileName(EditorBaseController::kTagRename);
  port.answer(1, {"stem", ""});  // a stem without an extension names nothing
  editor->saveAndClose();
  settle();
  EXPECT_EQ(store.calls.size(), 2u);
  EXPECT_EQ(port.messages.back(), "NameNotNull");
}

TEST_F(EditorController, UndoIsOneEditOfTheStorageAndLineNumbersFollowIt) {
  fs::path file = root() / "u.c";
  test::writeFile(file, "int a;\nint b;\n");
  auto editor = open(file);
  editor->setEditing(true);
  const auto keyword = editor->textStorage().attributesAt(0).foregroundColor;
  ASSERT_TRUE(keyword.has_value()) << "int is coloured";
  std::vector<TextRange> edits;
  editor->textStorage().addEditObserver([&](TextRange r, std::ptrdiff_t) { edits.push_back(r); });
  EXPECT_EQ(editor->lineNumberText(7), "2");
  type(*editor, u"\n\n");  // two lines above "int b;"
  EXPECT_EQ(editor->lineNumberText(9), "4");
  edits.clear();
  editor->undoAction();
  EXPECT_EQ(editor->text(), u"int a;\nint b;\n");
  EXPECT_EQ(editor->textStorage().string(), editor->text());
  // The undone span alone was replaced; what stood around it kept its colour.
  ASSERT_EQ(edits.size(), 1u);
  EXPECT_EQ(edits[0], (TextRange{0, 0}));
  EXPECT_EQ(editor->textStorage().attributesAt(7).foregroundColor, keyword);
  EXPECT_EQ(editor->lineNumberText(7), "2") << "the numbering cache saw the undo";
  editor->redoAction();
  EXPECT_EQ(editor->lineNumberText(9), "4");
}

TEST_F(EditorController, DeferredFormattingRunsOnceSixSecondsLaterUnlessStopped) {
  MainQueue& main = MainQueue::shared();
  main.setManualClock(true);
  fs::path file = root() / "t.c";
  test::writeFile(file, "int x;\n");
  auto editor = open(file);
  // Colours wiped behind the parser's back show whether a pass ran since.
  TextStorage& storage = editor->textStorage();
  const auto wipe = [&] { storage.removeForegroundColor({0, storage.length()}); };
  const auto coloured = [&] { return storage.attributesAt(0).foregroundColor.has_value(); };
  ASSERT_TRUE(coloured());
  editor->startTimer();
  editor->startTimer();  // a second request replaces the first
  wipe();
  main.advanceClock(std::chrono::milliseconds(5999));
  main.runPending();
  EXPECT_TRUE(editor->isTimerPending());
  EXPECT_FALSE(coloured());
  main.advanceClock(std::chrono::milliseconds(1));
  main.runPending();
  EXPECT_FALSE(editor->isTimerPending());
  EXPECT_TRUE(coloured()) << "the pass ran again";
  wipe();
  main.advanceClock(std::chrono::seconds(60));
  main.runPending();
  EXPECT_FALSE(coloured()) << "one-shot";

  // A screen presented on top keeps it; leaving for good stops it.
  editor->startTimer();
  editor->viewDidDisappear(true);
  EXPECT_TRUE(editor->isTimerPending());
  editor->viewDidDisappear(false);
  EXPECT_FALSE(editor->isTimerPending());
  editor->startTimer();
  editor->endScreen();
  main.advanceClock(std::chrono::seconds(6));
  main.runPending();
  EXPECT_FALSE(coloured());
  main.setManualClock(false);
}

TEST_F(EditorController, ToolbarShareSheetAndProgressBar) {
  test::writeFile(root() / "p.txt", "0123456789abcdefghij");
  auto editor = open(root() / "p.txt");
  EXPECT_EQ(editor->toolbarItems(),
            (std::vector<std::string>{"enlarge", "reduce", "bookmark", "progress", "share"}));
  auto page = open(root() / "new.html", true);
  EXPECT_EQ(page->toolbarItems(),
            (std::vector<std::string>{"enlarge", "reduce", "preview", "progress", "share"}));

  editor->actionItem();
  ASSERT_EQ(port.sheets.back().tag, EditorBaseController::kTagShare);
  EXPECT_EQ(port.sheets.back().rows,
            (std::vector<std::string>{"Open In...", "Email", "Print", "Cancel"}));
  port.choose("Print");
  ASSERT_FALSE(port.previews.empty());
  EXPECT_EQ(port.previews.back(),
            (std::pair<std::string, std::string>{(root() / "p.txt").string(), "p.txt"}));

  editor->setVisibleRange({0, 20});
  EXPECT_FALSE(editor->isSliderEnabled()) << "all of it is in sight";
  editor->setVisibleRange({5, 10});
  EXPECT_TRUE(editor->isSliderEnabled());
  EXPECT_EQ(editor->sliderValue(), 5u);
  EXPECT_EQ(editor->sliderMaximum(), 20u);
  editor->sliderReleased(50);
  EXPECT_EQ(port.offsets.back(), 20u) << "clamped to the text";
}

TEST_F(EditorController, ABookmarkWithoutAnOffsetRestoresTheClampedScrollHeight) {
  fs::path file = root() / "long.txt";
  test::writeFile(file, std::string(1000, 'x'));
  CommonUtil::saveBookMarkPath(file.string(), 18, 500, true);
  port.content = 800;
  port.shown = 600;
  auto editor = EditorBaseController::instanceWithPath(file.string(), &port);
  editor->_isLoadFromBookMark = true;
  editor->viewDidLoad();
  editor->viewDidAppear();
  MainQueue::shared().runUntil([&] { return !editor->isLoading(); }, std::chrono::seconds(30));
  EXPECT_EQ(editor->fontSize(), 18);
  ASSERT_FALSE(port.heights.empty());
  EXPECT_EQ(port.heights.back(), 200);
  EXPECT_TRUE(port.offsets.empty());
  editor->cancelAct();
  EXPECT_EQ(UWebViewUtil::getLastOpenByPath(file.string())->at(SYSTEM_BOOKMARK_SCROLLY).asInteger(),
            200);
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

std::vector<std::string> titles(const EditorBaseController& editor) {
  std::vector<std::string> out;
  for (const auto& key : editor.keys()) out.push_back(key._textLabel);
  return out;
}

std::size_t keyIndex(const EditorBaseController& editor, const std::string& title) {
  auto t = titles(editor);
  return static_cast<std::size_t>(std::find(t.begin(), t.end(), title) - t.begin());
}

class EditorKeys : public EditorController {
 protected:
  std::shared_ptr<EditorBaseController> editing(const std::string& name, const std::string& text) {
    test::writeFile(root() / name, text);
    auto editor = open(root() / name);
    editor->setEditing(true);
    return editor;
  }
  void press(EditorBaseController& editor, const std::string& title, bool longPress = false) {
    std::size_t index = keyIndex(editor, title);
    ASSERT_LT(index, editor.keys().size()) << title;
    ASSERT_TRUE(editor.performKey(index, longPress)) << title;
  }
};

TEST_F(EditorKeys, EachFileTypeGetsItsSet) {
  struct Case {
    const char* name;
    std::size_t count;
    const char* third;
  } cases[] = {{"a.html", 22, "<"}, {"a.js", 27, "("},  {"a.php", 22, "<"}, {"a.xml", 17, "<"},
               {"a.vbs", 14, "("},  {"a.css", 21, "{"}, {"a.c", 30, "("},   {"a.zzq", 30, "("}};
  for (const auto& c : cases) {
    auto editor = editing(c.name, "");
    auto t = titles(*editor);
    EXPECT_EQ(t.size(), c.count) << c.name;
    ASSERT_GE(t.size(), 3u);
    EXPECT_EQ(t[2], c.third) << c.name;
    EXPECT_EQ(t[0], "←");
    if (std::string(c.name) != "a.vbs" && std::string(c.name) != "a.css") {
      EXPECT_NE(std::find(t.begin(), t.end(), "tab"), t.end()) << c.name;
      EXPECT_NE(std::find(t.begin(), t.end(), "↰"), t.end()) << c.name;
    }
    EXPECT_NE(std::find(t.begin(), t.end(), "\""), t.end()) << c.name;
  }
  // Inside a page's script block the parser reports its own type.
  auto php = EditorKeyboardItems::getInputViewItemsByType("phpcore", "a.php");
  ASSERT_EQ(php.size(), 33u);
  EXPECT_EQ(php[26]._textLabel, "<?php");
  EXPECT_EQ(php[26].stringTag2, u"\n?>");
  EXPECT_EQ(php[28]._longPress, "clickHtmlTags:");
}

TEST_F(EditorKeys, TapsAndLongPressesEnterWhatTheyShould) {
  auto editor = editing("k.js", "");
  press(*editor, "(");  // a tap enters its own text, unpaired
  EXPECT_EQ(editor->text(), u"(");
  press(*editor, "(", true);
  EXPECT_EQ(editor->text(), u"(()");
  EXPECT_EQ(editor->selection(), (TextRange{2, 0}));
  press(*editor, "{", true);
  EXPECT_EQ(editor->text(), u"(({\n})");
  EXPECT_EQ(editor->selection(), (TextRange{3, 0}));
  press(*editor, "tab", true);
  EXPECT_EQ(editor->text(), u"(({\t\t\n})");
  EXPECT_EQ(editor->selection(), (TextRange{5, 0}));
  press(*editor, "↰");  // two entries back: the tab pair and the braces
  EXPECT_EQ(editor->text(), u"(()");
  press(*editor, "↱");
  EXPECT_EQ(editor->text(), u"(({\t\t\n})");

  auto html = editing("k.html", "");
  press(*html, "\"");  // quotes come in pairs in markup
  EXPECT_EQ(html->text(), u"\"\"");
  EXPECT_EQ(html->selection(), (TextRange{1, 0}));
  press(*html, "\"", true);
  press(*html, "<", true);
  EXPECT_EQ(html->text(), u"\"\"<>\"");
  EXPECT_EQ(html->selection(), (TextRange{3, 0}));
  press(*html, ">", true);
  EXPECT_EQ(html->text(), u"\"\"</>\"");
}

TEST_F(EditorKeys, CaretMovesClampCollapseAndKeepSurrogatePairsWhole) {
  auto editor = editing("m.txt", "0123456789");
  editor->setSelectedRange({2, 3});
  press(*editor, "→");
  EXPECT_EQ(editor->selection(), (TextRange{6, 0}));
  editor->setSelectedRange({2, 3});
  press(*editor, "←");
  EXPECT_EQ(editor->selection(), (TextRange{1, 0}));
  editor->setSelectedRange({10, 0});
  press(*editor, "→");
  EXPECT_EQ(editor->selection(), (TextRange{10, 0}));
  editor->setSelectedRange({8, 2});
  press(*editor, "→");
  EXPECT_EQ(editor->selection(), (TextRange{10, 0}));
  editor->focusDiff(EditorBaseController::kFocusTop);
  EXPECT_EQ(editor->selection(), (TextRange{0, 0}));

  auto emoji = editing("n.txt", "a😀b");
  emoji->setSelectedRange({1, 0});
  press(*emoji, "→");
  EXPECT_EQ(emoji->selection(), (TextRange{3, 0}));
  press(*emoji, "←");
  EXPECT_EQ(emoji->selection(), (TextRange{1, 0}));

  auto empty = editing("e.c", "");
  press(*empty, "←", true);
  EXPECT_EQ(empty->selection(), (TextRange{0, 0}));
}

TEST_F(EditorKeys, WordMovesStopAtWordEdges) {
  auto editor = editing("w.c", "foo_bar  baz(x)");
  press(*editor, "→", true);
  EXPECT_EQ(editor->selection(), (TextRange{7, 0}));
  press(*editor, "→", true);
  EXPECT_EQ(editor->selection(), (TextRange{9, 0}));
  press(*editor, "←", true);  // back over the blanks to the end of the word before
  EXPECT_EQ(editor->selection(), (TextRange{7, 0}));
  press(*editor, "←", true);
  EXPECT_EQ(editor->selection(), (TextRange{0, 0}));
}

TEST_F(EditorKeys, ReturnOnASuggestionCompletesItAndOnOneEqualToTheTermEntersNothing) {
  auto editor = editing("s.html", "");
  for (char16_t c : std::u16string(u"<di")) editor->changeText(editor->selection(), {c});
  ASSERT_FALSE(editor->suggestItems().empty());
  EXPECT_FALSE(editor->changeText(editor->selection(), u"\n"));  // taken by the list
  std::u16string chosen = editor->text();
  EXPECT_TRUE(chosen.starts_with(u"<di") && chosen.size() > 3);
  EXPECT_TRUE(editor->suggestItems().empty());

  auto exact = editing("t.html", "");
  for (char16_t c : std::u16string(u"<div")) exact->changeText(exact->selection(), {c});
  const auto& items = exact->suggestItems();
  auto at = std::find(items.begin(), items.end(), u"div");
  ASSERT_NE(at, items.end());
  std::u16string before = exact->text();
  exact->selectedKeywordsItem(u"div");
  EXPECT_EQ(exact->text(), before);
}

}  // namespace
}  // namespace harbor

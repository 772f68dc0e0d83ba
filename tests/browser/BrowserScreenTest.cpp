#include <gtest/gtest.h>

#include <thread>

#include "browser/BrowserSupport.h"
#include "browser/BrowserTestSupport.h"
#include "browser/FileTransferController.h"
#include "filemanager/FileManagerUtil.h"
#include "platform/Strings.h"

namespace harbor::test {
namespace {

TEST(ScreenPortTest, UnhandledQuestionsAnswerCancelOnTheMainQueue) {
  MainQueue::shared().adoptCurrentThread();
  IScreenPort silent;
  int button = 7;
  int row = 7;
  silent.showAlert(ScreenAlert{}, [&](int b, const std::vector<std::string>&) { button = b; });
  silent.showSheet(ScreenSheet{}, [&](int r) { row = r; });
  // Never inside the request itself.
  EXPECT_EQ(button, 7);
  MainQueue::shared().runPending();
  EXPECT_EQ(button, kScreenCancel);
  EXPECT_EQ(row, kScreenCancel);
}

TEST(ScreenPortTest, WorkerWaitsForTheAnswerAndGivesUpWhenCancelled) {
  MainQueue::shared().adoptCurrentThread();
  RecordingPort port;
  port.alertAnswers.push_back({"OK", {"typed"}});
  ScreenPort::Answer answer;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    ScreenAlert alert;
    alert.buttons = {"Cancel", "OK"};
    answer = ScreenPort::askAndWait(port, alert);
    done = true;
  });
  MainQueue::shared().runUntil([&] { return done.load(); }, std::chrono::seconds(10));
  worker.join();
  EXPECT_EQ(answer.button, 1);
  EXPECT_EQ(answer.fields, std::vector<std::string>{"typed"});

  // Nobody answers; the worker's cancellation frees it.
  CancellationToken token;
  done = false;
  std::thread stuck([&] {
    CurrentCancellationScope scope(token);
    answer = ScreenPort::askAndWait(port, ScreenAlert{});
    done = true;
  });
  MainQueue::shared().runPending();
  token.cancel();
  stuck.join();
  EXPECT_EQ(answer.button, kScreenCancel);
  MainQueue::shared().runPending();
}

TEST(ScreenPortTest, ThePortIsSetOncePerProcess) {
  ScreenPort::set(std::make_shared<RecordingPort>());
  auto kept = ScreenPort::shared();
  auto late = std::make_shared<RecordingPort>();
  EXPECT_FALSE(ScreenPort::set(late));
  EXPECT_EQ(ScreenPort::shared(), kept);
}

// ---- opening ------------------------------------------------------------------------

TEST_F(BrowserTest, OpenerChainSendsEachKindWhereItBelongs) {
  write("sub/inner.txt", "x");
  write("page.mht", "MIME-Version: 1.0\r\n");
  write("notes.unknownext", "plain words only\n");
  write("a.png", "\x89PNG");
  write("b.jpg", "\xff\xd8");
  write("code.cpp", "int main() {}\n");
  write("pack.zip", "PK");
  auto browser = screen<FileManagerController>();

  // A folder pushes a browser of the same class.
  ASSERT_TRUE(browser->tapRow("sub"));
  ASSERT_EQ(port->pushed.size(), 1u);
  EXPECT_EQ(port->pushed[0]->className(), "FileManagerController");
  EXPECT_TRUE(browser->selectedRows().empty());

  // Where the web archive viewer is not offered, the page preview shows it.
  browser->tapRow("page.mht");
  ASSERT_TRUE(port->last("open"));
  EXPECT_EQ(port->last("open")->route, ScreenRoute::Web);

  // No known kind, but the content is plain text: the editor.
  browser->tapRow("notes.unknownext");
  EXPECT_EQ(port->last("open")->route, ScreenRoute::Editor);
  browser->tapRow("code.cpp");
  EXPECT_EQ(port->last("open")->route, ScreenRoute::Editor);

  // Images page through every image of the listing, starting at the one tapped.
  browser->tapRow("b.jpg");
  auto images = port->last("open");
  EXPECT_EQ(images->route, ScreenRoute::Image);
  ASSERT_EQ(images->files.size(), 2u);
  EXPECT_EQ(images->files[images->current], docs("b.jpg"));

  // An archive selects itself and asks what to do.
  browser->tapRow("pack.zip");
  auto sheet = port->last("sheet");
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->tag, FileManagerBaseController::kTagArchiveSheet);
  EXPECT_EQ(sheet->entries,
            (std::vector<std::string>{"Extract", "Extract As...", "View File", "Cancel"}));
  EXPECT_EQ(browser->selectedRows(), std::vector<std::string>{docs("pack.zip")});
}

TEST_F(BrowserTest, RootTitleIsTheExplorersName) {
  auto browser = screen<FileManagerController>();
  EXPECT_FALSE(browser->currentTitle().empty());
  EXPECT_EQ(port->last("title")->text, localizedString("FileExplorer"));
}

// ---- locked folders ---------------------------------------------------------------

TEST_F(BrowserTest, LockedFolderAsksOnTapAndStaysClosedOnAWrongPassword) {
  fs::create_directories(docs("vault"));
  write("vault/in.txt", "x");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("vault"), "pw"));
  auto browser = screen<FileManagerController>();

  port->alertAnswers.push_back({"OK", {"nope"}});
  browser->tapRow("vault");
  drain();
  auto asked = port->last("prompt");
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->tag, FileManagerBaseController::kTagOpen);
  EXPECT_EQ(port->last("message")->key, "PasswordIsError");
  EXPECT_TRUE(port->pushed.empty());
  EXPECT_TRUE(browser->selectedRows().empty());
  EXPECT_TRUE(browser->passwordRows().empty());

  port->alertAnswers.push_back({"OK", {"pw"}});
  browser->tapRow("vault");
  drain();
  ASSERT_EQ(port->pushed.size(), 1u);

  // A locked file inside an open folder opens without a question.
  auto inside = std::static_pointer_cast<FileManagerController>(port->pushed[0]);
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("vault/in.txt"), "pw2"));
  std::size_t prompts = port->all("prompt").size();
  inside->tapRow("in.txt");
  EXPECT_EQ(port->all("prompt").size(), prompts);
  EXPECT_EQ(port->last("open")->route, ScreenRoute::Editor);
}

TEST_F(BrowserTest, PasswordRoundAsksEachLockedPathWithTheSameTag) {
  fs::create_directories(docs("one"));
  fs::create_directories(docs("two/deep"));
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("one"), "1"));
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("two/deep"), "2"));
  auto browser = screen<FileManagerController>();
  browser->setEditing(true);
  browser->tapRow("one");
  browser->tapRow("two");

  // Both asked under the copy's tag, then the copy runs.
  port->alertAnswers.push_back({"OK", {"1"}});
  port->alertAnswers.push_back({"OK", {"2"}});
  ASSERT_TRUE(browser->sheetChosen(FileManagerBaseController::kTagSheet, "Copy"));
  drain();
  auto prompts = port->all("prompt");
  ASSERT_EQ(prompts.size(), 2u);
  EXPECT_EQ(prompts[0].tag, FileManagerBaseController::kTagCopy);
  EXPECT_EQ(prompts[1].tag, FileManagerBaseController::kTagCopy);
  EXPECT_NE(prompts[1].text.find("deep"), std::string::npos);
  bool isCopy = false;
  auto clip = TransferClipboard::getCopySystemPath(isCopy);
  ASSERT_TRUE(clip);
  EXPECT_EQ(clip->size(), 2u);
  EXPECT_TRUE(isCopy);

  // A wrong answer ends the round: nothing runs, nothing is left to ask.
  TransferClipboard::saveCopySystemPath(std::nullopt, false);
  browser->setEditing(true);
  browser->tapRow("two");
  port->alertAnswers.push_back({"OK", {"bad"}});
  browser->sheetChosen(FileManagerBaseController::kTagSheet, "Cut");
  drain();
  EXPECT_EQ(port->last("message")->key, "PasswordIsError");
  EXPECT_TRUE(browser->passwordRows().empty());
  EXPECT_FALSE(TransferClipboard::getCopySystemPath(isCopy));

  // Cancel outside edit mode also drops the selection.
  browser->setEditing(false);
  browser->selectedRows().assign(1, docs("one"));
  port->alertAnswers.push_back({"Cancel", {}});
  browser->sheetChosen(FileManagerBaseController::kTagSheet, "Copy");
  drain();
  EXPECT_TRUE(browser->selectedRows().empty());
  EXPECT_FALSE(TransferClipboard::getCopySystemPath(isCopy));
}

// ---- order and selection --------------------------------------------------------------

TEST_F(BrowserTest, DateAndSizeComeUpNewestAndLargestFirstNameAscending) {
  write("small", "1");
  write("big", "1234567890");
  write("mid", "12345");
  auto browser = screen<FileManagerController>();
  EXPECT_TRUE(browser->isOrderAsc());
  browser->segmentAction(3);
  EXPECT_FALSE(browser->isOrderAsc());
  EXPECT_EQ(browser->orderButtonTag(), FileManagerBaseController::kOrderDescendingTag);
  std::vector<std::string> names;
  for (const auto& row : browser->rows()) names.push_back(row.name);
  EXPECT_EQ(names, (std::vector<std::string>{"big", "mid", "small"}));
  // Already descending stays so when date is chosen.
  browser->segmentAction(1);
  EXPECT_FALSE(browser->isOrderAsc());
  browser->segmentAction(0);
  EXPECT_TRUE(browser->isOrderAsc());
  browser->orderAction();
  EXPECT_FALSE(browser->isOrderAsc());
  names.clear();
  for (const auto& row : browser->rows()) names.push_back(row.name);
  EXPECT_EQ(names, (std::vector<std::string>{"small", "mid", "big"}));
  // Out of range is name order.
  EXPECT_EQ(FileManagerBaseController::loadFileDisplayType(7), 0);
}

TEST_F(BrowserTest, RangeMarkSelectsBetweenTwoRowsOrClearsAFullRange) {
  for (const char* n : {"a", "b", "c", "d", "e"}) write(n, "x");
  auto browser = screen<FileManagerController>();
  browser->setEditing(true);
  browser->handCellItem(docs("b"));
  EXPECT_EQ(browser->beginSelectedIndex(), 1);
  browser->handCellItem(docs("d"));
  EXPECT_FALSE(browser->beginSelectedIndex());
  EXPECT_EQ(browser->selectedRows().size(), 3u);
  EXPECT_TRUE(browser->isSelected(docs("c")));
  // A range partly marked becomes all marked.
  browser->handCellItem(docs("a"));
  browser->handCellItem(docs("c"));
  EXPECT_EQ(browser->selectedRows().size(), 4u);
  // A range all marked clears.
  browser->handCellItem(docs("a"));
  browser->handCellItem(docs("d"));
  EXPECT_TRUE(browser->selectedRows().empty());
  // Leaving edit mode forgets everything.
  browser->allSelectFile();
  EXPECT_EQ(browser->selectedRows().size(), 5u);
  browser->setEditing(false);
  EXPECT_TRUE(browser->selectedRows().empty());
  EXPECT_EQ(browser->selectAllButtonTag(), FileManagerBaseController::kSelectAllTag);
}

TEST_F(BrowserTest, SearchHitsSurviveADeleteWithoutTheVanishedOnes) {
  write("apple.txt", "x");
  write("sub/apricot.txt", "x");
  write("banana.txt", "x");
  auto browser = screen<FileManagerController>();
  browser->searchChange("ap");
  settle(*browser);
  ASSERT_TRUE(browser->filePresenter().isSearchResult());
  EXPECT_EQ(browser->filePresenter().searchHits().size(), 2u);
  browser->selectedRows().assign(1, docs("apple.txt"));
  browser->deleteItems();
  settle(*browser);
  EXPECT_FALSE(fs::exists(docs("apple.txt")));
  EXPECT_EQ(browser->filePresenter().searchHits(),
            std::vector<std::string>{docs("sub/apricot.txt")});
  // A new file named like the search joins the hits.
  write("kiwi.txt", "x");
  write("apex.txt", "x");
  browser->addToSearchResultOrReload({docs("kiwi.txt"), docs("apex.txt")}, {});
  EXPECT_EQ(browser->filePresenter().searchHits().size(), 2u);
}

TEST_F(BrowserTest, SheetsOfferWhatTheSelectionAllows) {
  write("a.zip", "PK");
  write("b.txt", "x");
  auto browser = screen<FileManagerController>();
  browser->selectedRows().assign(1, docs("a.zip"));
  auto rows = browser->actionSheetRows();
  // Zips selected: no compressing them again.
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Zip"), 0);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Delete"), 1);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Paste"), 0);
  browser->setEditing(true);
  browser->selectedRows() = {docs("a.zip"), docs("b.txt")};
  rows = browser->actionSheetRows();
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Zip"), 1);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Delete"), 0);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Property"), 0);
  EXPECT_FALSE(browser->sheetChosen(FileManagerBaseController::kTagSheet, "Email"));
}

}  // namespace
}  // namespace harbor::test

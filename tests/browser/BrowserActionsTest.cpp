#include <gtest/gtest.h>

#include "archive/ZipBase.h"
#include "browser/BrowserSupport.h"
#include "browser/BrowserTestSupport.h"
#include "browser/FileTransferController.h"
#include "filemanager/FileManagerUtil.h"
#include "platform/UserDefaults.h"

namespace harbor::test {
namespace {

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

class ActionsTest : public BrowserTest {
 protected:
  void copyToClipboard(std::vector<std::string> paths, bool isCopy) {
    TransferClipboard::saveCopySystemPath(paths, isCopy);
  }
  bool clipboardHolds() {
    bool isCopy = false;
    return TransferClipboard::getCopySystemPath(isCopy).has_value();
  }
  void makeZip(const std::string& relative, const std::vector<std::string>& sources,
               const std::string& password = {}) {
    ZipPropertyOptions options;
    options.password = password;
    ArchiveFactory::createZipFactory(sources, nullptr, docs(relative), options);
    ASSERT_TRUE(fs::exists(docs(relative)));
  }
};

TEST_F(ActionsTest, ClipboardIsAListUnderFilesOrNothing) {
  copyToClipboard({"/x", "/y"}, true);
  bool isCopy = false;
  EXPECT_EQ(TransferClipboard::getCopySystemPath(isCopy), (std::vector<std::string>{"/x", "/y"}));
  EXPECT_TRUE(isCopy);
  PlistValue::Map broken;
  broken["files"] = PlistValue("/x");
  UserDefaults::standard().setObject(TransferClipboard::kKey, PlistValue(broken));
  EXPECT_FALSE(TransferClipboard::getCopySystemPath(isCopy));
  copyToClipboard({"/x"}, false);
  TransferClipboard::saveCopySystemPath(std::nullopt, false);
  EXPECT_FALSE(UserDefaults::standard().objectForKey(TransferClipboard::kKey));
}

TEST_F(ActionsTest, PasteNeverOverwritesAndClearsTheClipboard) {
  write("a.txt", "one");
  write("dir/a.txt", "two");
  auto browser = screen<FileManagerController>();

  // A copy into its own folder takes the next free name.
  copyToClipboard({docs("a.txt")}, true);
  browser->pasteFile();
  settle(*browser);
  EXPECT_EQ(namesIn(root()), (std::vector<std::string>{"a 2.txt", "a.txt", "dir"}));
  EXPECT_FALSE(clipboardHolds());

  // A clash with another file keeps both.
  copyToClipboard({docs("dir/a.txt")}, true);
  browser->pasteFile();
  settle(*browser);
  EXPECT_TRUE(fs::exists(docs("a 3.txt")));
  std::ifstream in(docs("a.txt"));
  std::string kept;
  in >> kept;
  EXPECT_EQ(kept, "one");

  // A cut into the same folder changes nothing, and the clipboard still goes.
  auto before = namesIn(root());
  copyToClipboard({docs("a.txt")}, false);
  browser->pasteFile();
  settle(*browser);
  EXPECT_EQ(namesIn(root()), before);
  EXPECT_FALSE(clipboardHolds());
}

TEST_F(ActionsTest, AFolderPastedIntoItselfIsRefusedAndTheClipboardKept) {
  write("box/inner/f.txt", "x");
  auto inner = screen<FileManagerController>(docs("box/inner"));
  copyToClipboard({docs("box")}, true);
  inner->pasteFile();
  settle(*inner);
  EXPECT_EQ(port->last("message")->key, "CanNotReplace");
  EXPECT_TRUE(clipboardHolds());
  EXPECT_EQ(namesIn(docs("box/inner")), std::vector<std::string>{"f.txt"});

  auto box = screen<FileManagerController>(docs("box"));
  copyToClipboard({docs("box")}, false);
  box->pasteFile();
  settle(*box);
  EXPECT_TRUE(clipboardHolds());
  EXPECT_TRUE(fs::exists(docs("box/inner/f.txt")));
}

TEST_F(ActionsTest, CancelledCopyTakesBackItsCopiesCancelledCutKeepsWhatMoved) {
  const std::string block(1 << 20, 'x');
  for (const char* n : {"src/1.bin", "src/2.bin", "src/3.bin"}) write(n, block + block);
  fs::create_directories(docs("dst"));
  auto dst = screen<FileManagerController>(docs("dst"));

  copyToClipboard({docs("src/1.bin"), docs("src/2.bin"), docs("src/3.bin")}, true);
  dst->setCancelAfter(3u << 20);
  dst->pasteFile();
  settle(*dst);
  EXPECT_TRUE(namesIn(docs("dst")).empty());
  EXPECT_EQ(namesIn(docs("src")).size(), 3u);

  // A cut counts items: the second one trips it, the third never moves.
  copyToClipboard({docs("src/1.bin"), docs("src/2.bin"), docs("src/3.bin")}, false);
  dst->setCancelAfter(2);
  dst->pasteFile();
  settle(*dst);
  EXPECT_EQ(namesIn(docs("dst")), (std::vector<std::string>{"1.bin", "2.bin"}));
  EXPECT_EQ(namesIn(docs("src")), std::vector<std::string>{"3.bin"});
  EXPECT_EQ(fs::file_size(docs("dst/2.bin")), 2u << 20);
}

TEST_F(ActionsTest, CopyToOpensAChooserWhosePasteClosesIt) {
  write("f.txt", "x");
  fs::create_directories(docs("target"));
  auto browser = screen<FileManagerController>();
  browser->selectedRows().assign(1, docs("f.txt"));
  browser->sheetChosen(FileManagerBaseController::kTagSheet, "Copy To...");
  ASSERT_EQ(port->pushed.size(), 1u);
  auto chooser = std::static_pointer_cast<FileTransferController>(port->pushed[0]);
  EXPECT_EQ(chooser->transferType, 1);
  ASSERT_TRUE(chooser->tapRow("target"));
  ASSERT_EQ(port->pushed.size(), 2u);
  auto deeper = std::static_pointer_cast<FileTransferController>(port->pushed[1]);
  deeper->saveCategory();
  settle(*deeper);
  EXPECT_TRUE(fs::exists(docs("target/f.txt")));
  EXPECT_TRUE(fs::exists(docs("f.txt")));
  EXPECT_EQ(port->pops, 2);
}

TEST_F(ActionsTest, DeleteGoesDeepestFirstAndDropsPasswords) {
  write("gone/a/b/c.txt", "x");
  write("kept.txt", "x");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("gone/a"), "pw"));
  auto browser = screen<FileManagerController>();
  browser->selectedRows().assign(1, docs("gone"));
  port->alertAnswers.push_back({"OK", {}});      // confirmation
  port->alertAnswers.push_back({"OK", {"pw"}});  // the locked folder inside
  browser->deleteFileActionSheet();
  drain();
  settle(*browser);
  EXPECT_EQ(namesIn(root()), std::vector<std::string>{"kept.txt"});
  EXPECT_FALSE(FileManagerUtil::isPasswordFile(docs("gone/a")));
  EXPECT_EQ(port->all("prompt").back().tag, FileManagerBaseController::kTagDelete);
}

TEST_F(ActionsTest, CreateAndRenameRefuseATakenName) {
  write("taken.txt", "x");
  write("other.txt", "y");
  auto browser = screen<FileManagerController>();
  EXPECT_FALSE(browser->CreateFile("taken.txt", "new", 0, {}));
  EXPECT_TRUE(browser->CreateFile("fresh.txt", "new", 0, {}));
  EXPECT_FALSE(browser->renameFile("taken.txt", "other.txt", {}, false, {}));
  EXPECT_TRUE(browser->renameFile("moved.txt", "other.txt", "pw", true, {}));
  EXPECT_TRUE(FileManagerUtil::isPasswordFile(docs("moved.txt")));
  Error error;
  EXPECT_FALSE(browser->createFolder("taken.txt", {}, &error));
  EXPECT_FALSE(error.message.empty());
  EXPECT_TRUE(browser->createFolder("safe", "pw", &error));
  EXPECT_TRUE(FileManagerUtil::isPasswordFile(docs("safe")));
}

TEST_F(ActionsTest, CompressPutsTheArchiveBesideUnderAFreeName) {
  write("doc.txt", "hello");
  write("doc.zip", "taken");
  auto browser = screen<FileManagerController>();
  browser->selectedRows().assign(1, docs("doc.txt"));
  browser->compressFile("zip", false);
  settle(*browser);
  EXPECT_TRUE(fs::exists(docs("doc 2.zip")));
  EXPECT_EQ(port->last("message")->key, "ZipSucceefully");
  // Nothing half-made is left visible.
  EXPECT_EQ(namesIn(root()), (std::vector<std::string>{"doc 2.zip", "doc.txt", "doc.zip"}));
}

TEST_F(ActionsTest, ExtractionLandsBesideWithFreeNames) {
  write("src/one.txt", "1");
  write("src/two.txt", "2");
  makeZip("single.zip", {docs("src/one.txt")});
  makeZip("multi.zip", {docs("src/one.txt"), docs("src/two.txt")});
  write("one.txt", "already here");
  fs::create_directories(docs("multi"));
  auto browser = screen<FileManagerController>();

  browser->decompressFile(docs("single.zip"));
  settle(*browser);
  EXPECT_TRUE(fs::exists(docs("one 2.txt")));

  browser->decompressFile(docs("multi.zip"));
  settle(*browser);
  EXPECT_EQ(namesIn(docs("multi 2")), (std::vector<std::string>{"one.txt", "two.txt"}));
  // No hidden work folder stays behind.
  for (const auto& name : namesIn(root())) EXPECT_NE(name.front(), '.') << name;
}

TEST_F(ActionsTest, PasswordArchiveWithAnEmptyAnswerLeavesNoFolder) {
  write("src/secret.txt", "s");
  write("src/more.txt", "m");
  makeZip("locked.zip", {docs("src/secret.txt"), docs("src/more.txt")}, "pw");
  auto browser = screen<FileManagerController>();
  auto before = namesIn(root());
  port->alertAnswers.push_back({"OK", {""}});
  browser->decompressFile(docs("locked.zip"));
  settle(*browser);
  EXPECT_EQ(namesIn(root()), before);

  // Wrong, then right: asked again with the same tag, extracted once.
  port->alertAnswers.push_back({"OK", {"bad"}});
  port->alertAnswers.push_back({"OK", {"pw"}});
  browser->decompressFile(docs("locked.zip"));
  settle(*browser);
  EXPECT_EQ(namesIn(docs("locked")), (std::vector<std::string>{"more.txt", "secret.txt"}));
  for (const auto& p : port->all("prompt"))
    EXPECT_EQ(p.tag, FileManagerBaseController::kTagArchivePassword);
}

TEST_F(ActionsTest, CancelledExtractionLeavesNothing) {
  const std::string block(1 << 20, 'z');
  write("src/big.bin", block + block + block + block);
  write("src/small.txt", "s");
  makeZip("big.zip", {docs("src/big.bin"), docs("src/small.txt")});
  fs::remove_all(docs("src"));
  auto browser = screen<FileManagerController>();
  browser->setCancelAfter(1 << 20);
  browser->decompressFile(docs("big.zip"));
  settle(*browser);
  EXPECT_EQ(namesIn(root()), std::vector<std::string>{"big.zip"});
  EXPECT_EQ(port->last("message")->key, "UserCancelAction");
}

TEST_F(ActionsTest, PastedTextBecomesAFile) {
  auto board = std::make_shared<MemoryPasteboard>();
  board->setString("from elsewhere");
  IPasteboard::setShared(board);
  auto browser = screen<FileManagerController>();
  EXPECT_TRUE(browser->isCanPaste());
  browser->pasteFile();
  EXPECT_TRUE(fs::exists(docs("Paste.txt")));
  EXPECT_FALSE(board->string());
  IPasteboard::setShared(nullptr);
}

}  // namespace
}  // namespace harbor::test

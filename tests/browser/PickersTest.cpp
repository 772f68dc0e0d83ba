#include <gtest/gtest.h>

#include "browser/BrowserTestSupport.h"
#include "browser/FileTransferController.h"
#include "encoding/EncodingUtil.h"
#include "encoding/PickSystemLanguagePort.h"
#include "filemanager/FileManagerUtil.h"

namespace harbor::test {
namespace {

class PickersTest : public BrowserTest {
 protected:
  void SetUp() override {
    BrowserTest::SetUp();
    write("f1.txt", "1");
    write("f2.txt", "2");
    write("dir/inside.txt", "3");
  }
};

TEST_F(PickersTest, FilePickerTogglesFilesAndSingleModeFinishesAtOnce) {
  std::vector<std::string> picked;
  auto picker = screen<PickFileOnlyController>();
  picker->pickDelegate->onPickerFiles = [&](const std::vector<std::string>& files, int) {
    picked = files;
  };
  EXPECT_FALSE(picker->canSave());
  picker->tapRow("f1.txt");
  picker->tapRow("f2.txt");
  picker->tapRow("f1.txt");
  EXPECT_EQ(picker->pickedRows(), std::vector<std::string>{docs("f2.txt")});
  picker->selectAllFiles();
  EXPECT_EQ(picker->pickedRows().size(), 2u);  // folders are left out
  picker->saveCategory();
  EXPECT_EQ(picked.size(), 2u);
  EXPECT_TRUE(picker->pickedRows().empty());

  // Inside a folder the same delegate collects; one tap ends a single pick.
  auto single = screen<PickFileOnlyController>();
  single->singleOrMultiple = 0;
  single->pickDelegate->onPickerFiles = [&](const std::vector<std::string>& files, int) {
    picked = files;
  };
  ASSERT_TRUE(single->tapRow("dir"));
  auto inner = std::static_pointer_cast<PickFileOnlyController>(port->pushed.back());
  EXPECT_EQ(inner->pickDelegate, single->pickDelegate);
  const int popsBefore = port->pops;
  inner->tapRow("inside.txt");
  EXPECT_EQ(picked, std::vector<std::string>{docs("dir/inside.txt")});
  EXPECT_EQ(port->pops - popsBefore, 2);  // both picker screens close
}

TEST_F(PickersTest, CheckedFolderStaysSelectedUncheckedOneOpens) {
  auto picker = screen<PickFileAndDirectoryController>();
  ASSERT_TRUE(picker->checkRow("dir"));
  picker->tapRow("dir");
  EXPECT_TRUE(port->pushed.empty());
  EXPECT_TRUE(picker->isRowMarked(docs("dir")));
  picker->checkRow("dir");
  picker->tapRow("dir");
  EXPECT_EQ(port->pushed.size(), 1u);
  picker->checkRow("f1.txt");
  picker->cancelPick();
  EXPECT_TRUE(picker->pickedRows().empty());
}

TEST_F(PickersTest, DirectoryPickerAsksForALockedFolderAndReportsTheOneShown) {
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs("dir"), "pw"));
  std::string chosen;
  auto picker = screen<PickDirectoryController>();
  picker->onSelectDirectory = [&](const std::string& relative) { chosen = relative; };
  port->alertAnswers.push_back({"OK", {"bad"}});
  picker->tapRow("dir");
  drain();
  EXPECT_EQ(port->last("prompt")->tag, PickFileBaseDirectory::kTagPickFolderPassword);
  EXPECT_TRUE(port->pushed.empty());
  port->alertAnswers.push_back({"OK", {"pw"}});
  picker->tapRow("dir");
  drain();
  ASSERT_EQ(port->pushed.size(), 1u);
  auto inner = std::static_pointer_cast<PickDirectoryController>(port->pushed[0]);
  inner->saveCategory();
  EXPECT_EQ(chosen, "/dir");
}

TEST_F(PickersTest, TransferChooserNamesWhatItDoesAndWhence) {
  auto chooser = std::make_shared<FileTransferController>(docs());
  chooser->setPort(port);
  chooser->transferType = 2;
  chooser->sourceFolder = docs("dir");
  chooser->viewDidLoad();
  EXPECT_EQ(port->last("status")->text, chooser->prompt());
  EXPECT_NE(chooser->prompt().find("dir"), std::string::npos);
  EXPECT_EQ(chooser->toolbar().back().key, "PASTE_ITEM");
}

TEST_F(PickersTest, EncodingSheetStoresTheChoiceForTheFile) {
  auto view = PickSystemLanguagePortView::create(port, docs("f1.txt"), false);
  ASSERT_FALSE(view->picker().languagesArray.size());
  port->sheetAnswers.push_back("GBK");
  view->show();
  ASSERT_TRUE(port->last("sheet"));
  EXPECT_EQ(port->last("sheet")->tag, PickSystemLanguagePortView::kTagPickEncoding);
  drain();
  EXPECT_TRUE(view->isClosed());
  EXPECT_EQ(EncodingUtil::getFileEncoding(docs("f1.txt")).value_or(""), "GBK");
}

}  // namespace
}  // namespace harbor::test

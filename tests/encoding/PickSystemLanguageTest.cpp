// The encoding picker's decisions, through a recording view.
#include "encoding/PickSystemLanguage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>

#include "EncodingTestHelpers.h"
#include "encoding/EncodingUtil.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor {
namespace {

struct RecordingView : IPickSystemLanguageView {
  void reloadRows() override { ++reloads; }
  void markRow(int row) override { marked = row; }
  void scrollToRow(int row) override { scrolled = row; }
  bool isCancellable() const override { return cancellable; }
  void close() override { ++closes; }

  int reloads = 0, marked = -2, scrolled = -2, closes = 0;
  bool cancellable = false;
};

struct RecordingDelegate : IPickSystemLanguageDelegate {
  void saveSystemLang(const std::string& name) override { saved.push_back(name); }
  std::vector<std::string> saved;
};

class PickSystemLanguageTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    token_ = NotificationCenter::defaultCenter().addObserver(
        notifications::HBEncodingChangeNotication,
        [this](const NotificationCenter::Notification& n) {
          posted_.push_back(std::any_cast<std::string>(n.object));
        });
  }
  void TearDown() override {
    NotificationCenter::defaultCenter().removeObserver(token_);
    TempHome::TearDown();
  }
  int rowOf(const PickSystemLanguage& picker, const std::string& key) {
    auto it = std::find(picker.languagesArray.begin(), picker.languagesArray.end(), key);
    return it == picker.languagesArray.end() ? -1
                                             : static_cast<int>(it - picker.languagesArray.begin());
  }

  test::ScopedLanguage lang_{"en"};
  RecordingView view_;
  std::vector<std::string> posted_;
  NotificationCenter::Token token_ = 0;
};

TEST_F(PickSystemLanguageTest, OpensOnTheDefaultOrTheFilesChoice) {
  PickSystemLanguage picker(view_);
  picker.viewDidLoad();
  EXPECT_EQ(view_.reloads, 1);
  EXPECT_TRUE(std::is_sorted(picker.languagesArray.begin(), picker.languagesArray.end()));
  const int automatic = rowOf(picker, "Automatic");
  ASSERT_GE(automatic, 0);
  EXPECT_EQ(picker.systemLanguage, "Automatic");
  EXPECT_EQ(picker.getSelectInt(), automatic);
  EXPECT_EQ(view_.marked, automatic);
  EXPECT_EQ(view_.scrolled, automatic);
  EXPECT_EQ(picker.textOfRow(automatic), "Automatic(All languages)");
  EXPECT_EQ(picker.textOfRow(picker.numberOfRows()), "");

  // A file's stored name is matched ignoring case.
  const std::string path = (root() / "a.txt").string();
  EncodingUtil::saveFileEncoding(path, "shift_jis");
  PickSystemLanguage forFile(view_);
  forFile.fullpath = path;
  forFile.viewDidLoad();
  EXPECT_EQ(forFile.getSelectInt(), rowOf(forFile, "Shift_JIS"));

  // A file with no entry checks nothing.
  RecordingView other;
  PickSystemLanguage fresh(other);
  fresh.fullpath = (root() / "b.txt").string();
  fresh.viewDidLoad();
  EXPECT_EQ(fresh.getSelectInt(), -1);
  EXPECT_EQ(other.marked, -1);
  EXPECT_EQ(other.scrolled, -2);
}

TEST_F(PickSystemLanguageTest, ChoiceForAFileIsStoredAndBroadcast) {
  view_.cancellable = true;
  PickSystemLanguage picker(view_);
  picker.fullpath = (root() / "a.txt").string();
  picker.viewDidLoad();
  const int gbk = rowOf(picker, "GBK");
  picker.didSelectRow(gbk);
  EXPECT_EQ(EncodingUtil::getFileEncoding(picker.fullpath), "GBK");
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "Automatic");
  EXPECT_EQ(view_.closes, 1);
  EXPECT_EQ(view_.marked, gbk);
  EXPECT_EQ(picker.iSel, gbk);
  EXPECT_EQ(posted_, std::vector<std::string>{"GBK"});
}

TEST_F(PickSystemLanguageTest, ChoiceWithoutAFileBecomesTheDefault) {
  view_.cancellable = true;
  PickSystemLanguage picker(view_);
  picker.viewDidLoad();
  picker.didSelectRow(rowOf(picker, "EUC-KR"));
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "EUC-KR");
  EXPECT_EQ(view_.closes, 0);  // a settings row, not a sheet to dismiss
  EXPECT_EQ(posted_, std::vector<std::string>{"EUC-KR"});
}

TEST_F(PickSystemLanguageTest, DelegateTakesTheChoiceSilently) {
  RecordingDelegate delegate;
  PickSystemLanguage picker(view_);
  picker.delegate = &delegate;
  picker.fullpath = (root() / "a.txt").string();
  picker.viewDidLoad();
  picker.didSelectRow(rowOf(picker, "Big5"));
  EXPECT_EQ(delegate.saved, std::vector<std::string>{"Big5"});
  EXPECT_TRUE(posted_.empty());
  EXPECT_FALSE(EncodingUtil::getFileEncoding(picker.fullpath));
}

TEST_F(PickSystemLanguageTest, NotificationModeOnlyBroadcasts) {
  RecordingDelegate delegate;
  view_.cancellable = true;
  PickSystemLanguage picker(view_);
  picker._isNotification = true;
  picker.delegate = &delegate;
  picker.fullpath = (root() / "a.txt").string();
  picker.viewDidLoad();
  const int row = rowOf(picker, "windows-1251");
  picker.didSelectRow(row);
  EXPECT_EQ(posted_, std::vector<std::string>{"windows-1251"});
  EXPECT_EQ(view_.marked, row);
  EXPECT_EQ(view_.closes, 1);
  EXPECT_TRUE(delegate.saved.empty());
  EXPECT_FALSE(EncodingUtil::getFileEncoding(picker.fullpath));
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "Automatic");

  picker.didSelectRow(-1);
  picker.didSelectRow(picker.numberOfRows());
  EXPECT_EQ(posted_.size(), 1u);
}

}  // namespace
}  // namespace harbor

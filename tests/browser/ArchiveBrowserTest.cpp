#include <gtest/gtest.h>

#include "browser/BrowserTestSupport.h"
#include "browser/ViewArchiveController.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor::test {
namespace {

// A reader whose names are encrypted: it lists nothing until the password is
// right, and writes its two members from memory.
class EncryptedNamesReader : public IArchive {
 public:
  explicit EncryptedNamesReader(std::string path) : path_(std::move(path)) {}
  void setPassword(const std::string& password) override { password_ = password; }
  bool listFiles() override {
    ++lists;
    root_->clear();
    if (password_ != "right") return false;
    for (const char* name : {"top.txt", "dir/inner.txt"}) {
      root_->addToRootEntry(
          std::make_shared<ZipEntry>(name, FilePos{}, 0, 4, 4, 0, std::nullopt, std::nullopt));
    }
    return true;
  }
  bool unArchivePath(const std::string& destination) override {
    return unArchivePath(nullptr, destination);
  }
  bool unArchivePath(const ZipEntry* entry, const std::string& destination) override {
    if (password_ != "right") return false;
    std::string name = entry ? entry->name() : "top.txt";
    fs::create_directories(destination);
    std::ofstream(fs::path(destination) / name) << "data";
    return true;
  }
  bool isEncrypted() override { return true; }
  void setFileEncoding(std::uint64_t encoding) override { encoding_ = encoding; }
  std::optional<Error> archiveError() const override { return std::nullopt; }
  bool isEncryptedFileName() const override { return true; }
  bool isProgressListFiles() const override { return false; }
  void setIsArchiveFileTime(bool) override {}
  std::string filePath() const override { return path_; }
  ZipEntry::Ptr rootEntry() const override { return root_; }
  void setActionDelegate(IActionProgress*) override {}
  std::string formatName() const override { return "zip"; }
  const std::vector<RefusedEntry>& refusedEntries() const override { return refused_; }
  bool isPasswordFailure() const override { return false; }

  int lists = 0;
  std::uint64_t encoding_ = 0;

 private:
  std::string path_;
  std::string password_;
  ZipEntry::Ptr root_ = ZipEntry::rootEntry();
  std::vector<RefusedEntry> refused_;
};

class ArchiveBrowserTest : public BrowserTest {
 protected:
  void SetUp() override {
    BrowserTest::SetUp();
    write("names.zip", "stand-in");
    FileManagerController::setReaderMaker([this](const std::string& path) {
      reader = std::make_shared<EncryptedNamesReader>(path);
      return reader;
    });
  }
  std::shared_ptr<EncryptedNamesReader> reader;
};

TEST_F(ArchiveBrowserTest, WrongPasswordForEncryptedNamesListsNothingAndAsksAgain) {
  port->alertAnswers.push_back({"OK", {"wrong"}});
  port->alertAnswers.push_back({"OK", {"right"}});
  auto viewer = screen<ViewArchiveController>(docs("names.zip"));
  settle(*viewer);
  auto prompts = port->all("prompt");
  ASSERT_EQ(prompts.size(), 2u);
  EXPECT_EQ(prompts[1].tag, FileManagerBaseController::kTagArchivePassword);
  std::vector<std::string> names;
  for (const auto& row : viewer->rows()) names.push_back(row.name);
  EXPECT_EQ(names, (std::vector<std::string>{"top.txt", "dir"}));
  EXPECT_EQ(viewer->currentTitle(), "names.zip-3");
}

TEST_F(ArchiveBrowserTest, DeeperScreensShareTheReaderAndItsPassword) {
  port->alertAnswers.push_back({"OK", {"right"}});
  auto viewer = screen<ViewArchiveController>(docs("names.zip"));
  settle(*viewer);
  ASSERT_TRUE(viewer->tapRow("dir"));
  ASSERT_EQ(port->pushed.size(), 1u);
  auto deeper = std::static_pointer_cast<ViewArchiveController>(port->pushed[0]);
  EXPECT_FALSE(deeper->isRootScreen());
  EXPECT_EQ(deeper->archiveDelegate, viewer->archiveDelegate);

  // Opening a member asks nothing more, and shows it alone.
  ASSERT_TRUE(deeper->tapRow("inner.txt"));
  settle(*deeper);
  EXPECT_EQ(port->all("prompt").size(), 1u);
  auto opened = port->last("open");
  ASSERT_TRUE(opened);
  ASSERT_EQ(opened->files.size(), 1u);
  EXPECT_EQ(fs::path(opened->files[0]).filename(), "inner.txt");
}

TEST_F(ArchiveBrowserTest, EncodingChangeRelistsFromTheRootOnly) {
  port->alertAnswers.push_back({"OK", {"right"}});
  auto viewer = screen<ViewArchiveController>(docs("names.zip"));
  settle(*viewer);
  viewer->tapRow("dir");
  auto deeper = std::static_pointer_cast<ViewArchiveController>(port->pushed.at(0));
  const int before = reader->lists;
  NotificationCenter::defaultCenter().post(notifications::HBEncodingChangeNotication,
                                           std::string("GBK"));
  settle(*viewer);
  settle(*deeper);
  EXPECT_EQ(reader->lists, before + 1);
  EXPECT_EQ(viewer->rows().size(), 2u);
}

TEST_F(ArchiveBrowserTest, ExtractingASelectionTakesOnlyThoseEntries) {
  port->alertAnswers.push_back({"OK", {"right"}});
  auto viewer = screen<ViewArchiveController>(docs("names.zip"));
  settle(*viewer);
  port->sheetAnswers.push_back("Extract");
  ASSERT_TRUE(viewer->holdRow("top.txt"));
  drain();
  settle(*viewer);
  EXPECT_TRUE(fs::exists(docs("top.txt")));
  EXPECT_FALSE(fs::exists(docs("names")));
  // The same reader stays for the next look.
  EXPECT_TRUE(viewer->archiveDelegate);
}

TEST_F(ArchiveBrowserTest, RarVolumesAreNamedWithoutTheirPart) {
  write("set.part1.rar", "x");
  port->alertAnswers.push_back({"OK", {"right"}});
  auto viewer = screen<ViewArchiveController>(docs("set.part1.rar"));
  settle(*viewer);
  EXPECT_EQ(viewer->getZipEntryName(*viewer->archiveDelegate->rootEntry()), "set");
}

}  // namespace
}  // namespace harbor::test

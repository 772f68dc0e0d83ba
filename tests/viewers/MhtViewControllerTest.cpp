#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "filemanager/FileUtil.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"
#include "viewers/mht/MhtFormatParser.h"
#include "viewers/mht/MhtURLProtocol.h"
#include "viewers/mht/MhtViewController.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

struct RecordingView : IMhtView {
  void showAlert(const ScreenAlert&, AlertReply) override {}
  void showSheet(const ScreenSheet& sheet, SheetReply reply) override {
    sheets.push_back(sheet);
    sheetReply = std::move(reply);
  }
  void showMessage(const std::string& key, const std::string& text) override {
    messages.push_back(key + "|" + text);
  }
  void setTitle(const std::string& t) override { title = t; }
  void setBusy(bool b) override { busy.push_back(b); }
  void close() override {}
  void loadData(const std::string& d, const std::string& mime, const std::string& encoding,
                const std::string& base) override {
    loads.push_back({d, mime, encoding, base});
  }

  struct Load {
    std::string data, mime, encoding, base;
  };
  std::string title;
  std::vector<bool> busy;
  std::vector<ScreenSheet> sheets;
  SheetReply sheetReply;
  std::vector<std::string> messages;
  std::vector<Load> loads;
};

const char* kArchive =
    "Content-Type: multipart/related; boundary=\"b\"\r\n\r\n"
    "--b\r\nContent-Type: text/html; charset=iso-8859-1\r\n"
    "Content-Location: http://h.test/page.html\r\n\r\n"
    "<p>caf\xE9</p><img src=\"http://h.test/i/x.png\">\r\n"
    "--b\r\nContent-Type: image/png\r\nContent-Transfer-Encoding: base64\r\n"
    "Content-Location: http://h.test/i/x.png\r\n\r\niVBORw0KGgo=\r\n--b--\r\n";

class MhtViewControllerTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
    archive = root() / "saved.mht";
    writeFile(archive, kArchive);
    browserFolder = root() / "shelf";
    fs::create_directories(browserFolder);
    MhtHooks::browserFolder = [this] { return browserFolder.string(); };
  }
  void TearDown() override {
    MhtHooks::browserFolder = nullptr;
    TempHome::TearDown();
  }
  fs::path archive, browserFolder;
  RecordingView view;
};

TEST_F(MhtViewControllerTest, ShowsTheRootPageAndKeepsOnlyOneArchiveOnDisk) {
  const fs::path stale = fs::path(MhtFormatParser::mhtTempDirectory()) / "old-archive";
  fs::create_directories(stale);
  auto c = MhtViewController::instanceWithPath(archive.string(), &view);
  c->viewDidLoad();
  EXPECT_EQ(view.title, "saved.mht");
  EXPECT_TRUE(c->isActionButtonHidden());
  // While it unpacks, the action does nothing.
  c->actionButtonPressed();
  EXPECT_TRUE(view.sheets.empty());
  ASSERT_TRUE(MainQueue::shared().runUntil([&] { return !view.loads.empty(); }, 20s));

  const auto& load = view.loads.front();
  // An 8-bit part is text of the archive's own charset, handed on as UTF-8.
  EXPECT_EQ(load.data, "<p>caf\xC3\xA9</p><img src=\"i/x.png\">");
  EXPECT_EQ(load.mime, "text/html");
  EXPECT_EQ(load.encoding, "UTF-8");
  EXPECT_EQ(load.base, "file://" + c->_tempPath + "/");
  EXPECT_TRUE(fs::exists(fs::path(c->_tempPath) / "i/x.png"));
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_EQ(view.busy, (std::vector<bool>{true, false}));
  EXPECT_FALSE(c->isActionButtonHidden());

  // "Convert to source files" twice: two folders, the second with a free name.
  std::size_t shown = 0;
  for (const char* expected : {"saved", "saved 2"}) {
    c->actionButtonPressed();
    ASSERT_EQ(view.sheets.size(), ++shown);
    EXPECT_EQ(view.sheets.back().tag, MhtViewController::kTagAction);
    EXPECT_EQ(view.sheets.back().rows,
              (std::vector<std::string>{"Convert to source files", "Cancel"}));
    view.sheetReply(0);
    EXPECT_TRUE(fs::exists(browserFolder / expected / "index.html"));
    EXPECT_TRUE(fs::exists(browserFolder / expected / "i/x.png"));
    EXPECT_EQ(view.messages.back(),
              std::string("Save the file to ...|Save the file to ") +
                  FileUtil::getDocumentRelativePath((browserFolder / expected).string()));
  }
  // Cancel copies nothing.
  c->actionButtonPressed();
  view.sheetReply(1);
  EXPECT_FALSE(fs::exists(browserFolder / "saved 3"));
}

TEST_F(MhtViewControllerTest, ClosingBeforeTheEndLeavesTheViewEmpty) {
  auto c = MhtViewController::instanceWithPath(archive.string(), &view);
  c->viewDidLoad();
  c->close();
  MainQueue::shared().runUntil([] { return false; }, 1500ms);
  EXPECT_TRUE(view.loads.empty());
  EXPECT_TRUE(c->_tempPath.empty());

  // A file that is no archive: the view stays empty and nothing is said.
  writeFile(root() / "bad.mht", "not an archive");
  auto d = MhtViewController::instanceWithPath((root() / "bad.mht").string(), &view);
  d->viewDidLoad();
  ASSERT_TRUE(MainQueue::shared().runUntil([&] { return !d->isActionButtonHidden(); }, 20s));
  EXPECT_TRUE(view.loads.empty());
  EXPECT_TRUE(view.messages.empty());
  EXPECT_EQ(d->convertToSourceFiles(), "");
}

TEST(MhtURLProtocolTest, AnswersOnlyItsSchemeAndFailsWithoutContent) {
  MhtURLRequest r{"AppleWebData://page/x.png", std::nullopt};
  EXPECT_TRUE(MhtURLProtocol::canInitWithRequest(r));
  EXPECT_FALSE(MhtURLProtocol::canInitWithRequest({"file:///x", std::nullopt}));
  EXPECT_FALSE(MhtURLProtocol::canInitWithRequest({"applewebdatax://y", std::nullopt}));
  EXPECT_EQ(MhtURLProtocol::canonicalRequestForRequest(r).url, r.url);

  MhtURLProtocol p;
  auto none = p.startLoading(r);
  ASSERT_TRUE(none.error);
  EXPECT_EQ(none.error->domain, "NSURLErrorDomain");
  EXPECT_EQ(none.error->code, -1008);
  setContentData(r, "bytes");
  auto some = p.startLoading(r);
  EXPECT_FALSE(some.error);
  EXPECT_EQ(some.data, "bytes");
}

}  // namespace
}  // namespace harbor::test

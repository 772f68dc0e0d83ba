#include <gtest/gtest.h>

#include <filesystem>

#include "NetTestClient.h"
#include "filemanager/TempDirectoryUtil.h"
#include "net/http/HTTPUtil.h"
#include "net/share/FileShareController.h"
#include "net/share/WiFiShare.h"
#include "platform/Strings.h"
#include "prefs/FileShareUtil.h"
#include "prefs/LoginPasswordUtil.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

class ShareLifecycleTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    ShareHooks::shared() = ShareHooks{};
    ShareHooks::shared().httpServerPort = [] { return std::uint16_t{0}; };
    ShareHooks::shared().unLockScreen = [this] { ++holds_; };
    ShareHooks::shared().lockScreen = [this] { --holds_; };
  }
  void TearDown() override {
    ShareHooks::shared() = ShareHooks{};
    WiFiShareBase::removeAllLoginGuid();
    TempHome::TearDown();
  }
  int holds_ = 0;
};

TEST_F(ShareLifecycleTest, StartAndStopClearWorkFoldersAndBackgroundForgetsLogins) {
  auto share = std::make_shared<WiFiShare>();
  share->initHttpServer();
  share->webServer()->setInterface("127.0.0.1");
  std::string leftover = TempDirectoryUtil::httpServerDirectory() + "/old";
  test::writeFile(leftover, "x");
  test::writeFile(WiFiShare::zipDirectory() + "/old.zip", "x");
  ASSERT_TRUE(share->startHttpServer());
  EXPECT_FALSE(fs::exists(leftover));
  EXPECT_FALSE(fs::exists(WiFiShare::zipDirectory() + "/old.zip"));
  std::uint16_t port = share->webServer()->listeningPort();
  EXPECT_NE(port, 0);

  share->addDownloadItem(WifiDownloadItem::instanceWithPath("/p", "g", 10));
  WiFiShareBase::addLoginGuid("g", "/a");
  share->enterBackground();
  EXPECT_FALSE(share->isRunning());
  EXPECT_FALSE(WiFiShareBase::isLoginGuid("g", "/a"));
  EXPECT_EQ(share->getDownloadItem("g"), nullptr);
  test::RawClient gone(port);
  EXPECT_FALSE(gone.ok() && gone.send("GET / HTTP/1.1\r\n\r\n") && !gone.readAll(500).empty());
  share->enterForeground();
  EXPECT_TRUE(share->isRunning());
  share->stopHttpServer();
}

TEST_F(ShareLifecycleTest, TheScreenStartsTheShareAndShowsWhereToFindIt) {
  auto share = std::make_shared<WiFiShare>();
  share->initHttpServer();
  share->webServer()->setInterface("127.0.0.1");
  FileShareController screen(share);
  int reloads = 0;
  screen.reloadData = [&] { ++reloads; };
  screen.localAddress = [] { return std::string(); };
  screen.viewDidLoad();
  EXPECT_EQ(screen.sectionArray().front().rows.front().at("CONTROL_ROW_DETAIL_TEXT"),
            localizedString("EnterWifiAddress"));
  screen.viewWillAppear();
  EXPECT_TRUE(share->isRunning());
  EXPECT_EQ(holds_, 1);
  EXPECT_GE(reloads, 1);
  screen.localAddress = [] { return std::string("10.1.2.3"); };
  EXPECT_EQ(screen.address(),
            "http://10.1.2.3:" + std::to_string(share->webServer()->listeningPort()));
  // Sharing stays on after the screen goes, unless the user turned that off.
  screen.viewDidDisappear();
  EXPECT_TRUE(share->isRunning());
  EXPECT_EQ(holds_, 0);
  FileShareUtil::setAutomaticallyOpenShare(false);
  screen.viewWillAppear();
  screen.viewDidDisappear();
  EXPECT_FALSE(share->isRunning());
}

TEST_F(ShareLifecycleTest, WebDavAsksForDigestOnlyWithAWifiPassword) {
  test::writeFile(root() / "d.txt", "dav");
  WebDavShare dav;
  dav.initHttpServer();
  dav.webServer()->setPort(0);
  dav.webServer()->setInterface("127.0.0.1");
  ASSERT_TRUE(dav.startHttpServer());
  std::uint16_t port = dav.webServer()->listeningPort();
  auto fetch = [&] {
    test::RawClient c(port);
    c.send("GET /d.txt HTTP/1.1\r\nConnection: close\r\n\r\n");
    return c.readAll();
  };
  EXPECT_EQ(test::bodyOf(fetch()), "dav");
  LoginPasswordUtil::saveWifiPassword("pw");
  std::string r = fetch();
  EXPECT_EQ(test::statusLine(r), "HTTP/1.1 401 Unauthorized");
  EXPECT_EQ(test::headerOf(r, "WWW-Authenticate").rfind("Digest ", 0), 0u);
  int status = 0;
  std::string url = "http://127.0.0.1:" + std::to_string(port) + "/d.txt";
  EXPECT_EQ(test::shell("curl -sf --digest -u any:pw " + url, &status), "dav");
  test::shell("curl -sf --basic -u any:pw " + url, &status);
  EXPECT_NE(status, 0);
  // A second share cannot take a port already in use.
  WebDavShare second;
  second.initHttpServer();
  second.webServer()->setPort(port);
  second.webServer()->setInterface("127.0.0.1");
  Error e;
  EXPECT_FALSE(second.startHttpServer(&e));
  EXPECT_FALSE(e.message.empty());
}

}  // namespace
}  // namespace harbor

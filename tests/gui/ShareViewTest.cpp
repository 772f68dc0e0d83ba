// The sharing screen's widgets against real servers on loopback.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QMainWindow>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>
#include <memory>
#include <string>

#include "filemanager/TempDirectoryUtil.h"
#include "gui/QrCode.h"
#include "gui/QtScreenPort.h"
#include "gui/ShareView.h"
#include "platform/Strings.h"
#include "prefs/FileShareUtil.h"
#include "prefs/LoginPasswordUtil.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

// One request on a fresh connection; the whole answer, or "" when nothing listens.
std::string request(std::uint16_t port, const std::string& text) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string out;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
    ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    char buf[4096];
    timeval tv{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    for (ssize_t n; (n = ::recv(fd, buf, sizeof buf, 0)) > 0;) out.append(buf, std::size_t(n));
  }
  ::close(fd);
  return out;
}

std::string get(std::uint16_t port, const std::string& target) {
  return request(port,
                 "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
}

class ShareViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    // Ports of the moment, so parallel runs never collide.
    ShareHooks::shared().httpServerPort = [] { return std::uint16_t{0}; };
    share_ = std::make_shared<WiFiShare>();
    share_->initHttpServer();
    dav_ = std::make_shared<WebDavShare>();
    dav_->initHttpServer();
    dav_->webServer()->setPort(0);
    controller_ = std::make_shared<HarborFileShareController>(share_);
    controller_->localAddress = [this] { return address_; };
    controller_->viewDidLoad();
    test::writeFile(root() / "shared-note.txt", "hello");
  }
  void TearDown() override {
    view_.reset();
    dav_->stopHttpServer();
    share_->stopHttpServer();
    ShareHooks::shared().httpServerPort = nullptr;
    TempHome::TearDown();
  }

  ShareView& open() {
    view_ = std::make_unique<ShareView>(controller_, dav_, nullptr);
    view_->resize(800, 600);
    view_->show();
    QApplication::processEvents();
    return *view_;
  }
  template <typename T>
  T* child(const char* name) {
    auto* w = view_->findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(w, nullptr) << name;
    return w;
  }
  std::uint16_t webPort() const { return share_->webServer()->listeningPort(); }

  std::string address_ = "127.0.0.1";
  std::shared_ptr<WiFiShare> share_;
  std::shared_ptr<WebDavShare> dav_;
  std::shared_ptr<HarborFileShareController> controller_;
  std::unique_ptr<ShareView> view_;
};

TEST_F(ShareViewTest, ScreenStartsAndStopsTheWebShareThatListsTheRoot) {
  open();
  // Showing the screen shares; its address is the one the QR code carries.
  ASSERT_TRUE(share_->isRunning());
  const std::uint16_t port = webPort();
  const QString url = QStringLiteral("http://127.0.0.1:%1").arg(port);
  EXPECT_EQ(view_->qrAddress(), url);
  EXPECT_TRUE(child<QLabel>("webAddress")->text().contains(url));
  EXPECT_NE(get(port, "/?type=list").find("shared-note.txt"), std::string::npos);

  QTest::mouseClick(child<QPushButton>("webToggle"), Qt::LeftButton);
  EXPECT_FALSE(share_->isRunning());
  EXPECT_EQ(get(port, "/?type=list"), "");
  EXPECT_TRUE(view_->qrAddress().isEmpty()) << "a code for a stopped share leads nowhere";
  EXPECT_FALSE(child<QLabel>("webQr")->isVisible());

  QTest::mouseClick(child<QPushButton>("webToggle"), Qt::LeftButton);
  ASSERT_TRUE(share_->isRunning());
  EXPECT_NE(get(webPort(), "/?type=list").find("shared-note.txt"), std::string::npos);
  EXPECT_TRUE(child<QLabel>("webQr")->isVisible());
}

TEST_F(ShareViewTest, AutomaticallyOpenSwitchDecidesWhetherLeavingStopsTheShare) {
  ASSERT_TRUE(FileShareUtil::isAutomaticallyOpenShare());
  open();
  auto* box = child<QCheckBox>("autoOpen");
  EXPECT_TRUE(box->isChecked());
  EXPECT_EQ(box->text().toStdString(), localizedString("Automatically open"));

  // On: leaving the screen keeps sharing.
  view_->hide();
  EXPECT_TRUE(share_->isRunning());

  view_->show();
  QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2));
  EXPECT_FALSE(FileShareUtil::isAutomaticallyOpenShare());
  EXPECT_FALSE(box->isChecked());
  view_->hide();
  EXPECT_FALSE(share_->isRunning());

  // The switch shows the stored preference when the screen comes back.
  FileShareUtil::setAutomaticallyOpenShare(true);
  controller_->loadPreferences();
  view_->show();
  EXPECT_TRUE(box->isChecked());
  EXPECT_TRUE(share_->isRunning());
}

TEST_F(ShareViewTest, WithoutNetworkTheHintReplacesAddressAndCode) {
  address_.clear();
  open();
  auto* hint = child<QLabel>("networkHint");
  EXPECT_TRUE(hint->isVisible());
  EXPECT_EQ(hint->text().toStdString(), localizedString("EnterWifiAddress"));
  EXPECT_FALSE(child<QLabel>("webAddress")->isVisible());
  EXPECT_FALSE(child<QLabel>("webQr")->isVisible());
  EXPECT_FALSE(child<QLabel>("davAddress")->isVisible());
}

TEST_F(ShareViewTest, WebDavStartsFromTheScreenAndShowsItsAuthentication) {
  open();
  auto* toggle = child<QPushButton>("davToggle");
  auto* auth = child<QLabel>("davAuth");
  EXPECT_EQ(auth->text().toStdString(), localizedString("WebDAVOpen"));
  QTest::mouseClick(toggle, Qt::LeftButton);
  ASSERT_TRUE(dav_->isRunning());
  const std::uint16_t port = dav_->webServer()->listeningPort();
  EXPECT_TRUE(child<QLabel>("davAddress")->text().contains(QStringLiteral(":%1/").arg(port)));
  const std::string propfind =
      "PROPFIND / HTTP/1.1\r\nHost: 127.0.0.1\r\nDepth: 1\r\nContent-Length: 0\r\n"
      "Connection: close\r\n\r\n";
  const std::string listing = request(port, propfind);
  EXPECT_NE(listing.find("207"), std::string::npos) << listing.substr(0, 200);
  EXPECT_NE(listing.find("shared-note.txt"), std::string::npos);

  // With a Wi-Fi password the screen says so and a bare request is refused.
  LoginPasswordUtil::saveWifiPassword("harbour");
  view_->refresh();
  EXPECT_EQ(auth->text().toStdString(), localizedString("WebDAVDigest"));
  EXPECT_EQ(request(port, propfind).rfind("HTTP/1.1 401", 0), 0u);

  QTest::mouseClick(toggle, Qt::LeftButton);
  EXPECT_FALSE(dav_->isRunning());
  EXPECT_EQ(request(port, propfind), "");
}

TEST_F(ShareViewTest, CodeOnScreenDecodesToTheAddress) {
  const QString zbar = QStandardPaths::findExecutable(QStringLiteral("zbarimg"));
  if (zbar.isEmpty()) GTEST_SKIP() << "zbarimg (zbar-tools) is not installed";
  open();
  const QPixmap shown = child<QLabel>("webQr")->pixmap();
  ASSERT_FALSE(shown.isNull());
  const QString file = QString::fromStdString((home() / "code.png").string());
  ASSERT_TRUE(shown.save(file));
  QProcess decode;
  decode.start(zbar, {QStringLiteral("--raw"), QStringLiteral("-q"), file});
  ASSERT_TRUE(decode.waitForFinished(20000));
  EXPECT_EQ(QString::fromUtf8(decode.readAllStandardOutput()).trimmed(), view_->qrAddress());

  // Text too long for any code gives no image rather than a wrong one.
  EXPECT_TRUE(qrCodeImage(QString(8000, QLatin1Char('x'))).isNull());
}

TEST_F(ShareViewTest, MinimisedWindowStopsTheShareOnceUploadsHaveLanded) {
  ASSERT_TRUE(share_->startHttpServer());
  int backgrounds = 0, foregrounds = 0;
  ShareFollower::Hooks hooks;
  hooks.enterBackground = [&] {
    ++backgrounds;
    share_->enterBackground();
  };
  hooks.enterForeground = [&] {
    ++foregrounds;
    share_->enterForeground();
  };
  const auto uploads = std::filesystem::path(TempDirectoryUtil::httpServerDirectory());
  hooks.uploadsInProgress = [&] { return std::filesystem::exists(uploads / "piece"); };
  ShareFollower follower(hooks);
  QMainWindow window;
  window.installEventFilter(&follower);
  window.show();

  // A browser is still sending: minimising waits for it.
  test::writeFile(uploads / "piece", "half a file");
  window.setWindowState(Qt::WindowMinimized);
  QTest::qWait(ShareFollower::kRetryMs * 2);
  EXPECT_EQ(backgrounds, 0);
  EXPECT_TRUE(share_->isRunning());

  std::filesystem::remove(uploads / "piece");
  ASSERT_TRUE(QTest::qWaitFor([&] { return backgrounds == 1; }, 5000));
  EXPECT_FALSE(share_->isRunning());

  window.setWindowState(Qt::WindowNoState);
  EXPECT_EQ(foregrounds, 1);
  EXPECT_TRUE(share_->isRunning());

  // Restored before the uploads ended: the share was never interrupted.
  test::writeFile(uploads / "piece", "again");
  window.setWindowState(Qt::WindowMinimized);
  QTest::qWait(50);
  window.setWindowState(Qt::WindowNoState);
  QTest::qWait(50);
  std::filesystem::remove(uploads / "piece");
  QTest::qWait(ShareFollower::kRetryMs * 2);
  EXPECT_EQ(backgrounds, 1);
  EXPECT_EQ(foregrounds, 1);
  EXPECT_TRUE(share_->isRunning());
}

}  // namespace
}  // namespace harbor::gui

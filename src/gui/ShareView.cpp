#include "gui/ShareView.h"

#include <QApplication>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QMainWindow>
#include <QPixmap>
#include <QShowEvent>
#include <QVBoxLayout>
#include <filesystem>

#include "app/ApplicationServices.h"
#include "app/GlobalConfig.h"
#include "filemanager/TempDirectoryUtil.h"
#include "gui/CloudView.h"
#include "gui/MainWindow.h"
#include "gui/QrCode.h"
#include "gui/Screens.h"
#include "gui/Text.h"
#include "platform/Strings.h"
#include "prefs/FileShareUtil.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor::gui {
namespace {

std::string rowValue(const FileShareController::Row& row, const char* key) {
  auto it = row.find(key);
  return it == row.end() ? std::string() : it->second;
}

// A live address is a link; a stopped server's is plain, dimmed text.
QString addressText(const QString& url, bool live, const QPalette& palette) {
  if (!live) {
    return QStringLiteral("<span style=\"color:%2\">%1</span>")
        .arg(url.toHtmlEscaped(), palette.color(QPalette::Disabled, QPalette::WindowText).name());
  }
  // Dark palettes often keep the default dark-blue link colour, unreadable there.
  const bool dark = palette.color(QPalette::Window).lightness() < 128;
  const QColor colour = dark ? QColor(0x7a, 0xb8, 0xff) : palette.color(QPalette::Link);
  return QStringLiteral("<a style=\"color:%2\" href=\"%1\">%1</a>")
      .arg(url.toHtmlEscaped(), colour.name());
}

// A browser is sending a file while its pieces sit in the upload folder.
bool uploadsInProgress() {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::directory_iterator it(TempDirectoryUtil::httpServerDirectory(), ec);
  return !ec && it != fs::directory_iterator();
}

}  // namespace

ShareView::ShareView(std::shared_ptr<HarborFileShareController> controller,
                     std::shared_ptr<WebDavShare> webDav, MainWindow* window, QWidget* parent)
    : QWidget(parent),
      controller_(std::move(controller)),
      webDav_(std::move(webDav)),
      window_(window) {
  setObjectName(QStringLiteral("shareView"));
  setWindowTitle(QString::fromStdString(controller_->title()));
  setProperty("crumb", windowTitle());

  auto* page = new QVBoxLayout(this);
  page->setContentsMargins(24, 16, 24, 16);
  page->setSpacing(14);

  auto* web = new QGroupBox(loc("Wifi"), this);
  web->setObjectName(QStringLiteral("webGroup"));
  auto* webGrid = new QGridLayout(web);
  webGrid->setColumnStretch(0, 1);
  webState_ = new QLabel(web);
  webState_->setObjectName(QStringLiteral("webState"));
  webToggle_ = new QPushButton(web);
  webToggle_->setMinimumWidth(90);
  webToggle_->setObjectName(QStringLiteral("webToggle"));
  webAddress_ = new QLabel(web);
  webAddress_->setObjectName(QStringLiteral("webAddress"));
  webAddress_->setOpenExternalLinks(true);
  webAddress_->setTextInteractionFlags(Qt::TextBrowserInteraction);
  networkHint_ = new QLabel(web);
  networkHint_->setObjectName(QStringLiteral("networkHint"));
  networkHint_->setWordWrap(true);
  autoOpen_ = new QCheckBox(web);
  autoOpen_->setObjectName(QStringLiteral("autoOpen"));
  qr_ = new QLabel(web);
  qr_->setObjectName(QStringLiteral("webQr"));
  qr_->setAlignment(Qt::AlignCenter);
  qrCaption_ = new QLabel(loc("ScanToOpen"), web);
  qrCaption_->setAlignment(Qt::AlignCenter);
  qrCaption_->setWordWrap(true);
  auto* stateRow = new QHBoxLayout;
  stateRow->addWidget(webState_, 1);
  stateRow->addWidget(webToggle_);
  webGrid->addLayout(stateRow, 0, 0);
  webGrid->addWidget(webAddress_, 1, 0);
  webGrid->addWidget(networkHint_, 2, 0);
  webGrid->addWidget(autoOpen_, 3, 0);
  webGrid->setRowStretch(4, 1);
  auto* qrColumn = new QVBoxLayout;
  qrColumn->addWidget(qr_);
  qrColumn->addWidget(qrCaption_);
  webGrid->addLayout(qrColumn, 0, 1, 5, 1);
  page->addWidget(web);

  auto* dav = new QGroupBox(loc("WebDAV"), this);
  dav->setObjectName(QStringLiteral("davGroup"));
  auto* davBox = new QVBoxLayout(dav);
  davState_ = new QLabel(dav);
  davState_->setObjectName(QStringLiteral("davState"));
  davToggle_ = new QPushButton(dav);
  davToggle_->setMinimumWidth(90);
  davToggle_->setObjectName(QStringLiteral("davToggle"));
  auto* davRow = new QHBoxLayout;
  davRow->addWidget(davState_, 1);
  davRow->addWidget(davToggle_);
  davBox->addLayout(davRow);
  davAddress_ = new QLabel(dav);
  davAddress_->setObjectName(QStringLiteral("davAddress"));
  davAddress_->setOpenExternalLinks(true);
  davAddress_->setTextInteractionFlags(Qt::TextBrowserInteraction);
  davBox->addWidget(davAddress_);
  davAuth_ = new QLabel(dav);
  davAuth_->setObjectName(QStringLiteral("davAuth"));
  davAuth_->setWordWrap(true);
  davBox->addWidget(davAuth_);
  page->addWidget(dav);

  cloud_ = new QPushButton(this);
  cloud_->setMinimumWidth(140);
  cloud_->setObjectName(QStringLiteral("cloudButton"));
  page->addWidget(cloud_, 0, Qt::AlignLeft);

  error_ = new QLabel(this);
  error_->setObjectName(QStringLiteral("shareError"));
  error_->setWordWrap(true);
  error_->setStyleSheet(QStringLiteral("color: #d03030;"));
  error_->hide();
  page->addWidget(error_);
  page->addStretch(1);

  connect(webToggle_, &QPushButton::clicked, this, &ShareView::toggleWeb);
  connect(davToggle_, &QPushButton::clicked, this, &ShareView::toggleWebDav);
  connect(autoOpen_, &QCheckBox::toggled, this, [this](bool on) {
    if (on == FileShareUtil::isAutomaticallyOpenShare()) return;
    FileShareUtil::setAutomaticallyOpenShare(on);
    controller_->loadPreferences();
    refresh();
  });
  connect(cloud_, &QPushButton::clicked, this, [this] { controller_->loadICloudDrive(); });
  controller_->pushViewController = [this](std::shared_ptr<ViewController> screen) {
    if (window_) window_->pushScreen(std::move(screen));
  };
  // News of the share may arrive while the controller is mid-call: redraw after.
  controller_->reloadData = [this] {
    QMetaObject::invokeMethod(
        this, [this] { refresh(); }, Qt::QueuedConnection);
  };
  refresh();
}

ShareView::~ShareView() {
  controller_->reloadData = nullptr;
  controller_->pushViewController = nullptr;
}

void ShareView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  // A window coming back from minimised is not the screen appearing again.
  if (!event->spontaneous()) controller_->viewWillAppear();
  refresh();
}

void ShareView::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (!event->spontaneous()) controller_->viewDidDisappear();
}

void ShareView::toggleWeb() {
  auto share = controller_->httpServer();
  if (!share) return;
  error_->hide();
  if (share->isRunning()) {
    share->stopHttpServer();
  } else {
    Error error;
    if (!share->startHttpServer(&error)) {
      error_->setText(QString::fromStdString(error.message));
      error_->show();
    }
  }
  controller_->loadPreferences();
  refresh();
}

void ShareView::toggleWebDav() {
  if (!webDav_) return;
  error_->hide();
  if (webDav_->isRunning()) {
    webDav_->stopHttpServer();
  } else {
    Error error;
    if (!webDav_->startHttpServer(&error)) {
      error_->setText(QString::fromStdString(error.message));
      error_->show();
    }
  }
  refresh();
}

QString ShareView::webDavAddress() const {
  const std::string host = controller_->localAddress ? controller_->localAddress() : "";
  if (host.empty() || !webDav_ || !webDav_->webServer()) return {};
  const HTTPServer& server = *webDav_->webServer();
  const int port = server.isRunning() ? server.listeningPort() : server.port();
  return QStringLiteral("http://%1:%2/").arg(QString::fromStdString(host)).arg(port);
}

void ShareView::refresh() {
  const auto& sections = controller_->sectionArray();
  const FileShareController::Row* addressRow = nullptr;
  const FileShareController::Row* switchRow = nullptr;
  const FileShareController::Row* cloudRow = nullptr;
  for (const auto& section : sections) {
    for (const auto& row : section.rows) {
      const std::string event = rowValue(row, "control_event");
      if (event == "loadWifiInfo:") addressRow = &row;
      if (event == "loadICloudDrive:") cloudRow = &row;
      if (rowValue(row, "control_row_accessory_type") == "switch") switchRow = &row;
    }
  }

  const bool webRunning = controller_->httpServer() && controller_->httpServer()->isRunning();

  webToggle_->setText(loc(webRunning ? "StopShare" : "StartShare"));
  webToggle_->setEnabled(controller_->httpServer() != nullptr);

  // The row carries a detail only when there is no network to share on.
  const std::string hint = addressRow ? rowValue(*addressRow, "CONTROL_ROW_DETAIL_TEXT") : "";
  const QString url = addressRow && hint.empty()
                          ? QString::fromStdString(rowValue(*addressRow, "control_row_text"))
                          : QString();
  // The state line leads to the address only when there is one to follow.
  webState_->setText(loc(!webRunning     ? "ShareStopped"
                         : url.isEmpty() ? "ShareOn"
                                         : "ShareRunning"));
  networkHint_->setText(QString::fromStdString(hint));
  networkHint_->setVisible(!hint.empty());
  webAddress_->setText(url.isEmpty() ? QString() : addressText(url, webRunning, palette()));
  webAddress_->setVisible(!url.isEmpty());

  const QString qrText = webRunning ? url : QString();
  if (qrText != qrAddress_) {
    qrAddress_ = qrText;
    qr_->setPixmap(qrText.isEmpty() ? QPixmap() : QPixmap::fromImage(qrCodeImage(qrText, 5)));
  }
  qr_->setVisible(!qrAddress_.isEmpty());
  qrCaption_->setVisible(!qrAddress_.isEmpty());

  if (switchRow) {
    const QSignalBlocker block(autoOpen_);
    autoOpen_->setText(QString::fromStdString(rowValue(*switchRow, "control_row_text")));
    autoOpen_->setChecked(rowValue(*switchRow, "CONTROL_ROW_DETAIL_TEXT") == "1");
  }
  autoOpen_->setVisible(switchRow != nullptr);

  const bool davRunning = webDav_ && webDav_->isRunning();
  davToggle_->setText(loc(davRunning ? "StopShare" : "StartShare"));
  davToggle_->setEnabled(webDav_ != nullptr);
  const QString davUrl = webDavAddress();
  davState_->setText(loc(!davRunning        ? "ShareStopped"
                         : davUrl.isEmpty() ? "ShareOn"
                                            : "WebDAVRunning"));
  davAddress_->setText(davUrl.isEmpty() ? QString() : addressText(davUrl, davRunning, palette()));
  davAddress_->setVisible(!davUrl.isEmpty());
  // The same password guards the WebDAV connection as the web pages' folders.
  davAuth_->setText(
      loc(LoginPasswordUtil::getWifiPassword().empty() ? "WebDAVOpen" : "WebDAVDigest"));

  if (cloudRow) cloud_->setText(QString::fromStdString(rowValue(*cloudRow, "control_row_text")));
  cloud_->setVisible(cloudRow != nullptr);
}

std::shared_ptr<WebDavShare> desktopWebDavShare() {
  static std::shared_ptr<WebDavShare> share = [] {
    auto s = std::make_shared<WebDavShare>();
    s->initHttpServer();
    return s;
  }();
  return share;
}

ShareFollower::ShareFollower(Hooks hooks, QObject* parent)
    : QObject(parent), hooks_(std::move(hooks)) {
  retry_.setInterval(kRetryMs);
  connect(&retry_, &QTimer::timeout, this, &ShareFollower::tryEnterBackground);
}

void ShareFollower::setBackground(bool background) {
  wantBackground_ = background;
  if (background) {
    tryEnterBackground();
    return;
  }
  retry_.stop();
  if (inBackground_) {
    inBackground_ = false;
    if (hooks_.enterForeground) hooks_.enterForeground();
  }
}

void ShareFollower::tryEnterBackground() {
  if (!wantBackground_ || inBackground_) {
    retry_.stop();
    return;
  }
  if (hooks_.uploadsInProgress && hooks_.uploadsInProgress()) {
    if (!retry_.isActive()) retry_.start();
    return;
  }
  retry_.stop();
  inBackground_ = true;
  if (hooks_.enterBackground) hooks_.enterBackground();
}

bool ShareFollower::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::WindowStateChange) {
    if (auto* window = qobject_cast<QMainWindow*>(watched); window && window->isWindow())
      setBackground(window->isMinimized());
  }
  return QObject::eventFilter(watched, event);
}

namespace {

void installShareFollower() {
  if (!qApp || qApp->property("harborShareFollower").toBool()) return;
  qApp->setProperty("harborShareFollower", true);
  auto davWasRunning = std::make_shared<bool>(false);
  ShareFollower::Hooks hooks;
  hooks.enterBackground = [davWasRunning] {
    if (GlobalConfig* config = GlobalConfig::instance(); config && config->httpServer)
      config->httpServer->stopHttpServer();
    WiFiShareBase::removeAllLoginGuid();
    TempDirectoryUtil::deleteHttpServerDirectory();
    *davWasRunning = desktopWebDavShare()->isRunning();
    desktopWebDavShare()->stopHttpServer();
  };
  hooks.enterForeground = [davWasRunning] {
    // Back in front the share runs again, whatever the launch switch says.
    if (GlobalConfig* config = GlobalConfig::instance(); config && config->httpServer)
      config->httpServer->startHttpServer();
    if (*davWasRunning) desktopWebDavShare()->startHttpServer();
  };
  hooks.uploadsInProgress = uploadsInProgress;
  auto* follower = new ShareFollower(std::move(hooks), qApp);
  qApp->installEventFilter(follower);
  // Platforms that suspend or hide a whole application say so directly.
  QObject::connect(qApp, &QGuiApplication::applicationStateChanged, follower,
                   [follower](Qt::ApplicationState state) {
                     if (state == Qt::ApplicationSuspended || state == Qt::ApplicationHidden)
                       follower->setBackground(true);
                     else if (state == Qt::ApplicationActive)
                       follower->setBackground(false);
                   });
}

}  // namespace

void registerShareViews() {
  installShareFollower();
  // The cloud screen opens from this one's cloud row.
  registerCloudViews();
  Screens::addScreen("HarborFileShareController",
                     [](std::shared_ptr<ViewController> screen, MainWindow& window) -> QWidget* {
                       auto share = std::dynamic_pointer_cast<HarborFileShareController>(screen);
                       if (!share) return nullptr;
                       return new ShareView(share, desktopWebDavShare(), &window);
                     });
  Screens::addShow("share", [](const std::string&, MainWindow& window) -> QWidget* {
    auto& make = ApplicationServices::shared().fileShareController;
    auto share = std::dynamic_pointer_cast<HarborFileShareController>(make ? make() : nullptr);
    if (!share) return nullptr;
    return new ShareView(share, desktopWebDavShare(), &window);
  });
}

}  // namespace harbor::gui

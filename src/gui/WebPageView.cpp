#include "gui/WebPageView.h"

#include <unistd.h>
#include <QAction>
#include <QBuffer>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QMutexLocker>
#include <QToolBar>
#include <QVBoxLayout>
#include <QWebEngineFindTextResult>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineView>
#include <filesystem>

#include "app/HarborFileManagerController.h"
#include "gui/ArchiveView.h"
#include "gui/EpubView.h"
#include "gui/ImageView.h"
#include "gui/MainWindow.h"
#include "gui/MediaView.h"
#include "gui/MhtView.h"
#include "gui/PdfView.h"
#include "gui/Screens.h"
#include "platform/Strings.h"
#include "viewers/mht/MhtFormatParser.h"
#include "viewers/mht/MhtURLProtocol.h"

namespace harbor::gui {

namespace {
QString qs(const std::string& s) {
  return QString::fromStdString(s);
}
QString loc(const char* key) {
  return qs(localizedString(key));
}
std::atomic<int> served{0};
}  // namespace

void registerViewerSchemes() {
  static bool done = false;
  if (done) return;
  done = true;
  QWebEngineUrlScheme scheme(MhtURLProtocol::kScheme);
  scheme.setSyntax(QWebEngineUrlScheme::Syntax::Path);
  scheme.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::LocalScheme |
                  QWebEngineUrlScheme::LocalAccessAllowed);
  QWebEngineUrlScheme::registerScheme(scheme);
  // Web views in widgets share GL contexts with the window.
  QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
  MhtURLProtocol::registerMhtProtocol();
}

void disableWebSandboxForRoot() {
  if (geteuid() != 0) return;
  QByteArray flags = qgetenv("QTWEBENGINE_CHROMIUM_FLAGS");
  if (!flags.contains("--no-sandbox")) {
    flags += flags.isEmpty() ? "--no-sandbox" : " --no-sandbox";
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", flags);
  }
}

// ---- remote blocking ----------------------------------------------------------------------

void RemoteBlocker::interceptRequest(QWebEngineUrlRequestInfo& info) {
  const QUrl url = info.requestUrl();
  {
    QMutexLocker lock(&mutex_);
    requested_ << url.toString();
  }
  const QString scheme = url.scheme().toLower();
  const bool remote = scheme == QLatin1String("http") || scheme == QLatin1String("https") ||
                      scheme == QLatin1String("ws") || scheme == QLatin1String("wss") ||
                      scheme == QLatin1String("ftp");
  if (remote && !allowRemote_) {
    info.block(true);
    if (blocked_++ == 0) {
      QMetaObject::invokeMethod(
          this, [this] { emit remoteBlocked(); }, Qt::QueuedConnection);
    }
  }
}

QStringList RemoteBlocker::requested() const {
  QMutexLocker lock(&mutex_);
  return requested_;
}

// ---- web archive scheme -------------------------------------------------------------------

void MhtSchemeHandler::setRootContent(const QUrl& url, const QByteArray& data,
                                      const QByteArray& mimeType) {
  roots_.insert(url.toString(QUrl::RemoveFragment | QUrl::RemoveQuery), Root{data, mimeType});
}

int MhtSchemeHandler::servedCount() {
  return served;
}

void MhtSchemeHandler::requestStarted(QWebEngineUrlRequestJob* job) {
  const QUrl url = job->requestUrl();
  MhtURLRequest request{url.toString().toStdString(), std::nullopt};
  if (!MhtURLProtocol::canInitWithRequest(request)) {
    job->fail(QWebEngineUrlRequestJob::UrlInvalid);
    return;
  }
  QByteArray mime;
  const QString key = url.toString(QUrl::RemoveFragment | QUrl::RemoveQuery);
  if (auto at = roots_.constFind(key); at != roots_.constEnd()) {
    setContentData(request, at->data.toStdString());
    mime = at->mimeType;
  } else {
    // Only the unpacked archive is served: a path that leaves it is absent.
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path base = fs::weakly_canonical(MhtFormatParser::mhtTempDirectory(), ec);
    const fs::path file = fs::weakly_canonical(url.path().toStdString(), ec);
    const auto rel = file.lexically_relative(base);
    if (!ec && !rel.empty() && *rel.begin() != ".." && fs::is_regular_file(file, ec)) {
      QFile in(QString::fromStdString(file.string()));
      if (in.open(QIODevice::ReadOnly)) {
        setContentData(request, in.readAll().toStdString());
        mime = QMimeDatabase().mimeTypeForFile(in.fileName()).name().toUtf8();
      }
    }
  }
  MhtURLProtocol protocol;
  const MhtURLProtocol::Loading loading = protocol.startLoading(request);
  if (!loading.data) {
    job->fail(QWebEngineUrlRequestJob::UrlNotFound);
    return;
  }
  auto* buffer = new QBuffer(job);
  buffer->setData(QByteArray::fromStdString(*loading.data));
  ++served;
  job->reply(mime.isEmpty() ? QByteArray("application/octet-stream") : mime, buffer);
}

QWebEngineProfile* viewerProfile() {
  static QWebEngineProfile* profile = [] {
    // Off the record: a viewer leaves no cache or cookies behind.
    auto* p = new QWebEngineProfile(QCoreApplication::instance());
    p->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    p->installUrlSchemeHandler(MhtURLProtocol::kScheme, mhtSchemeHandler());
    return p;
  }();
  return profile;
}

MhtSchemeHandler* mhtSchemeHandler() {
  static MhtSchemeHandler* handler = new MhtSchemeHandler(QCoreApplication::instance());
  return handler;
}

// ---- the view -----------------------------------------------------------------------------

WebPageView::WebPageView(QWidget* parent) : QWidget(parent) {
  build();
}

WebPageView::WebPageView(std::vector<std::string> files, std::size_t current, QWidget* parent)
    : QWidget(parent), files_(std::move(files)) {
  setObjectName(QStringLiteral("webPageView"));
  build();
  if (files_.size() > 1) {
    addPaging([this](int step) {
      const long next = static_cast<long>(current_) + step;
      if (next >= 0 && next < static_cast<long>(files_.size()))
        showFile(static_cast<std::size_t>(next));
    });
  }
  showFile(current < files_.size() ? current : 0);
}

void WebPageView::build() {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  toolbar_ = new QToolBar(this);
  toolbar_->setObjectName(QStringLiteral("viewerToolbar"));
  layout->addWidget(toolbar_);
  web_ = new QWebEngineView(this);
  web_->setObjectName(QStringLiteral("webView"));
  auto* page = new QWebEnginePage(viewerProfile(), web_);
  blocker_ = new RemoteBlocker(page);
  page->setUrlRequestInterceptor(blocker_);
  // Remote requests reach the blocker, which holds them until the user asks.
  page->settings()->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, true);
  web_->setPage(page);
  layout->addWidget(web_, 1);

  remote_ = new QAction(loc("Load remote content"), this);
  remote_->setObjectName(QStringLiteral("loadRemote"));
  remote_->setToolTip(loc("This page asked for content on the network; it was not loaded."));
  remote_->setVisible(false);
  connect(remote_, &QAction::triggered, this, &WebPageView::allowRemote);
  connect(blocker_, &RemoteBlocker::remoteBlocked, this, [this] { remote_->setVisible(true); });

  findField_ = new QLineEdit(this);
  findField_->setObjectName(QStringLiteral("findField"));
  findField_->setPlaceholderText(loc("Find"));
  findField_->setClearButtonEnabled(true);
  findField_->setMaximumWidth(240);
  connect(findField_, &QLineEdit::returnPressed, this, [this] { find(findField_->text()); });
  connect(web_, &QWebEngineView::loadFinished, this, [this](bool ok) {
    loaded_ = true;
    emit pageLoaded(ok);
  });
  auto* spacer = new QWidget(toolbar_);
  spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  toolbar_->addWidget(spacer);
  toolbar_->addAction(remote_);
  toolbar_->addWidget(findField_);
}

void WebPageView::addPaging(std::function<void(int)> step) {
  previous_ = new QAction(QStringLiteral("\u2039 ") + loc("Previous"), this);
  previous_->setObjectName(QStringLiteral("previous"));
  previous_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_PageUp));
  next_ = new QAction(loc("Next") + QStringLiteral(" \u203a"), this);
  next_->setObjectName(QStringLiteral("next"));
  next_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_PageDown));
  connect(previous_, &QAction::triggered, this, [step] { step(-1); });
  connect(next_, &QAction::triggered, this, [step] { step(1); });
  pageLabel_ = new QLabel(toolbar_);
  pageLabel_->setObjectName(QStringLiteral("pageLabel"));
  pageLabel_->setContentsMargins(6, 0, 6, 0);
  QAction* first = toolbar_->actions().value(0);
  toolbar_->insertAction(first, previous_);
  toolbar_->insertWidget(first, pageLabel_);
  toolbar_->insertAction(first, next_);
}

void WebPageView::updatePaging(int index, int count) {
  if (!pageLabel_) return;
  pageLabel_->setText(QStringLiteral("%1 / %2").arg(index + 1).arg(count));
  previous_->setEnabled(index > 0);
  next_->setEnabled(index + 1 < count);
}

void WebPageView::showFile(std::size_t index) {
  if (index >= files_.size()) return;
  current_ = index;
  loaded_ = false;
  const QString path = qs(files_[index]);
  setProperty("crumb", MainWindow::crumbFor(files_[index]));
  updatePaging(static_cast<int>(index), static_cast<int>(files_.size()));
  web_->load(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

void WebPageView::find(const QString& text, bool backwards) {
  QWebEnginePage::FindFlags flags;
  if (backwards) flags |= QWebEnginePage::FindBackward;
  web_->page()->findText(text, flags, [this](const QWebEngineFindTextResult& result) {
    findMatches_ = result.numberOfMatches();
  });
}

void WebPageView::allowRemote() {
  blocker_->setAllowRemote(true);
  remote_->setVisible(false);
  web_->reload();
}

void openFromCommandLine(MainWindow& window, const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path file = fs::absolute(path, ec);
  if (ec || !fs::is_regular_file(file, ec)) {
    window.openEditor(path);
    return;
  }
  // The browser decides the route; it stays alive for an archive's sheet.
  static std::vector<std::shared_ptr<HarborFileManagerController>> openers;
  auto opener = std::make_shared<HarborFileManagerController>(file.parent_path().string());
  opener->setPort(std::make_shared<WindowPort>(&window, window));
  openers.push_back(opener);
  opener->loadFilePathFromServer(file.string());
}

// ---- the table ----------------------------------------------------------------------------

void registerViewerViews() {
  auto page = [](const std::vector<std::string>& files, std::size_t current,
                 MainWindow&) -> QWidget* { return new WebPageView(files, current); };
  Screens::addRoute(ScreenRoute::Web, page);
  Screens::addRoute(ScreenRoute::Preview, page);
  Screens::addRoute(
      ScreenRoute::Mht,
      [](const std::vector<std::string>& files, std::size_t current,
         MainWindow& window) -> QWidget* { return new MhtView(files.at(current), window); });
  Screens::addRoute(ScreenRoute::Epub,
                    [](const std::vector<std::string>& files, std::size_t current,
                       MainWindow&) -> QWidget* { return new EpubView(files.at(current)); });
  Screens::addRoute(ScreenRoute::Image,
                    [](const std::vector<std::string>& files, std::size_t current,
                       MainWindow&) -> QWidget* { return new ImageView(files, current); });
  Screens::addRoute(ScreenRoute::Pdf,
                    [](const std::vector<std::string>& files, std::size_t current,
                       MainWindow&) -> QWidget* { return new PdfView(files.at(current)); });
  auto media = [](const std::vector<std::string>& files, std::size_t current,
                  MainWindow&) -> QWidget* { return new MediaView(files, current); };
  Screens::addRoute(ScreenRoute::Media, media);
  Screens::addRoute(ScreenRoute::Music, media);
  Screens::addScreen("ViewArchiveController", makeArchiveView);
}

}  // namespace harbor::gui

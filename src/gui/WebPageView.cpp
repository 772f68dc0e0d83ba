#include "gui/WebPageView.h"

#include <unistd.h>
#include <QAction>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLibrary>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QOpenGLContext>
#include <QToolBar>
#include <QVBoxLayout>
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
#include "gui/Text.h"
#include "platform/Log.h"
#include "platform/Strings.h"
#include "viewers/mht/MhtFormatParser.h"
#include "viewers/mht/MhtURLProtocol.h"

QT_BEGIN_NAMESPACE
// Qt's own hook for the context every shared context derives from.
Q_GUI_EXPORT void qt_gl_set_global_share_context(QOpenGLContext* context);
QT_END_NAMESPACE

namespace harbor::gui {

namespace {
std::atomic<int> served{0};
}  // namespace

void registerViewerSchemes() {
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

// ---- the engine's plugin ------------------------------------------------------------------

namespace {
// Where the plugin lies beside the program: installed, and in the build tree
// (programs in bin/ and bench/ alike).
QStringList pluginCandidates() {
  QStringList out;
  const QByteArray forced = qgetenv("HARBOR_WEB_PLUGIN");
  if (!forced.isEmpty()) out << QString::fromLocal8Bit(forced);
  const QString dir = QCoreApplication::applicationDirPath();
  out << dir + QStringLiteral("/" HARBOR_WEB_PLUGIN_RELATIVE "/" HARBOR_WEB_PLUGIN_NAME)
      << dir + QStringLiteral("/../lib/harbor/" HARBOR_WEB_PLUGIN_NAME);
  return out;
}

WebEngine* loadWebEngine() {
  // What the engine does when linked in, done only now: pages share one
  // OpenGL context with the windows that show them.
  if (!QOpenGLContext::globalShareContext()) {
    auto* context = new QOpenGLContext;
    context->create();
    qt_gl_set_global_share_context(context);
    // Gone with the application, and Qt told so first.
    qAddPostRoutine([] {
      QOpenGLContext* shared = QOpenGLContext::globalShareContext();
      qt_gl_set_global_share_context(nullptr);
      delete shared;
    });
  }
  for (const QString& path : pluginCandidates()) {
    if (!QFileInfo::exists(path)) continue;
    QLibrary library(path);
    library.setLoadHints(QLibrary::PreventUnloadHint);
    auto entry = reinterpret_cast<WebEngineEntry>(library.resolve(kWebEngineEntryName));
    if (!entry) {
      HB_LOG("WebPageView", library.errorString().toStdString());
      continue;
    }
    return entry(MhtURLProtocol::kScheme,
                 [](const QUrl& url) { return MhtSchemeHandler::shared().resolve(url); });
  }
  HB_LOG("WebPageView",
         "no web engine plugin beside " + QCoreApplication::applicationDirPath().toStdString());
  return nullptr;
}
}  // namespace

WebEngine* webEngine() {
  static WebEngine* engine = loadWebEngine();
  return engine;
}

// ---- web archive scheme -------------------------------------------------------------------

MhtSchemeHandler& MhtSchemeHandler::shared() {
  static MhtSchemeHandler handler;
  return handler;
}

void MhtSchemeHandler::setRootContent(const QUrl& url, const QByteArray& data,
                                      const QByteArray& mimeType) {
  roots_.insert(url.toString(QUrl::RemoveFragment | QUrl::RemoveQuery), Root{data, mimeType});
}

int MhtSchemeHandler::servedCount() {
  return served;
}

WebSchemeReply MhtSchemeHandler::resolve(const QUrl& url) {
  MhtURLRequest request{url.toString().toStdString(), std::nullopt};
  if (!MhtURLProtocol::canInitWithRequest(request)) return {};
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
  if (!loading.data) return {};
  ++served;
  return {true, QByteArray::fromStdString(*loading.data), mime};
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

WebPageView::~WebPageView() {
  // The surface is a child and outlives this part of the object.
  if (!web_) return;
  web_->onLoadFinished = nullptr;
  web_->onTitleChanged = nullptr;
  web_->onRemoteBlocked = nullptr;
}

void WebPageView::build() {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  toolbar_ = new QToolBar(this);
  toolbar_->setObjectName(QStringLiteral("viewerToolbar"));
  layout->addWidget(toolbar_);
  if (WebEngine* engine = webEngine()) {
    web_ = engine->createSurface(this);
    web_->widget()->setObjectName(QStringLiteral("webView"));
    layout->addWidget(web_->widget(), 1);
  } else {
    auto* missing = new QLabel(loc("Failure"), this);
    missing->setAlignment(Qt::AlignCenter);
    layout->addWidget(missing, 1);
  }

  remote_ = new QAction(loc("Load remote content"), this);
  remote_->setObjectName(QStringLiteral("loadRemote"));
  remote_->setToolTip(loc("This page asked for content on the network; it was not loaded."));
  remote_->setVisible(false);
  connect(remote_, &QAction::triggered, this, &WebPageView::allowRemote);

  findField_ = new QLineEdit(this);
  findField_->setObjectName(QStringLiteral("findField"));
  findField_->setPlaceholderText(loc("Find"));
  findField_->setClearButtonEnabled(true);
  findField_->setMaximumWidth(240);
  connect(findField_, &QLineEdit::returnPressed, this, [this] { find(findField_->text()); });
  if (web_) {
    web_->onRemoteBlocked = [this] { remote_->setVisible(true); };
    web_->onLoadFinished = [this](bool ok) {
      loaded_ = true;
      emit pageLoaded(ok);
    };
  }
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
  load(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

void WebPageView::load(const QUrl& url) {
  loaded_ = false;
  if (web_) web_->load(url);
}

void WebPageView::find(const QString& text, bool backwards) {
  if (web_) web_->findText(text, backwards, [this](int matches) { findMatches_ = matches; });
}

void WebPageView::allowRemote() {
  if (!web_) return;
  web_->setAllowRemote(true);
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

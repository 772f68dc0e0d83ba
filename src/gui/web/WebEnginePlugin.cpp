// The web engine, loaded by the application on its first page. Only Qt here:
// every decision about what a page may read stays in the application,
// which answers its own scheme through the resolver.
#include <QBuffer>
#include <QCoreApplication>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QQuickWindow>
#include <QWebEngineFindTextResult>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineUrlSchemeHandler>
#include <QWebEngineView>
#include <atomic>

#include "gui/WebSurface.h"

namespace harbor::gui {
namespace {

// Keeps a page of a local document off the network until the user asks.
// Runs on the engine's IO thread.
class RemoteBlocker : public QWebEngineUrlRequestInterceptor {
 public:
  RemoteBlocker(QObject* parent, std::function<void()> firstBlocked)
      : QWebEngineUrlRequestInterceptor(parent), firstBlocked_(std::move(firstBlocked)) {}

  void interceptRequest(QWebEngineUrlRequestInfo& info) override {
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
      if (blocked_++ == 0)
        QMetaObject::invokeMethod(
            this, [this] { firstBlocked_(); }, Qt::QueuedConnection);
    }
  }
  void setAllowRemote(bool allow) { allowRemote_ = allow; }
  int blockedCount() const { return blocked_; }
  QStringList requested() const {
    QMutexLocker lock(&mutex_);
    return requested_;
  }

 private:
  std::function<void()> firstBlocked_;
  std::atomic<bool> allowRemote_{false};
  std::atomic<int> blocked_{0};
  mutable QMutex mutex_;
  QStringList requested_;
};

class SchemeHandler : public QWebEngineUrlSchemeHandler {
 public:
  SchemeHandler(QObject* parent, WebSchemeResolver resolver)
      : QWebEngineUrlSchemeHandler(parent), resolver_(std::move(resolver)) {}

  void requestStarted(QWebEngineUrlRequestJob* job) override {
    const WebSchemeReply reply = resolver_(job->requestUrl());
    if (!reply.found) {
      job->fail(QWebEngineUrlRequestJob::UrlNotFound);
      return;
    }
    auto* buffer = new QBuffer(job);
    buffer->setData(reply.data);
    job->reply(reply.mimeType.isEmpty() ? QByteArray("application/octet-stream") : reply.mimeType,
               buffer);
  }

 private:
  WebSchemeResolver resolver_;
};

class Surface : public QWebEngineView, public WebSurface {
 public:
  Surface(QWebEngineProfile* profile, QWidget* parent) : QWebEngineView(parent) {
    auto* page = new QWebEnginePage(profile, this);
    blocker_ = new RemoteBlocker(page, [this] {
      if (onRemoteBlocked) onRemoteBlocked();
    });
    page->setUrlRequestInterceptor(blocker_);
    // Remote requests reach the blocker, which holds them until the user asks.
    page->settings()->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, true);
    setPage(page);
    connect(this, &QWebEngineView::loadFinished, this, [this](bool ok) {
      if (onLoadFinished) onLoadFinished(ok);
    });
    connect(this, &QWebEngineView::titleChanged, this, [this](const QString& title) {
      if (onTitleChanged) onTitleChanged(title);
    });
  }

  QWidget* widget() override { return this; }
  void load(const QUrl& url) override { QWebEngineView::load(url); }
  void setHtml(const QString& html) override { QWebEngineView::setHtml(html); }
  void reload() override { QWebEngineView::reload(); }
  QUrl url() const override { return QWebEngineView::url(); }
  void findText(const QString& text, bool backwards, std::function<void(int)> matches) override {
    QWebEnginePage::FindFlags flags;
    if (backwards) flags |= QWebEnginePage::FindBackward;
    QPointer<Surface> alive(this);
    page()->findText(text, flags, [alive, matches](const QWebEngineFindTextResult& result) {
      if (alive && matches) matches(result.numberOfMatches());
    });
  }
  void runJavaScript(const QString& script, std::function<void(const QVariant&)> result) override {
    page()->runJavaScript(script, [result](const QVariant& value) {
      if (result) result(value);
    });
  }
  void setAllowRemote(bool allow) override { blocker_->setAllowRemote(allow); }
  int blockedCount() const override { return blocker_->blockedCount(); }
  QStringList requested() const override { return blocker_->requested(); }

 private:
  RemoteBlocker* blocker_ = nullptr;
};

class Engine : public WebEngine {
 public:
  Engine(const char* scheme, WebSchemeResolver resolver) : scheme_(scheme) {
    // Off the record: a viewer leaves no cache or cookies behind.
    profile_ = new QWebEngineProfile(QCoreApplication::instance());
    profile_->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    handler_ = new SchemeHandler(profile_, std::move(resolver));
    profile_->installUrlSchemeHandler(scheme_, handler_);
  }
  WebSurface* createSurface(QWidget* parent) override { return new Surface(profile_, parent); }

 private:
  QByteArray scheme_;
  QWebEngineProfile* profile_ = nullptr;
  SchemeHandler* handler_ = nullptr;
};

}  // namespace
}  // namespace harbor::gui

extern "C" Q_DECL_EXPORT harbor::gui::WebEngine* harborWebEngine(
    const char* scheme, harbor::gui::WebSchemeResolver resolver) {
  static harbor::gui::WebEngine* engine = [&]() -> harbor::gui::WebEngine* {
    // A custom scheme must be known before the engine's first profile.
    QWebEngineUrlScheme custom(scheme);
    custom.setSyntax(QWebEngineUrlScheme::Syntax::Path);
    custom.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::LocalScheme |
                    QWebEngineUrlScheme::LocalAccessAllowed);
    QWebEngineUrlScheme::registerScheme(custom);
    // Pages are drawn through Qt Quick's OpenGL path, sharing the context
    // the application made before loading us.
    QQuickWindow::setGraphicsApi(QSGRendererInterface::OpenGL);
    return new harbor::gui::Engine(scheme, std::move(resolver));
  }();
  return engine;
}

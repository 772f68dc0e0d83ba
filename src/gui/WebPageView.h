#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QStringList>
#include <QUrl>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlSchemeHandler>
#include <QWidget>
#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

class QAction;
class QLabel;
class QLineEdit;
class QToolBar;
class QWebEngineProfile;
class QWebEngineView;

namespace harbor::gui {

class MainWindow;

// Custom schemes must be known before the application object exists:
// main() and the test main call this first.
void registerViewerSchemes();
// QtWebEngine cannot use its sandbox as root (containers, CI).
void disableWebSandboxForRoot();
// A file named on the command line: its viewer as the browser would open
// it alone, the editor for text and for a name not there yet.
void openFromCommandLine(MainWindow& window, const std::string& path);
// Adds the viewers' routes and the archive browser's screen to Screens.
void registerViewerViews();

// Keeps a page of a local document off the network until the user asks.
class RemoteBlocker : public QWebEngineUrlRequestInterceptor {
  Q_OBJECT
 public:
  explicit RemoteBlocker(QObject* parent = nullptr) : QWebEngineUrlRequestInterceptor(parent) {}
  void interceptRequest(QWebEngineUrlRequestInfo& info) override;
  void setAllowRemote(bool allow) { allowRemote_ = allow; }
  bool allowsRemote() const { return allowRemote_; }
  int blockedCount() const { return blocked_; }
  // Every address the page asked for, in order.
  QStringList requested() const;

 signals:
  void remoteBlocked();

 private:
  std::atomic<bool> allowRemote_{false};
  std::atomic<int> blocked_{0};
  mutable QMutex mutex_;
  QStringList requested_;
};

// Serves an unpacked web archive to the page: the root document as given,
// the other parts from the archive's folder on disk, nothing outside it.
class MhtSchemeHandler : public QWebEngineUrlSchemeHandler {
  Q_OBJECT
 public:
  explicit MhtSchemeHandler(QObject* parent = nullptr) : QWebEngineUrlSchemeHandler(parent) {}
  void requestStarted(QWebEngineUrlRequestJob* job) override;
  // What the folder address itself answers: the root page the viewer got.
  void setRootContent(const QUrl& url, const QByteArray& data, const QByteArray& mimeType);
  // How many requests were answered with content, for the process.
  static int servedCount();

 private:
  struct Root {
    QByteArray data;
    QByteArray mimeType;
  };
  QHash<QString, Root> roots_;
};

// The profile every viewer page shares: no disk cache, no cookies kept, the
// archive scheme handled.
QWebEngineProfile* viewerProfile();
MhtSchemeHandler* mhtSchemeHandler();

// A web page of the user's, or the editor's preview, in QtWebEngine. Pages
// of several files page through them. Remote loads wait for the user.
class WebPageView : public QWidget {
  Q_OBJECT
 public:
  WebPageView(std::vector<std::string> files, std::size_t current, QWidget* parent = nullptr);
  // An empty page the subclasses fill.
  explicit WebPageView(QWidget* parent = nullptr);

  QWebEngineView* webView() const { return web_; }
  RemoteBlocker* blocker() const { return blocker_; }
  QToolBar* toolbar() const { return toolbar_; }
  std::size_t current() const { return current_; }
  bool isLoaded() const { return loaded_; }
  void showFile(std::size_t index);
  // Runs the find field's search (also Enter in the field).
  void find(const QString& text, bool backwards = false);
  int lastFindMatches() const { return findMatches_; }

 signals:
  void pageLoaded(bool ok);

 protected:
  // Toolbar actions a subclass puts before the find field.
  void addPaging(std::function<void(int)> step);
  void updatePaging(int index, int count);
  void setLoaded(bool loaded) { loaded_ = loaded; }

 private:
  void build();
  void allowRemote();

  QToolBar* toolbar_ = nullptr;
  QWebEngineView* web_ = nullptr;
  RemoteBlocker* blocker_ = nullptr;
  QLineEdit* findField_ = nullptr;
  QLabel* pageLabel_ = nullptr;
  QAction* previous_ = nullptr;
  QAction* next_ = nullptr;
  QAction* remote_ = nullptr;
  std::vector<std::string> files_;
  std::size_t current_ = 0;
  bool loaded_ = false;
  int findMatches_ = -1;
};

}  // namespace harbor::gui

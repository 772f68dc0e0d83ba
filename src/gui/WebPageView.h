#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QUrl>
#include <QWidget>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "gui/WebSurface.h"

class QAction;
class QLabel;
class QLineEdit;
class QToolBar;

namespace harbor::gui {

class MainWindow;

// The archive scheme's decisions; the web engine learns the scheme when it
// loads.
void registerViewerSchemes();
// QtWebEngine cannot use its sandbox as root (containers, CI).
void disableWebSandboxForRoot();
// A file named on the command line: its viewer as the browser would open
// it alone, the editor for text and for a name not there yet.
void openFromCommandLine(MainWindow& window, const std::string& path);
// Adds the viewers' routes and the archive browser's screen to Screens.
void registerViewerViews();

// The web engine, loaded from its plugin on the first call; null, with the
// reason logged, where the plugin cannot load.
WebEngine* webEngine();

// Answers the archive scheme: the root document as given, the other parts
// from the unpacked archive's folder on disk, nothing outside it.
class MhtSchemeHandler {
 public:
  static MhtSchemeHandler& shared();
  WebSchemeReply resolve(const QUrl& url);
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

// A web page of the user's, or the editor's preview, in QtWebEngine. Pages
// of several files page through them. Remote loads wait for the user.
class WebPageView : public QWidget {
  Q_OBJECT
 public:
  WebPageView(std::vector<std::string> files, std::size_t current, QWidget* parent = nullptr);
  // An empty page the subclasses fill.
  explicit WebPageView(QWidget* parent = nullptr);

  ~WebPageView() override;
  // Null where the web engine could not load; the view then says so.
  WebSurface* web() const { return web_; }
  QToolBar* toolbar() const { return toolbar_; }
  std::size_t current() const { return current_; }
  bool isLoaded() const { return loaded_; }
  void showFile(std::size_t index);
  // Any address, in this view's page.
  void load(const QUrl& url);
  // Runs the find field's search (also Enter in the field).
  void find(const QString& text, bool backwards = false);
  int lastFindMatches() const { return findMatches_; }

 signals:
  void pageLoaded(bool ok);

 protected:
  // Toolbar actions a subclass puts before the find field.
  void addPaging(std::function<void(int)> step);
  void updatePaging(int index, int count);

 private:
  void build();
  void allowRemote();

  QToolBar* toolbar_ = nullptr;
  WebSurface* web_ = nullptr;
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

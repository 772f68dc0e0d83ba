#pragma once

// The web engine sits in a plugin that the application loads on the first
// page it shows. Linked in, it makes every start create an OpenGL context
// and map its driver (some 80 MiB on a software renderer) even for a user
// who only edits text. Both sides see only these interfaces, all inline, so
// the plugin needs no symbol of the application.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>
#include <functional>

class QWidget;

namespace harbor::gui {

// One web page in a widget. Remote loads (http, https, ws, wss, ftp) are
// held back until allowed.
class WebSurface {
 public:
  virtual ~WebSurface() = default;
  // The widget itself, owned by its Qt parent; the surface dies with it.
  virtual QWidget* widget() = 0;
  virtual void load(const QUrl& url) = 0;
  virtual void setHtml(const QString& html) = 0;
  virtual void reload() = 0;
  virtual QUrl url() const = 0;
  // Highlights the matches; `matches` gets their count.
  virtual void findText(const QString& text, bool backwards, std::function<void(int)> matches) = 0;
  virtual void runJavaScript(const QString& script,
                             std::function<void(const QVariant&)> result) = 0;
  virtual void setAllowRemote(bool allow) = 0;
  virtual int blockedCount() const = 0;
  // Every address the page asked for, in order.
  virtual QStringList requested() const = 0;

  // Told on the GUI thread; the owner clears them before it goes.
  std::function<void(bool ok)> onLoadFinished;
  std::function<void(const QString& title)> onTitleChanged;
  // The first remote request that was held back.
  std::function<void()> onRemoteBlocked;
};

// What an address of the application's own scheme answers: found or not,
// its bytes and type.
struct WebSchemeReply {
  bool found = false;
  QByteArray data;
  QByteArray mimeType;
};
using WebSchemeResolver = std::function<WebSchemeReply(const QUrl& url)>;

class WebEngine {
 public:
  virtual ~WebEngine() = default;
  // A surface in the profile every viewer shares: memory cache only, no
  // cookies kept, the application's scheme answered by the resolver.
  virtual WebSurface* createSurface(QWidget* parent) = 0;
};

// The plugin's one entry point. The scheme is registered before anything
// of the engine starts; the resolver is called on the GUI thread.
using WebEngineEntry = WebEngine* (*)(const char* scheme, WebSchemeResolver resolver);
inline constexpr const char* kWebEngineEntryName = "harborWebEngine";

}  // namespace harbor::gui

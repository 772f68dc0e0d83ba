#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace harbor {

// A screen as the frame and the port see it: a controller that may be pushed,
// popped or made the window's root. Screens are controllers; the GUI binds
// widgets to them.
class ViewController {
 public:
  virtual ~ViewController() = default;
  virtual std::string className() const = 0;
};

class NavigationController : public ViewController {
 public:
  explicit NavigationController(std::shared_ptr<ViewController> root) {
    if (root) viewControllers.push_back(std::move(root));
  }
  std::string className() const override { return "NavigationController"; }
  void pushViewController(std::shared_ptr<ViewController> vc) {
    viewControllers.push_back(std::move(vc));
  }
  void popViewController() {
    if (viewControllers.size() > 1) viewControllers.pop_back();
  }
  std::shared_ptr<ViewController> topViewController() const {
    return viewControllers.empty() ? nullptr : viewControllers.back();
  }

  std::vector<std::shared_ptr<ViewController>> viewControllers;  // bottom first
};

// What a file browser screen offers the frame: the folder it shows.
class IFileExplorer {
 public:
  virtual ~IFileExplorer() = default;
  virtual std::string fullRelativePath() const = 0;
};

// A text field of an alert: its placeholder and its starting text.
struct ScreenField {
  std::string placeholder;
  std::string text;
};

// An alert: `tag` tells the screen which question answered, `key` is the
// localisation key of the text, `text` the words shown. Buttons are keys; the
// answer is the index of the one pressed. With fields it is a prompt.
// `screenClass` and `screenPath` name the screen that asks.
struct ScreenAlert {
  int tag = 0;
  std::string key;
  std::string text;
  std::vector<std::string> buttons;
  std::vector<ScreenField> fields;
  std::string screenClass;
  std::string screenPath;
};

// A sheet of entries (keys); the answer is the index of the one chosen.
struct ScreenSheet {
  int tag = 0;
  std::vector<std::string> rows;
  std::string key;
  std::string text;
  std::string screenClass;
  std::string screenPath;
};

// One toolbar item: its key, the localisation key of its title, whether it
// can be pressed now.
struct ToolbarItem {
  std::string key;
  std::string title;
  bool enabled = true;
  int tag = 0;
};

// Places a screen hands files to. The first four are the editor's; the rest
// are the viewers a browser opens. A port without a service for one says so
// and the screen leaves its row out.
enum class ScreenRoute {
  Preview,
  HandOver,
  Print,
  Mail,
  Editor,
  Web,
  Image,
  Music,
  Media,
  Epub,
  Pdf,
  Vcf,
  Mht
};

// The route's name as scripts see it ("editor", "web"...).
const char* screenRouteName(ScreenRoute route);

// The answer of an alert or sheet nobody handles, or one given up on.
inline constexpr int kScreenCancel = -1;

// The one way every screen talks to the user. Replies arrive on the main
// queue and call the handler the screen gave. A request a port does not
// handle is answered Cancel, so a screen never waits for nothing.
class IScreenPort {
 public:
  using AlertReply = std::function<void(int button, const std::vector<std::string>& fields)>;
  using SheetReply = std::function<void(int row)>;

  virtual ~IScreenPort() = default;
  virtual void showAlert(const ScreenAlert& alert, AlertReply reply);
  virtual void showSheet(const ScreenSheet& sheet, SheetReply reply);
  virtual void dismissSheet() {}
  // A short notice with no answer (the frame's alertMsg).
  virtual void showMessage(const std::string& key, const std::string& text) {
    (void)key;
    (void)text;
  }
  virtual void setTitle(const std::string&) {}
  virtual void setBusy(bool) {}
  virtual void setStatus(const std::string&) {}
  // 0 to 1.
  virtual void setProgress(double) {}
  virtual void setToolbar(const std::vector<ToolbarItem>&) {}
  // The screen's listing was built again; a view showing it reads it anew.
  virtual void listingChanged() {}
  // Navigation: a screen goes on top of the one showing, or the top one goes.
  virtual void push(std::shared_ptr<ViewController> screen) { (void)screen; }
  virtual void pop() {}
  // The screen is done; the port takes it away.
  virtual void close() {}
  // The window's root changed (lock screen, browser).
  virtual void rootChanged(std::shared_ptr<ViewController> root) { (void)root; }
  virtual bool supportsRoute(ScreenRoute) const { return false; }
  virtual void openRoute(ScreenRoute, const std::string& path, const std::string& title) {
    (void)path;
    (void)title;
  }
  // Opens a viewer on `files`, showing files[current] first.
  virtual void openFiles(ScreenRoute route, const std::vector<std::string>& files,
                         std::size_t current) {
    (void)route;
    (void)files;
    (void)current;
  }
};

// The process's port, and the helpers a worker uses to ask and wait.
class ScreenPort {
 public:
  // A port that answers Cancel to everything until one is set.
  static std::shared_ptr<IScreenPort> shared();
  // Set once per process; a second call is refused (false).
  static bool set(std::shared_ptr<IScreenPort> port);

  struct Answer {
    int button = kScreenCancel;
    std::vector<std::string> fields;
  };
  // From a worker: shows the alert on the main queue and blocks until the
  // answer arrives, or answers Cancel when the worker is cancelled meanwhile.
  // On the main thread it runs the main queue until answered.
  static Answer askAndWait(IScreenPort& port, const ScreenAlert& alert);
  static int chooseAndWait(IScreenPort& port, const ScreenSheet& sheet);
};

}  // namespace harbor

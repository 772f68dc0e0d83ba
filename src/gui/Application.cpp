#include "gui/Application.h"

#include "app/AppDelegate.h"
#include "app/LockServices.h"
#include "app/ShareAdapter.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/Theme.h"
#include "gui/WebPageView.h"

namespace harbor::gui {

DesktopApplication::DesktopApplication() = default;

DesktopApplication::~DesktopApplication() {
  // The notice hooks point at this object and its window.
  ApplicationServices::shared().alertMsg = nullptr;
  QtScreenPort::noticeSink() = nullptr;
  window_.reset();
  delegate_.reset();
}

namespace {
// The process's port: the frame tells it of root changes; it follows the
// window of the moment (tests make several in one process).
std::shared_ptr<WindowPort> processPort(MainWindow& window) {
  static std::shared_ptr<WindowPort> port;
  if (!port) {
    port = std::make_shared<WindowPort>(&window, window);
    ScreenPort::set(port);
  } else {
    port->retarget(&window, window);
  }
  return port;
}
}  // namespace

bool DesktopApplication::launch(const std::vector<std::string>& files, const std::string& show,
                                const std::string& showPath) {
  installMainQueueDispatcher();
  applyApplicationTheme();
  registerViews();
  delegate_ = std::make_unique<AppDelegate>();
  installShareServices(*delegate_);
  window_ = std::make_unique<MainWindow>();
  auto port = processPort(*window_);
  // The lock's password store, this platform's biometrics (none) and the
  // lock screen reporting through the window.
  installLockServices(*delegate_, port);
  // Minimising is going to the background: the lock comes back on return.
  QObject::connect(window_.get(), &MainWindow::enteredBackground, window_.get(), [this] {
    delegate_->applicationWillResignActive();
    delegate_->applicationDidEnterBackground();
  });
  QObject::connect(window_.get(), &MainWindow::enteredForeground, window_.get(), [this] {
    delegate_->applicationWillEnterForeground();
    delegate_->applicationDidBecomeActive();
  });
  ApplicationServices::shared().alertMsg = [this](const std::string& text) {
    if (QtScreenPort::noticeSink()) QtScreenPort::noticeSink()(QString::fromStdString(text));
  };
  // Preferences, the share server when it opens by itself, the lock check,
  // then the root: the frame decides the order.
  delegate_->didFinishLaunchingWithOptions(LaunchOptions{});
  // Behind a lock the normal root is still built, under the cover.
  if (window_->depth() == 0) window_->placeRoot(delegate_->rootViewController());
  bool shown = show.empty() || window_->showNamed(show, showPath);
  window_->show();
  // A file given at launch opens where the browser would open it, once
  // the window shows (a sheet it asks with needs one to stay on); a name
  // not there yet starts a new file in the editor.
  for (const std::string& file : files) openFromCommandLine(*window_, file);
  return shown;
}

}  // namespace harbor::gui

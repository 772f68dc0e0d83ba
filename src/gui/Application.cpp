#include "gui/Application.h"

#include "app/AppDelegate.h"
#include "app/ShareAdapter.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Theme.h"

namespace harbor::gui {

DesktopApplication::DesktopApplication() = default;

DesktopApplication::~DesktopApplication() {
  window_.reset();
  delegate_.reset();
}

void DesktopApplication::launch(const std::vector<std::string>& files) {
  installMainQueueDispatcher();
  applyApplicationTheme();
  delegate_ = std::make_unique<AppDelegate>();
  installShareServices(*delegate_);
  window_ = std::make_unique<MainWindow>();
  ApplicationServices::shared().alertMsg = [this](const std::string& text) {
    if (QtScreenPort::noticeSink()) QtScreenPort::noticeSink()(QString::fromStdString(text));
  };
  // Preferences, the share server when it opens by itself, the lock check,
  // then the root: the frame decides the order.
  delegate_->didFinishLaunchingWithOptions(LaunchOptions{});
  window_->setRoot(makeEmptyRoot(window_.get()), MainWindow::tr("Documents"));
  for (const std::string& file : files) window_->openEditor(file);
  window_->show();
}

}  // namespace harbor::gui

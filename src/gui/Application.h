#pragma once

#include <memory>
#include <string>
#include <vector>

namespace harbor {
class AppDelegate;
}

namespace harbor::gui {

class MainWindow;

// The desktop start: the frame's launch order through AppDelegate, then the
// window with its root and one editor per file given.
class DesktopApplication {
 public:
  DesktopApplication();
  ~DesktopApplication();

  void launch(const std::vector<std::string>& files);
  MainWindow& window() { return *window_; }
  AppDelegate& delegate() { return *delegate_; }

 private:
  std::unique_ptr<AppDelegate> delegate_;
  std::unique_ptr<MainWindow> window_;
};

}  // namespace harbor::gui

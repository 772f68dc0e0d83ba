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

  // `show` names a screen to open at launch (`--show NAME [PATH]`); false
  // when no view has that name.
  bool launch(const std::vector<std::string>& files, const std::string& show = {},
              const std::string& showPath = {});
  MainWindow& window() { return *window_; }
  AppDelegate& delegate() { return *delegate_; }

 private:
  std::unique_ptr<AppDelegate> delegate_;
  std::unique_ptr<MainWindow> window_;
};

}  // namespace harbor::gui

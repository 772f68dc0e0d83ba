#pragma once

#include <memory>
#include <string>
#include <vector>

namespace harbor {

// A screen as the application frame sees it: something that can be the
// window's root. Screens are controllers; the GUI binds widgets to them.
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

  std::vector<std::shared_ptr<ViewController>> viewControllers;  // bottom first
};

// What a file browser screen offers the frame: the folder it shows.
class IFileExplorer {
 public:
  virtual ~IFileExplorer() = default;
  virtual std::string fullRelativePath() const = 0;
};

class MyWindow {
 public:
  std::shared_ptr<ViewController> rootViewController;
  bool isKeyAndVisible = false;
  void makeKeyAndVisible() { isKeyAndVisible = true; }
};

}  // namespace harbor

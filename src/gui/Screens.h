#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "platform/ScreenPort.h"

namespace harbor::gui {

// The widget bound to a controller the libraries push, found by its class name.
using ScreenFactory = std::function<QWidget*(std::shared_ptr<ViewController>, MainWindow&)>;
// The viewer of a route, showing files[current] first.
using RouteFactory = std::function<QWidget*(const std::vector<std::string>& files,
                                            std::size_t current, MainWindow&)>;
// A screen `harbor-app --show NAME [PATH]` opens at launch.
using ShowFactory = std::function<QWidget*(const std::string& path, MainWindow&)>;

// One table of which widget binds which controller, route and named screen.
// Each view file adds its own rows from a function registerViews() calls.
class Screens {
 public:
  static void addScreen(const std::string& className, ScreenFactory make);
  static void addRoute(ScreenRoute route, RouteFactory make);
  static void addShow(const std::string& name, ShowFactory make);
  static const ScreenFactory* screen(const std::string& className);
  static const RouteFactory* route(ScreenRoute route);
  static const ShowFactory* show(const std::string& name);
  static std::vector<std::string> showNames();
};

// Adds every view of the application to Screens; safe to call again.
void registerViews();

// The class name the window builds a widget for: a navigation controller
// stands for its bottom screen.
std::shared_ptr<ViewController> screenOf(std::shared_ptr<ViewController> controller);

// A port for a view bound to a controller: questions as dialogs over the
// view, pushes and viewers through the window. Views derive from it and add
// the calls they show themselves (toolbar, status, progress...).
class WindowPort : public IScreenPort {
 public:
  WindowPort(QWidget* host, MainWindow& window);
  // The process's port follows the window of the moment.
  void retarget(QWidget* host, MainWindow& window);

  void showAlert(const ScreenAlert& alert, AlertReply reply) override;
  void showSheet(const ScreenSheet& sheet, SheetReply reply) override;
  void dismissSheet() override;
  void showMessage(const std::string& key, const std::string& text) override;
  void push(std::shared_ptr<ViewController> screen) override;
  // The window's top screen goes (never the root).
  void pop() override;
  void rootChanged(std::shared_ptr<ViewController> root) override;
  bool supportsRoute(ScreenRoute route) const override;
  void openRoute(ScreenRoute route, const std::string& path, const std::string& title) override;
  void openFiles(ScreenRoute route, const std::vector<std::string>& files,
                 std::size_t current) override;

 protected:
  // Null once the window is gone: the call then does nothing.
  MainWindow* window() const { return window_; }
  QtScreenPort& dialogs() { return dialogs_; }

 private:
  QPointer<MainWindow> window_;
  QtScreenPort dialogs_;
};

}  // namespace harbor::gui

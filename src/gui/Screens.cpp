#include "gui/Screens.h"

#include <QDesktopServices>
#include <QUrl>
#include <map>

#include "gui/MainWindow.h"

namespace harbor::gui {

namespace {
struct Tables {
  std::map<std::string, ScreenFactory> screens;
  std::map<ScreenRoute, RouteFactory> routes;
  std::map<std::string, ShowFactory> shows;
};
Tables& tables() {
  static Tables t;
  return t;
}
template <class Map, class Key>
const typename Map::mapped_type* find(const Map& map, const Key& key) {
  auto at = map.find(key);
  return at == map.end() ? nullptr : &at->second;
}
}  // namespace

void Screens::addScreen(const std::string& className, ScreenFactory make) {
  tables().screens[className] = std::move(make);
}
void Screens::addRoute(ScreenRoute route, RouteFactory make) {
  tables().routes[route] = std::move(make);
}
void Screens::addShow(const std::string& name, ShowFactory make) {
  tables().shows[name] = std::move(make);
}
const ScreenFactory* Screens::screen(const std::string& className) {
  return find(tables().screens, className);
}
const RouteFactory* Screens::route(ScreenRoute route) {
  return find(tables().routes, route);
}
const ShowFactory* Screens::show(const std::string& name) {
  return find(tables().shows, name);
}
std::vector<std::string> Screens::showNames() {
  std::vector<std::string> names;
  for (const auto& [name, make] : tables().shows) names.push_back(name);
  return names;
}

std::shared_ptr<ViewController> screenOf(std::shared_ptr<ViewController> controller) {
  auto nav = std::dynamic_pointer_cast<NavigationController>(controller);
  if (nav && !nav->viewControllers.empty()) return nav->viewControllers.front();
  return controller;
}

WindowPort::WindowPort(QWidget* host, MainWindow& window) : window_(&window), dialogs_(host) {}

void WindowPort::retarget(QWidget* host, MainWindow& window) {
  window_ = &window;
  dialogs_ = QtScreenPort(host);
}

void WindowPort::showAlert(const ScreenAlert& alert, AlertReply reply) {
  dialogs_.showAlert(alert, std::move(reply));
}
void WindowPort::showSheet(const ScreenSheet& sheet, SheetReply reply) {
  dialogs_.showSheet(sheet, std::move(reply));
}
void WindowPort::dismissSheet() {
  dialogs_.dismissSheet();
}
void WindowPort::showMessage(const std::string&, const std::string& text) {
  dialogs_.showMessage(text);
}
void WindowPort::push(std::shared_ptr<ViewController> screen) {
  if (window_) window_->pushScreen(std::move(screen));
}
void WindowPort::pop() {
  if (window_ && window_->depth() > 1) window_->pop(window_->top());
}
void WindowPort::rootChanged(std::shared_ptr<ViewController> root) {
  if (window_) window_->showRootScreen(std::move(root));
}
bool WindowPort::supportsRoute(ScreenRoute route) const {
  return MainWindow::canOpen(route);
}
void WindowPort::openRoute(ScreenRoute route, const std::string& path, const std::string&) {
  if (window_) window_->openFiles(route, {path}, 0);
}
void WindowPort::openFiles(ScreenRoute route, const std::vector<std::string>& files,
                           std::size_t current) {
  if (window_) window_->openFiles(route, files, current);
}

}  // namespace harbor::gui

// Takes a picture of the window on a sample documents folder:
//   harbor_browser_shot [--night] [--icons] [--password] OUT.png ROOT
// ROOT (empty or missing) is filled with folders, text files and pictures.
// --icons shows the items as icons; --password taps a locked folder so its
// prompt shows, and the picture is of the whole screen.
#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QScreen>
#include <QTest>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "app/AppDelegate.h"
#include "browser/FileManagerController.h"
#include "gui/Application.h"
#include "gui/BrowserView.h"
#include "gui/MainWindow.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"

namespace fs = std::filesystem;

namespace {

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

void picture(const fs::path& path, QColor a, QColor b) {
  fs::create_directories(path.parent_path());
  QImage image(640, 420, QImage::Format_RGB32);
  QPainter p(&image);
  QLinearGradient sky(0, 0, 0, 420);
  sky.setColorAt(0, a);
  sky.setColorAt(1, b);
  p.fillRect(image.rect(), sky);
  p.setBrush(QColor(250, 220, 90));
  p.setPen(Qt::NoPen);
  p.drawEllipse(QPoint(470, 120), 60, 60);
  p.setBrush(QColor(40, 90, 60));
  p.drawPolygon(QPolygon({QPoint(0, 420), QPoint(220, 200), QPoint(420, 420)}));
  p.end();
  image.save(QString::fromStdString(path.string()));
}

void fill(const fs::path& root) {
  write(root / "Projects/readme.md", "# Projects\n");
  write(root / "Recipes/bread.txt", "flour, water, salt\n");
  write(root / "notes.txt", "Things to do this week.\n");
  write(root / "index.html", "<!doctype html><title>Home</title><p>Hello</p>\n");
  write(root / "Buffer.cpp", std::string(4200, ' ') + "int main() {}\n");
  write(root / "a rather long file name that keeps going for quite a while.txt", "x\n");
  write(root / "budget.csv", "month,amount\nJan,12\n");
  picture(root / "harbour.png", QColor(90, 150, 220), QColor(220, 235, 250));
  picture(root / "evening.jpg", QColor(230, 120, 80), QColor(60, 40, 90));
  picture(root / "meadow.png", QColor(150, 200, 240), QColor(200, 230, 160));
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("Harbor"));
  QStringList args = QApplication::arguments();
  args.removeFirst();
  bool night = false, icons = false, password = false;
  while (!args.isEmpty() && args.first().startsWith(QLatin1String("--"))) {
    const QString flag = args.takeFirst();
    night |= flag == QLatin1String("--night");
    icons |= flag == QLatin1String("--icons");
    password |= flag == QLatin1String("--password");
  }
  if (args.size() != 2) {
    std::fprintf(stderr,
                 "usage: harbor_browser_shot [--night] [--icons] [--password] OUT.png ROOT\n");
    return 2;
  }
  using namespace harbor;
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (night) {
    const auto now = std::chrono::system_clock::now();
    const auto endOfDay = std::chrono::floor<std::chrono::days>(now) + std::chrono::hours(23) +
                          std::chrono::minutes(59) + std::chrono::seconds(59);
    AppUserDefaultUtils::saveNightMode(true);
    AppUserDefaultUtils::saveStartTime(endOfDay);
    AppUserDefaultUtils::saveEndTime(endOfDay);
  }
  const fs::path root = fs::absolute(args.at(1).toStdString());
  fs::create_directories(root);
  if (fs::is_empty(root)) fill(root);
  Directories::setDocumentRootOverride(root);

  gui::DesktopApplication desktop;
  desktop.launch({});
  gui::MainWindow& window = desktop.window();
  window.resize(980, 680);
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;
  auto* view = qobject_cast<gui::BrowserView*>(window.top());
  if (!view) {
    std::fprintf(stderr, "no browser on screen\n");
    return 1;
  }
  auto* browser = dynamic_cast<FileManagerController*>(&view->controller());
  if (icons && browser)
    browser->sheetChosen(FileManagerBaseController::kTagSheetNoEdit, "Show items as icons");
  if (password && browser) {
    Error error;
    if (!browser->pathOfRow("Private").size()) browser->createFolder("Private", "secret", &error);
    browser->reloadData();
    browser->tapRow("Private");
  } else {
    // Two rows picked, so the selection and its toolbar show too.
    view->controller().setEditing(true);
    view->controller().tapRow("notes.txt");
    view->controller().tapRow("index.html");
    view->refresh();
  }
  // Thumbnails arrive from the pool.
  QTest::qWait(800);
  QApplication::processEvents();
  QPixmap shot = password ? window.screen()->grabWindow(0) : window.grab();
  if (!shot.save(args.at(0))) return 1;
  return 0;
}

// Takes a picture of the window showing one viewer on a sample made here:
//   harbor_viewer_shot [--night] OUT.png web|mht|epub|image|pdf|media|archive
#include <QApplication>
#include <QPixmap>
#include <QTest>
#include <QTreeWidget>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "../ViewerSamples.h"
#include "browser/ViewArchiveController.h"
#include "gui/ArchiveView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/Theme.h"
#include "gui/WebPageView.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"

namespace fs = std::filesystem;
using namespace harbor;

namespace {

bool waitWeb(gui::MainWindow& window) {
  auto* page = qobject_cast<gui::WebPageView*>(window.top());
  return !page || QTest::qWaitFor([&] { return page->isLoaded(); }, 60000);
}

}  // namespace

int main(int argc, char** argv) {
  gui::registerViewerSchemes();
  gui::disableWebSandboxForRoot();
  QApplication app(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("Harbor"));
  QStringList args = QApplication::arguments();
  args.removeFirst();
  bool night = false;
  if (!args.isEmpty() && args.first() == QLatin1String("--night")) {
    night = true;
    args.removeFirst();
  }
  if (args.size() != 2) {
    std::fprintf(stderr,
                 "usage: harbor_viewer_shot [--night] OUT.png "
                 "web|mht|epub|image|pdf|media|archive\n");
    return 2;
  }
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (night) {
    const auto now = std::chrono::system_clock::now();
    const auto endOfDay = std::chrono::floor<std::chrono::days>(now) + std::chrono::hours(23) +
                          std::chrono::minutes(59) + std::chrono::seconds(59);
    AppUserDefaultUtils::saveNightMode(true);
    AppUserDefaultUtils::saveStartTime(endOfDay);
    AppUserDefaultUtils::saveEndTime(endOfDay);
  }
  char pattern[] = "/tmp/harbor-shot-XXXXXX";
  if (!mkdtemp(pattern)) return 1;
  const fs::path docs = fs::path(pattern) / "Documents";
  fs::create_directories(docs);
  Directories::setDocumentRootOverride(docs);
  gui::installMainQueueDispatcher();
  gui::applyApplicationTheme();
  gui::registerViews();
  gui::MainWindow window;
  window.setRoot(gui::makeEmptyRoot(&window), gui::MainWindow::tr("Documents"));
  window.resize(980, 680);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;

  const QString kind = args.at(1);
  namespace samples = gui::samples;
  if (kind == QLatin1String("web")) {
    std::ofstream(docs / "tides.html")
        << "<!doctype html><html><head><meta charset='utf-8'><title>Tides</title><style>"
           "body{font-family:sans-serif;margin:2em}table{border-collapse:collapse}"
           "td,th{border:1px solid #999;padding:4px 12px}</style></head><body>"
           "<h1>Tide table</h1><p>Local page; the map below lives on the network and waits "
           "for the user.</p><img src='https://tiles.example/map.png' alt='map'>"
           "<table><tr><th>Day</th><th>High</th><th>Low</th></tr>"
           "<tr><td>Mon</td><td>06:12</td><td>12:30</td></tr>"
           "<tr><td>Tue</td><td>06:58</td><td>13:15</td></tr></table></body></html>";
    std::ofstream(docs / "about.html") << "<h1>About</h1>";
    window.openFiles(ScreenRoute::Web,
                     {(docs / "about.html").string(), (docs / "tides.html").string()}, 1);
  } else if (kind == QLatin1String("mht")) {
    samples::writeMht(docs / "harbour.mht");
    window.openFiles(ScreenRoute::Mht, {(docs / "harbour.mht").string()}, 0);
    QTest::qWait(3000);
  } else if (kind == QLatin1String("epub")) {
    samples::writeEpub(docs / "tales.epub", 4);
    window.openFiles(ScreenRoute::Epub, {(docs / "tales.epub").string()}, 0);
  } else if (kind == QLatin1String("image")) {
    std::vector<std::string> files;
    for (int i = 0; i < 3; ++i) {
      const fs::path p = docs / ("photo" + std::to_string(i + 1) + ".png");
      samples::writePng(p, 1200, 800, 0x2a7ab0u + static_cast<unsigned>(i) * 0x301000u);
      files.push_back(p.string());
    }
    window.openFiles(ScreenRoute::Image, files, 1);
  } else if (kind == QLatin1String("pdf")) {
    samples::writePdf(docs / "notes.pdf", 3);
    window.openFiles(ScreenRoute::Pdf, {(docs / "notes.pdf").string()}, 0);
  } else if (kind == QLatin1String("media")) {
    samples::writeWav(docs / "tone.wav", 1);
    window.openFiles(ScreenRoute::Media, {(docs / "tone.wav").string()}, 0);
  } else if (kind == QLatin1String("archive")) {
    samples::writeZip(docs / "bundle.zip", {{"README.txt", "read me"},
                                            {"src/main.cpp", "int main() {}"},
                                            {"src/util.h", "#pragma once"},
                                            {"images/logo.png", samples::png(64, 64, 0x884422u)},
                                            {"notes.md", "# Notes"}});
    window.pushScreen(std::make_shared<ViewArchiveController>((docs / "bundle.zip").string()));
    auto* view = qobject_cast<gui::ArchiveView*>(window.top());
    if (!view || !QTest::qWaitFor([&] { return view->controller().isListed(); }, 20000)) return 1;
  } else {
    std::fprintf(stderr, "unknown viewer '%s'\n", qPrintable(kind));
    return 2;
  }
  if (!waitWeb(window)) return 1;
  QTest::qWait(1500);
  const bool saved = window.grab().save(args.at(0));
  fs::remove_all(pattern);
  return saved ? 0 : 1;
}

// Pictures of the sharing and cloud screens, and a share left running for a
// browser to open:
//   harbor_gui_share_shot [--night] share|offline OUT.png ROOT
//   harbor_gui_share_shot [--night] cloud OUT.png CLOUDDIR ROOT
//   harbor_gui_share_shot serve CODE.png ROOT
// `serve` saves the QR code the screen shows, prints its address and keeps
// sharing ROOT until it is stopped.
#include <QApplication>
#include <QLabel>
#include <QPixmap>
#include <QTest>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "app/HarborFileShareController.h"
#include "gui/CloudView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/ShareView.h"
#include "gui/Theme.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"

namespace {

void nightAllDay() {
  using namespace harbor;
  const auto now = std::chrono::system_clock::now();
  const auto endOfDay = std::chrono::floor<std::chrono::days>(now) + std::chrono::hours(23) +
                        std::chrono::minutes(59) + std::chrono::seconds(59);
  AppUserDefaultUtils::saveNightMode(true);
  AppUserDefaultUtils::saveStartTime(endOfDay);
  AppUserDefaultUtils::saveEndTime(endOfDay);
}

int usage() {
  std::fprintf(
      stderr,
      "usage: harbor_gui_share_shot [--night] share|offline|cloud|serve OUT.png [CLOUDDIR] ROOT\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("Harbor"));
  QStringList args = QApplication::arguments();
  args.removeFirst();
  using namespace harbor;
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (!args.isEmpty() && args.first() == QLatin1String("--night")) {
    nightAllDay();
    args.removeFirst();
  }
  if (args.size() < 3) return usage();
  const QString mode = args.at(0);
  const QString out = args.at(1);
  const bool cloud = mode == QLatin1String("cloud");
  if (cloud && args.size() != 4) return usage();
  Directories::setDocumentRootOverride(std::filesystem::absolute(args.last().toStdString()));
  gui::installMainQueueDispatcher();
  gui::applyApplicationTheme();

  gui::MainWindow window;
  window.setRoot(gui::makeEmptyRoot(&window), gui::MainWindow::tr("Documents"));
  std::shared_ptr<WiFiShare> share;
  std::shared_ptr<HarborFileShareController> controller;
  gui::ShareView* shareView = nullptr;
  if (cloud) {
    auto provider = std::make_shared<LocalSyncFolderProvider>(args.at(2).toStdString());
    CloudProvider::setShared(provider);
    auto* view = new gui::CloudView(provider);
    window.push(view, view->windowTitle());
    view->tree()->expandAll();
    // A placeholder chosen, so the actions on it show enabled.
    const auto found = view->tree()->findItems(QStringLiteral("photos.zip"), Qt::MatchRecursive);
    if (!found.isEmpty()) view->tree()->setCurrentItem(found.first());
  } else if (mode == QLatin1String("share") || mode == QLatin1String("serve") ||
             mode == QLatin1String("offline")) {
    // A test's share takes a free port rather than the user's.
    if (mode == QLatin1String("serve"))
      ShareHooks::shared().httpServerPort = [] { return std::uint16_t{0}; };
    share = std::make_shared<WiFiShare>();
    share->initHttpServer();
    controller = std::make_shared<HarborFileShareController>(share);
    // No network: the screen shows its hint instead of addresses.
    if (mode == QLatin1String("offline")) controller->localAddress = [] { return std::string(); };
    controller->viewDidLoad();
    shareView = new gui::ShareView(controller, gui::desktopWebDavShare(), &window);
    window.push(shareView, shareView->windowTitle());
  } else {
    return usage();
  }
  window.resize(900, 700);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;
  QTest::qWait(300);
  if (mode == QLatin1String("serve")) {
    auto* code = shareView->findChild<QLabel*>(QStringLiteral("webQr"));
    if (shareView->qrAddress().isEmpty() || !code->pixmap().save(out)) {
      std::fprintf(stderr, "harbor_gui_share_shot: the share shows no address\n");
      return 1;
    }
    std::printf("%s\n", shareView->qrAddress().toUtf8().constData());
    std::fflush(stdout);
    return app.exec();
  }
  if (!window.grab().save(out)) return 1;
  return 0;
}

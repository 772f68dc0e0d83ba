// Takes a picture of the lock screen, the settings or the password settings:
//   harbor_gui_settings_shot [--night] lock|lock-refused|settings|lock-settings OUT.png
// --night turns on night hours in a private preferences store.
#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "app/LocalLoginController.h"
#include "gui/LockView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/Theme.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/LoginPasswordUtil.h"

int main(int argc, char** argv) {
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
                 "usage: harbor_gui_settings_shot [--night] "
                 "lock|lock-refused|settings|lock-settings OUT.png\n");
    return 2;
  }
  using namespace harbor;
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (night) {
    const auto endOfDay = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()) +
                          std::chrono::hours(23) + std::chrono::minutes(59) +
                          std::chrono::seconds(59);
    AppUserDefaultUtils::saveNightMode(true);
    AppUserDefaultUtils::saveStartTime(endOfDay);
    AppUserDefaultUtils::saveEndTime(endOfDay);
  }
  const QString mode = args.at(0);
  Directories::setDocumentRootOverride(std::filesystem::temp_directory_path() / "harbor-shot-docs");
  gui::installMainQueueDispatcher();
  gui::applyApplicationTheme();
  gui::registerViews();
  gui::MainWindow window;
  window.setRoot(gui::makeEmptyRoot(&window), gui::MainWindow::tr("Documents"));
  window.resize(980, 680);
  if (mode.startsWith(QLatin1String("lock")) && mode != QLatin1String("lock-settings")) {
    LoginPasswordUtil::saveLocalPassword("shot");
    window.showRootScreen(LocalLoginController::singleInstance());
  } else if (!window.showNamed(mode.toStdString(), {})) {
    std::fprintf(stderr, "no screen named %s\n", qPrintable(mode));
    return 2;
  }
  window.show();
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;
  if (mode == QLatin1String("lock-refused")) {
    auto* lock = qobject_cast<gui::LockView*>(window.cover());
    if (!lock) return 1;
    QTest::keyClicks(lock->passwordField(), QStringLiteral("guess"));
    lock->loginButton()->click();
  }
  QTest::qWait(300);
  if (!window.grab().save(args.at(1))) return 1;
  return 0;
}

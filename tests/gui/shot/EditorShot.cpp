// Takes a picture of the window with FILE open in the editor:
//   harbor_gui_shot [--night] [--type TEXT] OUT.png FILE
// --night turns on night hours in a private preferences store; --type enters
// TEXT at the end of the first line so the suggestion list shows.
#include <QApplication>
#include <QPixmap>
#include <QTest>
#include <QTextBlock>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "gui/EditorView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Theme.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("Harbor"));
  QStringList args = QApplication::arguments();
  args.removeFirst();
  bool night = false;
  QString type;
  if (!args.isEmpty() && args.first() == QLatin1String("--night")) {
    night = true;
    args.removeFirst();
  }
  if (args.size() >= 2 && args.first() == QLatin1String("--type")) {
    type = args.at(1);
    args.remove(0, 2);
  }
  if (args.size() != 2) {
    std::fprintf(stderr, "usage: harbor_gui_shot [--night] [--type TEXT] OUT.png FILE\n");
    return 2;
  }
  using namespace harbor;
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (night) {
    // Night hours that hold for the rest of today.
    const auto now = std::chrono::system_clock::now();
    const auto endOfDay = std::chrono::floor<std::chrono::days>(now) + std::chrono::hours(23) +
                          std::chrono::minutes(59) + std::chrono::seconds(59);
    AppUserDefaultUtils::saveNightMode(true);
    AppUserDefaultUtils::saveStartTime(endOfDay);
    AppUserDefaultUtils::saveEndTime(endOfDay);
  }
  const std::filesystem::path file = std::filesystem::absolute(args.at(1).toStdString());
  Directories::setDocumentRootOverride(file.parent_path());
  gui::installMainQueueDispatcher();
  gui::applyApplicationTheme();
  gui::MainWindow window;
  window.setRoot(gui::makeEmptyRoot(&window), gui::MainWindow::tr("Documents"));
  gui::EditorView* editor = window.openEditor(file.string());
  window.resize(980, 680);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;
  if (!QTest::qWaitFor([&] { return !editor->controller().isLoading(); }, 20000)) return 1;
  QApplication::processEvents();
  if (!type.isEmpty()) {
    editor->editButton()->click();
    QTextCursor c = editor->textWidget()->textCursor();
    c.setPosition(editor->textWidget()->document()->firstBlock().length() - 1);
    editor->textWidget()->setTextCursor(c);
    editor->textWidget()->setFocus();
    QTest::keyClicks(editor->textWidget(), type);
  }
  QTest::qWait(300);
  if (!window.grab().save(args.at(0))) return 1;
  return 0;
}

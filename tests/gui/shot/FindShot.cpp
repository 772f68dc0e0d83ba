// Pictures of the search and custom syntax screens:
//   harbor_find_shot [--night] find-bar OUT.png FILE WORD
//   harbor_find_shot [--night] find-in-files OUT.png FOLDER WORD
//   harbor_find_shot [--night] syntax-list OUT.png STX...
//   harbor_find_shot [--night] syntax-edit OUT.png STX...
// The syntax modes assign each STX file to a few made-up extensions first.
#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTreeWidget>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "gui/CustomSyntaxViews.h"
#include "gui/EditorView.h"
#include "gui/FindBar.h"
#include "gui/FindInFilesView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/Theme.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"

namespace fs = std::filesystem;
using namespace harbor;

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: harbor_find_shot [--night] find-bar|find-in-files|syntax-list|syntax-edit "
               "OUT.png ARGS...\n");
  return 2;
}

void nightHours() {
  const auto now = std::chrono::system_clock::now();
  const auto endOfDay = std::chrono::floor<std::chrono::days>(now) + std::chrono::hours(23) +
                        std::chrono::minutes(59) + std::chrono::seconds(59);
  AppUserDefaultUtils::saveNightMode(true);
  AppUserDefaultUtils::saveStartTime(endOfDay);
  AppUserDefaultUtils::saveEndTime(endOfDay);
}

// Stores each file as a user's assignment, as the edit screen would.
void assign(const QStringList& files) {
  const char* values[] = {"mylang,myl", "conf;cfg", "tpl, tmpl, view", "log"};
  int i = 0;
  for (const QString& file : files) {
    const fs::path from = file.toStdString();
    const std::string name = from.filename().string();
    Error error;
    EditorUserDefaults::saveEditorSyntaxSettings(values[i++ % 4], name, &error);
    std::error_code ec;
    fs::copy_file(from, EditorUtils::fullName(name, false), fs::copy_options::overwrite_existing,
                  ec);
  }
}

}  // namespace

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
  if (args.size() < 2) return usage();
  const QString mode = args.takeFirst();
  const QString out = args.takeFirst();

  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  if (night) nightHours();
  gui::installMainQueueDispatcher();
  gui::applyApplicationTheme();
  gui::registerViews();

  fs::path rootDir = fs::current_path();
  if (mode == QLatin1String("find-bar") || mode == QLatin1String("find-in-files")) {
    if (args.size() != 2) return usage();
    const fs::path target = fs::absolute(args.at(0).toStdString());
    rootDir = mode == QLatin1String("find-bar") ? target.parent_path() : target;
  }
  Directories::setDocumentRootOverride(rootDir);

  gui::MainWindow window;
  window.setRoot(gui::makeEmptyRoot(&window), gui::MainWindow::tr("Documents"));
  window.resize(980, 680);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window, 10000)) return 1;

  if (mode == QLatin1String("find-bar")) {
    gui::EditorView* editor = window.openEditor(fs::absolute(args.at(0).toStdString()).string());
    if (!QTest::qWaitFor([&] { return !editor->controller().isLoading(); }, 20000)) return 1;
    // Edit is offered once the window caught up with the end of the load.
    if (!QTest::qWaitFor([&] { return editor->editButton()->isEnabled(); }, 5000)) return 1;
    editor->editButton()->click();
    QApplication::processEvents();
    auto* bar = editor->findChild<gui::FindBar*>(QStringLiteral("findBar"));
    if (!bar) return 1;
    bar->open();
    QTest::keyClicks(bar->findField(), args.at(1));
    QTest::keyClicks(bar->replaceField(), args.at(1).toUpper());
    QTest::qWait(300);
    bar->findNext();
    bar->findNext();
  } else if (mode == QLatin1String("find-in-files")) {
    if (!window.showNamed("find-in-files", rootDir.string())) return 1;
    auto* view = qobject_cast<gui::FindInFilesView*>(window.top());
    if (!view) return 1;
    QTest::keyClicks(view->patternField(), args.at(1));
    view->start();
    if (!QTest::qWaitFor([&] { return !view->isRunning(); }, 20000)) return 1;
    QTreeWidget* tree = view->resultTree();
    if (tree->topLevelItemCount() > 0 && tree->topLevelItem(0)->childCount() > 0) {
      tree->setCurrentItem(tree->topLevelItem(0)->child(0));
    }
    tree->setFocus();
  } else if (mode == QLatin1String("syntax-list") || mode == QLatin1String("syntax-edit")) {
    assign(args);
    if (!window.showNamed("custom-syntax", "")) return 1;
    auto* tabs = qobject_cast<QTabWidget*>(window.top());
    auto* list = tabs ? qobject_cast<gui::CustomSyntaxListView*>(tabs->currentWidget()) : nullptr;
    if (!list) return 1;
    if (mode == QLatin1String("syntax-edit")) {
      if (!list->openEdit(0)) return 1;
    } else if (list->list()->topLevelItemCount() > 0) {
      list->list()->setCurrentItem(list->list()->topLevelItem(0));
    }
  } else {
    return usage();
  }
  QTest::qWait(300);
  if (!window.grab().save(out)) return 1;
  return 0;
}

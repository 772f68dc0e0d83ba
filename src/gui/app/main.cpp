#include <CLI/CLI.hpp>
#include <QApplication>
#include <QIcon>
#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "gui/Application.h"
#include "gui/Screens.h"
#include "gui/WebPageView.h"
#include "platform/Directories.h"
#include "platform/Resources.h"

int main(int argc, char** argv) {
  // Qt's own single-dash options (-platform offscreen, -style Fusion, ...)
  // go to Qt; the rest is ours, read before Qt needs a display so that
  // --help works anywhere.
  static const std::set<std::string> qtWithValue{
      "-platform",        "-platformtheme", "-style",       "-display",    "-geometry",
      "-qwindowgeometry", "-qwindowtitle",  "-qwindowicon", "-stylesheet", "-plugin"};
  std::vector<char*> qtArgs{argv[0]};
  std::vector<std::string> ours;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.size() > 1 && arg[0] == '-' && arg[1] != '-' && arg != "-h") {
      qtArgs.push_back(argv[i]);
      if (qtWithValue.count(arg) && i + 1 < argc) qtArgs.push_back(argv[++i]);
    } else {
      ours.push_back(arg);
    }
  }
  CLI::App cli{"Harbor desktop: the editor and file manager in a window.", "harbor-app"};
  std::string root;
  std::vector<std::string> files;
  std::string show;
  cli.add_option("--root", root,
                 "Document root (default: $HARBOR_ROOT, else ~/.local/share/harbor/Documents)")
      ->type_name("DIR");
  cli.add_option("FILE", files,
                 "Files to open (the editor, or the file's viewer); a new name starts a new file. "
                 "With --show, the first is the screen's PATH");
  cli.add_option("--show", show, "Open this screen at launch")->type_name("NAME");
  cli.footer(
      "Qt's own options (-platform, -style, ...) are passed through.\n"
      "Exit codes: 0 success, 1 failure, 2 bad usage.");
  std::reverse(ours.begin(), ours.end());
  try {
    cli.parse(ours);
  } catch (const CLI::CallForHelp& e) {
    return cli.exit(e);
  } catch (const CLI::ParseError& e) {
    cli.exit(e);
    return 2;
  }
  if (!root.empty()) harbor::Directories::setDocumentRootOverride(root);
  int qtArgc = static_cast<int>(qtArgs.size());
  qtArgs.push_back(nullptr);
  harbor::gui::registerViewerSchemes();
  harbor::gui::disableWebSandboxForRoot();
  QApplication app(qtArgc, qtArgs.data());
  QApplication::setApplicationName(QStringLiteral("harbor"));
  QApplication::setApplicationDisplayName(QStringLiteral("Harbor"));
  // Docks and task bars match the window to the installed menu entry.
  QGuiApplication::setDesktopFileName(QStringLiteral("harbor-app"));
  if (auto icon = harbor::resourcePath("desktop/harbor-256.png"))
    QApplication::setWindowIcon(QIcon(QString::fromStdString(icon->string())));
  harbor::gui::DesktopApplication desktop;
  std::string showPath;
  if (!show.empty() && !files.empty()) {
    showPath = files.front();
    files.erase(files.begin());
  }
  if (!desktop.launch(files, show, showPath)) {
    std::string names;
    for (const std::string& name : harbor::gui::Screens::showNames())
      names += (names.empty() ? "" : ", ") + name;
    std::fprintf(stderr, "harbor-app: no screen named '%s' (known: %s)\n", show.c_str(),
                 names.c_str());
    return 2;
  }
  return app.exec();
}

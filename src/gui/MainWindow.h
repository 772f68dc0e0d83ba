#pragma once

#include <QLabel>
#include <QList>
#include <QMainWindow>
#include <QPointer>
#include <QStackedWidget>
#include <QToolButton>
#include <memory>
#include <string>
#include <vector>

#include "platform/ScreenPort.h"

namespace harbor::gui {

class EditorView;

// The one window: a navigation stack of screens with Back and the path of the
// top screen as a breadcrumb. Size and position come back at the next start.
class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);

  // The stack's bottom screen; the window owns it.
  void setRoot(QWidget* root, const QString& crumb);
  void push(QWidget* page, const QString& crumb);
  // Removes `page` (the top, normally) and shows the one below.
  void pop(QWidget* page);
  EditorView* openEditor(const std::string& path);

  // Binds a widget to a controller the libraries push (Screens' table);
  // false when this application has no view for it.
  bool pushScreen(std::shared_ptr<ViewController> screen);
  // The window's root became `root` (the browser, or the lock screen). A
  // screen that covers the window (the lock) hides everything, the stack
  // included, without closing anything; the next root uncovers it.
  void showRootScreen(std::shared_ptr<ViewController> root);
  // The stack's bottom for `root` without touching a cover: a locked start
  // still gets its browser underneath.
  void placeRoot(std::shared_ptr<ViewController> root);
  bool isCovered() const;
  QWidget* cover() const;
  // A route's viewer on files[current]: the editor, a registered viewer, or
  // the desktop's default application for a route we have no view for.
  void openFiles(ScreenRoute route, const std::vector<std::string>& files, std::size_t current);
  static bool canOpen(ScreenRoute route);
  // `--show NAME [PATH]`: false for a name no view registered.
  bool showNamed(const std::string& name, const std::string& path);
  int depth() const { return stack_->count(); }
  QWidget* top() const { return stack_->currentWidget(); }
  QString breadcrumb() const { return crumb_->text(); }

  // The breadcrumb of a path: its folders below the document root.
  static QString crumbFor(const std::string& path);

 signals:
  // Minimised and restored: the frame's background and foreground.
  void enteredBackground();
  void enteredForeground();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void goBack();
  void refreshChrome();
  void restoreGeometryFromPreferences();
  void saveGeometryToPreferences();
  // Quitting asks each unsaved editor in turn, top first.
  void continueQuit();

  void uncover();
  void removeCovers();
  // Dialogs and menus of this window wait hidden while it is covered, those
  // that open meanwhile too: nothing of what lies underneath shows or takes
  // an answer before the password.
  bool isOwnWindow(const QWidget* widget) const;
  void hold(QWidget* widget);
  bool isRootShown(const std::shared_ptr<ViewController>& root) const;
  QWidget* makeRootPage(const std::shared_ptr<ViewController>& root);
  void installRoot(QWidget* page);

  QStackedWidget* layers_;  // the navigation (0) and a cover over it (1)
  QStackedWidget* stack_;
  QToolButton* back_;
  QLabel* crumb_;
  QLabel* notice_;
  bool quitting_ = false;
  QList<QPointer<QWidget>> held_;
};

// The root until the file browser lands: says plainly what is there.
QWidget* makeEmptyRoot(MainWindow* window);

}  // namespace harbor::gui

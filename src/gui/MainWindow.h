#pragma once

#include <QLabel>
#include <QMainWindow>
#include <QStackedWidget>
#include <QToolButton>
#include <string>

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
  int depth() const { return stack_->count(); }
  QWidget* top() const { return stack_->currentWidget(); }
  QString breadcrumb() const { return crumb_->text(); }

  // The breadcrumb of a path: its folders below the document root.
  static QString crumbFor(const std::string& path);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void goBack();
  void refreshChrome();
  void restoreGeometryFromPreferences();
  void saveGeometryToPreferences();
  // Quitting asks each unsaved editor in turn, top first.
  void continueQuit();

  QStackedWidget* stack_;
  QToolButton* back_;
  QLabel* crumb_;
  QLabel* notice_;
  bool quitting_ = false;
};

// The root until the file browser lands: says plainly what is there.
QWidget* makeEmptyRoot(MainWindow* window);

}  // namespace harbor::gui

#pragma once

#include <QWidget>
#include <memory>
#include <string>

#include "platform/ScreenPort.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace harbor {
class ViewArchiveController;
}

namespace harbor::gui {

class MainWindow;

// One folder of an archive, browsed without extracting it: open a folder
// entry (a new screen on the same reader), open a file, extract the marked
// entries or everything, the options sheet on a right click.
class ArchiveView : public QWidget {
  Q_OBJECT
 public:
  ArchiveView(std::shared_ptr<ViewArchiveController> controller, MainWindow& window,
              QWidget* parent = nullptr);
  ~ArchiveView() override;

  ViewArchiveController& controller() const { return *controller_; }
  QTreeWidget* list() const { return list_; }
  // Rebuilds the rows from the controller.
  void reload();
  // A double click (or Enter) and a right click on the row named `name`.
  void activate(const QString& name);
  void hold(const QString& name);

 private:
  class Port;
  friend class Port;
  void setBusy(bool busy);

  std::shared_ptr<ViewArchiveController> controller_;
  std::shared_ptr<Port> port_;
  QTreeWidget* list_ = nullptr;
  QLabel* status_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QToolButton* edit_ = nullptr;
  QToolButton* extract_ = nullptr;
};

// The screen factory for the archive browser the file browser pushes.
QWidget* makeArchiveView(std::shared_ptr<ViewController> controller, MainWindow& window);

}  // namespace harbor::gui

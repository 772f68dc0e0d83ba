#pragma once

#include <QAbstractListModel>
#include <QListView>
#include <QPointer>
#include <QStringList>
#include <QUrl>
#include <QWidget>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "gui/Screens.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTimer;
class QToolBar;
class QToolButton;

namespace harbor {
class FileManagerBaseController;
class FileManagerController;
}  // namespace harbor

namespace harbor::gui {

class ThumbnailCache;

// The rows of one browser screen: its sections as the controller ordered
// them, a title row before each titled section. File attributes are read
// only for rows that are painted.
class BrowserModel : public QAbstractListModel {
  Q_OBJECT
 public:
  enum Role { PathRole = Qt::UserRole + 1, HeaderRole, FolderRole, SizeRole };

  explicit BrowserModel(ThumbnailCache& thumbnails, QObject* parent = nullptr);

  void reset(const std::vector<std::vector<std::string>>& sections,
             const std::vector<std::string>* titles);
  void setIconMode(bool icons) { icons_ = icons; }
  int rowOfPath(const std::string& path) const;
  std::string pathAt(int row) const;
  bool isHeader(int row) const;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  Qt::DropActions supportedDragActions() const override { return Qt::CopyAction; }
  Qt::DropActions supportedDropActions() const override { return Qt::CopyAction; }
  bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                       const QModelIndex& parent) const override;
  bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                    const QModelIndex& parent) override;

  // Where files dropped from outside go.
  std::function<void(const QList<QUrl>&)> onDrop;

 private:
  struct Entry {
    std::string path;
    QString name;
    bool header = false;
    mutable signed char folder = -1;  // -1 not read yet
    mutable qint64 size = 0;
    mutable signed char image = -1;
  };
  void readAttributes(const Entry& entry) const;
  void thumbnailReady(const QString& path);

  std::vector<Entry> entries_;
  std::unordered_map<std::string, int> rowOf_;
  ThumbnailCache& thumbnails_;
  bool icons_ = false;
};

// One browser screen bound to its controller: sections in a list or as
// icons, search, order, edit mode, the controller's toolbar and sheets,
// progress with Cancel, the status line, and the desktop's keys and drags.
class BrowserView : public QWidget {
  Q_OBJECT
 public:
  BrowserView(std::shared_ptr<FileManagerBaseController> controller, MainWindow& window);
  ~BrowserView() override;

  FileManagerBaseController& controller() { return *controller_; }
  QListView* listView() const { return list_; }
  BrowserModel* model() const { return model_; }
  QToolBar* toolbar() const { return toolbar_; }
  QLineEdit* searchField() const { return search_; }
  QComboBox* orderBox() const { return order_; }
  QToolButton* editButton() const { return edit_; }
  QPushButton* cancelButton() const { return cancel_; }
  QLabel* statusLabel() const { return status_; }
  bool isIconMode() const;
  // The file names shown, in order, without section titles.
  QStringList shownNames() const;
  // Files from the desktop, imported as incoming files.
  void importFiles(const QList<QUrl>& urls);

  // Port calls.
  void refresh();
  void showToolbar(const std::vector<ToolbarItem>& items);
  void showStatus(const QString& text);
  void showProgress(double fraction);
  void showBusy(bool busy);
  void showTitle(const QString& title);
  void leave();
  // Walks down to `saved`, the folder shown when the last run ended,
  // tapping each part so that a locked folder asks first.
  void restoreLastFolder(const std::string& saved);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  FileManagerController* full() const;
  void toolbarTriggered(const std::string& key);
  void syncSelectionToController();
  void syncSelectionFromController();
  void openRow(int row);
  void goUp();
  void contextMenuAt(const QPoint& pos);
  bool handleKey(QKeyEvent* event);
  void applyMode();
  void updateFoot();

  std::shared_ptr<FileManagerBaseController> controller_;
  std::shared_ptr<class BrowserPort> port_;
  QPointer<MainWindow> window_;
  ThumbnailCache* thumbnails_;
  BrowserModel* model_;
  QListView* list_;
  QLabel* title_;
  QLineEdit* search_;
  QComboBox* order_;
  QToolButton* edit_;
  QToolBar* toolbar_;
  QWidget* foot_;
  QLabel* status_;
  QProgressBar* progress_;
  QPushButton* cancel_;
  QTimer* searchDelay_;
  bool syncing_ = false;
  bool busy_ = false;
};

void registerBrowserViews();

}  // namespace harbor::gui

#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "cloud/CloudProvider.h"
#include "cloud/DocumentBrowserQuery.h"
#include "platform/ScreenPort.h"

namespace harbor {
class ICloudBase;
}

namespace harbor::gui {

class MainWindow;

// The cloud drive's documents as a tree: each item's download state, and
// download, upload, move and delete with their progress. One operation at a
// time runs on a worker; the tree follows the folder as the sync client
// changes it.
class CloudView : public QWidget {
  Q_OBJECT
 public:
  // Column of each item's download state.
  static constexpr int kStatusColumn = 1;

  CloudView(std::shared_ptr<CloudProvider> provider, QWidget* parent = nullptr);
  ~CloudView() override;

  // What the buttons run after their dialogs; false when an operation is
  // already running or the path is not the drive's.
  bool download(const std::string& cloudPath);
  bool upload(const std::string& localPath, const std::string& cloudFolder);
  bool move(const std::string& cloudPath, const std::string& cloudFolder);
  bool remove(const std::string& cloudPath);
  void cancel();
  bool isBusy() const;
  // Where downloads land: the document root.
  static std::string downloadFolder();

  void reload();
  QTreeWidget* tree() const { return tree_; }

 signals:
  void operationFinished(bool ok, const QString& message);

 private:
  class Progress;
  bool run(std::unique_ptr<ICloudBase> operation, const QString& title, std::uint64_t total);
  void finished(const QString& error);
  void setProgress(std::uint64_t done);
  std::string selectedPath() const;
  bool selectedIsDirectory() const;
  QStringList folders() const;
  void updateButtons();

  std::shared_ptr<CloudProvider> provider_;
  std::unique_ptr<DocumentBrowserQuery> query_;
  std::string documents_;

  QLabel* unavailable_;
  QTreeWidget* tree_;
  QPushButton* download_;
  QPushButton* upload_;
  QPushButton* move_;
  QPushButton* delete_;
  QPushButton* cancel_;
  QProgressBar* progress_;
  QLabel* status_;

  std::unique_ptr<Progress> sink_;
  std::thread worker_;
  mutable std::mutex mutex_;
  std::unique_ptr<ICloudBase> operation_;  // guarded by mutex_ while the worker runs
  bool busy_ = false;
  std::uint64_t total_ = 0;
};

// The controller the sharing screen's cloud row pushes.
class CloudDriveScreen : public ViewController {
 public:
  std::string className() const override { return "ICloudDriveController"; }
};

void registerCloudViews();

}  // namespace harbor::gui

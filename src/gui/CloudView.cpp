#include "gui/CloudView.h"

#include <QDateTime>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QPointer>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <filesystem>
#include <set>

#include "app/ApplicationServices.h"
#include "app/ICloudDriveController.h"
#include "cloud/CloudPath.h"
#include "cloud/ICloudBase.h"
#include "filemanager/FileUtil.h"
#include "gui/MainWindow.h"
#include "gui/Screens.h"
#include "platform/Strings.h"

namespace harbor::gui {
namespace fs = std::filesystem;
namespace {

QString tr8(const std::string& key) {
  return QString::fromStdString(localizedString(key));
}

constexpr int kPathRole = Qt::UserRole;
constexpr int kDirectoryRole = Qt::UserRole + 1;

QString statusText(const DocumentBrowserModelObject& object) {
  if (object._isDirectory) return {};
  const CloudItem& item = object._metadataItem;
  if (!item.downloaded) {
    if (item.percentDownloaded > 0)
      return tr8("CloudDownloading").arg(static_cast<int>(item.percentDownloaded));
    return tr8("CloudNotDownloaded");
  }
  if (!item.uploaded && item.percentUploaded > 0 && item.percentUploaded < 100)
    return tr8("CloudUploading").arg(static_cast<int>(item.percentUploaded));
  return tr8("CloudDownloaded");
}

}  // namespace

// Reports from the worker reach the view on its own thread.
class CloudView::Progress : public IActionProgress {
 public:
  explicit Progress(CloudView* view) : view_(view) {}
  using IActionProgress::progressFinished;
  void progressUpdateCurrentSize(std::uint64_t position) override { post(position); }
  void progressFinished(std::uint64_t units) override { post(units); }

 private:
  void post(std::uint64_t done) {
    QPointer<CloudView> view = view_;
    QMetaObject::invokeMethod(
        view_,
        [view, done] {
          if (view) view->setProgress(done);
        },
        Qt::QueuedConnection);
  }
  CloudView* view_;
};

CloudView::CloudView(std::shared_ptr<CloudProvider> provider, QWidget* parent)
    : QWidget(parent), provider_(std::move(provider)), sink_(std::make_unique<Progress>(this)) {
  setObjectName(QStringLiteral("cloudView"));
  setWindowTitle(tr8("CloudStorage"));
  setProperty("crumb", windowTitle());
  auto* page = new QVBoxLayout(this);
  page->setContentsMargins(16, 12, 16, 12);

  unavailable_ = new QLabel(tr8("CloudUnavailable"), this);
  unavailable_->setObjectName(QStringLiteral("cloudUnavailable"));
  unavailable_->setWordWrap(true);
  page->addWidget(unavailable_);

  tree_ = new QTreeWidget(this);
  tree_->setObjectName(QStringLiteral("cloudTree"));
  tree_->setColumnCount(4);
  tree_->setHeaderLabels({tr8("Name"), tr8("CloudStatus"), tr8("Size"), tr8("Modified")});
  tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  for (int c = 1; c < 4; ++c)
    tree_->header()->setSectionResizeMode(c, QHeaderView::ResizeToContents);
  tree_->setSortingEnabled(false);
  page->addWidget(tree_, 1);

  auto* buttons = new QHBoxLayout;
  auto button = [&](const char* name, const std::string& key) {
    auto* b = new QPushButton(tr8(key), this);
    b->setObjectName(QString::fromLatin1(name));
    buttons->addWidget(b);
    return b;
  };
  download_ = button("cloudDownload", "CloudDownload");
  upload_ = button("cloudUpload", "CloudUpload");
  move_ = button("cloudMove", "CloudMove");
  delete_ = button("cloudDelete", "Delete");
  buttons->addStretch(1);
  progress_ = new QProgressBar(this);
  progress_->setObjectName(QStringLiteral("cloudProgress"));
  progress_->setMaximumWidth(220);
  progress_->hide();
  buttons->addWidget(progress_);
  cancel_ = button("cloudCancel", "Cancel");
  cancel_->hide();
  page->addLayout(buttons);
  status_ = new QLabel(this);
  status_->setObjectName(QStringLiteral("cloudStatus"));
  status_->setWordWrap(true);
  page->addWidget(status_);

  connect(tree_, &QTreeWidget::itemSelectionChanged, this, &CloudView::updateButtons);
  connect(download_, &QPushButton::clicked, this, [this] { download(selectedPath()); });
  connect(upload_, &QPushButton::clicked, this, [this] {
    const QString file = QFileDialog::getOpenFileName(
        this, tr8("CloudUpload"), QString::fromStdString(FileUtil::documentDirectory()));
    if (file.isEmpty()) return;
    std::string folder = selectedPath();
    if (folder.empty())
      folder = documents_;
    else if (!selectedIsDirectory())
      folder = fs::path(folder).parent_path().string();
    upload(file.toStdString(), folder);
  });
  connect(move_, &QPushButton::clicked, this, [this] {
    const std::string path = selectedPath();
    if (path.empty()) return;
    bool ok = false;
    const QString target =
        QInputDialog::getItem(this, tr8("CloudMove"), tr8("CloudMoveTo"), folders(), 0, false, &ok);
    if (!ok) return;
    const auto folder = cloudPathInside(documents_, target.toStdString());
    if (folder) move(path, *folder);
  });
  connect(delete_, &QPushButton::clicked, this, [this] {
    const std::string path = selectedPath();
    if (path.empty()) return;
    const auto answer =
        QMessageBox::question(this, tr8("Delete"),
                              tr8("ConfirmDelete") + QStringLiteral("\n") +
                                  QString::fromStdString(fs::path(path).filename().string()));
    if (answer == QMessageBox::Yes) remove(path);
  });
  connect(cancel_, &QPushButton::clicked, this, &CloudView::cancel);

  const bool available = provider_ && provider_->isAvailable();
  unavailable_->setVisible(!available);
  if (available) {
    documents_ = provider_->documentsURL();
    std::error_code ec;
    fs::create_directories(documents_, ec);
    query_ = std::make_unique<DocumentBrowserQuery>(provider_, documents_, true);
    query_->startWatching([this](const DocumentBrowserQuery::Changes&) { reload(); });
  }
  reload();
}

CloudView::~CloudView() {
  if (query_) query_->stopWatching();
  cancel();
  if (worker_.joinable()) worker_.join();
}

std::string CloudView::downloadFolder() {
  return FileUtil::documentDirectory();
}

void CloudView::reload() {
  std::set<QString> expanded;
  QString selected;
  for (QTreeWidgetItemIterator it(tree_); *it; ++it) {
    if ((*it)->isExpanded()) expanded.insert((*it)->data(0, kPathRole).toString());
    if ((*it)->isSelected()) selected = (*it)->data(0, kPathRole).toString();
  }
  tree_->clear();
  if (query_) {
    query_->update();
    const QLocale locale;
    std::function<void(QTreeWidgetItem*, const std::vector<DocumentBrowserModelObject>&)> add =
        [&](QTreeWidgetItem* parent, const std::vector<DocumentBrowserModelObject>& objects) {
          for (const auto& o : objects) {
            auto* item = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(tree_);
            const QString path = QString::fromStdString(o._URL);
            item->setText(
                0, QString::fromStdString(o._displayName.empty() ? o._filename : o._displayName));
            item->setData(0, kPathRole, path);
            item->setData(0, kDirectoryRole, o._isDirectory);
            item->setText(kStatusColumn, statusText(o));
            if (!o._isDirectory)
              item->setText(2, locale.formattedDataSize(static_cast<qint64>(o.totalBytes)));
            const auto secs = std::chrono::duration_cast<std::chrono::seconds>(
                                  o.lastModifiedDate.time_since_epoch())
                                  .count();
            item->setText(
                3, locale.toString(QDateTime::fromSecsSinceEpoch(secs), QLocale::ShortFormat));
            item->setIcon(0, style()->standardIcon(o._isDirectory ? QStyle::SP_DirIcon
                                                                  : QStyle::SP_FileIcon));
            add(item, o._childrens);
            if (expanded.count(path)) item->setExpanded(true);
            if (path == selected) item->setSelected(true);
          }
        };
    add(nullptr, query_->tree());
  }
  tree_->setVisible(query_ != nullptr);
  updateButtons();
}

std::string CloudView::selectedPath() const {
  const auto items = tree_->selectedItems();
  return items.isEmpty() ? std::string()
                         : items.first()->data(0, kPathRole).toString().toStdString();
}

bool CloudView::selectedIsDirectory() const {
  const auto items = tree_->selectedItems();
  return !items.isEmpty() && items.first()->data(0, kDirectoryRole).toBool();
}

QStringList CloudView::folders() const {
  QStringList out{QStringLiteral(".")};
  for (QTreeWidgetItemIterator it(tree_); *it; ++it) {
    if (!(*it)->data(0, kDirectoryRole).toBool()) continue;
    out << QString::fromStdString(fs::path((*it)->data(0, kPathRole).toString().toStdString())
                                      .lexically_relative(documents_)
                                      .generic_string());
  }
  return out;
}

void CloudView::updateButtons() {
  const bool ready = query_ && !busy_;
  const bool chosen = !selectedPath().empty();
  download_->setEnabled(ready && chosen && !selectedIsDirectory());
  upload_->setEnabled(ready);
  move_->setEnabled(ready && chosen);
  delete_->setEnabled(ready && chosen);
  cancel_->setVisible(busy_);
  progress_->setVisible(busy_);
}

bool CloudView::isBusy() const {
  return busy_;
}

bool CloudView::download(const std::string& cloudPath) {
  if (!provider_ || cloudPath.empty()) return false;
  auto item = provider_->itemAt(cloudPath);
  if (!item || item->isDirectory) return false;
  const std::string name = fs::path(cloudPath).filename().string();
  const std::string target = FileUtil::getCreateFileName(
      downloadFolder(), FileUtil::getFileNameNoExtension(name), FileUtil::getFileExtension(name));
  return run(ICloudDownload::instanceWithPath(cloudPath, target, sink_.get()),
             tr8("CloudDownload") + QStringLiteral(" ") + QString::fromStdString(name),
             item->totalBytes);
}

bool CloudView::upload(const std::string& localPath, const std::string& cloudFolder) {
  if (localPath.empty() || cloudFolder.empty()) return false;
  const std::string name = fs::path(localPath).filename().string();
  std::error_code ec;
  const auto size = fs::is_regular_file(localPath, ec) ? fs::file_size(localPath, ec) : 0;
  return run(ICloudUpload::instanceWithPath(localPath, (fs::path(cloudFolder) / name).string(),
                                            sink_.get()),
             tr8("CloudUpload") + QStringLiteral(" ") + QString::fromStdString(name), size);
}

bool CloudView::move(const std::string& cloudPath, const std::string& cloudFolder) {
  if (cloudPath.empty() || cloudFolder.empty()) return false;
  const std::string name = fs::path(cloudPath).filename().string();
  return run(
      ICloudMove::instanceWithPath(cloudPath, (fs::path(cloudFolder) / name).string(), sink_.get()),
      tr8("CloudMove") + QStringLiteral(" ") + QString::fromStdString(name), 0);
}

bool CloudView::remove(const std::string& cloudPath) {
  if (cloudPath.empty()) return false;
  return run(ICloudDelete::instanceWithPath(cloudPath, sink_.get()),
             tr8("Delete") + QStringLiteral(" ") +
                 QString::fromStdString(fs::path(cloudPath).filename().string()),
             0);
}

bool CloudView::run(std::unique_ptr<ICloudBase> operation, const QString& title,
                    std::uint64_t total) {
  if (busy_ || !operation) return false;
  if (worker_.joinable()) worker_.join();
  busy_ = true;
  total_ = total;
  progress_->setRange(0, total > 0 ? 1000 : 0);
  progress_->setValue(0);
  status_->setText(title);
  operation->setUseMainThread(false);
  ICloudBase* raw = operation.get();
  {
    std::lock_guard lock(mutex_);
    operation_ = std::move(operation);
  }
  updateButtons();
  QPointer<CloudView> self = this;
  worker_ = std::thread([this, self, raw] {
    raw->start();
    raw->waitRun();
    const QString error = raw->error() ? QString::fromStdString(raw->errorMessage()) : QString();
    QMetaObject::invokeMethod(
        this,
        [self, error] {
          if (self) self->finished(error);
        },
        Qt::QueuedConnection);
  });
  return true;
}

void CloudView::setProgress(std::uint64_t done) {
  if (!busy_ || total_ == 0) return;
  progress_->setValue(static_cast<int>(std::min<std::uint64_t>(done, total_) * 1000 / total_));
}

void CloudView::finished(const QString& error) {
  if (worker_.joinable()) worker_.join();
  {
    std::lock_guard lock(mutex_);
    operation_.reset();
  }
  busy_ = false;
  status_->setText(error.isEmpty() ? tr8("CloudDone") : error);
  reload();
  emit operationFinished(error.isEmpty(), error);
}

void CloudView::cancel() {
  std::lock_guard lock(mutex_);
  if (operation_) operation_->stop(localizedString("Cancelled"));
}

namespace {

// The drive as the browser opens it to pick a file: one folder a screen, the
// controller deciding what a tap does.
class CloudPickView : public QWidget {
 public:
  CloudPickView(std::shared_ptr<ICloudDriveController> controller, MainWindow& window)
      : controller_(std::move(controller)),
        port_(std::make_shared<Port>(this, window)),
        list_(new QListWidget(this)) {
    setObjectName(QStringLiteral("cloudPickView"));
    list_->setObjectName(QStringLiteral("cloudPickList"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(list_);
    controller_->setPort(port_);
    setProperty("crumb", MainWindow::crumbFor(controller_->folder()));
    connect(list_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
      controller_->tapRow(item->data(Qt::UserRole).toString().toStdString());
    });
    // The controller lists its folder after the push that made this view.
    QTimer::singleShot(0, this, [this] { refresh(); });
  }

 private:
  class Port : public WindowPort {
   public:
    Port(CloudPickView* view, MainWindow& window) : WindowPort(view, window), view_(view) {}
    void setTitle(const std::string& title) override {
      if (!view_) return;
      view_->setProperty("crumb", QString::fromStdString(title));
      QTimer::singleShot(0, view_, [view = view_] { view->refresh(); });
    }

   private:
    QPointer<CloudPickView> view_;
  };

  void refresh() {
    list_->clear();
    for (const DocumentBrowserModelObject& item : controller_->items()) {
      const QString name = QString::fromStdString(item._displayName);
      auto* row = new QListWidgetItem(
          style()->standardIcon(item._isDirectory ? QStyle::SP_DirIcon : QStyle::SP_FileIcon), name,
          list_);
      row->setData(Qt::UserRole, name);
      if (!item._subtitle.empty()) row->setToolTip(QString::fromStdString(item._subtitle));
    }
  }

  std::shared_ptr<ICloudDriveController> controller_;
  std::shared_ptr<Port> port_;
  QListWidget* list_;
};

}  // namespace

void registerCloudViews() {
  // The sharing screen's cloud row opens this screen.
  auto& services = ApplicationServices::shared();
  if (!services.iCloudDriveController)
    services.iCloudDriveController = [] { return std::make_shared<CloudDriveScreen>(); };
  // The browser's drive entries pick a file through the controller; the
  // sharing screen's row manages the drive.
  Screens::addScreen("ICloudDriveController",
                     [](std::shared_ptr<ViewController> screen, MainWindow& window) -> QWidget* {
                       if (auto pick = std::dynamic_pointer_cast<ICloudDriveController>(screen))
                         return new CloudPickView(std::move(pick), window);
                       return new CloudView(CloudProvider::shared());
                     });
  Screens::addShow("cloud", [](const std::string&, MainWindow&) -> QWidget* {
    return new CloudView(CloudProvider::shared());
  });
}

}  // namespace harbor::gui

#include "gui/ArchiveView.h"

#include <QApplication>
#include <QFileIconProvider>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QThread>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "browser/ViewArchiveController.h"
#include "filemanager/FileUtil.h"
#include "gui/MainWindow.h"
#include "gui/Screens.h"
#include "gui/StatusLine.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

// What the archive screen shows itself; the rest goes through the window.
class ArchiveView::Port : public WindowPort {
 public:
  Port(ArchiveView* view, MainWindow& window) : WindowPort(view, window), view_(view) {}

  void setTitle(const std::string& title) override {
    onView([title](ArchiveView& v) {
      v.setWindowTitle(qs(title));
      v.reload();
    });
  }
  void setBusy(bool busy) override {
    onView([busy](ArchiveView& v) {
      v.setBusy(busy);
      if (!busy) v.reload();
    });
  }
  void setStatus(const std::string& text) override {
    onView([text](ArchiveView& v) { v.status_->setText(qs(text)); });
  }
  void setProgress(double value) override {
    onView([value](ArchiveView& v) {
      v.progress_->setRange(0, 100);
      v.progress_->setValue(static_cast<int>(value * 100));
    });
  }
  void setToolbar(const std::vector<ToolbarItem>&) override {
    onView([](ArchiveView& v) { v.reload(); });
  }
  void pop() override { close(); }
  void close() override {
    onView([this](ArchiveView& v) {
      if (window()) window()->pop(&v);
    });
  }

 private:
  // Workers report from their own threads; the widgets live on the main one.
  template <class F>
  void onView(F f) {
    QPointer<ArchiveView> view = view_;
    if (!view) return;
    if (QThread::currentThread() == view->thread()) {
      f(*view);
    } else {
      QMetaObject::invokeMethod(
          view,
          [view, f] {
            if (view) f(*view);
          },
          Qt::QueuedConnection);
    }
  }
  QPointer<ArchiveView> view_;
};

ArchiveView::ArchiveView(std::shared_ptr<ViewArchiveController> controller, MainWindow& window,
                         QWidget* parent)
    : QWidget(parent), controller_(std::move(controller)) {
  setObjectName(QStringLiteral("archiveView"));
  // The archive reads as one more folder of the path.
  setProperty("crumb", MainWindow::crumbFor(FileUtil::documentDirectory() +
                                            controller_->fullRelativePath()));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* bar = new QWidget(this);
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(6, 4, 6, 4);
  edit_ = new QToolButton(bar);
  edit_->setObjectName(QStringLiteral("edit"));
  edit_->setText(loc("Edit"));
  edit_->setCheckable(true);
  extract_ = new QToolButton(bar);
  extract_->setObjectName(QStringLiteral("extract"));
  extract_->setText(loc("Extract"));
  auto* options = new QToolButton(bar);
  options->setObjectName(QStringLiteral("options"));
  options->setText(loc("Options"));
  barLayout->addWidget(edit_);
  barLayout->addStretch(1);
  barLayout->addWidget(extract_);
  barLayout->addWidget(options);
  layout->addWidget(bar);

  list_ = new QTreeWidget(this);
  list_->setObjectName(QStringLiteral("entries"));
  list_->setColumnCount(2);
  list_->setHeaderHidden(true);
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setSelectionMode(QAbstractItemView::NoSelection);
  list_->setContextMenuPolicy(Qt::CustomContextMenu);
  list_->header()->setStretchLastSection(false);
  list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  layout->addWidget(list_, 1);

  auto* foot = new StatusLine(this);
  status_ = foot->status;
  progress_ = foot->progress;
  cancel_ = foot->cancel;
  layout->addWidget(foot);

  connect(list_, &QTreeWidget::itemActivated, this,
          [this](QTreeWidgetItem* item) { activate(item->data(0, Qt::UserRole).toString()); });
  connect(list_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) {
    // In edit mode a click marks; outside it, opening takes a double click.
    if (controller_->isEditing()) activate(item->data(0, Qt::UserRole).toString());
  });
  connect(list_, &QTreeWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    if (QTreeWidgetItem* item = list_->itemAt(at)) hold(item->data(0, Qt::UserRole).toString());
  });
  connect(edit_, &QToolButton::toggled, this, [this](bool on) {
    controller_->setEditing(on);
    reload();
  });
  connect(extract_, &QToolButton::clicked, this, [this] {
    controller_->sheetChosen(ViewArchiveController::kTagArchiveOptions, "Extract");
  });
  connect(options, &QToolButton::clicked, this, [this] { controller_->openSheet(); });
  connect(cancel_, &QPushButton::clicked, this, [this] { controller_->cancelThread(); });

  port_ = std::make_shared<Port>(this, window);
  controller_->setPort(port_);
  controller_->viewDidLoad();
  reload();
}

ArchiveView::~ArchiveView() {
  controller_->cancelThread();
}

void ArchiveView::setBusy(bool busy) {
  progress_->setVisible(busy);
  cancel_->setVisible(busy);
  if (busy) progress_->setRange(0, 0);
  extract_->setEnabled(!busy);
}

void ArchiveView::reload() {
  setWindowTitle(qs(controller_->currentTitle()));
  if (edit_->isChecked() != controller_->isEditing()) {
    const QSignalBlocker block(edit_);
    edit_->setChecked(controller_->isEditing());
  }
  list_->clear();
  const auto& entry = controller_->entry();
  if (!entry) return;
  QFileIconProvider icons;
  const QString items = loc("items");
  for (const auto& child : entry->children()) {
    auto* item = new QTreeWidgetItem(list_);
    const QString name = qs(child->name());
    item->setData(0, Qt::UserRole, name);
    item->setText(0, name);
    const bool folder = !child->isLeaf();
    item->setIcon(0, icons.icon(folder ? QFileIconProvider::Folder : QFileIconProvider::File));
    QString detail = qs(child->filesizeString());
    const std::string date = child->modifiedString();
    if (!date.empty()) detail += QStringLiteral(" - ") + qs(date);
    if (folder) detail += QStringLiteral(" (%1 %2)").arg(child->totalNumber()).arg(items);
    item->setText(1, detail);
    item->setForeground(1, palette().brush(QPalette::PlaceholderText));
    if (controller_->isEditing()) {
      item->setCheckState(0, controller_->isRowMarked(child->path()) ? Qt::Checked : Qt::Unchecked);
    }
  }
}

void ArchiveView::activate(const QString& name) {
  controller_->tapRow(name.toStdString());
  reload();
}

void ArchiveView::hold(const QString& name) {
  controller_->holdRow(name.toStdString());
  reload();
}

QWidget* makeArchiveView(std::shared_ptr<ViewController> controller, MainWindow& window) {
  auto archive = std::dynamic_pointer_cast<ViewArchiveController>(screenOf(controller));
  if (!archive) return nullptr;
  return new ArchiveView(std::move(archive), window);
}

}  // namespace harbor::gui

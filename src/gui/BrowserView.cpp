#include "gui/BrowserView.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <filesystem>

#include "app/CommonApplication.h"
#include "browser/FileManagerController.h"
#include "browser/FileTransferController.h"
#include "filemanager/FileUtil.h"
#include "filemanager/USupportFile.h"
#include "gui/StatusLine.h"
#include "gui/Text.h"
#include "gui/ThumbnailCache.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"

namespace harbor::gui {

namespace {

constexpr const char* kLastFolderKey = "SystemDesktopLastFolder";
constexpr const char* kOwnRowsFormat = "application/x-harbor-browser-rows";
constexpr int kListIcon = 20;
constexpr int kGridIcon = 64;

// Paints a list row as icon, name and size, a section title as a band, and
// leaves icon mode to the style.
class BrowserDelegate : public QStyledItemDelegate {
 public:
  explicit BrowserDelegate(QListView* view) : QStyledItemDelegate(view), view_(view) {}

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    const int line = option.fontMetrics.height();
    const bool header = index.data(BrowserModel::HeaderRole).toBool();
    if (view_->viewMode() == QListView::ListMode) return {200, std::max(kListIcon, line) + 8};
    if (header)
      return {std::max(100, view_->viewport()->width() - 2 * view_->spacing() - 2), line + 10};
    return {kGridIcon + 48, kGridIcon + 2 * line + 16};
  }

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    const QPalette& pal = opt.palette;
    if (index.data(BrowserModel::HeaderRole).toBool()) {
      painter->save();
      painter->fillRect(opt.rect, pal.color(QPalette::AlternateBase));
      QFont bold = opt.font;
      bold.setBold(true);
      painter->setFont(bold);
      painter->setPen(pal.color(QPalette::Text));
      painter->drawText(opt.rect.adjusted(8, 0, -8, 0), Qt::AlignVCenter | Qt::AlignLeft, opt.text);
      painter->restore();
      return;
    }
    if (view_->viewMode() == QListView::IconMode) {
      QStyledItemDelegate::paint(painter, option, index);
      return;
    }
    QStyle* style = opt.widget ? opt.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, opt.widget);
    painter->save();
    const bool selected = opt.state & QStyle::State_Selected;
    const QRect r = opt.rect.adjusted(8, 0, -10, 0);
    const QRect iconRect(r.left(), r.top() + (r.height() - kListIcon) / 2, kListIcon, kListIcon);
    opt.icon.paint(painter, iconRect);
    QString size;
    if (!index.data(BrowserModel::FolderRole).toBool())
      size = QLocale().formattedDataSize(index.data(BrowserModel::SizeRole).toLongLong());
    const int sizeWidth = opt.fontMetrics.horizontalAdvance(size);
    QColor dim = pal.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
    painter->setPen(dim);
    painter->drawText(QRect(r.right() - sizeWidth, r.top(), sizeWidth, r.height()),
                      Qt::AlignVCenter | Qt::AlignRight, size);
    const int nameLeft = iconRect.right() + 8;
    const QRect nameRect(nameLeft, r.top(), r.right() - sizeWidth - 16 - nameLeft, r.height());
    painter->setPen(pal.color(selected ? QPalette::HighlightedText : QPalette::Text));
    painter->drawText(nameRect, Qt::AlignVCenter | Qt::AlignLeft,
                      opt.fontMetrics.elidedText(opt.text, Qt::ElideMiddle, nameRect.width()));
    painter->restore();
  }

 private:
  QListView* view_;
};

}  // namespace

// ---- the port -----------------------------------------------------------------------

// The browser's own port: what the controller shows goes to its view;
// questions and pushes go through the window.
class BrowserPort : public WindowPort {
 public:
  BrowserPort(BrowserView* view, MainWindow& window) : WindowPort(view, window), view_(view) {}

  void setTitle(const std::string& title) override {
    if (view_) view_->showTitle(qs(title));
  }
  void setBusy(bool busy) override {
    if (view_) view_->showBusy(busy);
  }
  void setStatus(const std::string& text) override {
    if (view_) view_->showStatus(qs(text));
  }
  void setProgress(double fraction) override {
    if (view_) view_->showProgress(fraction);
  }
  void setToolbar(const std::vector<ToolbarItem>& items) override {
    if (view_) view_->showToolbar(items);
  }
  void listingChanged() override {
    if (view_) view_->refresh();
  }
  void pop() override {
    MainWindow* w = window();
    if (w && w->depth() > 1) w->pop(w->top());
  }
  void close() override {
    if (view_) view_->leave();
  }
  void showAlert(const ScreenAlert& alert, AlertReply reply) override {
    WindowPort::showAlert(alert, std::move(reply));
    if (!view_) return;
    // A password field never shows what is typed.
    const QString secret = loc("Password");
    const QString name = QStringLiteral("alert%1").arg(alert.tag);
    for (QDialog* dialog : view_->window()->findChildren<QDialog*>(name)) {
      for (QLineEdit* edit : dialog->findChildren<QLineEdit*>()) {
        if (edit->placeholderText() == secret) edit->setEchoMode(QLineEdit::Password);
      }
    }
  }

 private:
  QPointer<BrowserView> view_;
};

// ---- the model ----------------------------------------------------------------------

BrowserModel::BrowserModel(ThumbnailCache& thumbnails, QObject* parent)
    : QAbstractListModel(parent), thumbnails_(thumbnails) {
  connect(&thumbnails_, &ThumbnailCache::ready, this, &BrowserModel::thumbnailReady);
}

void BrowserModel::reset(const std::vector<std::vector<std::string>>& sections,
                         const std::vector<std::string>* titles) {
  beginResetModel();
  entries_.clear();
  rowOf_.clear();
  std::size_t total = 0;
  for (const auto& section : sections) total += section.size() + 1;
  entries_.reserve(total);
  rowOf_.reserve(total);
  for (std::size_t s = 0; s < sections.size(); ++s) {
    if (titles && s < titles->size() && !(*titles)[s].empty() && !sections[s].empty()) {
      Entry header;
      header.header = true;
      header.name = qs((*titles)[s]);
      entries_.push_back(std::move(header));
    }
    for (const std::string& path : sections[s]) {
      Entry entry;
      entry.path = path;
      entry.name = qs(FileUtil::getFileName(path));
      rowOf_.emplace(path, static_cast<int>(entries_.size()));
      entries_.push_back(std::move(entry));
    }
  }
  endResetModel();
}

int BrowserModel::rowOfPath(const std::string& path) const {
  auto at = rowOf_.find(path);
  return at == rowOf_.end() ? -1 : at->second;
}

std::string BrowserModel::pathAt(int row) const {
  if (row < 0 || row >= static_cast<int>(entries_.size())) return {};
  return entries_[static_cast<std::size_t>(row)].path;
}

bool BrowserModel::isHeader(int row) const {
  return row >= 0 && row < static_cast<int>(entries_.size()) &&
         entries_[static_cast<std::size_t>(row)].header;
}

int BrowserModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(entries_.size());
}

void BrowserModel::readAttributes(const Entry& entry) const {
  if (entry.folder >= 0) return;
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::file_status status = fs::status(entry.path, ec);
  entry.folder = fs::is_directory(status) ? 1 : 0;
  entry.size = 0;
  if (!entry.folder) {
    const auto size = fs::file_size(entry.path, ec);
    entry.size = ec ? 0 : static_cast<qint64>(size);
  }
  entry.image = !entry.folder && USupportFile::imageExtension().count(
                                     USupportFile::lowerExtension(entry.path))
                    ? 1
                    : 0;
}

QVariant BrowserModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= static_cast<int>(entries_.size())) return {};
  const Entry& entry = entries_[static_cast<std::size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      return entry.name;
    case Qt::ToolTipRole:
      return entry.header ? QVariant() : QVariant(entry.name);
    case PathRole:
      return qs(entry.path);
    case HeaderRole:
      return entry.header;
    case FolderRole:
      if (entry.header) return false;
      readAttributes(entry);
      return entry.folder == 1;
    case SizeRole:
      if (entry.header) return 0;
      readAttributes(entry);
      return entry.size;
    case Qt::DecorationRole: {
      if (entry.header) return {};
      readAttributes(entry);
      QStyle* style = QApplication::style();
      if (entry.folder) return style->standardIcon(QStyle::SP_DirIcon);
      if (entry.image) {
        const int side = icons_ ? kGridIcon * 2 : kListIcon * 2;
        QImage picture = thumbnails_.thumbnail(qs(entry.path), QSize(side, side));
        if (!picture.isNull()) return QIcon(QPixmap::fromImage(picture));
      }
      return style->standardIcon(QStyle::SP_FileIcon);
    }
    default:
      return {};
  }
}

Qt::ItemFlags BrowserModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::ItemIsDropEnabled;
  if (isHeader(index.row())) return Qt::ItemIsEnabled;
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
}

QStringList BrowserModel::mimeTypes() const {
  return {QStringLiteral("text/uri-list")};
}

QMimeData* BrowserModel::mimeData(const QModelIndexList& indexes) const {
  QList<QUrl> urls;
  for (const QModelIndex& index : indexes) {
    if (index.isValid() && !isHeader(index.row()))
      urls << QUrl::fromLocalFile(qs(pathAt(index.row())));
  }
  auto* mime = new QMimeData;
  mime->setUrls(urls);
  // Our own rows dropped back on us are no import.
  mime->setData(QLatin1String(kOwnRowsFormat), QByteArray("1"));
  return mime;
}

bool BrowserModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int,
                                   const QModelIndex&) const {
  if (!data || !data->hasUrls() || data->hasFormat(QLatin1String(kOwnRowsFormat))) return false;
  for (const QUrl& url : data->urls()) {
    if (!url.isLocalFile()) return false;
  }
  return true;
}

bool BrowserModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                const QModelIndex& parent) {
  if (!canDropMimeData(data, action, row, column, parent)) return false;
  if (onDrop) onDrop(data->urls());
  return true;
}

void BrowserModel::thumbnailReady(const QString& path) {
  const int row = rowOfPath(path.toStdString());
  if (row < 0) return;
  const QModelIndex at = index(row);
  emit dataChanged(at, at, {Qt::DecorationRole});
}

// ---- the view -----------------------------------------------------------------------

BrowserView::BrowserView(std::shared_ptr<FileManagerBaseController> controller, MainWindow& window)
    : QWidget(&window), controller_(std::move(controller)), window_(&window) {
  setObjectName(QStringLiteral("browserView"));
  thumbnails_ = new ThumbnailCache(this);
  model_ = new BrowserModel(*thumbnails_, this);
  model_->onDrop = [this](const QList<QUrl>& urls) {
    // After the drag's own event ends: the import may ask or reload.
    QTimer::singleShot(0, this, [this, urls] { importFiles(urls); });
  };

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);

  auto* head = new QWidget(this);
  head->setObjectName(QStringLiteral("browserHead"));
  auto* headLayout = new QHBoxLayout(head);
  headLayout->setContentsMargins(10, 6, 8, 6);
  title_ = new QLabel(head);
  title_->setObjectName(QStringLiteral("browserTitle"));
  QFont titleFont = title_->font();
  titleFont.setBold(true);
  titleFont.setPointSizeF(titleFont.pointSizeF() * 1.15);
  title_->setFont(titleFont);
  title_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  search_ = new QLineEdit(head);
  search_->setObjectName(QStringLiteral("search"));
  search_->setPlaceholderText(loc("Search"));
  search_->setClearButtonEnabled(true);
  search_->setMinimumWidth(180);
  search_->setMaximumWidth(260);
  order_ = new QComboBox(head);
  order_->setObjectName(QStringLiteral("order"));
  for (const char* key : {"Name", "Date", "Type", "Size"}) order_->addItem(loc(key));
  edit_ = new QToolButton(head);
  edit_->setObjectName(QStringLiteral("edit"));
  edit_->setCheckable(true);
  edit_->setText(loc("Edit"));
  headLayout->addWidget(title_, 1);
  headLayout->addWidget(search_);
  headLayout->addWidget(order_);
  headLayout->addWidget(edit_);
  layout->addWidget(head);

  list_ = new QListView(this);
  list_->setObjectName(QStringLiteral("items"));
  list_->setModel(model_);
  list_->setItemDelegate(new BrowserDelegate(list_));
  list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  list_->setDragDropMode(QAbstractItemView::DragDrop);
  list_->setDefaultDropAction(Qt::CopyAction);
  list_->setDropIndicatorShown(false);
  list_->setContextMenuPolicy(Qt::CustomContextMenu);
  list_->setFrameShape(QFrame::NoFrame);
  list_->installEventFilter(this);
  layout->addWidget(list_, 1);

  toolbar_ = new QToolBar(this);
  toolbar_->setObjectName(QStringLiteral("browserToolbar"));
  toolbar_->setToolButtonStyle(Qt::ToolButtonTextOnly);
  layout->addWidget(toolbar_);

  auto* foot = new StatusLine(this);
  foot_ = foot;
  foot->setObjectName(QStringLiteral("browserStatusLine"));
  status_ = foot->status;
  progress_ = foot->progress;
  cancel_ = foot->cancel;
  layout->addWidget(foot);
  foot->hide();

  searchDelay_ = new QTimer(this);
  searchDelay_->setSingleShot(true);
  searchDelay_->setInterval(250);
  connect(search_, &QLineEdit::textChanged, searchDelay_, qOverload<>(&QTimer::start));
  connect(searchDelay_, &QTimer::timeout, this,
          [this] { controller_->searchChange(search_->text().trimmed().toStdString()); });
  connect(order_, &QComboBox::activated, this,
          [this](int index) { controller_->segmentAction(index); });
  connect(edit_, &QToolButton::toggled, this, [this](bool on) {
    if (syncing_ || on == controller_->isEditing()) return;
    controller_->setEditing(on);
    syncSelectionFromController();
  });
  connect(cancel_, &QPushButton::clicked, this, [this] { controller_->cancelThread(); });
  // After the click's last event: what opens may pop up a sheet, which the
  // release must not close.
  connect(list_, &QListView::doubleClicked, this, [this](const QModelIndex& index) {
    const int row = index.row();
    QTimer::singleShot(0, this, [this, row] { openRow(row); });
  });
  connect(list_, &QListView::customContextMenuRequested, this, &BrowserView::contextMenuAt);
  connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          &BrowserView::syncSelectionToController);
  auto* find = new QShortcut(QKeySequence::Find, this);
  connect(find, &QShortcut::activated, this, [this] {
    search_->setFocus();
    search_->selectAll();
  });

  setProperty("crumb", MainWindow::crumbFor(controller_->fullFolderPath()));
  port_ = std::make_shared<BrowserPort>(this, window);
  controller_->setPort(port_);
  search_->setVisible(controller_->isSupportSearch());
  controller_->viewDidLoad();
  showTitle(qs(controller_->currentTitle()));
  if (FileManagerController* f = full()) showToolbar(f->toolbar());
  refresh();
}

BrowserView::~BrowserView() {
  controller_->viewDidDisappear(false);
  // A worker still running keeps its controller; it must not talk to us.
  controller_->setPort(nullptr);
}

FileManagerController* BrowserView::full() const {
  return dynamic_cast<FileManagerController*>(controller_.get());
}

bool BrowserView::isIconMode() const {
  return list_->viewMode() == QListView::IconMode;
}

QStringList BrowserView::shownNames() const {
  QStringList names;
  for (int row = 0; row < model_->rowCount(); ++row) {
    if (!model_->isHeader(row)) names << model_->index(row).data().toString();
  }
  return names;
}

void BrowserView::applyMode() {
  FileManagerController* f = full();
  const bool icons = f && f->isSupportShowIcons() &&
                     controller_->filePresenter().showItemstype() == FilePresenter::kShowIcons;
  if (icons == isIconMode() && list_->property("modeSet").toBool()) return;
  list_->setProperty("modeSet", true);
  model_->setIconMode(icons);
  if (icons) {
    list_->setViewMode(QListView::IconMode);
    list_->setFlow(QListView::LeftToRight);
    list_->setWrapping(true);
    list_->setResizeMode(QListView::Adjust);
    list_->setIconSize(QSize(kGridIcon, kGridIcon));
    list_->setUniformItemSizes(false);
    list_->setSpacing(6);
    list_->setWordWrap(true);
    list_->setTextElideMode(Qt::ElideMiddle);
  } else {
    list_->setViewMode(QListView::ListMode);
    list_->setFlow(QListView::TopToBottom);
    list_->setWrapping(false);
    list_->setIconSize(QSize(kListIcon, kListIcon));
    // Every row, title rows too, is one height: the view lays out 20,000
    // rows without asking each.
    list_->setUniformItemSizes(true);
    list_->setSpacing(0);
  }
  // Items stay where the controller's order puts them.
  list_->setMovement(QListView::Static);
  // Both calls above turn dragging off; files still go out and come in.
  list_->setDragDropMode(QAbstractItemView::DragDrop);
  list_->setDragEnabled(true);
  list_->viewport()->setAcceptDrops(true);
}

void BrowserView::refresh() {
  FilePresenter& presenter = controller_->filePresenter();
  applyMode();
  // The keyboard's place survives a reload.
  const std::string current = model_->pathAt(list_->currentIndex().row());
  const auto& titles = presenter.collation();
  model_->reset(presenter.currentItems(), titles ? &*titles : nullptr);
  if (const int row = model_->rowOfPath(current); row >= 0)
    list_->selectionModel()->setCurrentIndex(model_->index(row), QItemSelectionModel::NoUpdate);
  {
    QSignalBlocker block(order_);
    order_->setCurrentIndex(presenter.displayType());
  }
  syncSelectionFromController();
  if (!controller_->scrollToValue.empty()) {
    const int row = model_->rowOfPath(controller_->scrollToValue);
    if (row >= 0) list_->scrollTo(model_->index(row));
  }
}

void BrowserView::showToolbar(const std::vector<ToolbarItem>& items) {
  toolbar_->clear();
  for (const ToolbarItem& item : items) {
    QAction* action = toolbar_->addAction(qs(localizedString(item.title)));
    action->setObjectName(qs(item.key));
    action->setEnabled(item.enabled);
    const std::string key = item.key;
    // Queued: the controller rebuilds this toolbar, action and all, from
    // inside what the action starts.
    connect(
        action, &QAction::triggered, this, [this, key] { toolbarTriggered(key); },
        Qt::QueuedConnection);
  }
  syncSelectionFromController();
}

void BrowserView::showStatus(const QString& text) {
  status_->setText(text);
  updateFoot();
}

// The status line takes room only while it has something to say.
void BrowserView::updateFoot() {
  foot_->setVisible(busy_ || !status_->text().isEmpty());
}

void BrowserView::showProgress(double fraction) {
  progress_->setRange(0, 1000);
  progress_->setValue(static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 1000));
}

void BrowserView::showBusy(bool busy) {
  busy_ = busy;
  progress_->setRange(0, 0);  // moving until a fraction comes
  progress_->setVisible(busy);
  cancel_->setVisible(busy);
  cancel_->setEnabled(busy);
  updateFoot();
}

void BrowserView::showTitle(const QString& title) {
  title_->setText(title);
}

void BrowserView::leave() {
  if (window_ && window_->depth() > 1) window_->pop(this);
}

void BrowserView::toolbarTriggered(const std::string& key) {
  FileManagerController* f = full();
  if (key == "ORDER_ITEM") return controller_->orderAction();
  if (key == "ALLSELECT_ITEM") return controller_->allSelectFile();
  if (!f) return;
  if (key == "ACTION_ITEM") return f->alertActionSheet();
  if (key == "ACTION_ITEM_NOEDIT") return f->alertActionSheetNoEdit();
  if (key == "ZIP_ITEM") {
    f->sheetChosen(FileManagerBaseController::kTagSheet, "Zip");
    return;
  }
  if (key == "DELETE_ITEM") return f->deleteFileActionSheet();
  if (key == "PASTE_ITEM") {
    if (auto* chooser = dynamic_cast<FileTransferController*>(f)) return chooser->saveCategory();
    return f->pasteFile();
  }
  if (key == "DONE_ITEM") {
    if (auto* picker = dynamic_cast<PickFileBaseDirectory*>(f)) picker->saveCategory();
    return;
  }
  if (key == "ADDFILE_ITEM") {
    // A folder or a new file, as the two creation titles say.
    QMenu menu(this);
    menu.setObjectName(QStringLiteral("addMenu"));
    QAction* folder = menu.addAction(loc("CreateFolder"));
    QAction* file = menu.addAction(loc("CreateFile"));
    QPointer<BrowserView> self(this);
    QAction* chosen = menu.exec(QCursor::pos());
    if (!self) return;
    if (chosen == folder) f->alertCreateFolder();
    if (chosen == file) f->alertAddFile();
  }
}

void BrowserView::syncSelectionToController() {
  if (syncing_) return;
  QModelIndexList picked = list_->selectionModel()->selectedIndexes();
  std::sort(picked.begin(), picked.end(),
            [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
  std::vector<std::string> paths;
  paths.reserve(static_cast<std::size_t>(picked.size()));
  for (const QModelIndex& index : picked) {
    if (!model_->isHeader(index.row())) paths.push_back(model_->pathAt(index.row()));
  }
  controller_->selectedRows() = std::move(paths);
  // More than one item is edit mode; the controller's toolbar follows.
  if (controller_->selectedRows().size() > 1 || controller_->isEditing())
    controller_->setEditing(true);
  QSignalBlocker block(edit_);
  edit_->setChecked(controller_->isEditing());
  edit_->setText(controller_->isEditing() ? loc("Done") : loc("Edit"));
}

void BrowserView::syncSelectionFromController() {
  syncing_ = true;
  QItemSelection selection;
  for (const std::string& path : controller_->selectedRows()) {
    const int row = model_->rowOfPath(path);
    if (row >= 0) selection.select(model_->index(row), model_->index(row));
  }
  list_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
  syncing_ = false;
  QSignalBlocker block(edit_);
  edit_->setChecked(controller_->isEditing());
  edit_->setText(controller_->isEditing() ? loc("Done") : loc("Edit"));
}

void BrowserView::openRow(int row) {
  const std::string path = model_->pathAt(row);
  if (path.empty()) return;
  if (controller_->isEditing()) controller_->setEditing(false);
  controller_->selectedCell(path);
}

void BrowserView::goUp() {
  if (window_ && window_->depth() > 1 && window_->top() == this && !property("isRoot").toBool())
    window_->pop(this);
}

void BrowserView::contextMenuAt(const QPoint& pos) {
  const QModelIndex index = list_->indexAt(pos);
  if (index.isValid() && !model_->isHeader(index.row())) {
    controller_->holdItem(model_->pathAt(index.row()));
  } else {
    if (!controller_->isEditing()) controller_->clearSelection();
    controller_->openSheet();
  }
  syncSelectionFromController();
}

bool BrowserView::handleKey(QKeyEvent* event) {
  const auto mods =
      event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
  const int key = event->key();
  FileManagerController* f = full();
  const bool anySelected = !controller_->selectedRows().empty();
  auto sheetEntry = [&](const char* entry) {
    if (f && anySelected) f->sheetChosen(FileManagerBaseController::kTagSheet, entry);
  };
  auto toolbarAction = [&](const char* name) -> QAction* {
    for (QAction* action : toolbar_->actions()) {
      if (action->objectName() == QLatin1String(name) && action->isEnabled()) return action;
    }
    return nullptr;
  };
  if ((key == Qt::Key_Return || key == Qt::Key_Enter) && mods == Qt::NoModifier) {
    const QModelIndex current = list_->currentIndex();
    if (current.isValid()) openRow(current.row());
    return true;
  }
  if (key == Qt::Key_Delete && mods == Qt::NoModifier) {
    if (!anySelected) return true;
    if (toolbarAction("DELETE_ITEM")) {
      toolbarTriggered("DELETE_ITEM");
    } else {
      sheetEntry("Delete");
    }
    return true;
  }
  if (key == Qt::Key_F2 && mods == Qt::NoModifier) {
    sheetEntry("Rename");
    return true;
  }
  if ((key == Qt::Key_Backspace && mods == Qt::NoModifier) ||
      (key == Qt::Key_Up && mods == Qt::AltModifier)) {
    goUp();
    return true;
  }
  if (key == Qt::Key_Escape && mods == Qt::NoModifier && controller_->isEditing()) {
    controller_->setEditing(false);
    syncSelectionFromController();
    return true;
  }
  if (mods == Qt::ControlModifier) {
    switch (key) {
      case Qt::Key_C:
        sheetEntry("Copy");
        return true;
      case Qt::Key_X:
        sheetEntry("Cut");
        return true;
      case Qt::Key_V:
        if (toolbarAction("PASTE_ITEM")) toolbarTriggered("PASTE_ITEM");
        return true;
      case Qt::Key_A:
        controller_->allSelectFile();
        syncSelectionFromController();
        return true;
      default:
        break;
    }
  }
  return false;
}

bool BrowserView::eventFilter(QObject* watched, QEvent* event) {
  if (watched == list_ && event->type() == QEvent::KeyPress &&
      handleKey(static_cast<QKeyEvent*>(event)))
    return true;
  return QWidget::eventFilter(watched, event);
}

void BrowserView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  controller_->viewWillAppear();
  if (property("remembers").toBool()) {
    const std::string folder = controller_->fullFolderPath();
    const std::string root = FileUtil::documentDirectory();
    if (isPathAtOrBelow(folder, root))
      UserDefaults::standard().setObject(kLastFolderKey, FileUtil::getDocumentRelativePath(folder));
  }
  list_->setFocus();
}

void BrowserView::importFiles(const QList<QUrl>& urls) {
  CommonApplication* app = CommonApplication::sharedAppDelegate();
  if (!app) return;
  for (const QUrl& url : urls) {
    if (url.isLocalFile()) app->copyImportFile(url.toLocalFile().toStdString());
  }
  NotificationCenter::defaultCenter().post(notifications::HBFileDirectoryChangeToParentNotification,
                                           std::string());
  controller_->reloadData();
}

void BrowserView::restoreLastFolder(const std::string& saved) {
  if (saved.empty() || saved == "/") return;
  BrowserView* here = this;
  const QStringList parts = qs(saved).split(QLatin1Char('/'), Qt::SkipEmptyParts);
  for (const QString& part : parts) {
    const std::string path = here->controller().pathOfRow(part.toStdString());
    // Only folders, and through the tap, so a locked one asks first.
    if (path.empty() || !FileUtil::isDirectoryFilePath(path)) return;
    here->controller().tapRow(part.toStdString());
    auto* next = window_ ? qobject_cast<BrowserView*>(window_->top()) : nullptr;
    if (!next || next == here) return;
    here = next;
  }
}

// ---- registration -------------------------------------------------------------------

void registerBrowserViews() {
  auto make = [](bool remembers) {
    return [remembers](std::shared_ptr<ViewController> screen, MainWindow& window) -> QWidget* {
      auto browser = std::dynamic_pointer_cast<FileManagerBaseController>(screenOf(screen));
      if (!browser) return nullptr;
      const bool firstRoot = remembers && window.depth() == 0 && browser->isRoot();
      auto* view = new BrowserView(browser, window);
      view->setProperty("remembers", remembers);
      // The folder of the last run comes back once, on a fresh window.
      // Read now: the root's own showing records the root before the walk.
      if (firstRoot) {
        const std::string saved = UserDefaults::standard().stringForKey(kLastFolderKey);
        QTimer::singleShot(0, view, [view, saved] { view->restoreLastFolder(saved); });
      }
      return view;
    };
  };
  for (const char* name : {"HarborFileManagerController", "FileManagerController"})
    Screens::addScreen(name, make(true));
  for (const char* name :
       {"FileManagerBaseController", "FileTransferController", "PickDirectoryController",
        "PickFileOnlyController", "PickFileAndDirectoryController"})
    Screens::addScreen(name, make(false));
}

}  // namespace harbor::gui

#include "gui/FindInFilesView.h"

#include <QApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "editor/EditorBak.h"
#include "editor/EditorBaseController.h"
#include "editor/FindTextBase.h"
#include "filemanager/FileUtil.h"
#include "gui/CustomSyntaxViews.h"
#include "gui/EditorView.h"
#include "gui/MainWindow.h"
#include "gui/Screens.h"
#include "gui/Text.h"
#include "platform/Log.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {
namespace fs = std::filesystem;

enum Role {
  PathRole = Qt::UserRole,
  TagRole,
  LocationRole,
  LengthRole,
  MarkFromRole,  // the hit inside the shown line
  MarkLengthRole,
};

std::u16string fromQString(const QString& s) {
  return std::u16string(reinterpret_cast<const char16_t*>(s.utf16()),
                        static_cast<std::size_t>(s.size()));
}

QColor qcolor(const Color& c) {
  return QColor(c.red, c.green, c.blue);
}

// The line of a hit as a row shows it: one line, no indentation, the hit
// marked as the search item says.
class HitDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    const QVariant from = index.data(MarkFromRole);
    if (index.column() != 1 || !from.isValid()) {
      QStyledItemDelegate::paint(painter, option, index);
      return;
    }
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QString text = opt.text;
    opt.text.clear();
    QStyle* style = opt.widget ? opt.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);

    const int start = std::clamp(from.toInt(), 0, static_cast<int>(text.size()));
    const int length =
        std::clamp(index.data(MarkLengthRole).toInt(), 0, static_cast<int>(text.size()) - start);
    const QRect area = opt.rect.adjusted(4, 0, -4, 0);
    const QFontMetrics metrics(opt.font);
    const bool selected = opt.state & QStyle::State_Selected;
    const QColor ink = opt.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    painter->save();
    painter->setClipRect(area);
    painter->setFont(opt.font);
    int x = area.left();
    auto run = [&](const QString& part, bool mark) {
      const int width = metrics.horizontalAdvance(part);
      const QRect box(x, area.top(), width, area.height());
      if (mark) {
        FindTextItem marked;
        const FindTextHighlight look = marked.attributedString();
        painter->fillRect(box.adjusted(0, 2, 0, -2), qcolor(look.backgroundColor));
        QFont font = opt.font;
        font.setUnderline(look.underline);
        painter->setFont(font);
        painter->setPen(qcolor(look.foregroundColor));
      } else {
        painter->setFont(opt.font);
        painter->setPen(ink);
      }
      painter->drawText(box, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine, part);
      x += width;
    };
    run(text.left(start), false);
    run(text.mid(start, length), true);
    run(text.mid(start + length), false);
    painter->restore();
  }
};

// A file search that tells the view about each file as it is done.
class ReportingSearch : public FileTextInProject {
 public:
  std::function<void(std::vector<FindTextItem>, std::int64_t)> onFile;
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override {
    if (onFile) onFile(items, tag);
    FileTextInProject::onFinished(std::move(items), tag, error);
  }
};

}  // namespace

struct FindInFilesView::Search {
  std::shared_ptr<FindTextOptions> options;
  std::string folder;
  std::atomic<bool> cancelled{false};
  std::mutex mutex;
  std::shared_ptr<FileTextInProject> finder;
};

FindInFilesView::FindInFilesView(const std::string& folder, MainWindow& window, QWidget* parent)
    : QWidget(parent), folder_(folder), window_(window) {
  setObjectName(QStringLiteral("findInFilesView"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(10, 10, 10, 10);
  layout->setSpacing(8);

  auto* row = new QHBoxLayout;
  pattern_ = new QLineEdit(this);
  pattern_->setObjectName(QStringLiteral("findInFilesField"));
  pattern_->setPlaceholderText(loc("Find in files"));
  pattern_->setClearButtonEnabled(true);
  find_ = new QPushButton(loc("Find"), this);
  find_->setObjectName(QStringLiteral("findInFilesStart"));
  find_->setDefault(true);
  cancel_ = new QPushButton(loc("Cancel"), this);
  cancel_->setObjectName(QStringLiteral("findInFilesCancel"));
  row->addWidget(pattern_, 1);
  row->addWidget(find_);
  row->addWidget(cancel_);
  layout->addLayout(row);

  auto* options = new QHBoxLayout;
  options->setSpacing(14);
  auto box = [this](const char* name, const char* key) {
    auto* b = new QCheckBox(loc(key), this);
    b->setObjectName(QLatin1String(name));
    return b;
  };
  case_ = box("findInFilesCase", "Match case");
  word_ = box("findInFilesWord", "Whole words");
  regex_ = box("findInFilesRegex", "Regular expression");
  for (QCheckBox* b : {case_, word_, regex_}) options->addWidget(b);
  options->addStretch(1);
  auto* where = new QLabel(this);
  where->setObjectName(QStringLiteral("findInFilesFolder"));
  const std::string shown = FileUtil::getDocumentRelativePath(folder_);
  where->setText(QString::fromStdString(shown.empty() || shown == "/" ? folder_ : shown));
  where->setToolTip(QString::fromStdString(folder_));
  where->setTextInteractionFlags(Qt::TextSelectableByMouse);
  options->addWidget(where);
  layout->addLayout(options);

  auto* statusRow = new QHBoxLayout;
  progress_ = new QProgressBar(this);
  progress_->setObjectName(QStringLiteral("findInFilesProgress"));
  progress_->setTextVisible(false);
  progress_->setMaximumHeight(8);
  status_ = new QLabel(this);
  status_->setObjectName(QStringLiteral("findInFilesStatus"));
  statusRow->addWidget(status_, 1);
  statusRow->addWidget(progress_, 1);
  layout->addLayout(statusRow);

  tree_ = new QTreeWidget(this);
  tree_->setObjectName(QStringLiteral("findInFilesResults"));
  tree_->setColumnCount(2);
  tree_->setHeaderLabels({loc("Name"), loc("Text")});
  tree_->setUniformRowHeights(true);
  tree_->setAlternatingRowColors(true);
  tree_->setItemDelegate(new HitDelegate(tree_));
  tree_->header()->setStretchLastSection(true);
  tree_->setColumnWidth(0, 320);
  layout->addWidget(tree_, 1);

  connect(find_, &QPushButton::clicked, this, &FindInFilesView::start);
  connect(pattern_, &QLineEdit::returnPressed, this, &FindInFilesView::start);
  connect(cancel_, &QPushButton::clicked, this, &FindInFilesView::cancel);
  connect(tree_, &QTreeWidget::itemActivated, this,
          [this](QTreeWidgetItem* item) { activate(item); });
  setRunning(false);
}

FindInFilesView::~FindInFilesView() {
  cancel();
  if (worker_.joinable()) worker_.join();
}

void FindInFilesView::setRunning(bool running) {
  running_ = running;
  find_->setEnabled(!running);
  cancel_->setEnabled(running);
  progress_->setVisible(running);
}

void FindInFilesView::start() {
  if (running_ || pattern_->text().isEmpty()) return;
  if (worker_.joinable()) worker_.join();
  auto options = FindTextOptions::instanceWithString(fromQString(pattern_->text()));
  // The options read this flag as "ignore case".
  options->_isCaseSensitive = !case_->isChecked();
  options->_isMatchWord = word_->isChecked();
  options->_isRegex = regex_->isChecked();
  options->_isAutoEncoding = true;
  tree_->clear();
  if (options->_isRegex) {
    // A bad pattern is said once, not once per file.
    Error error;
    FindTextOptions probe = *options;
    FindTextInString::findTextWithRegex(u" ", probe, &error);
    if (!error.message.empty()) {
      status_->setText(QString::fromStdString(error.message));
      return;
    }
  }
  status_->setText(loc("Searching"));
  progress_->setRange(0, 0);
  setRunning(true);
  search_ = std::make_shared<Search>();
  search_->options = std::move(options);
  search_->folder = folder_;
  worker_ = std::thread([this, search = search_] { run(search); });
}

void FindInFilesView::cancel() {
  if (!search_) return;
  search_->cancelled = true;
  std::lock_guard lock(search_->mutex);
  if (search_->finder) search_->finder->cancel();
}

// On the worker thread: touches no widget, only posts to the view.
void FindInFilesView::run(std::shared_ptr<Search> search) {
  std::vector<std::string> files;
  std::error_code ec;
  const fs::path skip = EditorBak::bakDirectory(false);
  // The editor's backups would repeat every hit of the files they copy.
  for (fs::recursive_directory_iterator
           it(search->folder, fs::directory_options::skip_permission_denied, ec),
       end;
       !ec && it != end && !search->cancelled; it.increment(ec)) {
    if (it->is_directory(ec) && it->path() == skip) {
      it.disable_recursion_pending();
      continue;
    }
    if (it->is_regular_file(ec) && !it->is_symlink(ec)) files.push_back(it->path().string());
  }
  if (ec) HB_LOG("FindInFilesView", "run cannot list " + search->folder + ": " + ec.message());
  std::sort(files.begin(), files.end());

  const std::size_t total = files.size();
  QMetaObject::invokeMethod(
      this, [this, total] { fileDone(0, total); }, Qt::QueuedConnection);
  auto finder = FileTextInProject::instanceWithFiles<ReportingSearch>(files, search->options);
  auto done = std::make_shared<std::atomic<std::size_t>>(0);
  finder->onFile = [this, files, total, done](std::vector<FindTextItem> items, std::int64_t tag) {
    const std::size_t count = ++*done;
    const std::string path =
        tag >= 0 && static_cast<std::size_t>(tag) < files.size() ? files[tag] : std::string();
    QMetaObject::invokeMethod(
        this,
        [this, tag, path, items = std::move(items), count, total]() mutable {
          if (!items.empty()) addHits(tag, path, std::move(items));
          fileDone(count, total);
        },
        Qt::QueuedConnection);
  };
  {
    std::lock_guard lock(search->mutex);
    search->finder = finder;
    if (search->cancelled) finder->cancel();
  }
  finder->execute();
  const bool cancelled = search->cancelled;
  const std::uint64_t hits = finder->findResultNumber;
  const std::size_t withHits = finder->_resultsObjects.size();
  const std::string error = finder->_error.message;
  {
    std::lock_guard lock(search->mutex);
    search->finder.reset();
  }
  QMetaObject::invokeMethod(
      this,
      [this, cancelled, hits, withHits, error] { searchEnded(cancelled, hits, withHits, error); },
      Qt::QueuedConnection);
}

void FindInFilesView::addHits(std::int64_t tag, const std::string& path,
                              std::vector<FindTextItem> items) {
  if (!running_) return;  // a late answer of a cancelled search
  auto* file = new QTreeWidgetItem;
  const std::string relative = FileUtil::getDocumentRelativePath(path);
  std::error_code ec;
  const std::string below = fs::path(path).lexically_relative(folder_).generic_string();
  file->setText(
      0, QString::fromStdString(below.empty() || below.starts_with("..") ? relative : below));
  file->setToolTip(0, QString::fromStdString(path));
  file->setText(1, QString::number(items.size()));
  file->setData(0, PathRole, QString::fromStdString(path));
  file->setData(0, TagRole, static_cast<qlonglong>(tag));
  QFont bold = file->font(0);
  bold.setBold(true);
  file->setFont(0, bold);
  for (const FindTextItem& item : items) {
    auto* hit = new QTreeWidgetItem(file);
    hit->setText(0, item._lineNumber ? QString::number(item._lineNumber) : QString());
    hit->setTextAlignment(0, Qt::AlignRight | Qt::AlignVCenter);
    QString line = QString::fromUtf16(item._showedText.view().data(),
                                      static_cast<qsizetype>(item._showedText.size()));
    const TextRange mark = item.rangeInShowRange();
    int from = static_cast<int>(mark.location);
    // Indentation and the line end say nothing in a list; the mark moves with
    // what is cut in front of it.
    int lead = 0;
    while (lead < line.size() && lead < from && line.at(lead).isSpace()) ++lead;
    line.remove(0, lead);
    from -= lead;
    while (!line.isEmpty() && (line.back() == u'\n' || line.back() == u'\r')) line.chop(1);
    line.replace(QChar(u'\t'), QChar(u' '));
    hit->setText(1, line);
    hit->setToolTip(1, line);
    hit->setData(0, PathRole, QString::fromStdString(path));
    hit->setData(0, LocationRole, static_cast<qulonglong>(item._range.location));
    hit->setData(0, LengthRole, static_cast<qulonglong>(item._range.length));
    hit->setData(1, MarkFromRole, from);
    hit->setData(1, MarkLengthRole, static_cast<int>(mark.length));
  }
  // Files stay in name order whatever order the workers finish in.
  int at = 0;
  while (at < tree_->topLevelItemCount() &&
         tree_->topLevelItem(at)->data(0, TagRole).toLongLong() < tag) {
    ++at;
  }
  tree_->insertTopLevelItem(at, file);
  file->setExpanded(true);
}

void FindInFilesView::fileDone(std::size_t done, std::size_t total) {
  if (!running_) return;
  progress_->setRange(0, static_cast<int>(std::max<std::size_t>(total, 1)));
  progress_->setValue(static_cast<int>(done));
  status_->setText(loc("Searching") + QStringLiteral(" %1 / %2").arg(done).arg(total));
}

void FindInFilesView::searchEnded(bool cancelled, std::uint64_t hits, std::size_t files,
                                  std::string error) {
  setRunning(false);
  QString text;
  if (cancelled) {
    text = loc("UserCancelAction");
  } else if (hits == 0) {
    text = loc("No results");
  } else {
    text = QStringLiteral("%1 %2, %3 %4")
               .arg(hits)
               .arg(loc(hits == 1 ? "result" : "results"))
               .arg(files)
               .arg(loc(files == 1 ? "file" : "files"));
  }
  if (!error.empty()) text += QStringLiteral(" \u2014 ") + QString::fromStdString(error);
  status_->setText(text);
  emit finished();
}

void FindInFilesView::activate(QTreeWidgetItem* item) {
  if (!item) return;
  const std::string path = item->data(0, PathRole).toString().toStdString();
  if (path.empty()) return;
  const QVariant location = item->data(0, LocationRole);
  if (!location.isValid()) {
    // A file row opens the file at its first hit.
    if (item->childCount() > 0) return activate(item->child(0));
    window_.openEditor(path);
    return;
  }
  openAt(window_, path,
         TextRange{static_cast<std::size_t>(location.toULongLong()),
                   static_cast<std::size_t>(item->data(0, LengthRole).toULongLong())});
}

EditorView* FindInFilesView::openAt(MainWindow& window, const std::string& path, TextRange range) {
  EditorView* editor = window.openEditor(path);
  if (!editor) return nullptr;
  auto jump = [editor, range] {
    // The controller clamps the range to the text it loaded.
    editor->controller().setSelectedRange(range);
    editor->sync();
    editor->scrollToOffset(editor->controller().selection().location);
  };
  if (!editor->controller().isLoading()) {
    jump();
  } else {
    // After the load has put the saved position, so the hit wins.
    auto once = std::make_shared<QMetaObject::Connection>();
    *once =
        QObject::connect(editor, &EditorView::busyChanged, editor, [editor, jump, once](bool busy) {
          if (busy) return;
          QObject::disconnect(*once);
          QTimer::singleShot(0, editor, jump);
        });
  }
  return editor;
}

void registerFindViews() {
  // The syntax screens belong to the same slice of the editor's tools.
  registerCustomSyntaxViews();
  Screens::addShow("find-in-files", [](const std::string& path, MainWindow& window) -> QWidget* {
    std::error_code ec;
    std::string folder = path.empty() ? FileUtil::documentDirectory() : path;
    if (!fs::is_directory(folder, ec)) folder = fs::path(folder).parent_path().string();
    auto* view = new FindInFilesView(fs::absolute(folder, ec).string(), window);
    view->setProperty("crumb", loc("Find in files"));
    QTimer::singleShot(0, view->patternField(), [view] { view->patternField()->setFocus(); });
    return view;
  });
}

}  // namespace harbor::gui

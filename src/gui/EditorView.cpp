#include "gui/EditorView.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QScrollBar>
#include <QStyle>
#include <QTextBlock>
#include <QTextLayout>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "gui/EncodingPicker.h"
#include "gui/FindBar.h"
#include "gui/MainWindow.h"
#include "gui/Text.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {

// Storage text to document text, unit for unit.
QString toDocumentText(std::u16string_view text) {
  QString s = QString::fromUtf16(text.data(), static_cast<qsizetype>(text.size()));
  // The document would take a carriage return for a paragraph end and join
  // "\r\n" into one; a zero-width space keeps every offset in place.
  s.replace(QChar(u'\r'), QChar(0x200B));
  return s;
}

std::u16string fromQString(const QString& s) {
  return std::u16string(reinterpret_cast<const char16_t*>(s.utf16()),
                        static_cast<std::size_t>(s.size()));
}

class Gutter : public QWidget {
 public:
  explicit Gutter(CodeEditor* editor) : QWidget(editor), editor_(editor) {}
  QSize sizeHint() const override { return QSize(editor_->gutterWidth(), 0); }

 protected:
  void paintEvent(QPaintEvent* event) override { editor_->paintGutter(event, this); }

 private:
  CodeEditor* editor_;
};

}  // namespace

// ---- CodeEditor ---------------------------------------------------------------------

CodeEditor::CodeEditor(EditorView& owner) : QPlainTextEdit(&owner), owner_(owner) {
  setObjectName(QStringLiteral("codeEditor"));
  gutter_ = new Gutter(this);
  // The controller keeps the journal; the widget keeps none.
  setUndoRedoEnabled(false);
  setLineWrapMode(QPlainTextEdit::NoWrap);
  setAcceptDrops(false);
  setTabChangesFocus(false);
  connect(this, &QPlainTextEdit::blockCountChanged, this,
          [this] { setViewportMargins(gutterWidth(), 0, 0, 0); });
  connect(this, &QPlainTextEdit::updateRequest, this, [this](const QRect& rect, int dy) {
    if (dy) {
      gutter_->scroll(0, dy);
    } else {
      gutter_->update(0, rect.y(), gutter_->width(), rect.height());
    }
  });
  setViewportMargins(gutterWidth(), 0, 0, 0);
}

int CodeEditor::gutterWidth() const {
  int digits = 1;
  for (int n = std::max(1, blockCount()); n >= 10; n /= 10) ++digits;
  digits = std::max(digits, 2);
  return 14 + fontMetrics().horizontalAdvance(QLatin1Char('9')) * digits;
}

void CodeEditor::caretMoved() {
  // Only the band's old and new paragraphs need painting again.
  const QTextBlock now = textCursor().block();
  for (const QTextBlock& b : {document()->findBlockByNumber(bandBlock_), now}) {
    if (!b.isValid()) continue;
    const QRectF r = blockBoundingGeometry(b).translated(contentOffset());
    viewport()->update(QRect(0, static_cast<int>(r.top()) - 1, viewport()->width(),
                             static_cast<int>(r.height()) + 2));
  }
  bandBlock_ = now.blockNumber();
}

void CodeEditor::resizeEvent(QResizeEvent* event) {
  QPlainTextEdit::resizeEvent(event);
  owner_.restyleVisibleBacklog();
  const QRect cr = contentsRect();
  gutter_->setGeometry(QRect(cr.left(), cr.top(), gutterWidth(), cr.height()));
  owner_.reportVisibleRange();
}

void CodeEditor::paintEvent(QPaintEvent* event) {
  // The caret's paragraph gets a faint band, as the gutter marks it.
  QPainter painter(viewport());
  QTextBlock block = textCursor().block();
  if (block.isValid() && !textCursor().hasSelection()) {
    QRectF r = blockBoundingGeometry(block).translated(contentOffset());
    painter.fillRect(QRectF(0, r.top(), viewport()->width(), r.height()),
                     owner_.colors_.currentLine);
  }
  painter.end();
  QPlainTextEdit::paintEvent(event);
}

void CodeEditor::paintGutter(QPaintEvent* event, QWidget* gutter) {
  QPainter painter(gutter);
  const EditorColors& colors = owner_.colors_;
  painter.fillRect(event->rect(), colors.gutterBackground);
  painter.setPen(colors.gutterLine);
  painter.drawLine(gutter->width() - 1, event->rect().top(), gutter->width() - 1,
                   event->rect().bottom());
  QFont font = this->font();
  font.setPixelSize(std::max(9, font.pixelSize() * 3 / 4));
  painter.setFont(font);
  const int caretBlock = textCursor().blockNumber();
  QTextBlock block = firstVisibleBlock();
  qreal top = blockBoundingGeometry(block).translated(contentOffset()).top();
  while (block.isValid() && top <= event->rect().bottom()) {
    const qreal height = blockBoundingRect(block).height();
    if (block.isVisible() && top + height >= event->rect().top()) {
      if (block.blockNumber() == caretBlock) {
        painter.fillRect(QRectF(0, top, gutter->width() - 1, height), colors.gutterSelected);
      }
      const std::string number =
          owner_.controller().lineNumberText(static_cast<std::size_t>(block.position()));
      painter.setPen(colors.gutterText);
      painter.drawText(QRectF(0, top, gutter->width() - 6, height),
                       Qt::AlignRight | Qt::AlignVCenter, qs(number));
    }
    top += height;
    block = block.next();
  }
}

QTextCharFormat CodeEditor::formatAt(int offset) const {
  QTextBlock block = document()->findBlock(offset);
  QTextCharFormat result = block.charFormat();
  if (!block.isValid() || !block.layout()) return result;
  const int inBlock = offset - block.position();
  for (const QTextLayout::FormatRange& r : block.layout()->formats()) {
    if (inBlock >= r.start && inBlock < r.start + r.length) result.merge(r.format);
  }
  return result;
}

void CodeEditor::keyPressEvent(QKeyEvent* event) {
  EditorBaseController& c = owner_.controller();
  const auto mods = event->modifiers() &
                    (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier);
  const bool ctrl = mods & Qt::ControlModifier;
  const bool listShows = !c.suggestItems().empty();
  auto done = [&] {
    event->accept();
    owner_.sync();
  };

  if (event->matches(QKeySequence::Save)) {
    owner_.saveInPlace();
    return done();
  }
  if (event->matches(QKeySequence::Redo) ||
      (ctrl && (mods & Qt::ShiftModifier) && event->key() == Qt::Key_Z)) {
    if (c.isEditable()) c.redoAction();
    return done();
  }
  if (event->matches(QKeySequence::Undo)) {
    if (c.isEditable()) c.undoAction();
    return done();
  }
  if (listShows && !mods) {
    // The suggestion list takes the moves of its keys while it shows.
    const EditCommonButton none;
    switch (event->key()) {
      case Qt::Key_Down:
        c.performAction("forwardCursor:", none);
        return done();
      case Qt::Key_Up:
        c.performAction("rewindCursor:", none);
        return done();
      case Qt::Key_PageDown:
      case Qt::Key_End:
        c.performAction("forwardWordCursor:", none);
        return done();
      case Qt::Key_PageUp:
      case Qt::Key_Home:
        c.performAction("rewindWordCursor:", none);
        return done();
      case Qt::Key_Escape:
        c.setSelectedRange(c.selection());
        return done();
      default:
        break;
    }
  }
  if (event->matches(QKeySequence::Paste)) {
    insertFromMimeData(QApplication::clipboard()->mimeData());
    return done();
  }
  if (event->matches(QKeySequence::Cut)) {
    if (c.isEditable() && c.selection().length > 0) {
      copy();
      c.changeText(c.selection(), u"");
    }
    return done();
  }
  if (event->matches(QKeySequence::Copy) || event->matches(QKeySequence::SelectAll)) {
    return QPlainTextEdit::keyPressEvent(event);
  }
  if (!c.isEditable()) {
    // Reading: moving and selecting only.
    if (event->text().isEmpty() || ctrl || event->key() == Qt::Key_Escape) {
      QPlainTextEdit::keyPressEvent(event);
    }
    return;
  }
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
      c.changeText(c.selection(), u"\n");
      return done();
    case Qt::Key_Backspace:
      if (!ctrl) {
        c.deleteBackward();
        return done();
      }
      break;
    case Qt::Key_Delete: {
      TextRange r = c.selection();
      if (r.length == 0) {
        if (r.location >= c.text().size()) return done();
        const bool pair =
            (c.text()[r.location] & 0xFC00) == 0xD800 && r.location + 1 < c.text().size();
        r.length = pair ? 2 : 1;
      }
      c.changeText(r, u"");
      return done();
    }
    case Qt::Key_Tab:
      c.insertText(u"\t");
      return done();
    default:
      break;
  }
  // Deleting by word or to the line's end: the span is measured on the
  // document, the edit goes through the controller like any other.
  const struct {
    QKeySequence::StandardKey key;
    QTextCursor::MoveOperation move;
  } deletions[] = {{QKeySequence::DeleteStartOfWord, QTextCursor::PreviousWord},
                   {QKeySequence::DeleteEndOfWord, QTextCursor::NextWord},
                   {QKeySequence::DeleteEndOfLine, QTextCursor::EndOfBlock}};
  for (const auto& d : deletions) {
    if (!event->matches(d.key)) continue;
    QTextCursor span = textCursor();
    span.clearSelection();
    span.movePosition(d.move, QTextCursor::KeepAnchor);
    const auto from = static_cast<std::size_t>(span.selectionStart());
    const auto to = static_cast<std::size_t>(span.selectionEnd());
    if (to > from) c.changeText(TextRange{from, to - from}, u"");
    return done();
  }
  const QString text = event->text();
  if (!text.isEmpty() && !ctrl && !(mods & Qt::AltModifier) && text.at(0).isPrint()) {
    const std::u16string input = fromQString(text);
    // Pair completion answers one unit at a time.
    if (input.size() == 1) {
      c.insertText(input);
    } else {
      c.changeText(c.selection(), input);
    }
    return done();
  }
  // Moving and selecting only: any other key that would change the document
  // behind the controller's back is dropped.
  if (text.isEmpty() || ctrl) QPlainTextEdit::keyPressEvent(event);
}

void CodeEditor::inputMethodEvent(QInputMethodEvent* event) {
  EditorBaseController& c = owner_.controller();
  if (!event->commitString().isEmpty() && c.isEditable()) {
    c.changeText(c.selection(), fromQString(event->commitString()));
    owner_.sync();
  }
  event->accept();
}

void CodeEditor::insertFromMimeData(const QMimeData* source) {
  EditorBaseController& c = owner_.controller();
  if (!source || !source->hasText() || !c.isEditable()) return;
  c.changeText(c.selection(), fromQString(source->text()));
  owner_.sync();
}

QMimeData* CodeEditor::createMimeDataFromSelection() const {
  // From the storage, so carriage returns come back as they were.
  auto* data = new QMimeData;
  const TextRange r = owner_.controller_->selection();
  const std::u16string& text = owner_.controller_->text();
  if (r.end() <= text.size()) {
    data->setText(QString::fromUtf16(text.data() + r.location, static_cast<qsizetype>(r.length)));
  }
  return data;
}

void CodeEditor::contextMenuEvent(QContextMenuEvent* event) {
  EditorBaseController& c = owner_.controller();
  QMenu menu(this);
  const bool editable = c.isEditable();
  const bool selected = c.selection().length > 0;
  menu.addAction(tr("Undo"), this,
                 [this, &c] {
                   c.undoAction();
                   owner_.sync();
                 })
      ->setEnabled(editable && c.canUndo());
  menu.addAction(tr("Redo"), this,
                 [this, &c] {
                   c.redoAction();
                   owner_.sync();
                 })
      ->setEnabled(editable && c.canRedo());
  menu.addSeparator();
  menu.addAction(tr("Cut"), this,
                 [this, &c] {
                   copy();
                   c.changeText(c.selection(), u"");
                   owner_.sync();
                 })
      ->setEnabled(editable && selected);
  menu.addAction(tr("Copy"), this, &QPlainTextEdit::copy)->setEnabled(selected);
  menu.addAction(tr("Paste"), this,
                 [this] { insertFromMimeData(QApplication::clipboard()->mimeData()); })
      ->setEnabled(editable && QApplication::clipboard()->mimeData()->hasText());
  menu.addSeparator();
  menu.addAction(tr("Select All"), this, &QPlainTextEdit::selectAll);
  menu.exec(event->globalPos());
}

// ---- KeyBar -----------------------------------------------------------------------------

KeyBar::KeyBar(QWidget* parent) : QScrollArea(parent), row_(new QWidget(this)) {
  setObjectName(QStringLiteral("keyBar"));
  setFrameShape(QFrame::NoFrame);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setWidgetResizable(true);
  auto* layout = new QHBoxLayout(row_);
  layout->setContentsMargins(4, 2, 4, 2);
  layout->setSpacing(3);
  layout->addStretch();
  setWidget(row_);
  setFocusPolicy(Qt::NoFocus);
}

QToolButton* KeyBar::keyButton(int index) const {
  return index >= 0 && index < static_cast<int>(buttons_.size()) ? buttons_[index] : nullptr;
}

void KeyBar::setKeys(const std::vector<std::string>& titles) {
  for (QToolButton* b : buttons_) b->deleteLater();
  buttons_.clear();
  auto* layout = static_cast<QHBoxLayout*>(row_->layout());
  for (std::size_t i = 0; i < titles.size(); ++i) {
    auto* button = new QToolButton(row_);
    const int index = static_cast<int>(i);
    button->setObjectName(QStringLiteral("key%1").arg(index));
    button->setText(qs(titles[i]).replace(QLatin1Char('&'), QStringLiteral("&&")));
    button->setFocusPolicy(Qt::NoFocus);
    button->setMinimumSize(32, 32);
    button->setContextMenuPolicy(Qt::CustomContextMenu);
    auto* hold = new QTimer(button);
    hold->setSingleShot(true);
    hold->setInterval(kLongPressMs);
    // A held key fires its long press once; the release then enters nothing.
    connect(button, &QToolButton::pressed, hold, [hold, button] {
      button->setProperty("held", false);
      hold->start();
    });
    connect(hold, &QTimer::timeout, button, [this, button, index] {
      button->setProperty("held", true);
      emit longPressed(index);
    });
    connect(button, &QToolButton::released, hold, &QTimer::stop);
    connect(button, &QToolButton::clicked, this, [this, button, index] {
      if (!button->property("held").toBool()) emit tapped(index);
    });
    connect(button, &QWidget::customContextMenuRequested, this,
            [this, index] { emit longPressed(index); });
    layout->insertWidget(index, button);
    buttons_.push_back(button);
  }
  // Room for the keys and for the scroll bar that appears when they overflow,
  // so the bar never covers them.
  const int scrollBar = style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this);
  setFixedHeight(32 + 4 + scrollBar + 2);
}

// ---- EditorView -------------------------------------------------------------------------

EditorView::EditorView(const std::string& path, bool isNew, QWidget* parent)
    : QWidget(parent), port_(this), colors_(editorColors(isNightMode())) {
  setObjectName(QStringLiteral("editorView"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);

  toolbar_ = new QToolBar(this);
  toolbar_->setObjectName(QStringLiteral("editorToolbar"));
  toolbar_->setIconSize(QSize(16, 16));
  layout->addWidget(toolbar_);
  keyBar_ = new KeyBar(this);
  layout->addWidget(keyBar_);
  editor_ = new CodeEditor(*this);
  layout->addWidget(editor_, 1);
  suggestions_ = new QListWidget(editor_->viewport());
  suggestions_->setObjectName(QStringLiteral("suggestions"));
  suggestions_->setFocusPolicy(Qt::NoFocus);
  suggestions_->setUniformItemSizes(true);
  suggestions_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  suggestions_->hide();

  port_.setOnDropped([this] { emit questionDropped(); });
  controller_ = EditorBaseController::instanceWithPath(path, this);
  controller_->_isAddFile = isNew;
  TextStorage& storage = controller_->textStorage();
  editToken_ = storage.addEditObserver(
      [this](TextRange edited, std::ptrdiff_t change) { applyEdit(edited, change); });
  attributeToken_ = storage.addAttributeObserver([this](TextRange range, TextStorage::Attribute a) {
    if (a == TextStorage::Attribute::ForegroundColor) markDirty(range.location, range.end());
  });

  connect(keyBar_, &KeyBar::tapped, this, [this](int i) {
    controller_->performKey(static_cast<std::size_t>(i), false);
    sync();
  });
  connect(keyBar_, &KeyBar::longPressed, this, [this](int i) {
    controller_->performKey(static_cast<std::size_t>(i), true);
    sync();
  });
  connect(suggestions_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    const int row = suggestions_->row(item);
    if (row >= 0 && row < static_cast<int>(shownSuggestions_.size())) {
      controller_->selectedKeywordsItem(shownSuggestions_[static_cast<std::size_t>(row)]);
      sync();
    }
  });
  connect(editor_, &QPlainTextEdit::cursorPositionChanged, this, [this] {
    widgetSelectionChanged();
    editor_->caretMoved();
  });
  connect(editor_, &QPlainTextEdit::selectionChanged, this, [this] { widgetSelectionChanged(); });
  backlogTimer_ = new QTimer(this);
  backlogTimer_->setSingleShot(true);
  backlogTimer_->setInterval(0);
  connect(backlogTimer_, &QTimer::timeout, this, [this] { drainBacklog(); });
  connect(editor_->verticalScrollBar(), &QScrollBar::valueChanged, this, [this] {
    // What scrolls into sight gets its colours before it is painted.
    restyleVisibleBacklog();
    suggestions_->hide();
    reportVisibleRange();
  });

  buildToolbar();
  installFindBar(*this);
  applyColors();
  controller_->viewDidLoad();
  applyFont();
  sync();
}

EditorView::~EditorView() {
  TextStorage& storage = controller_->textStorage();
  storage.removeEditObserver(editToken_);
  storage.removeAttributeObserver(attributeToken_);
  // An open picker goes first, while this view can still hear it go.
  for (EncodingPicker* picker : findChildren<EncodingPicker*>()) {
    picker->disconnect(this);
    delete picker;
  }
  if (encodingToken_) NotificationCenter::defaultCenter().removeObserver(encodingToken_);
  controller_->endScreen();
}

void EditorView::buildToolbar() {
  editButton_ = new QPushButton(toolbar_);
  editButton_->setObjectName(QStringLiteral("editButton"));
  editButton_->setCheckable(true);
  editButton_->setText(qs(localizedString("Edit")));
  // A real button: reading and editing are different modes.
  editButton_->setMinimumWidth(56);
  connect(editButton_, &QPushButton::clicked, this, [this](bool on) {
    controller_->setEditing(on);
    sync();
    if (controller_->isEditable()) editor_->setFocus();
  });
  toolbar_->addWidget(editButton_);
  toolbar_->addSeparator();
  for (const std::string& item : controller_->toolbarItems()) {
    if (item == "enlarge") {
      toolbar_
          ->addAction(QStringLiteral("A+"), this,
                      [this] {
                        controller_->enlargeFontSize();
                        sync();
                      })
          ->setToolTip(tr("Larger text"));
    } else if (item == "reduce") {
      toolbar_
          ->addAction(QStringLiteral("A\u2212"), this,
                      [this] {
                        controller_->reduceFontSize();
                        sync();
                      })
          ->setToolTip(tr("Smaller text"));
      sizeLabel_ = new QLabel(toolbar_);
      sizeLabel_->setObjectName(QStringLiteral("fontSize"));
      sizeLabel_->setContentsMargins(4, 0, 8, 0);
      toolbar_->addWidget(sizeLabel_);
    } else if (item == "preview") {
      if (supportsRoute(ScreenRoute::Preview)) {
        toolbar_->addAction(qs(localizedString("Preview")), this,
                            [this] { controller_->viewText(); });
      }
    } else if (item == "bookmark") {
      toolbar_->addAction(qs(localizedString("Bookmark")), this,
                          [this] { controller_->saveBookMark(); });
    } else if (item == "progress") {
      slider_ = new QSlider(Qt::Horizontal, toolbar_);
      slider_->setObjectName(QStringLiteral("progress"));
      slider_->setTracking(false);
      slider_->setMinimumWidth(80);
      connect(slider_, &QSlider::sliderReleased, this, [this] {
        controller_->sliderReleased(static_cast<std::size_t>(slider_->sliderPosition()));
      });
      toolbar_->addWidget(slider_);
    } else if (item == "share") {
      toolbar_->addAction(qs(localizedString("Share")), this,
                          [this] { controller_->actionItem(); });
    }
  }
  auto* spacer = new QWidget(toolbar_);
  spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  toolbar_->addWidget(spacer);
  busy_ = new QProgressBar(toolbar_);
  busy_->setRange(0, 0);
  busy_->setMaximumWidth(80);
  busy_->setVisible(false);
  toolbar_->addWidget(busy_);
  QAction* options = toolbar_->addAction(qs(localizedString("Options")), this,
                                         [this] { controller_->alertActionSheet(); });
  options->setObjectName(QStringLiteral("options"));
}

void EditorView::applyColors() {
  QPalette p = editor_->palette();
  p.setColor(QPalette::Base, colors_.background);
  p.setColor(QPalette::Text, colors_.text);
  editor_->setPalette(p);
  editor_->viewport()->update();
}

void EditorView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange) {
    colors_ = editorColors(isNightMode());
    applyColors();
  }
}

void EditorView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (appeared_) return;
  appeared_ = true;
  controller_->viewDidAppear();
}

void EditorView::applyFont() {
  const double size = controller_->fontSize();
  if (size == appliedFontSize_) return;
  appliedFontSize_ = size;
  QFont font(QStringLiteral("monospace"));
  font.setStyleHint(QFont::Monospace);
  font.setFixedPitch(true);
  font.setPixelSize(static_cast<int>(size));
  editor_->setFont(font);
  editor_->setTabStopDistance(QFontMetricsF(font).horizontalAdvance(QLatin1Char(' ')) * 4);
  editor_->setViewportMargins(editor_->gutterWidth(), 0, 0, 0);
  if (sizeLabel_) sizeLabel_->setText(QString::number(size));
}

// ---- mirroring ---------------------------------------------------------------------------

void EditorView::applyEdit(TextRange edited, std::ptrdiff_t change) {
  const std::u16string& text = controller_->textStorage().string();
  const auto oldLength =
      static_cast<std::size_t>(static_cast<std::ptrdiff_t>(edited.length) - change);
  mirroring_ = true;
  QTextDocument* doc = editor_->document();
  if (edited.location == 0 && oldLength + 1 >= static_cast<std::size_t>(doc->characterCount())) {
    // A whole new text (loading, a template): one plain set is far cheaper.
    backlog_.clear();
    editor_->setPlainText(toDocumentText(text));
  } else {
    QTextCursor cursor(doc);
    cursor.setPosition(static_cast<int>(edited.location));
    cursor.setPosition(static_cast<int>(edited.location + oldLength), QTextCursor::KeepAnchor);
    cursor.insertText(
        toDocumentText(std::u16string_view(text).substr(edited.location, edited.length)));
  }
  mirroring_ = false;
  // Spans still waiting move with the text.
  for (auto& [from, to] : backlog_) {
    const auto move = [&](std::size_t at) {
      if (at <= edited.location) return at;
      const auto moved = static_cast<std::ptrdiff_t>(at) + change;
      return static_cast<std::size_t>(
          std::max(moved, static_cast<std::ptrdiff_t>(edited.location)));
    };
    from = move(from);
    to = move(to);
  }
  // The paragraphs an edit touched lose or shift their formats.
  markDirty(edited.location, edited.end());
}

void EditorView::markDirty(std::size_t from, std::size_t to) {
  if (!dirty_) {
    dirtyFrom_ = from;
    dirtyTo_ = to;
    dirty_ = true;
  } else {
    dirtyFrom_ = std::min(dirtyFrom_, from);
    dirtyTo_ = std::max(dirtyTo_, to);
  }
  scheduleSync();
}

void EditorView::scheduleSync() {
  if (syncPending_) return;
  // Passes that run on their own (the load, the deferred timer) still paint.
  syncPending_ = true;
  QTimer::singleShot(0, this, [this] {
    syncPending_ = false;
    sync();
  });
}

QTextCharFormat EditorView::colorFormat(const Color& color) const {
  // One shared format per colour: runs of a large file then cost a pointer
  // each, and comparing a paragraph's formats is cheap.
  const std::uint32_t key = (static_cast<std::uint32_t>(color.red) << 16) |
                            (static_cast<std::uint32_t>(color.green) << 8) | color.blue;
  auto it = formats_.find(key);
  if (it == formats_.end()) {
    QTextCharFormat f;
    f.setForeground(QColor(color.red, color.green, color.blue));
    it = formats_.emplace(key, f).first;
  }
  return it->second;
}

namespace {
// Restyles at most this many units at once; a larger span (a load, a
// reset) mirrors what is on screen first and the rest when idle.
constexpr std::size_t kEagerSpan = 32768;
constexpr int kVisibleMarginBlocks = 30;
}  // namespace

void EditorView::flushFormats() {
  if (!dirty_) return;
  dirty_ = false;
  if (dirtyTo_ - dirtyFrom_ <= kEagerSpan) {
    restyled_ = restyle(dirtyFrom_, dirtyTo_);
    return;
  }
  const auto [visibleFrom, visibleTo] = visibleSpan();
  restyled_ = 0;
  if (dirtyFrom_ < visibleTo && visibleFrom < dirtyTo_) {
    restyled_ = restyle(std::max(dirtyFrom_, visibleFrom), std::min(dirtyTo_, visibleTo));
  }
  if (dirtyFrom_ < visibleFrom) backlog_.emplace_back(dirtyFrom_, std::min(dirtyTo_, visibleFrom));
  if (visibleTo < dirtyTo_) backlog_.emplace_back(std::max(dirtyFrom_, visibleTo), dirtyTo_);
  if (!backlog_.empty()) backlogTimer_->start();
}

std::pair<std::size_t, std::size_t> EditorView::visibleSpan() const {
  QTextBlock first = editor_->firstVisibleBlock();
  QTextBlock last = editor_->cursorForPosition(QPoint(0, editor_->viewport()->height())).block();
  for (int i = 0; i < kVisibleMarginBlocks && first.previous().isValid(); ++i) {
    first = first.previous();
  }
  for (int i = 0; i < kVisibleMarginBlocks && last.next().isValid(); ++i) last = last.next();
  if (!first.isValid() || !last.isValid()) return {0, 0};
  return {static_cast<std::size_t>(first.position()),
          static_cast<std::size_t>(last.position() + last.length())};
}

void EditorView::restyleVisibleBacklog() {
  if (backlog_.empty()) return;
  const auto [visibleFrom, visibleTo] = visibleSpan();
  std::vector<std::pair<std::size_t, std::size_t>> rest;
  for (const auto& [from, to] : backlog_) {
    if (to <= visibleFrom || visibleTo <= from) {
      rest.emplace_back(from, to);
      continue;
    }
    restyle(std::max(from, visibleFrom), std::min(to, visibleTo));
    if (from < visibleFrom) rest.emplace_back(from, visibleFrom);
    if (visibleTo < to) rest.emplace_back(visibleTo, to);
  }
  backlog_ = std::move(rest);
}

void EditorView::drainBacklog() {
  QElapsedTimer clock;
  clock.start();
  // Slices short enough that typing never waits behind one.
  while (!backlog_.empty() && clock.elapsed() < 4) {
    auto& [from, to] = backlog_.front();
    const std::size_t until = std::min(to, from + 4096);
    restyle(from, until);
    from = until;
    if (from >= to) backlog_.erase(backlog_.begin());
  }
  if (!backlog_.empty()) backlogTimer_->start();
}

int EditorView::restyle(std::size_t from, std::size_t to) {
  QTextDocument* doc = editor_->document();
  const TextStorage& storage = controller_->textStorage();
  QTextBlock block = doc->findBlock(static_cast<int>(from));
  const int last = std::min(static_cast<int>(to), doc->characterCount() - 1);
  int changedFrom = -1, changedTo = -1;
  int restyled = 0;
  QList<QTextLayout::FormatRange> ranges;
  while (block.isValid() && block.position() <= last) {
    const std::size_t start = static_cast<std::size_t>(block.position());
    const std::size_t length = static_cast<std::size_t>(block.length() - 1);
    ranges.clear();
    if (length > 0) {
      storage.enumerateForegroundColorRuns(
          TextRange{start, length}, false,
          [&](const std::optional<Color>& color, TextRange run, const TextAttributes*, bool&) {
            if (!color) return;
            QTextLayout::FormatRange r;
            r.start = static_cast<int>(run.location - start);
            r.length = static_cast<int>(run.length);
            r.format = colorFormat(*color);
            ranges.push_back(r);
          });
    }
    QTextLayout* layout = block.layout();
    if (layout && layout->formats() != ranges) {
      layout->setFormats(ranges);
      ++restyled;
      if (changedFrom < 0) changedFrom = block.position();
      changedTo = block.position() + block.length();
    }
    block = block.next();
  }
  if (changedFrom >= 0) {
    doc->markContentsDirty(changedFrom, std::min(changedTo, doc->characterCount()) - changedFrom);
  }
  return restyled;
}

TextRange EditorView::widgetSelection() const {
  const QTextCursor c = editor_->textCursor();
  const auto a = static_cast<std::size_t>(c.selectionStart());
  const auto b = static_cast<std::size_t>(c.selectionEnd());
  return TextRange{a, b - a};
}

void EditorView::widgetSelectionChanged() {
  if (mirroring_) return;
  const TextRange r = widgetSelection();
  // The user moved the caret: the controller hears of it (and drops its list).
  if (r != controller_->selection()) controller_->setSelectedRange(r);
  if (controller_->suggestItems().empty()) suggestions_->hide();
}

void EditorView::syncCursorFromController() {
  const TextRange want = controller_->selection();
  if (widgetSelection() == want) return;
  mirroring_ = true;
  QTextCursor c = editor_->textCursor();
  c.setPosition(static_cast<int>(want.location));
  if (want.length) c.setPosition(static_cast<int>(want.end()), QTextCursor::KeepAnchor);
  editor_->setTextCursor(c);
  mirroring_ = false;
  editor_->ensureCursorVisible();
}

void EditorView::sync() {
  if (closed_) return;
  flushFormats();
  applyFont();
  const bool editable = controller_->isEditable();
  editor_->setTextInteractionFlags(editable
                                       ? Qt::TextEditorInteraction
                                       : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  editButton_->setChecked(editable);
  editButton_->setText(qs(localizedString(editable ? "Done" : "Edit")));
  editButton_->setEnabled(!controller_->isBusy() && !controller_->isReadOnly());
  syncCursorFromController();
  placeSuggestions();
  updateSlider();
}

// ---- suggestions -------------------------------------------------------------------------

void EditorView::showSuggestions(const std::vector<std::u16string>& items) {
  shownSuggestions_ = items;
  suggestions_->clear();
  for (const auto& item : items) {
    auto* row =
        new QListWidgetItem(QString::fromUtf16(item.data(), static_cast<qsizetype>(item.size())));
    row->setSizeHint(QSize(0, 32));
    suggestions_->addItem(row);
  }
  if (items.empty()) suggestions_->hide();
}

void EditorView::placeSuggestions() {
  if (shownSuggestions_.empty() || controller_->suggestItems().empty()) {
    suggestions_->hide();
    return;
  }
  const int rows = std::min<int>(6, suggestions_->count());
  const int height = rows * 32 + 2 * suggestions_->frameWidth();
  int width = 120;
  const QFontMetrics fm(suggestions_->font());
  for (int i = 0; i < suggestions_->count(); ++i) {
    width = std::max(width, fm.horizontalAdvance(suggestions_->item(i)->text()) + 32);
  }
  width = std::min(width, editor_->viewport()->width());
  const QRect caret = editor_->cursorRect();
  int y = caret.bottom() + 2;
  // Above the caret when the list would not fit below it.
  if (y + height > editor_->viewport()->height()) y = std::max(0, caret.top() - height - 2);
  int x = std::clamp(caret.left(), 0, std::max(0, editor_->viewport()->width() - width));
  suggestions_->setGeometry(x, y, width, height);
  suggestions_->setCurrentRow(static_cast<int>(controller_->selectedSuggestion()));
  suggestions_->show();
  suggestions_->raise();
}

// ---- scrolling and position ---------------------------------------------------------------

void EditorView::reportVisibleRange() {
  if (!controller_) return;
  QTextBlock first = editor_->firstVisibleBlock();
  if (!first.isValid()) return;
  const int viewportHeight = editor_->viewport()->height();
  QTextCursor bottom = editor_->cursorForPosition(QPoint(0, viewportHeight - 1));
  const auto from = static_cast<std::size_t>(first.position());
  const auto to = static_cast<std::size_t>(
      std::max(bottom.block().position() + bottom.block().length() - 1, first.position()));
  controller_->setVisibleRange(TextRange{from, to - from});
  const double line = QFontMetricsF(editor_->font()).lineSpacing();
  controller_->setScrollY(editor_->verticalScrollBar()->value() * line);
  updateSlider();
}

void EditorView::updateSlider() {
  if (!slider_ || slider_->isSliderDown()) return;
  slider_->setRange(
      0, static_cast<int>(std::min<std::size_t>(controller_->sliderMaximum(), INT32_MAX)));
  slider_->setValue(static_cast<int>(controller_->sliderValue()));
  slider_->setEnabled(controller_->isSliderEnabled());
}

void EditorView::scrollToOffset(std::size_t offset) {
  QTextBlock block = editor_->document()->findBlock(static_cast<int>(offset));
  if (!block.isValid()) return;
  // Without wrapping the scroll value counts paragraphs.
  QScrollBar* bar = editor_->verticalScrollBar();
  const int firstVisible = bar->value();
  const int visibleLines = std::max(
      1, editor_->viewport()->height() / std::max(1, QFontMetrics(editor_->font()).lineSpacing()));
  const int number = block.blockNumber();
  if (bar->maximum() < number) {
    // The layout has not sized a text just set: scroll once it has.
    QTimer::singleShot(0, this, [this, offset] {
      QScrollBar* later = editor_->verticalScrollBar();
      const int n = editor_->document()->findBlock(static_cast<int>(offset)).blockNumber();
      later->setValue(n);
    });
    return;
  }
  if (number >= firstVisible && number < firstVisible + visibleLines - 1) return;
  bar->setValue(number);
}

void EditorView::scrollToHeight(double y) {
  const double line = std::max(1.0, QFontMetricsF(editor_->font()).lineSpacing());
  editor_->verticalScrollBar()->setValue(static_cast<int>(y / line));
}

double EditorView::contentHeight() const {
  return editor_->document()->blockCount() * QFontMetricsF(editor_->font()).lineSpacing();
}

double EditorView::viewHeight() const {
  return editor_->viewport()->height();
}

// ---- the port ----------------------------------------------------------------------------

void EditorView::showAlert(const ScreenAlert& alert, AlertReply reply) {
  port_.showAlert(alert, [this, reply](int button, const std::vector<std::string>& fields) {
    if (reply) reply(button, fields);
    sync();
  });
}

void EditorView::showSheet(const ScreenSheet& sheet, SheetReply reply) {
  port_.showSheet(sheet, [this, reply](int row) {
    if (reply) reply(row);
    sync();
  });
}

void EditorView::dismissSheet() {
  port_.dismissSheet();
}

void EditorView::showMessage(const std::string&, const std::string& text) {
  port_.showMessage(text);
}

void EditorView::setTitle(const std::string& title) {
  title_ = qs(title);
  emit titleChanged(title_);
}

void EditorView::setBusy(bool busy) {
  if (busy_) busy_->setVisible(busy);
  // The end of a load makes Edit available.
  if (!busy) scheduleSync();
  emit busyChanged(busy);
}

void EditorView::setStatus(const std::string& status) {
  port_.showMessage(status);
}

void EditorView::setProgress(double value) {
  if (!busy_) return;
  busy_->setRange(0, 100);
  busy_->setValue(static_cast<int>(value * 100));
}

void EditorView::close() {
  if (closed_) return;
  closed_ = true;
  emit closed();
}

bool EditorView::supportsRoute(ScreenRoute route) const {
  // The desktop's default application takes a file handed over; the
  // window shows the preview.
  return route == ScreenRoute::HandOver ||
         (route == ScreenRoute::Preview && MainWindow::canOpen(route));
}

void EditorView::openRoute(ScreenRoute route, const std::string& path, const std::string&) {
  if (route == ScreenRoute::HandOver) QDesktopServices::openUrl(QUrl::fromLocalFile(qs(path)));
  if (auto* win = qobject_cast<MainWindow*>(window()); win && route == ScreenRoute::Preview)
    win->openFiles(route, {path}, 0);
}

void EditorView::setEditable(bool editable) {
  if (!editor_) return;
  editor_->setTextInteractionFlags(editable
                                       ? Qt::TextEditorInteraction
                                       : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  if (editButton_) editButton_->setChecked(editable);
}

void EditorView::setKeys(const std::vector<std::string>& titles) {
  if (keyBar_) keyBar_->setKeys(titles);
}

void EditorView::pickEncoding(const std::string& path, const std::string& current) {
  auto* picker = new EncodingPicker(this, path, current);
  NotificationCenter& center = NotificationCenter::defaultCenter();
  encodingToken_ = center.addObserver(
      notifications::HBEncodingChangeNotication, [this](const NotificationCenter::Notification& n) {
        const std::string* name = std::any_cast<std::string>(&n.object);
        if (!name) return;
        // Reloading replaces the text: do it from the loop, not inside the picker's call.
        const std::string chosen = *name;
        QTimer::singleShot(0, this, [this, chosen] {
          controller_->encodingChange(chosen);
          sync();
        });
      });
  connect(picker, &QObject::destroyed, this, [this] {
    NotificationCenter::defaultCenter().removeObserver(encodingToken_);
    encodingToken_ = 0;
  });
  picker->open();
}

void EditorView::requestClose() {
  if (closed_) return;
  controller_->cancelAct();
}

void EditorView::saveInPlace() {
  if (controller_->isReadOnly() || controller_->isBusy()) return;
  controller_->saveLastOpenBookMark();
  if (controller_->saveToFile()) port_.showMessage(tr("Saved").toStdString());
}

}  // namespace harbor::gui

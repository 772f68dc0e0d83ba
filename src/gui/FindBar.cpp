#include "gui/FindBar.h"

#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QShortcut>
#include <QTextBlock>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "editor/EditorBaseController.h"
#include "gui/EditorView.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {

std::u16string fromQString(const QString& s) {
  return std::u16string(reinterpret_cast<const char16_t*>(s.utf16()),
                        static_cast<std::size_t>(s.size()));
}

}  // namespace

FindBar::FindBar(EditorView& view)
    : QWidget(&view), view_(view), controller_(view.controller().shared_from_this()) {
  setObjectName(QStringLiteral("findBar"));
  setAutoFillBackground(true);
  auto* grid = new QGridLayout(this);
  grid->setContentsMargins(6, 4, 6, 4);
  grid->setHorizontalSpacing(6);
  grid->setVerticalSpacing(4);

  find_ = new QLineEdit(this);
  find_->setObjectName(QStringLiteral("findField"));
  find_->setPlaceholderText(loc("Find"));
  find_->setClearButtonEnabled(true);
  replace_ = new QLineEdit(this);
  replace_->setObjectName(QStringLiteral("replaceField"));
  replace_->setPlaceholderText(loc("Replace with"));
  replace_->setClearButtonEnabled(true);

  auto button = [this](const char* name, const char* key) {
    auto* b = new QPushButton(loc(key), this);
    b->setObjectName(QLatin1String(name));
    b->setAutoDefault(false);
    return b;
  };
  previous_ = button("findPrevious", "Previous");
  next_ = button("findNext", "Next");
  replaceOne_ = button("replaceOne", "Replace");
  replaceAll_ = button("replaceAll", "Replace All");

  auto box = [this](const char* name, const char* key) {
    auto* b = new QCheckBox(loc(key), this);
    b->setObjectName(QLatin1String(name));
    return b;
  };
  case_ = box("findCase", "Match case");
  word_ = box("findWord", "Whole words");
  regex_ = box("findRegex", "Regular expression");
  loop_ = box("findLoop", "Wrap around");
  loop_->setChecked(true);

  count_ = new QLabel(this);
  count_->setObjectName(QStringLiteral("findCount"));
  count_->setMinimumWidth(90);

  auto* close = new QToolButton(this);
  close->setObjectName(QStringLiteral("findClose"));
  close->setText(QStringLiteral("\u2715"));
  close->setToolTip(loc("Close"));
  close->setAutoRaise(true);

  grid->addWidget(find_, 0, 0);
  grid->addWidget(previous_, 0, 1);
  grid->addWidget(next_, 0, 2);
  grid->addWidget(count_, 0, 3);
  grid->addWidget(close, 0, 5, Qt::AlignRight);
  grid->addWidget(replace_, 1, 0);
  grid->addWidget(replaceOne_, 1, 1);
  grid->addWidget(replaceAll_, 1, 2);
  auto* options = new QHBoxLayout;
  options->setSpacing(12);
  for (QCheckBox* b : {case_, word_, regex_, loop_}) options->addWidget(b);
  options->addStretch(1);
  grid->addLayout(options, 1, 3, 1, 3);
  grid->setColumnStretch(0, 1);
  grid->setColumnStretch(4, 1);
  find_->setMinimumWidth(220);

  // Typing in the field searches once the typing pauses.
  refreshTimer_.setSingleShot(true);
  refreshTimer_.setInterval(120);
  connect(&refreshTimer_, &QTimer::timeout, this, &FindBar::refresh);
  connect(find_, &QLineEdit::textEdited, this, [this] { scheduleRefresh(); });
  connect(replace_, &QLineEdit::textEdited, this, [this] { scheduleRefresh(); });
  for (QCheckBox* b : {case_, word_, regex_}) {
    connect(b, &QCheckBox::toggled, this, [this] { refresh(); });
  }
  connect(find_, &QLineEdit::returnPressed, this, [this] {
    // Stepping runs a pending search first; a settled one is not repeated.
    if (QGuiApplication::keyboardModifiers() & Qt::ShiftModifier) {
      findPrevious();
    } else {
      findNext();
    }
  });
  connect(replace_, &QLineEdit::returnPressed, this, [this] { replaceCurrent(); });
  connect(previous_, &QPushButton::clicked, this, [this] { findPrevious(); });
  connect(next_, &QPushButton::clicked, this, [this] { findNext(); });
  connect(replaceOne_, &QPushButton::clicked, this, [this] { replaceCurrent(); });
  connect(replaceAll_, &QPushButton::clicked, this, [this] { replaceAll(); });
  connect(close, &QToolButton::clicked, this, &FindBar::closeBar);
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape->setContext(Qt::WidgetWithChildrenShortcut);
  connect(escape, &QShortcut::activated, this, &FindBar::closeBar);
  // Editing mode decides whether the replace buttons can act.
  connect(view.editButton(), &QPushButton::toggled, this, [this] { updateButtons(); });

  // Hits follow the text however it changes (typing, undo, a reload).
  editToken_ = controller_->textStorage().addEditObserver([this](TextRange, std::ptrdiff_t) {
    if (isVisible()) scheduleRefresh();
  });
  hide();
}

FindBar::~FindBar() {
  controller_->textStorage().removeEditObserver(editToken_);
}

void FindBar::open() {
  const TextRange sel = controller_->selection();
  if (sel.length > 0 && sel.end() <= controller_->text().size()) {
    const std::u16string picked = controller_->text().substr(sel.location, sel.length);
    if (picked.find(u'\n') == std::u16string::npos && picked.find(u'\r') == std::u16string::npos) {
      find_->setText(QString::fromUtf16(picked.data(), static_cast<qsizetype>(picked.size())));
    }
  }
  show();
  find_->setFocus();
  find_->selectAll();
  refresh();
}

void FindBar::closeBar() {
  refreshTimer_.stop();
  hide();
  hits_.clear();
  view_.textWidget()->setExtraSelections({});
  view_.textWidget()->setFocus();
}

std::shared_ptr<FindTextOptions> FindBar::options() const {
  auto o = FindTextOptions::instanceWithString(fromQString(find_->text()));
  o->_replaceString = fromQString(replace_->text());
  // The options read this flag as "ignore case".
  o->_isCaseSensitive = !case_->isChecked();
  o->_isMatchWord = word_->isChecked();
  o->_isRegex = regex_->isChecked();
  o->_isLoop = loop_->isChecked();
  return o;
}

void FindBar::scheduleRefresh() {
  refreshTimer_.start();
}

void FindBar::refresh() {
  refreshTimer_.stop();
  hits_.clear();
  failed_ = false;
  QString status;
  if (!find_->text().isEmpty()) {
    auto o = options();
    Error error;
    hits_ = FindTextInString::findTextItems(controller_->text(), *o, &error);
    if (!error.message.empty() || !error.domain.empty()) {
      failed_ = true;
      hits_.clear();
      status = QString::fromStdString(error.message.empty() ? error.domain : error.message);
    } else if (hits_.empty()) {
      status = loc("No results");
    } else {
      status = QString::number(hits_.size());
    }
  }
  count_->setText(status);
  count_->setToolTip(status);
  // A failed pattern shows in the field's colour as well as in words.
  find_->setStyleSheet(failed_ ? QStringLiteral("color: #d03030;") : QString());
  highlight();
  updateButtons();
}

void FindBar::highlight() {
  CodeEditor* editor = view_.textWidget();
  // The marks suit the text's own background, which night hours may keep
  // light; the syntax colours stay readable on either.
  const bool dark = editor->palette().color(QPalette::Base).lightness() < 110;
  const QColor all = dark ? QColor(0x6b, 0x5a, 0x1e) : QColor(0xff, 0xe0, 0x70);
  const QColor current = dark ? QColor(0xb0, 0x6a, 0x10) : QColor(0xff, 0xa5, 0x30);
  const TextRange sel = controller_->selection();
  QList<QTextEdit::ExtraSelection> selections;
  const int size = editor->document()->characterCount();
  for (std::size_t i = 0; i < hits_.size() && i < kMaxHighlighted; ++i) {
    const TextRange r = hits_[i]._range;
    if (r.length == 0 || static_cast<int>(r.end()) >= size) continue;
    QTextEdit::ExtraSelection s;
    s.cursor = QTextCursor(editor->document());
    s.cursor.setPosition(static_cast<int>(r.location));
    s.cursor.setPosition(static_cast<int>(r.end()), QTextCursor::KeepAnchor);
    s.format.setBackground(r == sel ? current : all);
    selections.append(s);
  }
  editor->setExtraSelections(selections);
}

void FindBar::updateButtons() {
  const bool any = !hits_.empty();
  previous_->setEnabled(any);
  next_->setEnabled(any);
  const bool editable = controller_->isEditable();
  replaceOne_->setEnabled(any && editable);
  replaceAll_->setEnabled(any && editable);
}

bool FindBar::select(const FindTextItem& hit) {
  controller_->setSelectedRange(hit._range);
  view_.sync();
  view_.scrollToOffset(hit._range.location);
  highlight();
  const auto at = std::find_if(hits_.begin(), hits_.end(),
                               [&](const FindTextItem& h) { return h._range == hit._range; });
  if (at != hits_.end()) {
    count_->setText(QStringLiteral("%1 / %2").arg(at - hits_.begin() + 1).arg(hits_.size()));
  }
  return true;
}

const FindTextItem* FindBar::selectedHit() const {
  const TextRange sel = controller_->selection();
  for (const auto& hit : hits_) {
    if (hit._range == sel) return &hit;
    if (hit._range.location > sel.location) break;
  }
  return nullptr;
}

bool FindBar::findNext() {
  if (refreshTimer_.isActive()) refresh();
  if (hits_.empty()) return false;
  const TextRange sel = controller_->selection();
  // The first hit from the end of the selection that is not the selection
  // itself, so a selected empty match does not hold the search in place.
  for (const auto& hit : hits_) {
    if (hit._range.location >= sel.end() && hit._range != sel) return select(hit);
  }
  if (!loop_->isChecked()) return false;
  return select(hits_.front());
}

bool FindBar::findPrevious() {
  if (refreshTimer_.isActive()) refresh();
  if (hits_.empty()) return false;
  const TextRange sel = controller_->selection();
  for (auto it = hits_.rbegin(); it != hits_.rend(); ++it) {
    if (it->_range.end() <= sel.location && it->_range != sel) return select(*it);
  }
  if (!loop_->isChecked()) return false;
  return select(hits_.back());
}

bool FindBar::replaceCurrent() {
  if (refreshTimer_.isActive()) refresh();
  const FindTextItem* hit = selectedHit();
  if (!hit) return findNext();
  const FindTextItem chosen = *hit;
  if (!controller_->changeText(chosen._range, chosen._replacedText)) return false;
  view_.sync();
  refresh();
  findNext();
  return true;
}

std::size_t FindBar::replaceAll() {
  refresh();
  if (hits_.empty()) return 0;
  // One edit over the span from the first hit to the end of the last, so the
  // journal records the whole replacement as a single step.
  const std::u16string& text = controller_->text();
  const std::size_t from = hits_.front()._range.location;
  const std::size_t to = hits_.back()._range.end();
  std::u16string replaced;
  std::size_t at = from;
  for (const auto& hit : hits_) {
    replaced.append(text, at, hit._range.location - at);
    replaced += hit._replacedText;
    at = hit._range.end();
  }
  const std::size_t count = hits_.size();
  if (!controller_->changeText(TextRange{from, to - from}, replaced)) return 0;
  view_.sync();
  refresh();
  count_->setText(loc("Replaced") + QStringLiteral(": %1").arg(count));
  return count;
}

FindBar* installFindBar(EditorView& view) {
  auto* bar = new FindBar(view);
  if (auto* layout = qobject_cast<QVBoxLayout*>(view.layout())) layout->addWidget(bar);
  auto shortcut = [&view](const QKeySequence& keys, auto&& run) {
    auto* s = new QShortcut(keys, &view);
    s->setContext(Qt::WidgetWithChildrenShortcut);
    QObject::connect(s, &QShortcut::activated, &view, run);
  };
  shortcut(QKeySequence::Find, [bar] { bar->open(); });
  shortcut(QKeySequence::FindNext, [bar] {
    if (bar->isHidden()) return bar->open();
    bar->findNext();
  });
  shortcut(QKeySequence::FindPrevious, [bar] {
    if (bar->isHidden()) return bar->open();
    bar->findPrevious();
  });
  return bar;
}

}  // namespace harbor::gui

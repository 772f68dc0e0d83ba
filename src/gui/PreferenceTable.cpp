#include "gui/PreferenceTable.h"

#include <QEvent>
#include <QHBoxLayout>

#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

PreferenceTable::PreferenceTable(QWidget* parent) : QScrollArea(parent) {
  setObjectName(QStringLiteral("preferenceTable"));
  setWidgetResizable(true);
  setFrameShape(QFrame::NoFrame);
  content_ = new QWidget(this);
  layout_ = new QVBoxLayout(content_);
  layout_->setContentsMargins(24, 16, 24, 24);
  layout_->setSpacing(6);
  layout_->addStretch();
  setWidget(content_);
}

void PreferenceTable::clear() {
  while (layout_->count() > 1) {
    QLayoutItem* item = layout_->takeAt(0);
    if (QWidget* w = item->widget()) {
      w->hide();
      w->deleteLater();
    }
    delete item;
  }
}

QFrame* PreferenceTable::addSection(const std::string& title) {
  const int at = layout_->count() - 1;  // before the closing stretch
  if (!title.empty()) {
    auto* label = new QLabel(loc(title), content_);
    label->setObjectName(QStringLiteral("sectionTitle"));
    QFont f = label->font();
    f.setBold(true);
    label->setFont(f);
    label->setContentsMargins(4, at == 0 ? 0 : 12, 0, 2);
    layout_->insertWidget(at, label);
  } else if (at > 0) {
    layout_->insertSpacing(at, 14);
  }
  auto* card = new QFrame(content_);
  card->setObjectName(QStringLiteral("section"));
  card->setFrameShape(QFrame::StyledPanel);
  card->setAutoFillBackground(true);
  paintCard(card);
  auto* rows = new QVBoxLayout(card);
  rows->setContentsMargins(0, 0, 0, 0);
  rows->setSpacing(0);
  layout_->insertWidget(layout_->count() - 1, card);
  return card;
}

QWidget* PreferenceTable::addRow(QFrame* section, const std::string& text, const std::string& note,
                                 QWidget* control) {
  auto* rows = static_cast<QVBoxLayout*>(section->layout());
  if (rows->count() > 0) {
    auto* line = new QFrame(section);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Plain);
    line->setObjectName(QStringLiteral("separator"));
    line->setFixedHeight(1);
    paintCard(line);
    rows->addWidget(line);
  }
  auto* row = new QWidget(section);
  row->setObjectName(QStringLiteral("row"));
  row->setMinimumHeight(44);
  auto* h = new QHBoxLayout(row);
  h->setContentsMargins(12, 8, 12, 8);
  auto* texts = new QVBoxLayout;
  texts->setSpacing(2);
  auto* label = new QLabel(loc(text), row);
  label->setObjectName(QStringLiteral("rowText"));
  label->setWordWrap(true);
  texts->addWidget(label);
  if (!note.empty()) {
    auto* small = new QLabel(QString::fromStdString(note), row);
    small->setObjectName(QStringLiteral("rowNote"));
    small->setWordWrap(true);
    small->setForegroundRole(QPalette::PlaceholderText);
    texts->addWidget(small);
  }
  h->addLayout(texts, 1);
  if (control) {
    control->setParent(row);
    h->addWidget(control, 0, Qt::AlignVCenter);
  }
  rows->addWidget(row);
  return row;
}

void PreferenceTable::paintCard(QWidget* widget) {
  const QPalette app = palette();
  const bool dark = app.color(QPalette::Window).lightness() < 128;
  QPalette p = widget->palette();
  // At night the fields are as dark as the base colour: the group is
  // lifted above the window instead, so they stand out from it.
  if (widget->objectName() == QLatin1String("separator")) {
    QColor line = app.color(QPalette::WindowText);
    line.setAlpha(dark ? 50 : 40);
    p.setColor(QPalette::WindowText, line);
  } else {
    p.setColor(QPalette::Window,
               dark ? app.color(QPalette::Window).lighter(135) : app.color(QPalette::Base));
  }
  widget->setPalette(p);
}

void PreferenceTable::changeEvent(QEvent* event) {
  QScrollArea::changeEvent(event);
  if (event->type() != QEvent::PaletteChange) return;
  // Night mode switched while the table shows.
  for (QFrame* card : content_->findChildren<QFrame*>(QStringLiteral("section"))) paintCard(card);
  for (QFrame* line : content_->findChildren<QFrame*>(QStringLiteral("separator"))) paintCard(line);
}

std::string PreferenceTable::value(const PreferenceRow& row, const char* key) {
  auto it = row.find(key);
  return it == row.end() ? std::string() : it->second;
}

}  // namespace harbor::gui

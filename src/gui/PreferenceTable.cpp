#include "gui/PreferenceTable.h"

#include <QHBoxLayout>

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
    auto* label = new QLabel(QString::fromStdString(localizedString(title)), content_);
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
  card->setBackgroundRole(QPalette::Base);
  card->setAutoFillBackground(true);
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
    line->setForegroundRole(QPalette::Mid);
    rows->addWidget(line);
  }
  auto* row = new QWidget(section);
  row->setObjectName(QStringLiteral("row"));
  auto* h = new QHBoxLayout(row);
  h->setContentsMargins(12, 8, 12, 8);
  auto* texts = new QVBoxLayout;
  texts->setSpacing(2);
  auto* label = new QLabel(QString::fromStdString(localizedString(text)), row);
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

std::string PreferenceTable::value(const PreferenceRow& row, const char* key) {
  auto it = row.find(key);
  return it == row.end() ? std::string() : it->second;
}

}  // namespace harbor::gui

#include "gui/PagingBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

#include "gui/Text.h"

namespace harbor::gui {

PagingBar::PagingBar(const QString& positionName, QWidget* parent) : QWidget(parent) {
  row_ = new QHBoxLayout(this);
  row_->setContentsMargins(6, 4, 6, 4);
  previous_ = new QToolButton(this);
  previous_->setObjectName(QStringLiteral("previous"));
  previous_->setText(QStringLiteral("\u2039 ") + loc("Previous"));
  next_ = new QToolButton(this);
  next_->setObjectName(QStringLiteral("next"));
  next_->setText(loc("Next") + QStringLiteral(" \u203a"));
  position_ = new QLabel(this);
  position_->setObjectName(positionName);
  row_->addWidget(previous_);
  row_->addWidget(position_);
  row_->addWidget(next_);
  connect(previous_, &QToolButton::clicked, this, [this] { emit stepped(-1); });
  connect(next_, &QToolButton::clicked, this, [this] { emit stepped(1); });
}

void PagingBar::setPosition(int index, int count) {
  position_->setText(QStringLiteral("%1 / %2").arg(count > 0 ? index + 1 : 0).arg(count));
  previous_->setEnabled(count > 0 && index > 0);
  next_->setEnabled(index + 1 < count);
}

void PagingBar::setPositionText(const QString& text) {
  position_->setText(text);
}

}  // namespace harbor::gui

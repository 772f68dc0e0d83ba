#include "gui/StatusLine.h"

#include <QHBoxLayout>

#include "gui/Text.h"

namespace harbor::gui {

StatusLine::StatusLine(QWidget* parent)
    : QWidget(parent),
      status(new QLabel(this)),
      progress(new QProgressBar(this)),
      cancel(new QPushButton(loc("Cancel"), this)) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(10, 2, 8, 4);
  status->setObjectName(QStringLiteral("status"));
  status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  progress->setObjectName(QStringLiteral("progress"));
  progress->setMaximumWidth(220);
  progress->setTextVisible(false);
  progress->hide();
  cancel->setObjectName(QStringLiteral("cancel"));
  cancel->hide();
  layout->addWidget(status, 1);
  layout->addWidget(progress);
  layout->addWidget(cancel);
}

}  // namespace harbor::gui

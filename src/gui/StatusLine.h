#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QWidget>

namespace harbor::gui {

// The foot of a screen: its status text, and a worker's progress with its
// Cancel (both hidden until a worker runs).
class StatusLine : public QWidget {
 public:
  explicit StatusLine(QWidget* parent);

  QLabel* const status;
  QProgressBar* const progress;
  QPushButton* const cancel;
};

}  // namespace harbor::gui

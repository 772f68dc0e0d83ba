#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;
class QToolButton;

namespace harbor::gui {

// "‹ Previous", where one is ("3 / 12"), "Next ›": the bar over a viewer
// that pages through pictures or pages.
class PagingBar : public QWidget {
  Q_OBJECT
 public:
  // The position label is found by `positionName`, as tests and styles do.
  explicit PagingBar(const QString& positionName, QWidget* parent = nullptr);

  // The position, 0-based, of `count`; the buttons follow it.
  void setPosition(int index, int count);
  // A text in place of the position (a document that cannot be read).
  void setPositionText(const QString& text);
  // The row, for what a viewer shows beside the buttons.
  QHBoxLayout* row() const { return row_; }

 signals:
  // -1 or +1, as the user asked.
  void stepped(int by);

 private:
  QHBoxLayout* row_ = nullptr;
  QToolButton* previous_ = nullptr;
  QToolButton* next_ = nullptr;
  QLabel* position_ = nullptr;
};

}  // namespace harbor::gui

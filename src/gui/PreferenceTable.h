#pragma once

#include <QFrame>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>
#include <string>

#include "prefs/SystemSettings.h"

namespace harbor::gui {

// The look of a settings table: titled groups of rows, each row a text with
// an optional note and a control on the right. What the rows are and do
// comes from the screen's controller.
class PreferenceTable : public QScrollArea {
  Q_OBJECT
 public:
  explicit PreferenceTable(QWidget* parent);

  // Empties the table (after a reload).
  void clear();
  // A group; `title` is a localisation key, empty for none.
  QFrame* addSection(const std::string& title);
  // A row in `section`: the localised text, a note under it, and `control`
  // (may be null) at the right.
  QWidget* addRow(QFrame* section, const std::string& text, const std::string& note,
                  QWidget* control);

  static std::string value(const PreferenceRow& row, const char* key);

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void paintCard(QWidget* widget);

  QWidget* content_;
  QVBoxLayout* layout_;
};

}  // namespace harbor::gui

#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <cstddef>
#include <memory>
#include <vector>

#include "editor/FindTextInString.h"

namespace harbor {
class EditorBaseController;
}

namespace harbor::gui {

class EditorView;

// Find and replace over the text of one editor. It reads the controller's
// text, selects through the controller and edits only through it, so every
// replacement lands in the controller's journal.
class FindBar : public QWidget {
  Q_OBJECT
 public:
  explicit FindBar(EditorView& view);
  ~FindBar() override;

  // Shows the bar, taking a one-line selection as the text to find.
  void open();
  // Hides the bar and its highlights; the text gets the focus back.
  void closeBar();

  // Select the next or previous hit from the selection; false when there is
  // none (also when wrapping is off and the end was reached).
  bool findNext();
  bool findPrevious();
  // Replaces the selected hit and moves on; with no hit selected it only
  // moves to the next one.
  bool replaceCurrent();
  // Every hit in one edit: one step for undo. Answers how many were replaced.
  std::size_t replaceAll();

  const std::vector<FindTextItem>& hits() const { return hits_; }
  // Typing has changed the search and the new one has not run yet.
  bool isSearchPending() const { return refreshTimer_.isActive(); }
  QLineEdit* findField() const { return find_; }
  QLineEdit* replaceField() const { return replace_; }
  QCheckBox* caseBox() const { return case_; }
  QCheckBox* wordBox() const { return word_; }
  QCheckBox* regexBox() const { return regex_; }
  QCheckBox* loopBox() const { return loop_; }
  QLabel* countLabel() const { return count_; }

  // Highlighting every hit of a huge text would stall painting; the count
  // still says how many there are.
  static constexpr std::size_t kMaxHighlighted = 5000;

 private:
  std::shared_ptr<FindTextOptions> options() const;
  // Runs the search again on the controller's text and repaints the hits.
  void refresh();
  void scheduleRefresh();
  void highlight();
  void updateButtons();
  bool select(const FindTextItem& hit);
  // The hit the selection is exactly, if any.
  const FindTextItem* selectedHit() const;

  EditorView& view_;
  // Shared so the observer can be removed even while the view is going.
  std::shared_ptr<EditorBaseController> controller_;
  std::size_t editToken_ = 0;
  QLineEdit* find_;
  QLineEdit* replace_;
  QCheckBox* case_;
  QCheckBox* word_;
  QCheckBox* regex_;
  QCheckBox* loop_;
  QLabel* count_;
  QPushButton* previous_;
  QPushButton* next_;
  QPushButton* replaceOne_;
  QPushButton* replaceAll_;
  QTimer refreshTimer_;
  std::vector<FindTextItem> hits_;
  bool failed_ = false;
};

// Puts a find bar under the editor's text, hidden, with Ctrl+F to open it
// and F3 / Shift+F3 to step through the hits.
FindBar* installFindBar(EditorView& view);

}  // namespace harbor::gui

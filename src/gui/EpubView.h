#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gui/WebPageView.h"

class QComboBox;

namespace harbor::gui {

// A book, chapter by chapter in spine order, with next, previous and the
// table of contents. Chapters are local pages: nothing remote loads unasked.
class EpubView : public WebPageView {
  Q_OBJECT
 public:
  explicit EpubView(const std::string& path, QWidget* parent = nullptr);

  const std::vector<std::string>& chapters() const { return chapters_; }
  int chapter() const { return chapter_; }
  void showChapter(int index);
  QComboBox* contents() const { return contents_; }

 private:
  std::string folder_;
  std::vector<std::string> chapters_;
  int chapter_ = -1;
  QComboBox* contents_ = nullptr;
};

}  // namespace harbor::gui

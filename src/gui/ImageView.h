#pragma once

#include <QImage>
#include <QWidget>
#include <cstddef>
#include <string>
#include <vector>

class QLabel;
class QScrollArea;

namespace harbor::gui {

class PagingBar;

// An image fitted to the view, paging through the folder's images the
// browser handed over (Left and Right, or the buttons).
class ImageView : public QWidget {
  Q_OBJECT
 public:
  ImageView(std::vector<std::string> files, std::size_t current, QWidget* parent = nullptr);

  std::size_t current() const { return current_; }
  const std::vector<std::string>& files() const { return files_; }
  void showImage(std::size_t index);
  void step(int by);
  // Whether the image on show could be read.
  bool hasImage() const;

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void fit();

  std::vector<std::string> files_;
  std::size_t current_ = 0;
  QLabel* picture_ = nullptr;
  PagingBar* bar_ = nullptr;
  QLabel* name_ = nullptr;
  QImage image_;
};

}  // namespace harbor::gui

#pragma once

#include <QWidget>
#include <cstddef>
#include <string>
#include <vector>

class QAudioOutput;
class QLabel;
class QMediaPlayer;
class QSlider;
class QToolButton;
class QVideoWidget;

namespace harbor::gui {

// Audio and video: play, pause, seek, and the next or previous file of the
// list the browser handed over.
class MediaView : public QWidget {
  Q_OBJECT
 public:
  MediaView(std::vector<std::string> files, std::size_t current, QWidget* parent = nullptr);
  ~MediaView() override;

  QMediaPlayer* player() const { return player_; }
  std::size_t current() const { return current_; }
  void showMedia(std::size_t index);
  void togglePlay();

 private:
  void refresh();

  std::vector<std::string> files_;
  std::size_t current_ = 0;
  QMediaPlayer* player_ = nullptr;
  QAudioOutput* audio_ = nullptr;
  QVideoWidget* video_ = nullptr;
  QLabel* cover_ = nullptr;
  QLabel* name_ = nullptr;
  QLabel* time_ = nullptr;
  QSlider* seek_ = nullptr;
  QToolButton* play_ = nullptr;
  QToolButton* previous_ = nullptr;
  QToolButton* next_ = nullptr;
};

}  // namespace harbor::gui

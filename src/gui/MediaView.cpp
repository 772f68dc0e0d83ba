#include "gui/MediaView.h"

#include <QAudioOutput>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMediaPlayer>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QVideoWidget>
#include <algorithm>

#include "gui/MainWindow.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {
QString clock(qint64 ms) {
  const qint64 s = ms / 1000;
  return s >= 3600 ? QStringLiteral("%1:%2:%3")
                         .arg(s / 3600)
                         .arg(s / 60 % 60, 2, 10, QLatin1Char('0'))
                         .arg(s % 60, 2, 10, QLatin1Char('0'))
                   : QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}
}  // namespace

MediaView::MediaView(std::vector<std::string> files, std::size_t current, QWidget* parent)
    : QWidget(parent), files_(std::move(files)) {
  setObjectName(QStringLiteral("mediaView"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  video_ = new QVideoWidget(this);
  video_->setObjectName(QStringLiteral("video"));
  video_->setAutoFillBackground(true);
  QPalette black = video_->palette();
  black.setColor(QPalette::Window, Qt::black);
  video_->setPalette(black);
  layout->addWidget(video_, 1);
  // Sound alone shows its name where a picture would be.
  cover_ = new QLabel(this);
  cover_->setObjectName(QStringLiteral("cover"));
  cover_->setAlignment(Qt::AlignCenter);
  cover_->setWordWrap(true);
  QFont big = cover_->font();
  big.setPointSizeF(big.pointSizeF() * 1.8);
  cover_->setFont(big);
  layout->addWidget(cover_, 1);
  video_->setVisible(false);

  auto* bar = new QWidget(this);
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(8, 6, 8, 6);
  previous_ = new QToolButton(bar);
  previous_->setObjectName(QStringLiteral("previous"));
  previous_->setIcon(style()->standardIcon(QStyle::SP_MediaSkipBackward));
  previous_->setToolTip(loc("Previous"));
  play_ = new QToolButton(bar);
  play_->setObjectName(QStringLiteral("play"));
  play_->setShortcut(QKeySequence(Qt::Key_Space));
  next_ = new QToolButton(bar);
  next_->setObjectName(QStringLiteral("next"));
  next_->setIcon(style()->standardIcon(QStyle::SP_MediaSkipForward));
  next_->setToolTip(loc("Next"));
  seek_ = new QSlider(Qt::Horizontal, bar);
  seek_->setObjectName(QStringLiteral("seek"));
  time_ = new QLabel(bar);
  time_->setObjectName(QStringLiteral("time"));
  name_ = new QLabel(bar);
  name_->setObjectName(QStringLiteral("mediaName"));
  name_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  barLayout->addWidget(previous_);
  barLayout->addWidget(play_);
  barLayout->addWidget(next_);
  barLayout->addWidget(seek_, 3);
  barLayout->addWidget(time_);
  barLayout->addSpacing(8);
  barLayout->addWidget(name_, 2);
  layout->addWidget(bar);

  player_ = new QMediaPlayer(this);
  audio_ = new QAudioOutput(this);
  player_->setAudioOutput(audio_);
  player_->setVideoOutput(video_);
  connect(play_, &QToolButton::clicked, this, &MediaView::togglePlay);
  connect(previous_, &QToolButton::clicked, this, [this] {
    if (current_ > 0) showMedia(current_ - 1);
  });
  connect(next_, &QToolButton::clicked, this, [this] { showMedia(current_ + 1); });
  // A drag seeks when let go; a click beside the handle or a key at once.
  connect(seek_, &QSlider::sliderReleased, this, [this] { player_->setPosition(seek_->value()); });
  connect(seek_, &QSlider::actionTriggered, this, [this](int action) {
    if (action != QAbstractSlider::SliderMove) player_->setPosition(seek_->sliderPosition());
  });
  connect(player_, &QMediaPlayer::durationChanged, this, [this](qint64 d) {
    seek_->setRange(0, static_cast<int>(d));
    seek_->setSingleStep(1000);
    seek_->setPageStep(static_cast<int>(std::max<qint64>(1000, d / 10)));
    refresh();
  });
  connect(player_, &QMediaPlayer::positionChanged, this, [this](qint64 p) {
    if (!seek_->isSliderDown()) seek_->setValue(static_cast<int>(p));
    refresh();
  });
  connect(player_, &QMediaPlayer::playbackStateChanged, this, [this] { refresh(); });
  connect(player_, &QMediaPlayer::hasVideoChanged, this, [this](bool video) {
    video_->setVisible(video);
    cover_->setVisible(!video);
  });
  connect(player_, &QMediaPlayer::errorOccurred, this,
          [this](QMediaPlayer::Error, const QString& text) { name_->setText(text); });
  if (!files_.empty()) showMedia(current < files_.size() ? current : 0);
}

MediaView::~MediaView() {
  player_->stop();
}

void MediaView::showMedia(std::size_t index) {
  if (index >= files_.size()) return;
  current_ = index;
  setProperty("crumb", MainWindow::crumbFor(files_[index]));
  const QString name = QFileInfo(QString::fromStdString(files_[index])).fileName();
  name_->setText(name);
  cover_->setText(QStringLiteral("\u266a\n") + name);
  player_->setSource(QUrl::fromLocalFile(QString::fromStdString(files_[index])));
  player_->play();
  refresh();
}

void MediaView::togglePlay() {
  if (player_->playbackState() == QMediaPlayer::PlayingState) {
    player_->pause();
  } else {
    player_->play();
  }
}

void MediaView::refresh() {
  const bool playing = player_->playbackState() == QMediaPlayer::PlayingState;
  play_->setIcon(style()->standardIcon(playing ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
  play_->setToolTip(playing ? loc("Pause") : loc("Play"));
  time_->setText(clock(player_->position()) + QStringLiteral(" / ") + clock(player_->duration()));
  previous_->setEnabled(current_ > 0);
  next_->setEnabled(current_ + 1 < files_.size());
}

}  // namespace harbor::gui

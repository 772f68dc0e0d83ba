#include "gui/ImageView.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QPixmap>
#include <QToolButton>
#include <QVBoxLayout>

#include "gui/MainWindow.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {
QString loc(const char* key) {
  return QString::fromStdString(localizedString(key));
}
}  // namespace

ImageView::ImageView(std::vector<std::string> files, std::size_t current, QWidget* parent)
    : QWidget(parent), files_(std::move(files)) {
  setObjectName(QStringLiteral("imageView"));
  setFocusPolicy(Qt::StrongFocus);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* bar = new QWidget(this);
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(6, 4, 6, 4);
  previous_ = new QToolButton(bar);
  previous_->setObjectName(QStringLiteral("previous"));
  previous_->setText(QStringLiteral("\u2039 ") + loc("Previous"));
  next_ = new QToolButton(bar);
  next_->setObjectName(QStringLiteral("next"));
  next_->setText(loc("Next") + QStringLiteral(" \u203a"));
  position_ = new QLabel(bar);
  position_->setObjectName(QStringLiteral("position"));
  name_ = new QLabel(bar);
  name_->setObjectName(QStringLiteral("imageName"));
  name_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  barLayout->addWidget(previous_);
  barLayout->addWidget(position_);
  barLayout->addWidget(next_);
  barLayout->addSpacing(12);
  barLayout->addWidget(name_, 1);
  layout->addWidget(bar);
  picture_ = new QLabel(this);
  picture_->setObjectName(QStringLiteral("picture"));
  picture_->setAlignment(Qt::AlignCenter);
  picture_->setMinimumSize(1, 1);
  picture_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
  picture_->setBackgroundRole(QPalette::Dark);
  picture_->setAutoFillBackground(true);
  layout->addWidget(picture_, 1);
  connect(previous_, &QToolButton::clicked, this, [this] { step(-1); });
  connect(next_, &QToolButton::clicked, this, [this] { step(1); });
  if (!files_.empty()) showImage(current < files_.size() ? current : 0);
}

void ImageView::showImage(std::size_t index) {
  if (index >= files_.size()) return;
  current_ = index;
  const QString path = QString::fromStdString(files_[index]);
  QImageReader reader(path);
  // Photos carry their rotation in the file.
  reader.setAutoTransform(true);
  image_ = reader.read();
  setProperty("crumb", MainWindow::crumbFor(files_[index]));
  name_->setText(image_.isNull() ? loc("Failure")
                                 : QStringLiteral("%1  \u2014  %2 \u00d7 %3")
                                       .arg(QFileInfo(path).fileName())
                                       .arg(image_.width())
                                       .arg(image_.height()));
  position_->setText(QStringLiteral("%1 / %2").arg(index + 1).arg(files_.size()));
  previous_->setEnabled(index > 0);
  next_->setEnabled(index + 1 < files_.size());
  fit();
}

void ImageView::step(int by) {
  const long next = static_cast<long>(current_) + by;
  if (next >= 0 && next < static_cast<long>(files_.size()))
    showImage(static_cast<std::size_t>(next));
}

bool ImageView::hasImage() const {
  return !image_.isNull();
}

void ImageView::fit() {
  if (image_.isNull()) {
    picture_->clear();
    return;
  }
  const qreal dpr = devicePixelRatioF();
  const QSize room = picture_->size() * dpr;
  QImage shown = image_;
  // Never enlarged: a small icon stays sharp at its own size.
  if (image_.width() > room.width() || image_.height() > room.height())
    shown = image_.scaled(room, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  QPixmap pixmap = QPixmap::fromImage(shown);
  pixmap.setDevicePixelRatio(dpr);
  picture_->setPixmap(pixmap);
}

void ImageView::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_PageUp:
      step(-1);
      return;
    case Qt::Key_Right:
    case Qt::Key_PageDown:
    case Qt::Key_Space:
      step(1);
      return;
    default:
      QWidget::keyPressEvent(event);
  }
}

void ImageView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  fit();
}

}  // namespace harbor::gui

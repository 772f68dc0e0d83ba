#include "gui/ImageView.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QPixmap>
#include <QVBoxLayout>

#include "gui/MainWindow.h"
#include "gui/PagingBar.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

ImageView::ImageView(std::vector<std::string> files, std::size_t current, QWidget* parent)
    : QWidget(parent), files_(std::move(files)) {
  setObjectName(QStringLiteral("imageView"));
  setFocusPolicy(Qt::StrongFocus);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  bar_ = new PagingBar(QStringLiteral("position"), this);
  name_ = new QLabel(bar_);
  name_->setObjectName(QStringLiteral("imageName"));
  name_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  bar_->row()->addSpacing(12);
  bar_->row()->addWidget(name_, 1);
  layout->addWidget(bar_);
  picture_ = new QLabel(this);
  picture_->setObjectName(QStringLiteral("picture"));
  picture_->setAlignment(Qt::AlignCenter);
  picture_->setMinimumSize(1, 1);
  picture_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
  picture_->setBackgroundRole(QPalette::Dark);
  picture_->setAutoFillBackground(true);
  layout->addWidget(picture_, 1);
  connect(bar_, &PagingBar::stepped, this, &ImageView::step);
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
  bar_->setPosition(static_cast<int>(index), static_cast<int>(files_.size()));
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

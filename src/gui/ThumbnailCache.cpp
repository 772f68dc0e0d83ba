#include "gui/ThumbnailCache.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QImageReader>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>

namespace harbor::gui {

namespace {
// Reads from the pool share it with whatever else uses the global one; a
// pool of our own keeps a folder of photos from starving the rest.
QThreadPool& pool() {
  static QThreadPool* p = [] {
    auto* made = new QThreadPool;
    made->setMaxThreadCount(2);
    return made;
  }();
  return *p;
}
}  // namespace

// About 48 MiB of pictures at four bytes a pixel.
ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent), images_(48 * 1024 * 1024) {}

ThumbnailCache::~ThumbnailCache() {
  waitForPending();
}

QString ThumbnailCache::keyOf(const QString& path, QSize box) {
  const QFileInfo info(path);
  return path + QLatin1Char('|') + QString::number(box.width()) + QLatin1Char('x') +
         QString::number(box.height()) + QLatin1Char('|') +
         QString::number(info.lastModified().toMSecsSinceEpoch()) + QLatin1Char('|') +
         QString::number(info.size());
}

QImage ThumbnailCache::thumbnail(const QString& path, QSize box) {
  const QString key = keyOf(path, box);
  if (QImage* hit = images_.object(key)) return *hit;
  if (pending_.contains(key) || failed_.contains(key)) return {};
  pending_.insert(key);
  QPointer<ThumbnailCache> self(this);
  pool().start([self, path, key, box] {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QSize size = reader.size();
    // Only the scaled picture is decoded: a 6000x4000 photo never lands
    // whole in memory.
    if (size.isValid()) reader.setScaledSize(size.scaled(box, Qt::KeepAspectRatio));
    QImage image = reader.read();
    QMetaObject::invokeMethod(
        qApp,
        [self, path, key, image = std::move(image)] {
          if (!self) return;
          self->pending_.remove(key);
          if (image.isNull()) {
            self->failed_.insert(key);
            return;
          }
          self->images_.insert(key, new QImage(image),
                               static_cast<int>(std::min<qsizetype>(image.sizeInBytes(), 1 << 30)));
          emit self->ready(path);
        },
        Qt::QueuedConnection);
  });
  return {};
}

void ThumbnailCache::waitForPending() {
  pool().waitForDone();
}

}  // namespace harbor::gui

#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QSize>
#include <QString>

namespace harbor::gui {

// Small pictures of image files, read scaled (never whole) on the thread
// pool and kept by path, size and modification time. A miss answers a null
// image and asks for the picture; `ready` tells when it came.
class ThumbnailCache : public QObject {
  Q_OBJECT
 public:
  explicit ThumbnailCache(QObject* parent = nullptr);
  ~ThumbnailCache() override;

  QImage thumbnail(const QString& path, QSize box);
  // Waits for every read under way (tests and shutdown).
  void waitForPending();

 signals:
  void ready(const QString& path);

 private:
  static QString keyOf(const QString& path, QSize box);
  QCache<QString, QImage> images_;
  QSet<QString> pending_;
  QSet<QString> failed_;
};

}  // namespace harbor::gui

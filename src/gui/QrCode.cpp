#include "gui/QrCode.h"

#include <qrencode.h>

#include <QPainter>

namespace harbor::gui {

QImage qrCodeImage(const QString& text, int scale) {
  if (text.isEmpty() || scale < 1) return {};
  const QByteArray utf8 = text.toUtf8();
  // Medium correction: a phone camera reads it off a glossy screen.
  QRcode* code = QRcode_encodeString(utf8.constData(), 0, QR_ECLEVEL_M, QR_MODE_8, 1);
  if (!code) return {};
  constexpr int kQuiet = 4;
  const int modules = code->width;
  const int side = (modules + 2 * kQuiet) * scale;
  // Always black on white, whatever the theme: inverted codes fail on many readers.
  QImage image(side, side, QImage::Format_RGB32);
  image.fill(Qt::white);
  QPainter painter(&image);
  for (int y = 0; y < modules; ++y) {
    for (int x = 0; x < modules; ++x) {
      if (code->data[y * modules + x] & 1)
        painter.fillRect((x + kQuiet) * scale, (y + kQuiet) * scale, scale, scale, Qt::black);
    }
  }
  painter.end();
  QRcode_free(code);
  return image;
}

}  // namespace harbor::gui

#pragma once

#include <QImage>
#include <QString>

namespace harbor::gui {

// `text` as a QR code: dark modules on white with the four-module quiet zone
// scanners need, each module `scale` pixels square. A null image when the
// text does not fit in a code.
QImage qrCodeImage(const QString& text, int scale = 6);

}  // namespace harbor::gui

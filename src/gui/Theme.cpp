#include "gui/Theme.h"

#include <QApplication>
#include <QStyleFactory>

#include "editor/EditorBaseController.h"
#include "prefs/AppUserDefaultUtils.h"

namespace harbor::gui {

bool isDarkDesktop(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() < 128;
}

namespace {
// The desktop's own palette, before we replace it at night.
QPalette& desktopPalette() {
  static QPalette palette = QApplication::palette();
  return palette;
}
}  // namespace

bool isNightMode() {
  return AppUserDefaultUtils::isNightModeTime() || isDarkDesktop(desktopPalette());
}

void applyApplicationTheme() {
  const QPalette desktop = desktopPalette();
  if (!isNightMode() || isDarkDesktop(desktop)) {
    QApplication::setPalette(desktop);
    return;
  }
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  QPalette p;
  const QColor window(0x2b, 0x2d, 0x30), base(0x1f, 0x21, 0x23), text(0xe6, 0xe6, 0xe6);
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::WindowText, text);
  p.setColor(QPalette::Base, base);
  p.setColor(QPalette::AlternateBase, window);
  p.setColor(QPalette::Text, text);
  p.setColor(QPalette::Button, QColor(0x3a, 0x3d, 0x41));
  p.setColor(QPalette::ButtonText, text);
  p.setColor(QPalette::ToolTipBase, base);
  p.setColor(QPalette::ToolTipText, text);
  p.setColor(QPalette::PlaceholderText, QColor(0x90, 0x90, 0x90));
  p.setColor(QPalette::Highlight, QColor(0x3d, 0x7a, 0xd6));
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x80));
  p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x80));
  p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x80));
  QApplication::setPalette(p);
}

EditorColors editorColors(bool night) {
  const Color bg = EditorBaseController::textViewBackgroundColor(night);
  EditorColors c;
  c.background = QColor(bg.red, bg.green, bg.blue);
  c.text = Qt::black;
  if (night) {
    c.gutterBackground = c.background.darker(115);
    c.gutterText = QColor(0x44, 0x44, 0x44);
    c.gutterSelected = c.background.darker(130);
    c.gutterLine = c.background.darker(140);
    c.currentLine = c.background.darker(106);
  } else {
    c.gutterBackground = QColor(0xf2, 0xf2, 0xf2);
    c.gutterText = QColor(0x8e, 0x8e, 0x8e);
    c.gutterSelected = QColor(0xe0, 0xe0, 0xe0);
    c.gutterLine = QColor(0xd3, 0xd3, 0xd3);
    c.currentLine = QColor(0xf7, 0xf7, 0xf2);
  }
  return c;
}

}  // namespace harbor::gui

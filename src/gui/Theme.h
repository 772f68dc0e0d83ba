#pragma once

#include <QColor>
#include <QPalette>

namespace harbor::gui {

// Night mode on the desktop: the user's night hours from the preferences, or
// a desktop that is dark already.
bool isDarkDesktop(const QPalette& palette);
bool isNightMode();
// Gives the application a dark palette at night when the desktop has none.
void applyApplicationTheme();

// Colours of the editor's chrome around the text.
struct EditorColors {
  QColor text;
  QColor background;
  QColor gutterBackground;
  QColor gutterText;
  QColor gutterSelected;
  QColor gutterLine;
  QColor currentLine;
};
EditorColors editorColors(bool night);

}  // namespace harbor::gui

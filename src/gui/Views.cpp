#include "gui/Screens.h"

namespace harbor::gui {

void registerSettingsViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerSettingsViews();
}

}  // namespace harbor::gui

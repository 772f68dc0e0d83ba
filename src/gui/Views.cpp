#include "gui/Screens.h"

namespace harbor::gui {

void registerShareViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerShareViews();
}

}  // namespace harbor::gui

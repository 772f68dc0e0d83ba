#include "gui/Screens.h"

namespace harbor::gui {

void registerFindViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerFindViews();
}

}  // namespace harbor::gui

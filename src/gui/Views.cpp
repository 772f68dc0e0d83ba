#include "gui/Screens.h"

namespace harbor::gui {

void registerFindViews();
void registerShareViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerFindViews();
  registerShareViews();
}

}  // namespace harbor::gui

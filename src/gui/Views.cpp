#include "gui/Screens.h"

namespace harbor::gui {

void registerBrowserViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerBrowserViews();
}

}  // namespace harbor::gui

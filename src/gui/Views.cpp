#include "gui/Screens.h"

namespace harbor::gui {

void registerViewerViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerViewerViews();
}

}  // namespace harbor::gui

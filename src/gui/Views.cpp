#include "gui/Screens.h"

namespace harbor::gui {

void registerFindViews();
void registerViewerViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerFindViews();
  registerViewerViews();
}

}  // namespace harbor::gui

#include "gui/Screens.h"

namespace harbor::gui {

// Each view file adds its rows here; the order does not matter.
void registerViews() {}

}  // namespace harbor::gui

#include "gui/Screens.h"

namespace harbor::gui {

void registerBrowserViews();
void registerFindViews();
void registerSettingsViews();
void registerShareViews();
void registerViewerViews();

// Each view file adds its rows here; the order does not matter.
void registerViews() {
  registerBrowserViews();
  registerFindViews();
  registerSettingsViews();
  registerShareViews();
  registerViewerViews();
}

}  // namespace harbor::gui

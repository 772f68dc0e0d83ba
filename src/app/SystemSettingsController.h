#pragma once

#include <string>

#include "platform/ScreenPort.h"

namespace harbor {

// The settings screen the root browser's "Preferences" opens. Its rows are
// SystemSettings' table; the screen the port binds reads them from there.
class SystemSettingsController : public ViewController {
 public:
  std::string className() const override { return "SystemSettingsController"; }
};

}  // namespace harbor

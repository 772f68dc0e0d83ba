#pragma once

#include <functional>

namespace harbor {

// Holds on the device's idle timer: the screen stays awake while any
// long-running job (a share, a copy) holds it.
class GlobalUtil {
 public:
  static void unLockScreen();
  static void lockScreen();
  static int holdCount();
  // Where the idle timer is switched (the GUI sets it); called on the main queue.
  static void setIdleTimerHandler(std::function<void(bool disabled)> handler);
};

}  // namespace harbor

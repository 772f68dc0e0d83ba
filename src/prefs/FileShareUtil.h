#pragma once

namespace harbor {

// Whether the share opens by itself at launch ("AutomaticallyOpenShare").
class FileShareUtil {
 public:
  static bool isAutomaticallyOpenShare();  // default yes
  static void setAutomaticallyOpenShare(bool open);
};

}  // namespace harbor

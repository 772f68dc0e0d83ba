#pragma once

#include <cstdint>

namespace harbor {

// The launch counter under "SystemLoginTimes".
class SystemUtils {
 public:
  static void systemLogin();
  static std::uint64_t getLoginTimes();
  static bool isFirstLogin();
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "filemanager/IActionProgress.h"

namespace harbor::test {

// Records each block a copy reports; `onBlock` runs after each.
class RecordingProgress : public ActionProgressCounter {
 public:
  using ActionProgressCounter::progressFinished;
  void progressFinished(std::uint64_t units) override {
    blocks.push_back(units);
    ActionProgressCounter::progressFinished(units);
    if (onBlock) onBlock();
  }
  std::vector<std::uint64_t> blocks;
  std::function<void()> onBlock;
};

}  // namespace harbor::test

#pragma once

#include <cstdint>
#include <optional>

namespace harbor {

// Gathers byte counts and lets them through once more than a step has
// gathered, so a progress sink hears of an archive's work a few times per
// megabyte rather than once per block.
class ProgressStep {
 public:
  explicit ProgressStep(std::uint64_t step) : step_(step) {}

  // Adds `bytes`; past the step answers what gathered and starts again.
  std::optional<std::uint64_t> add(std::uint64_t bytes) {
    pending_ += bytes;
    if (pending_ <= step_) return std::nullopt;
    const std::uint64_t due = pending_;
    pending_ = 0;
    return due;
  }
  void reset() { pending_ = 0; }
  std::uint64_t pending() const { return pending_; }

 private:
  std::uint64_t step_;
  std::uint64_t pending_ = 0;
};

}  // namespace harbor

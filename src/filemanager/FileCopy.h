#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace harbor {

// The one routine that moves a file's bytes. The kernel copies them itself
// (copy_file_range) where it offers that for the two files, which spares
// the trip through user memory and lets file systems share extents; it
// falls back to read and write otherwise. Either way the work goes in
// blocks, with a progress report after each and a cancellation check
// before each.
class FileCopy {
 public:
  FileCopy() = delete;

  static constexpr std::size_t kMaxBlock = 0x100000;  // 1 MiB

  enum class Failure { none, read, write, cancelled };
  struct Result {
    std::uint64_t copied = 0;
    Failure failure = Failure::none;
    int errorNumber = 0;  // errno of a read or write failure
    bool ok() const { return failure == Failure::none; }
  };

  // Copies from `in`'s offset to `out`'s offset until `limit` bytes went
  // over or `in` ends, in blocks of at most `blockSize` (and of kMaxBlock).
  // `onBlock` (may be empty) hears each block's length; `isCancelled` (may
  // be empty) is asked before each block. `out` must not be in append mode.
  static Result copyData(int in, int out, std::uint64_t limit, std::size_t blockSize,
                         const std::function<void(std::uint64_t)>& onBlock,
                         const std::function<bool()>& isCancelled);
};

}  // namespace harbor

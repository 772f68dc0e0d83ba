#pragma once

// What every highlighting fuzz target asserts of a pass's range lists.
#include <cstddef>
#include <vector>

#include "syntax/CodeFormatParser.h"

#define CHECK(cond)                \
  do {                             \
    if (!(cond)) __builtin_trap(); \
  } while (0)

namespace harbor::fuzz {

// Ranges of one list lie inside the pass, are not empty, and come in text
// order without overlapping: the run merging of the pass relies on it.
inline void checkList(const std::vector<CodeRangeItem>& items, std::size_t from, std::size_t to) {
  std::size_t end = from;
  for (const auto& item : items) {
    CHECK(item.range.length > 0);
    CHECK(item.range.location >= end);
    CHECK(item.range.end() <= to);
    end = item.range.end();
  }
}

}  // namespace harbor::fuzz

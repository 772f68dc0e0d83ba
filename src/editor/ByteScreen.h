#pragma once

// Where a needle may start in bytes: its first and last byte in place,
// sixteen positions at a time, each candidate confirmed by the caller. On the
// short needles people type this beats a general substring search.

#include <cstddef>
#include <string_view>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace harbor::detail {

// ASCII upper-case letters to lower case, every other byte as it is.
inline char foldAscii(char c) {
  return static_cast<char>(c + (static_cast<unsigned char>(c - 'A') < 26u ? 32 : 0));
}

inline bool isAsciiLetter(char c) {
  return static_cast<unsigned char>((c | 0x20) - 'a') < 26u;
}

// The needle's first and last byte; a byte of the text is or-ed with the
// matching mask before it is compared (0x20 makes a letter's cases one).
struct ByteScreen {
  char first = 0, last = 0;
  char firstOr = 0, lastOr = 0;

  static ByteScreen exact(std::string_view needle) { return {needle.front(), needle.back(), 0, 0}; }
  // For a needle already in lower case, matched in any case.
  static ByteScreen ignoringCase(std::string_view lower) {
    const char first = lower.front(), last = lower.back();
    return {first, last, static_cast<char>(isAsciiLetter(first) ? 0x20 : 0),
            static_cast<char>(isAsciiLetter(last) ? 0x20 : 0)};
  }
};

// The first position from `from` where a needle of `m` bytes passes the
// screen and `confirm(at)`, or npos. With `high`, the high bits of the bytes
// read sixteen at a time gather there, and `blocksEnd` gets where those
// blocks stopped: the caller learns whether the text is ASCII on the same
// pass (the rest, from `blocksEnd`, is its own to check).
template <class Confirm>
std::size_t findScreened(std::string_view hay, std::size_t from, std::size_t m,
                         const ByteScreen& screen, Confirm&& confirm, unsigned* high = nullptr,
                         std::size_t* blocksEnd = nullptr) {
  const std::size_t n = hay.size();
  if (m == 0 || from > n || n - from < m) {
    if (blocksEnd) *blocksEnd = from;
    return std::string_view::npos;
  }
  const char* h = hay.data();
  std::size_t i = from;
#if defined(__SSE2__)
  const __m128i vf = _mm_set1_epi8(screen.first), vl = _mm_set1_epi8(screen.last);
  const __m128i of = _mm_set1_epi8(screen.firstOr), ol = _mm_set1_epi8(screen.lastOr);
  // High bits gather in a general register: a vector one would be spilled
  // round the confirming call on every block.
  unsigned seen = 0;
  for (; i + 16 + m - 1 <= n; i += 16) {
    const __m128i raw = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i));
    if (high) seen |= static_cast<unsigned>(_mm_movemask_epi8(raw));
    const __m128i a = _mm_or_si128(raw, of);
    const __m128i b =
        _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + m - 1)), ol);
    unsigned mask = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, vf), _mm_cmpeq_epi8(b, vl))));
    while (mask) {
      const unsigned bit = static_cast<unsigned>(__builtin_ctz(mask));
      if (confirm(i + bit)) return i + bit;
      mask &= mask - 1;
    }
  }
  if (high) *high |= seen;
#endif
  if (blocksEnd) *blocksEnd = i;
  for (; i + m <= n; ++i) {
    if (static_cast<char>(h[i] | screen.firstOr) == screen.first &&
        static_cast<char>(h[i + m - 1] | screen.lastOr) == screen.last && confirm(i))
      return i;
  }
  return std::string_view::npos;
}

}  // namespace harbor::detail

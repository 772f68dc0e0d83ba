#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace harbor {

// One 512-byte tar header block, as ustar lays it out; GNU tars use the same
// places for the fields read here. Numbers are octal text (or GNU base-256).
struct TarHeader {
  char name[100];
  char mode[8];
  char uid[8];
  char gid[8];
  char size[12];
  char mtime[12];
  char chksum[8];
  char typeflag;
  char linkname[100];
  char magic[6];
  char version[2];
  char uname[32];
  char gname[32];
  char devmajor[8];
  char devminor[8];
  char prefix[155];
  char padding[12];

  // POSIX ustar keeps a name prefix; GNU's older format keeps times there.
  bool isUstar() const { return std::memcmp(magic, "ustar", 6) == 0; }

  // All 512 bytes zero: the end-of-archive marker, which has no checksum.
  bool isZeroBlock() const {
    const auto* bytes = reinterpret_cast<const unsigned char*>(this);
    for (std::size_t i = 0; i < sizeof(TarHeader); ++i)
      if (bytes[i] != 0) return false;
    return true;
  }

  // The stored checksum against the sum of the block's bytes, the checksum
  // field counted as spaces. The sum is of unsigned bytes; some old tars
  // summed signed ones, and that is accepted too.
  bool checksumMatches() const {
    std::uint64_t stored = 0;
    std::size_t i = 0;
    while (i < sizeof chksum && chksum[i] == ' ') ++i;
    bool digits = false;
    for (; i < sizeof chksum && chksum[i] >= '0' && chksum[i] <= '7'; ++i) {
      stored = stored * 8 + static_cast<std::uint64_t>(chksum[i] - '0');
      digits = true;
    }
    if (!digits) return false;
    const auto* bytes = reinterpret_cast<const unsigned char*>(this);
    const std::size_t from = offsetof(TarHeader, chksum);
    std::int64_t unsignedSum = 0;
    std::int64_t signedSum = 0;
    for (std::size_t k = 0; k < sizeof(TarHeader); ++k) {
      const bool inField = k >= from && k < from + sizeof chksum;
      const unsigned char b = inField ? ' ' : bytes[k];
      unsignedSum += b;
      signedSum += static_cast<signed char>(b);
    }
    return static_cast<std::int64_t>(stored) == unsignedSum ||
           static_cast<std::int64_t>(stored) == signedSum;
  }
};
static_assert(sizeof(TarHeader) == 512, "a tar header is one block");
static_assert(offsetof(TarHeader, typeflag) == 156 && offsetof(TarHeader, prefix) == 345,
              "tar header fields sit where the format puts them");

}  // namespace harbor

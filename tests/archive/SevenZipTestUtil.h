#pragma once

// Hand-made 7z archives for the cases no tool writes: every header byte is
// chosen by the test, the checks around them are made right.
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace harbor::test {

struct Bytes7z {
  std::vector<std::uint8_t> b;
  Bytes7z& byte(std::uint8_t v) {
    b.push_back(v);
    return *this;
  }
  Bytes7z& bytes(const std::vector<std::uint8_t>& v) {
    b.insert(b.end(), v.begin(), v.end());
    return *this;
  }
  Bytes7z& u32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i) byte(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  Bytes7z& u64(std::uint64_t v) {
    for (int i = 0; i < 8; ++i) byte(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  // Always the nine-byte form: valid for any value.
  Bytes7z& num(std::uint64_t v) { return byte(0xFF).u64(v); }
  // An ASCII name as UTF-16LE with its terminator.
  Bytes7z& name(const std::string& s) {
    for (char c : s) byte(static_cast<std::uint8_t>(c)).byte(0);
    return byte(0).byte(0);
  }
};

// Every path below `root`, relative and sorted; links are names, not
// followed or resolved.
inline std::vector<std::string> pathsBelow(const std::filesystem::path& root) {
  std::vector<std::string> out;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
    out.push_back(it->path().lexically_relative(root).string());
  std::sort(out.begin(), out.end());
  return out;
}

inline std::uint32_t crcOf(const std::vector<std::uint8_t>& v) {
  return static_cast<std::uint32_t>(::crc32(0, v.data(), static_cast<uInt>(v.size())));
}

// Start header, `packed`, then `header`, with all checks right.
inline std::string archive7z(const std::vector<std::uint8_t>& packed,
                             const std::vector<std::uint8_t>& header) {
  Bytes7z start;
  start.u64(packed.size()).u64(header.size()).u32(crcOf(header));
  Bytes7z all;
  all.bytes({'7', 'z', 0xBC, 0xAF, 0x27, 0x1C, 0, 4}).u32(crcOf(start.b)).bytes(start.b);
  all.bytes(packed).bytes(header);
  return std::string(all.b.begin(), all.b.end());
}

// A header of one file `name` stored in one folder of the given coder,
// declaring `unpackSize` bytes over `packSize` packed ones; `subStreams`
// (a whole substreams record) goes in as given.
inline std::vector<std::uint8_t> oneFileHeader(const std::string& name, std::uint64_t packSize,
                                               std::uint64_t unpackSize,
                                               const std::vector<std::uint8_t>& coderId,
                                               const std::vector<std::uint8_t>& props = {},
                                               const std::vector<std::uint8_t>& subStreams = {}) {
  Bytes7z h;
  h.byte(0x01).byte(0x04);
  h.byte(0x06).num(0).num(1).byte(0x09).num(packSize).byte(0x00);
  h.byte(0x07).byte(0x0B).num(1).byte(0);
  h.num(1).byte(static_cast<std::uint8_t>(coderId.size() | (props.empty() ? 0 : 0x20)));
  h.bytes(coderId);
  if (!props.empty()) h.num(props.size()).bytes(props);
  h.byte(0x0C).num(unpackSize).byte(0x00);
  h.bytes(subStreams);
  h.byte(0x00);
  h.byte(0x05).num(1);
  Bytes7z names;
  names.byte(0).name(name);
  h.byte(0x11).num(names.b.size()).bytes(names.b);
  h.byte(0x00).byte(0x00);
  return h.b;
}

}  // namespace harbor::test

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/7z/SevenZipFormat.h"

// Decoding a folder's data: each coder is a pull stream reading from the one
// before it, so a solid folder is decoded once, front to back, in bounded
// memory.
namespace harbor::sevenzip {

enum class DecodeFailure {
  none,
  damaged,      // data does not decode or sizes disagree
  unsupported,  // a method we do not decode
  password,     // encrypted and no password given
  limits,       // memory or work beyond what we allow
  io,
};

struct DecodeError {
  DecodeFailure kind = DecodeFailure::none;
  std::string message;
  void set(DecodeFailure k, std::string m) {
    if (kind == DecodeFailure::none) {
      kind = k;
      message = std::move(m);
    }
  }
};

class InStream {
 public:
  virtual ~InStream() = default;
  // Bytes read into `buf`; 0 at the end, -1 on failure (see the shared error).
  virtual std::ptrdiff_t read(std::uint8_t* buf, std::size_t n) = 0;
};

// Decoders refuse settings that would take more than this.
inline constexpr std::uint64_t kMaxDecoderMemory = 2ull << 30;
// Key derivation costs above 2^24 rounds are refused.
inline constexpr unsigned kMaxAesPower = 24;

// A stream over `length` bytes of the open file `fd` from `offset`.
std::unique_ptr<InStream> fileRangeStream(int fd, std::uint64_t offset, std::uint64_t length,
                                          DecodeError& error);

// The decoded output of `folder`, whose pack streams start at the given file
// offsets with the given sizes. The password is asked only when the folder is
// encrypted. Null with `error` set when the folder cannot be decoded.
std::unique_ptr<InStream> openFolder(int fd, const Folder& folder,
                                     const std::vector<std::uint64_t>& packOffsets,
                                     const std::vector<std::uint64_t>& packSizes,
                                     const std::function<std::string()>& password,
                                     DecodeError& error);

// The 7z AES key: SHA-256 over 2^power rounds of salt, UTF-16LE password
// and a round counter. Power 0x3F means no hashing.
std::vector<std::uint8_t> deriveAesKey(const std::string& passwordUtf8,
                                       const std::vector<std::uint8_t>& salt, unsigned power);

// UTF-8 to UTF-16LE bytes.
std::vector<std::uint8_t> utf16leBytes(const std::string& utf8);

}  // namespace harbor::sevenzip

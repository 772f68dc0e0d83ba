#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace harbor::zipdata {

class ZipAesCipher;

// Where an entry's stored bytes lie in the archive file, read from its
// central and local headers, for the methods and ciphers minizip cannot
// open: the entry's bytes are then read and decoded here.
struct RawEntry {
  std::uint64_t localOffset = 0;
  std::uint64_t centralSize = 0;  // the central header with its name, extra and comment
  std::uint64_t dataOffset = 0;
  std::uint64_t compressedSize = 0;
  std::uint16_t method = 0;  // as stored: 99 for AES entries
  std::uint16_t flags = 0;
  // The AES extra field (0x9901), when present.
  bool aes = false;
  std::uint16_t aesVersion = 0;  // 1 or 2
  std::uint8_t aesStrength = 0;  // 1, 2, 3: 128, 192, 256-bit keys
  std::uint16_t actualMethod = 0;
};

// `centralOffset` is the position of the entry's central header in the file
// (minizip's current offset). Nothing when the headers do not hold together.
std::optional<RawEntry> locate(std::FILE* file, std::uint64_t centralOffset);

// Where the central directory starts and how many headers it holds, from
// the end records (the zip64 ones where the classic fields overflow).
struct CentralDirectory {
  std::uint64_t offset = 0;
  std::uint64_t entries = 0;
};
std::optional<CentralDirectory> centralDirectory(std::FILE* file);

// The name shown for a compression method.
std::string methodName(std::uint16_t method);
// Methods this library decodes.
bool isSupportedMethod(std::uint16_t method);

// Stored bytes in, plain bytes out: one decompressor for each method.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Bytes written, 0 at the end, -1 for damage.
  virtual long read(unsigned char* out, std::size_t cap) = 0;
};

// The stored bytes of an entry, bounded by its compressed size.
class FileRange : public ByteSource {
 public:
  FileRange(std::FILE* file, std::uint64_t offset, std::uint64_t size);
  long read(unsigned char* out, std::size_t cap) override;
  std::uint64_t left() const { return left_; }

 private:
  std::FILE* file_;
  std::uint64_t offset_;
  std::uint64_t left_;
};

// The WinZip AES layer: key derivation, password check, CTR keystream with
// a little-endian counter, and the HMAC-SHA1 over the ciphertext.
class AesLayer : public ByteSource {
 public:
  enum class Open { ok, wrongPassword, damaged };
  // Reads salt and check value from `inner` and derives the keys.
  static std::pair<Open, std::unique_ptr<AesLayer>> open(std::unique_ptr<FileRange> inner,
                                                         std::uint8_t strength,
                                                         const std::string& password);
  ~AesLayer() override;
  long read(unsigned char* out, std::size_t cap) override;
  // After the data: reads the stored code and compares it with the one computed.
  bool authenticated();

 private:
  AesLayer() = default;
  std::unique_ptr<FileRange> inner_;
  std::unique_ptr<ZipAesCipher> cipher_;
  std::uint64_t dataLeft_ = 0;
};

// The decompressor for `method` over `stored`, or nothing for a method not
// decoded here. `uncompressedSize` bounds LZMA streams without an end mark.
std::unique_ptr<ByteSource> decompressor(std::uint16_t method, std::unique_ptr<ByteSource> stored,
                                         std::uint64_t uncompressedSize);

}  // namespace harbor::zipdata

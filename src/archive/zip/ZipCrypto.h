#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace harbor {

// The traditional zip encryption. The system's minizip is built without it,
// so entries are read and written raw and ciphered here.
class ZipCrypto {
 public:
  static constexpr std::size_t kHeaderSize = 12;

  explicit ZipCrypto(std::string_view password);
  void decrypt(unsigned char* data, std::size_t n);
  void encrypt(unsigned char* data, std::size_t n);
  // Deciphers the 12-byte header; true when its check byte matches.
  bool checkHeader(unsigned char* header, unsigned char checkByte);
  // A header for an entry whose CRC is `crc`, enciphered.
  void makeHeader(unsigned char* header, std::uint32_t crc);

 private:
  void update(unsigned char c);
  unsigned char streamByte() const;
  std::uint32_t keys_[3];
};

}  // namespace harbor

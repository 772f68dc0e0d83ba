#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace harbor::zipdata {

// The AES layer of zip entries (method 99): keys from PBKDF2-HMAC-SHA1 over
// a salt, a two-byte password check, AES in counter mode with a
// little-endian counter from 1, and an HMAC-SHA1 over the ciphertext cut to
// ten bytes. Readers and the writer share it.
class ZipAesCipher {
 public:
  static constexpr std::size_t kCheckSize = 2;
  static constexpr std::size_t kAuthSize = 10;
  static constexpr std::uint16_t kExtraId = 0x9901;
  // Salt bytes for key strength 1, 2 or 3 (128, 192, 256-bit keys).
  static constexpr std::size_t saltSize(std::uint8_t strength) { return 4 + 4 * strength; }

  // Derives the keys; nothing for a strength other than 1 to 3 or when the
  // crypto library fails. `check` receives the password check value.
  static std::unique_ptr<ZipAesCipher> derive(const std::string& password,
                                              const unsigned char* salt, std::uint8_t strength,
                                              std::array<unsigned char, kCheckSize>& check);
  ~ZipAesCipher();
  ZipAesCipher(const ZipAesCipher&) = delete;
  ZipAesCipher& operator=(const ZipAesCipher&) = delete;

  // XORs the key stream into `data` (the same both ways).
  bool crypt(unsigned char* data, std::size_t n);
  // Adds ciphertext to the authentication code.
  bool authenticate(const unsigned char* data, std::size_t n);
  // The code over everything authenticated so far.
  bool finish(std::array<unsigned char, kAuthSize>& code);

  // The 0x9901 extra field, header included: vendor version 1 or 2,
  // strength, and the method the data is compressed with.
  static std::array<unsigned char, 11> extraField(std::uint16_t version, std::uint8_t strength,
                                                  std::uint16_t method);

 private:
  ZipAesCipher();
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace harbor::zipdata

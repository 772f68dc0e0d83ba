#include "archive/zip/ZipCrypto.h"

#include <zlib.h>

#include <random>

namespace harbor {
namespace {

std::uint32_t crcByte(std::uint32_t crc, unsigned char b) {
  static const z_crc_t* table = get_crc_table();
  return static_cast<std::uint32_t>(table[(crc ^ b) & 0xff]) ^ (crc >> 8);
}

}  // namespace

ZipCrypto::ZipCrypto(std::string_view password) : keys_{305419896u, 591751049u, 878082192u} {
  for (char c : password) update(static_cast<unsigned char>(c));
}

void ZipCrypto::update(unsigned char c) {
  keys_[0] = crcByte(keys_[0], c);
  keys_[1] = (keys_[1] + (keys_[0] & 0xff)) * 134775813u + 1;
  keys_[2] = crcByte(keys_[2], static_cast<unsigned char>(keys_[1] >> 24));
}

unsigned char ZipCrypto::streamByte() const {
  const std::uint32_t t = (keys_[2] | 2) & 0xffff;
  return static_cast<unsigned char>(((t * (t ^ 1)) >> 8) & 0xff);
}

void ZipCrypto::decrypt(unsigned char* data, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    data[i] ^= streamByte();
    update(data[i]);
  }
}

void ZipCrypto::encrypt(unsigned char* data, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char t = streamByte();
    update(data[i]);
    data[i] ^= t;
  }
}

bool ZipCrypto::checkHeader(unsigned char* header, unsigned char checkByte) {
  decrypt(header, kHeaderSize);
  return header[kHeaderSize - 1] == checkByte;
}

void ZipCrypto::makeHeader(unsigned char* header, std::uint32_t crc) {
  static thread_local std::mt19937 rng{std::random_device{}()};
  for (std::size_t i = 0; i < kHeaderSize - 2; ++i) header[i] = static_cast<unsigned char>(rng());
  header[kHeaderSize - 2] = static_cast<unsigned char>(crc >> 16);
  header[kHeaderSize - 1] = static_cast<unsigned char>(crc >> 24);
  encrypt(header, kHeaderSize);
}

}  // namespace harbor

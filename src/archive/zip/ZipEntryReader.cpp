#include "archive/zip/ZipEntryReader.h"

#include <ctime>

namespace harbor {
namespace zipentry {

bool readInfo(unzFile z, CurrentInfo& out) {
  if (unzGetCurrentFileInfo64(z, &out.info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
    return false;
  out.rawName.assign(out.info.size_filename + 1, '\0');
  return unzGetCurrentFileInfo64(z, &out.info, out.rawName.data(), out.rawName.size(), nullptr, 0,
                                 nullptr, 0) == UNZ_OK;
}

std::optional<std::chrono::system_clock::time_point> infoDate(const unz_file_info64& info) {
  std::tm tm{};
  tm.tm_year = static_cast<int>(info.tmu_date.tm_year) - 1900;
  tm.tm_mon = static_cast<int>(info.tmu_date.tm_mon);
  tm.tm_mday = static_cast<int>(info.tmu_date.tm_mday);
  tm.tm_hour = static_cast<int>(info.tmu_date.tm_hour);
  tm.tm_min = static_cast<int>(info.tmu_date.tm_min);
  tm.tm_sec = static_cast<int>(info.tmu_date.tm_sec);
  tm.tm_isdst = -1;
  std::time_t t = std::mktime(&tm);
  if (t == -1) return std::nullopt;
  return std::chrono::system_clock::from_time_t(t);
}

unsigned fileMode(const unz_file_info64& info) {
  if ((info.version >> 8) != 3) return 0;
  return static_cast<unsigned>(info.external_fa >> 16);
}

std::string normalised(std::string name) {
  for (char& c : name)
    if (c == '\\') c = '/';
  return name;
}

}  // namespace zipentry

ZipEntryReader::~ZipEntryReader() {
  if (opened_) unzCloseCurrentFile(z_);
  if (inflating_) inflateEnd(&stream_);
}

ZipEntryReader::Open ZipEntryReader::open(const std::string& password) {
  if (!(info_.flag & 1)) {
    opened_ = unzOpenCurrentFile(z_) == UNZ_OK;
    return opened_ ? Open::ok : Open::failed;
  }
  if (password.empty()) return Open::wrongPassword;
  int method = 0, level = 0;
  if (unzOpenCurrentFile2(z_, &method, &level, 1) != UNZ_OK) return Open::failed;
  opened_ = true;
  encrypted_ = true;
  crypto_.emplace(password);
  unsigned char header[ZipCrypto::kHeaderSize];
  if (unzReadCurrentFile(z_, header, sizeof header) != static_cast<int>(sizeof header))
    return Open::failed;
  // With a data descriptor the check byte comes from the time, else the CRC.
  const auto check = (info_.flag & 8) ? static_cast<unsigned char>(info_.dosDate >> 8)
                                      : static_cast<unsigned char>(info_.crc >> 24);
  if (!crypto_->checkHeader(header, check)) return Open::wrongPassword;
  if (method == Z_DEFLATED) {
    if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) return Open::failed;
    inflating_ = true;
    in_.resize(64 * 1024);
  } else if (method != 0) {
    return Open::failed;
  }
  return Open::ok;
}

int ZipEntryReader::read(char* out, unsigned cap) {
  if (!encrypted_) return unzReadCurrentFile(z_, out, cap);
  if (!inflating_) {
    int n = unzReadCurrentFile(z_, out, cap);
    if (n > 0) {
      crypto_->decrypt(reinterpret_cast<unsigned char*>(out), static_cast<std::size_t>(n));
      crc_ = crc32(crc_, reinterpret_cast<Bytef*>(out), static_cast<uInt>(n));
    }
    return n;
  }
  if (ended_) return 0;
  stream_.next_out = reinterpret_cast<Bytef*>(out);
  stream_.avail_out = cap;
  for (;;) {
    if (stream_.avail_in == 0) {
      int n = unzReadCurrentFile(z_, in_.data(), static_cast<unsigned>(in_.size()));
      if (n <= 0) return -1;  // damage, or cut short before the end of the stream
      crypto_->decrypt(reinterpret_cast<unsigned char*>(in_.data()), static_cast<std::size_t>(n));
      stream_.next_in = reinterpret_cast<Bytef*>(in_.data());
      stream_.avail_in = static_cast<uInt>(n);
    }
    int rc = inflate(&stream_, Z_NO_FLUSH);
    if (rc == Z_STREAM_END)
      ended_ = true;
    else if (rc != Z_OK && rc != Z_BUF_ERROR)
      return -1;
    const int produced = static_cast<int>(cap - stream_.avail_out);
    if (produced > 0 || ended_) {
      crc_ = crc32(crc_, reinterpret_cast<Bytef*>(out), static_cast<uInt>(produced));
      return produced;
    }
  }
}

bool ZipEntryReader::finish() {
  opened_ = false;
  const int rc = unzCloseCurrentFile(z_);
  if (!encrypted_) return rc == UNZ_OK;
  return crc_ == info_.crc;
}

}  // namespace harbor

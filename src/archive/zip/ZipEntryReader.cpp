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

namespace {

// The traditional cipher over stored bytes read straight from the file.
class ZipCryptoLayer : public zipdata::ByteSource {
 public:
  ZipCryptoLayer(std::unique_ptr<zipdata::ByteSource> in, const std::string& password)
      : in_(std::move(in)), crypto_(password) {}
  bool checkHeader(unsigned char check) {
    unsigned char header[ZipCrypto::kHeaderSize];
    if (in_->read(header, sizeof header) != static_cast<long>(sizeof header)) return false;
    return crypto_.checkHeader(header, check);
  }
  long read(unsigned char* out, std::size_t cap) override {
    const long n = in_->read(out, cap);
    if (n > 0) crypto_.decrypt(out, static_cast<std::size_t>(n));
    return n;
  }

 private:
  std::unique_ptr<zipdata::ByteSource> in_;
  ZipCrypto crypto_;
};

}  // namespace

ZipEntryReader::~ZipEntryReader() {
  decoder_.reset();
  if (file_) std::fclose(file_);
  if (opened_) unzCloseCurrentFile(z_);
  if (inflating_) inflateEnd(&stream_);
}

ZipEntryReader::Open ZipEntryReader::openDirect(const std::string& password) {
  direct_ = true;
  if (archivePath_.empty() || !(file_ = std::fopen(archivePath_.c_str(), "rb"))) {
    failure_ = "cannot read the archive file";
    return Open::failed;
  }
  const auto raw = zipdata::locate(file_, unzGetOffset64(z_));
  if (!raw) {
    failure_ = "the entry's headers are damaged";
    return Open::failed;
  }
  method_ = raw->aes ? raw->actualMethod : raw->method;
  if (raw->method == 99 && !raw->aes) {
    failure_ = "AES entry without its AES field";
    return Open::failed;
  }
  if (!zipdata::isSupportedMethod(method_)) {
    failure_ = "compression method " + zipdata::methodName(method_) + " is not supported";
    return Open::unsupported;
  }
  auto range = std::make_unique<zipdata::FileRange>(file_, raw->dataOffset, raw->compressedSize);
  std::unique_ptr<zipdata::ByteSource> stored;
  if (raw->aes) {
    if (password.empty()) return Open::wrongPassword;
    auto [opened, layer] = zipdata::AesLayer::open(std::move(range), raw->aesStrength, password);
    if (opened == zipdata::AesLayer::Open::wrongPassword) return Open::wrongPassword;
    if (opened != zipdata::AesLayer::Open::ok) {
      failure_ = "the AES header is damaged";
      return Open::failed;
    }
    aes_ = layer.get();
    stored = std::move(layer);
    // Version 2 stores no CRC: the authentication code alone vouches for the data.
    checkCrc_ = raw->aesVersion != 2;
  } else if (info_.flag & 1) {
    if (password.empty()) return Open::wrongPassword;
    auto layer = std::make_unique<ZipCryptoLayer>(std::move(range), password);
    const auto check = (info_.flag & 8) ? static_cast<unsigned char>(info_.dosDate >> 8)
                                        : static_cast<unsigned char>(info_.crc >> 24);
    if (!layer->checkHeader(check)) return Open::wrongPassword;
    stored = std::move(layer);
  } else {
    stored = std::move(range);
  }
  decoder_ = zipdata::decompressor(method_, std::move(stored), info_.uncompressed_size);
  return Open::ok;
}

ZipEntryReader::Open ZipEntryReader::open(const std::string& password) {
  method_ = static_cast<std::uint16_t>(info_.compression_method);
  const bool minizipReads = method_ == 0 || method_ == Z_DEFLATED;
  if (!minizipReads) return openDirect(password);
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
  if (direct_) {
    if (!decoder_) return -1;
    const long n = decoder_->read(reinterpret_cast<unsigned char*>(out), cap);
    if (n > 0) {
      crc_ = crc32(crc_, reinterpret_cast<Bytef*>(out), static_cast<uInt>(n));
      produced_ += static_cast<std::uint64_t>(n);
      // More than the entry says it holds is damage, not data.
      if (produced_ > info_.uncompressed_size) return -1;
    }
    return static_cast<int>(n);
  }
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
  if (direct_) {
    if (aes_ && !aes_->authenticated()) {
      failure_ = "the authentication code does not match: wrong password or damaged data";
      return false;
    }
    if (produced_ != info_.uncompressed_size) {
      failure_ = "the data ends before its stated size";
      return false;
    }
    if (checkCrc_ && crc_ != info_.crc) {
      failure_ = "CRC mismatch";
      return false;
    }
    return true;
  }
  opened_ = false;
  const int rc = unzCloseCurrentFile(z_);
  const bool whole = encrypted_ ? crc_ == info_.crc : rc == UNZ_OK;
  if (!whole) failure_ = rc == UNZ_CRCERROR || encrypted_ ? "CRC mismatch" : "damaged data";
  return whole;
}

}  // namespace harbor

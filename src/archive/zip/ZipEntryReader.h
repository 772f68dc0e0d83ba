#pragma once

#include <minizip/unzip.h>
#include <zlib.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/zip/ZipCrypto.h"
#include "archive/zip/ZipEntryData.h"

namespace harbor {

// What both zip extractors need of minizip's current entry.
namespace zipentry {

struct CurrentInfo {
  unz_file_info64 info{};
  std::vector<char> rawName;  // the stored bytes, NUL-terminated
};

bool readInfo(unzFile z, CurrentInfo& out);
// The stored local date and time; none when it cannot be a date.
std::optional<std::chrono::system_clock::time_point> infoDate(const unz_file_info64& info);
// The Unix mode kept in the high half of the external attributes; 0 when the
// archive was not made on Unix.
unsigned fileMode(const unz_file_info64& info);
// "\\" separators as "/".
std::string normalised(std::string name);

}  // namespace zipentry

// The data of minizip's current entry. Plain stored and deflated entries go
// through minizip; entries with the traditional cipher are read raw,
// deciphered and inflated here, since the system's minizip has no such
// cipher; other methods (Deflate64, BZip2, LZMA) and AES entries are read
// straight from the archive file at `archivePath` and decoded here.
class ZipEntryReader {
 public:
  ZipEntryReader(unzFile z, const unz_file_info64& info, std::string archivePath = {})
      : z_(z), info_(info), archivePath_(std::move(archivePath)) {}
  ~ZipEntryReader();
  ZipEntryReader(const ZipEntryReader&) = delete;
  ZipEntryReader& operator=(const ZipEntryReader&) = delete;

  enum class Open { ok, failed, wrongPassword, unsupported };
  // An encrypted entry with an empty password is a wrong password.
  Open open(const std::string& password);
  // Bytes read, 0 at the end, -1 for damage.
  int read(char* out, unsigned cap);
  // True when the data was whole and its CRC (and, for AES, its
  // authentication code) matches; else `failure()` says why.
  bool finish();
  // Why opening or finishing failed, in words for the user.
  const std::string& failure() const { return failure_; }
  // The compression method the entry's data is in (the AES field's, for AES).
  std::uint16_t method() const { return method_; }

 private:
  Open openDirect(const std::string& password);
  std::string failure_;
  std::uint16_t method_ = 0;
  bool direct_ = false;
  bool checkCrc_ = true;
  std::uint64_t produced_ = 0;
  std::FILE* file_ = nullptr;
  zipdata::AesLayer* aes_ = nullptr;  // owned through decoder_
  std::unique_ptr<zipdata::ByteSource> decoder_;

  unzFile z_;
  const unz_file_info64& info_;
  std::string archivePath_;
  bool opened_ = false;
  bool encrypted_ = false;
  bool inflating_ = false;
  bool ended_ = false;
  std::optional<ZipCrypto> crypto_;
  z_stream stream_{};
  std::vector<char> in_;
  uLong crc_ = crc32(0, nullptr, 0);
};

}  // namespace harbor

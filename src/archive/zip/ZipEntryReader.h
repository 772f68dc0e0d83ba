#pragma once

#include <minizip/unzip.h>
#include <zlib.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "archive/zip/ZipCrypto.h"

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

// The data of minizip's current entry. Plain entries go through minizip;
// encrypted ones are read raw, deciphered and inflated here, since the
// system's minizip has no traditional encryption.
class ZipEntryReader {
 public:
  ZipEntryReader(unzFile z, const unz_file_info64& info) : z_(z), info_(info) {}
  ~ZipEntryReader();
  ZipEntryReader(const ZipEntryReader&) = delete;
  ZipEntryReader& operator=(const ZipEntryReader&) = delete;

  enum class Open { ok, failed, wrongPassword };
  // An encrypted entry with an empty password is a wrong password.
  Open open(const std::string& password);
  // Bytes read, 0 at the end, -1 for damage.
  int read(char* out, unsigned cap);
  // True when the data was whole and its CRC matches.
  bool finish();

 private:
  unzFile z_;
  const unz_file_info64& info_;
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

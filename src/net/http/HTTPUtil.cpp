#include "net/http/HTTPUtil.h"

#include "platform/Paths.h"

#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>

#include "net/http/HTTPMessage.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A plain non-negative decimal that fits 64 bits.
std::optional<std::uint64_t> parseDecimal(std::string_view s) {
  if (s.empty() || s.size() > 20) return std::nullopt;
  std::uint64_t v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return std::nullopt;
    std::uint64_t d = static_cast<std::uint64_t>(c - '0');
    if (v > (UINT64_MAX - d) / 10) return std::nullopt;
    v = v * 10 + d;
  }
  return v;
}

std::string_view trimSpace(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

}  // namespace

std::optional<std::string> HTTPUtil::percentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '%') {
      out += s[i];
      continue;
    }
    if (i + 2 >= s.size()) return std::nullopt;
    int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  if (!isValidUtf8(out)) return std::nullopt;
  return out;
}

std::string HTTPUtil::percentEscape(std::string_view s, bool keepSlash) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : s) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~' ||
        (keepSlash && c == '/')) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

std::map<std::string, std::optional<std::string>> HTTPUtil::parseParams(std::string_view query) {
  std::map<std::string, std::optional<std::string>> out;
  while (true) {
    std::size_t amp = query.find('&');
    std::string_view element = query.substr(0, amp);
    std::size_t eq = element.find('=');
    if (eq != std::string_view::npos && eq > 0) {
      auto key = percentDecode(element.substr(0, eq));
      if (key && !key->empty()) {
        auto value = percentDecode(element.substr(eq + 1));
        out.insert_or_assign(std::move(*key), std::move(value));
      }
    }
    if (amp == std::string_view::npos) break;
    query.remove_prefix(amp + 1);
  }
  return out;
}

std::optional<std::vector<ByteRange>> HTTPUtil::parseRangeRequest(std::string_view header,
                                                                  std::uint64_t length) {
  std::size_t eq = header.find('=');
  if (eq == std::string_view::npos) return std::nullopt;
  if (!equalsIgnoreCase(trimSpace(header.substr(0, eq)), "bytes")) return std::nullopt;
  std::string_view value = trimSpace(header.substr(eq + 1));
  std::vector<ByteRange> ranges;
  // A client may list many; each costs a part head, so keep it sane.
  constexpr std::size_t kMaxRanges = 64;
  while (true) {
    std::size_t comma = value.find(',');
    std::string_view element = trimSpace(value.substr(0, comma));
    std::size_t dash = element.find('-');
    if (dash == std::string_view::npos) {
      // A single number names one byte: kept as the clients that use it expect.
      auto n = parseDecimal(element);
      if (!n || *n >= length) return std::nullopt;
      ranges.push_back({*n, 1});
    } else {
      auto a = parseDecimal(trimSpace(element.substr(0, dash)));
      auto b = parseDecimal(trimSpace(element.substr(dash + 1)));
      if (a && b) {
        if (*b < *a || *b >= length) return std::nullopt;
        ranges.push_back({*a, *b - *a + 1});
      } else if (a) {
        if (*a >= length) return std::nullopt;
        ranges.push_back({*a, length - *a});
      } else if (b) {
        if (*b > length || *b == 0) return std::nullopt;
        ranges.push_back({length - *b, *b});
      } else {
        return std::nullopt;
      }
    }
    if (ranges.size() > kMaxRanges) return std::nullopt;
    if (comma == std::string_view::npos) break;
    value.remove_prefix(comma + 1);
  }
  if (ranges.empty()) return std::nullopt;
  std::sort(ranges.begin(), ranges.end(),
            [](const ByteRange& x, const ByteRange& y) { return x.location < y.location; });
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    if (ranges[i].location < ranges[i - 1].location + ranges[i - 1].length) return std::nullopt;
  }
  return ranges;
}

std::string HTTPUtil::dateAsString(std::chrono::system_clock::time_point date) {
  static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::time_t t = std::chrono::system_clock::to_time_t(date);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%s, %02d %s %d %02d:%02d:%02d GMT", days[tm.tm_wday % 7],
                tm.tm_mday, months[tm.tm_mon % 12], tm.tm_year + 1900, tm.tm_hour, tm.tm_min,
                tm.tm_sec);
  return buf;
}

std::string HTTPUtil::md5Hex(std::string_view data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), digest, &len, EVP_md5(), nullptr);
  static const char* hex = "0123456789abcdef";
  std::string out;
  for (unsigned int i = 0; i < len; ++i) {
    out += hex[digest[i] >> 4];
    out += hex[digest[i] & 15];
  }
  return out;
}

std::optional<std::string> HTTPUtil::base64Decode(std::string_view text) {
  std::string clean;
  for (char c : text) {
    if (!std::isspace(static_cast<unsigned char>(c))) clean += c;
  }
  if (clean.size() % 4 != 0) return std::nullopt;
  if (clean.empty()) return std::string();
  std::string out(clean.size() / 4 * 3, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(clean.data()),
                          static_cast<int>(clean.size()));
  if (n < 0) return std::nullopt;
  std::size_t pad = clean.ends_with("==") ? 2 : clean.ends_with('=') ? 1 : 0;
  out.resize(static_cast<std::size_t>(n) - pad);
  return out;
}

std::string HTTPUtil::base64Encode(std::string_view data) {
  std::string out(4 * ((data.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(data.data()),
                          static_cast<int>(data.size()));
  out.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return out;
}

std::string HTTPUtil::uuidString() {
  unsigned char b[16];
  if (RAND_bytes(b, sizeof b) != 1) {
    std::random_device rd;
    for (auto& x : b) x = static_cast<unsigned char>(rd());
  }
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  char out[37];
  std::snprintf(out, sizeof out,
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  return out;
}

std::optional<std::string> HTTPUtil::resolveInsideRoot(const std::string& path,
                                                       const std::string& root) {
  std::error_code ec;
  fs::path realRoot = fs::weakly_canonical(root, ec);
  if (ec) return std::nullopt;
  fs::path normal = fs::path(path).lexically_normal();
  // A path already resolved (as an index file found below the real root) is
  // measured against the real root; any other against the root as given.
  if (!isPathAtOrBelow(normal.string(), fs::path(root).lexically_normal().string()) &&
      !isPathAtOrBelow(normal.string(), realRoot.string())) {
    return std::nullopt;
  }
  // weakly_canonical resolves every link on the way, a dangling leaf too.
  fs::path real = fs::weakly_canonical(normal, ec);
  if (ec) return std::nullopt;
  if (!isPathAtOrBelow(real.string(), realRoot.string())) return std::nullopt;
  return real.string();
}

}  // namespace harbor

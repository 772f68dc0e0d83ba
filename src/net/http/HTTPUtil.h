#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

struct ByteRange {
  std::uint64_t location = 0;
  std::uint64_t length = 0;
  bool operator==(const ByteRange&) const = default;
};

// Helpers of the HTTP server that need no connection.
class HTTPUtil {
 public:
  HTTPUtil() = delete;

  // "%41" to "A"; "+" stays. nullopt on a bad escape or text that is not UTF-8.
  static std::optional<std::string> percentDecode(std::string_view s);
  // Escapes everything but unreserved characters and "/".
  static std::string percentEscape(std::string_view s, bool keepSlash = true);

  // A query or form body: "a=1&b=2". Elements without "=" or with an empty
  // key are skipped; an undecodable key is skipped, an undecodable value
  // is kept as nullopt.
  static std::map<std::string, std::optional<std::string>> parseParams(std::string_view query);

  // The ranges of a "Range" value against a body of `contentLength` bytes,
  // sorted by start; nullopt when the value is not usable (the body is then
  // served whole).
  static std::optional<std::vector<ByteRange>> parseRangeRequest(std::string_view header,
                                                                 std::uint64_t contentLength);

  static std::string dateAsString(std::chrono::system_clock::time_point date);
  static std::string md5Hex(std::string_view data);
  static std::optional<std::string> base64Decode(std::string_view text);
  static std::string base64Encode(std::string_view data);
  static std::string uuidString();

  // The real location of `path` (links resolved, for a missing leaf its
  // folder's) when it stays inside `root`; nullopt otherwise.
  static std::optional<std::string> resolveInsideRoot(const std::string& path,
                                                      const std::string& root);
};

}  // namespace harbor

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "archive/IArchive.h"
#include "platform/Error.h"

namespace harbor {

class IActionProgress;

// A one-call zip extractor for callers that want no entry tree. Its rules are
// simpler than UZipArchive's: names are UTF-8 or else GB 18030, existing files
// are kept unless asked to overwrite, and everything is written in one pass.
// Like every extractor it writes nothing outside the destination.
class SSZipArchive {
 public:
  static constexpr const char* kErrorDomain = "SSZipArchiveErrorDomain";

  SSZipArchive() = delete;

  static bool unzipFileAtPath(const std::string& path, const std::string& destination);
  static bool unzipFileAtPath(const std::string& path, const std::string& destination,
                              IActionProgress* delegate);
  // `error` (when given) receives the failure; `refused` (when given) the
  // entries that would have left the destination, which are skipped.
  static bool unzipFileAtPath(const std::string& path, const std::string& destination,
                              bool overwrite, const std::string& password,
                              std::optional<Error>* error, IActionProgress* delegate,
                              std::vector<RefusedEntry>* refused = nullptr);
};

}  // namespace harbor

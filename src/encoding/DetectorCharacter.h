#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// Statistical charset detection over the ICU detector. Candidates come in
// the detector's order, best first, with no confidence threshold; a candidate
// counts only when it really decodes the bytes. Detection looks at a sample
// of at most kSampleSize bytes, while decoding is tried on all the data.
class DetectorCharacter {
 public:
  static constexpr std::size_t kSampleSize = 8192;

  // Candidate names; empty when the detector finds nothing.
  static std::vector<std::string> detectorBytesEncoding(const char* bytes, std::size_t length);
  static std::vector<std::string> detectorDataEncoding(std::string_view data);
  // The first kSampleSize bytes of the file; empty when it cannot be opened.
  static std::vector<std::string> detectorFileEncoding(const std::string& path,
                                                       Error* error = nullptr);

  // Decoded text, trying "UTF-8" alone when the detector finds nothing.
  static std::optional<std::u16string> detectorFile(const std::string& path);
  // Gives the detector all of the data, not a sample.
  static std::optional<std::u16string> detectorForData(std::string_view data);
  // For NUL-ended names (archive entries): detected over `length` bytes,
  // decoded up to the NUL.
  static std::optional<std::u16string> detectorForCChar(const char* bytes, std::size_t length);
  static std::optional<std::u16string> detectorForCharArray(const char* chars, std::size_t length);

  // What the editor loads with: no default candidate, and a cancelled thread
  // stops between candidates. On success outEncoding gets the name used;
  // otherwise it is left as it was.
  static std::optional<std::u16string> detectorWithData(std::string_view data,
                                                        std::string* outEncoding);
  // Reads the file, then as above. `error` says why when the answer is empty.
  static std::optional<std::u16string> detectorWithFilePath(const std::string& path,
                                                            std::string* outEncoding,
                                                            Error* error = nullptr);

  std::string encodingName;
};

}  // namespace harbor

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// Charset detection. Candidates come best first, each once: a byte order
// mark; UTF-8 when the bytes are valid UTF-8 holding non-ASCII; what the text
// declares (CharsetDeclaration); uchardet's answer; then the ICU detector's
// list, with no confidence threshold. UTF-16 without a mark is left out for
// bytes whose NULs do not sit as UTF-16 puts them. A candidate counts only
// when it really decodes the bytes. The ICU detector and the declaration
// look at a sample of at most kSampleSize bytes, uchardet at up to 64 KiB,
// while decoding is tried on all the data.
class DetectorCharacter {
 public:
  static constexpr std::size_t kSampleSize = 8192;

  // Candidate names; empty when nothing suggests one.
  static std::vector<std::string> detectorBytesEncoding(const char* bytes, std::size_t length);
  static std::vector<std::string> detectorDataEncoding(std::string_view data);
  // The head of the file, as detectorDataEncoding; empty when it cannot be
  // opened.
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

  // Whether detectorWithData reads these bytes as UTF-8 for certain: its
  // sample is UTF-8 holding non-ASCII and the whole is valid UTF-8. Lets a
  // caller reason about the text from the bytes without decoding them.
  static bool readsAsUtf8(std::string_view data);
  // The same for `whole` when the sample is taken from `head` instead: a
  // caller that changed only whole ASCII lines of the bytes keeps the answer.
  static bool readsAsUtf8(std::string_view head, std::string_view whole);

  // What the editor loads with: no default candidate, and a cancelled thread
  // stops between candidates. On success outEncoding gets the name used;
  // otherwise it is left as it was.
  static std::optional<std::u16string> detectorWithData(std::string_view data,
                                                        std::string* outEncoding);
  // Reads the file; the encoding the user chose for it (EncodingUtil's
  // history) comes first, then as above. `error` says why when the answer is
  // empty.
  static std::optional<std::u16string> detectorWithFilePath(const std::string& path,
                                                            std::string* outEncoding,
                                                            Error* error = nullptr);

  std::string encodingName;
};

}  // namespace harbor

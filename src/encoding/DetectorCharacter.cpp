#include "encoding/DetectorCharacter.h"

#include <unicode/ucsdet.h>

#include <algorithm>
#include <climits>

#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "platform/Cancellation.h"
#include "platform/Strings.h"

namespace harbor {
namespace {

std::string_view sample(std::string_view data) {
  return data.substr(0, DetectorCharacter::kSampleSize);
}

std::vector<std::string> orUtf8(std::vector<std::string> names) {
  if (names.empty()) names.emplace_back("UTF-8");
  return names;
}

// True when the detector is certain to rank UTF-8 first for this sample:
// more than three complete multi-byte sequences and nothing else out of
// place earns its recogniser full confidence, and as the first recogniser
// it wins every tie. Strictly valid UTF-8 is all this accepts; a sequence
// cut by the end of the sample is neither counted nor held against it.
// Most files are UTF-8, and this spares them the detector's cost.
bool detectorRanksUtf8First(std::string_view sample) {
  int complete = 0;
  std::size_t i = 0;
  while (i < sample.size()) {
    const unsigned char c = static_cast<unsigned char>(sample[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t trail;
    if (c >= 0xC2 && c <= 0xDF) {
      trail = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      trail = 2;
    } else if (c >= 0xF0 && c <= 0xF4) {
      trail = 3;
    } else {
      return false;
    }
    std::size_t k = 1;
    for (; k <= trail && i + k < sample.size(); ++k) {
      if ((static_cast<unsigned char>(sample[i + k]) & 0xC0) != 0x80) return false;
    }
    if (k <= trail) break;  // cut by the end of the sample
    ++complete;
    i += trail + 1;
  }
  return complete > 3;
}

Error notTextError(const std::string& path) {
  std::string text = localizedString("EncodingNotText");
  if (auto at = text.find("%@"); at != std::string::npos) text.replace(at, 2, path);
  return Error{kEncodingErrorDomain, 2, text};
}

}  // namespace

std::vector<std::string> DetectorCharacter::detectorBytesEncoding(const char* bytes,
                                                                  std::size_t length) {
  std::vector<std::string> names;
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&status);
  if (U_FAILURE(status) || !detector) return names;
  // The detector counts in 32 bits; past that it sees the first 2 GiB.
  const auto len = static_cast<int32_t>(std::min<std::size_t>(length, INT32_MAX));
  ucsdet_setText(detector, bytes ? bytes : "", bytes ? len : 0, &status);
  int32_t count = 0;
  const UCharsetMatch** matches = ucsdet_detectAll(detector, &count, &status);
  if (U_SUCCESS(status) && matches) {
    for (int32_t i = 0; i < count; ++i) {
      UErrorCode nameStatus = U_ZERO_ERROR;
      const char* name = ucsdet_getName(matches[i], &nameStatus);
      if (U_FAILURE(nameStatus) || !name) continue;
      names.emplace_back(name);
    }
  }
  ucsdet_close(detector);
  return names;
}

std::vector<std::string> DetectorCharacter::detectorDataEncoding(std::string_view data) {
  std::string_view head = sample(data);
  return detectorBytesEncoding(head.data(), head.size());
}

std::vector<std::string> DetectorCharacter::detectorFileEncoding(const std::string& path,
                                                                 Error* error) {
  std::optional<std::string> head = FileBytes::readHead(path, kSampleSize, error);
  if (!head) return {};
  return detectorBytesEncoding(head->data(), head->size());
}

std::optional<std::u16string> DetectorCharacter::detectorFile(const std::string& path) {
  std::optional<FileBytes> bytes = FileBytes::read(path);
  if (!bytes) return std::nullopt;
  return EncodingUtil::detectWithCharsets(orUtf8(detectorDataEncoding(bytes->view())),
                                          bytes->view());
}

std::optional<std::u16string> DetectorCharacter::detectorForData(std::string_view data) {
  return EncodingUtil::detectWithCharsets(orUtf8(detectorBytesEncoding(data.data(), data.size())),
                                          data);
}

std::optional<std::u16string> DetectorCharacter::detectorForCChar(const char* bytes,
                                                                  std::size_t length) {
  if (!bytes) return std::nullopt;
  return EncodingUtil::detectWithCharsetsAndChar(orUtf8(detectorBytesEncoding(bytes, length)),
                                                 bytes);
}

std::optional<std::u16string> DetectorCharacter::detectorForCharArray(const char* chars,
                                                                      std::size_t length) {
  if (!chars) return std::nullopt;
  return EncodingUtil::detectWithCharsets(orUtf8(detectorBytesEncoding(chars, length)), chars);
}

std::optional<std::u16string> DetectorCharacter::detectorWithData(std::string_view data,
                                                                  std::string* outEncoding) {
  // UTF-8 would be the first candidate: try it before running the detector,
  // which is only needed when the whole data turns out not to be UTF-8.
  const bool utf8Tried = detectorRanksUtf8First(sample(data));
  if (utf8Tried) {
    if (isCurrentThreadCancelled()) return std::nullopt;
    if (auto text = StringEncodings::decode(data, kUTF8StringEncoding)) {
      if (outEncoding) *outEncoding = "UTF-8";
      return text;
    }
  }
  for (const std::string& name : detectorDataEncoding(data)) {
    // The editor loads on its own thread; closing it must not wait for the
    // rest of the candidates on a large file.
    if (isCurrentThreadCancelled()) return std::nullopt;
    if (utf8Tried && name == "UTF-8") continue;
    std::optional<std::u16string> text =
        StringEncodings::decode(data, EncodingUtil::convertStringToNSStringEncoding(name));
    if (text) {
      if (outEncoding) *outEncoding = name;
      return text;
    }
  }
  return std::nullopt;
}

std::optional<std::u16string> DetectorCharacter::detectorWithFilePath(const std::string& path,
                                                                      std::string* outEncoding,
                                                                      Error* error) {
  std::optional<FileBytes> bytes = FileBytes::read(path, error);
  if (!bytes) return std::nullopt;
  std::optional<std::u16string> text = detectorWithData(bytes->view(), outEncoding);
  if (!text && error) {
    *error = isCurrentThreadCancelled()
                 ? Error{kEncodingErrorDomain, 100, localizedString("EncodingCancelled")}
                 : notTextError(path);
  }
  return text;
}

}  // namespace harbor

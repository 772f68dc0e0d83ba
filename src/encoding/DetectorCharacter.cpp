#include "encoding/DetectorCharacter.h"

#include <uchardet/uchardet.h>
#include <unicode/ucsdet.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "encoding/CharsetDeclaration.h"
#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "platform/Cancellation.h"
#include "platform/Strings.h"

namespace harbor {
namespace {

std::string_view sample(std::string_view data) {
  return data.substr(0, DetectorCharacter::kSampleSize);
}

// uchardet is cheap and tells close single-byte tables apart (ISO-8859-7
// from windows-1253) only by letters that may first appear after the
// ICU detector's sample, so it reads further.
constexpr std::size_t kUchardetSample = 65536;

std::vector<std::string> orUtf8(std::vector<std::string> names) {
  if (names.empty()) names.emplace_back("UTF-8");
  return names;
}

// Valid UTF-8 holding at least one non-ASCII character. A sequence cut by
// the end of a sample is neither counted nor held against it.
// Continuation bytes after a UTF-8 lead byte; 0 for a byte that cannot lead.
std::size_t utf8TrailBytes(unsigned char c) {
  if (c >= 0xC2 && c <= 0xDF) return 1;
  if (c >= 0xE0 && c <= 0xEF) return 2;
  if (c >= 0xF0 && c <= 0xF4) return 3;
  return 0;
}

bool utf8WithNonAscii(std::string_view sample) {
  bool nonAscii = false;
  std::size_t i = 0;
  while (i < sample.size()) {
    const unsigned char c = static_cast<unsigned char>(sample[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    const std::size_t trail = utf8TrailBytes(c);
    if (trail == 0) return false;
    std::size_t k = 1;
    for (; k <= trail && i + k < sample.size(); ++k) {
      const unsigned char d = static_cast<unsigned char>(sample[i + k]);
      if ((d & 0xC0) != 0x80) return false;
      // Overlong forms, surrogates and code points past U+10FFFF.
      if (k == 1 && ((c == 0xE0 && d < 0xA0) || (c == 0xED && d > 0x9F) ||
                     (c == 0xF0 && d < 0x90) || (c == 0xF4 && d > 0x8F))) {
        return false;
      }
    }
    if (k <= trail) break;  // cut by the end of the sample
    nonAscii = true;
    i += trail + 1;
  }
  return nonAscii;
}

// The encoding a byte order mark names; empty without one.
std::string byteOrderMark(std::string_view data) {
  if (data.substr(0, 3) == "\xEF\xBB\xBF") return "UTF-8";
  if (data.substr(0, 4) == std::string_view("\xFF\xFE\0\0", 4)) return "UTF-32LE";
  if (data.substr(0, 4) == std::string_view("\0\0\xFE\xFF", 4)) return "UTF-32BE";
  if (data.substr(0, 2) == "\xFF\xFE") return "UTF-16LE";
  if (data.substr(0, 2) == "\xFE\xFF") return "UTF-16BE";
  return {};
}

bool textByte(unsigned char c) {
  return (c >= 0x20 && c < 0x7F) || c == '\t' || c == '\n' || c == '\r';
}

// Bytes with NULs are UTF-16 only when they look the part: the NULs stand in
// the high byte of units (ASCII and Latin-1 characters) far more often than
// in the low one, and the other units are not mostly two ASCII bytes side by
// side, as in 8-bit text that carries a stray NUL. Without a NUL this says
// nothing against UTF-16.
bool utf16ByStructure(std::string_view data, bool bigEndian) {
  if (data.find('\0') == std::string_view::npos) return true;
  if (data.size() % 2 != 0) return false;
  std::size_t highNul = 0, lowNul = 0, asciiPairs = 0, others = 0;
  for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
    const auto first = static_cast<unsigned char>(data[i]);
    const auto second = static_cast<unsigned char>(data[i + 1]);
    const unsigned char high = bigEndian ? first : second, low = bigEndian ? second : first;
    if (high == 0 && low == 0) return false;
    if (high == 0) {
      ++highNul;
    } else if (low == 0) {
      ++lowNul;
    } else {
      ++others;
      if (textByte(high) && textByte(low)) ++asciiPairs;
    }
  }
  return highNul > 0 && highNul >= 4 * lowNul && asciiPairs * 2 <= others;
}

// Ukrainian letters sit where KOI8-R has box-drawing characters; next to a
// Cyrillic letter (0xC0 and up in both) they can only be KOI8-U.
bool koi8uLetters(std::string_view data) {
  auto letter = [&](std::size_t i) {
    return i < data.size() && static_cast<unsigned char>(data[i]) >= 0xC0;
  };
  for (std::size_t i = 0; i < data.size(); ++i) {
    switch (static_cast<unsigned char>(data[i])) {
      case 0xA4:
      case 0xA6:
      case 0xA7:
      case 0xAD:
      case 0xB4:
      case 0xB6:
      case 0xB7:
      case 0xBD:
        if ((i > 0 && letter(i - 1)) || letter(i + 1)) return true;
        break;
      default:
        break;
    }
  }
  return false;
}

// uchardet's single answer; empty when it has none, or only "ASCII", which
// leaves the choice for plain text to the ICU detector as before.
std::string uchardetAnswer(std::string_view data) {
  uchardet_t detector = uchardet_new();
  if (!detector) return {};
  std::string name;
  if (uchardet_handle_data(detector, data.data(), data.size()) == 0) {
    uchardet_data_end(detector);
    if (const char* answer = uchardet_get_charset(detector)) name = answer;
  }
  uchardet_delete(detector);
  return name == "ASCII" ? std::string() : name;
}

// The ICU detector's names, best first, with no confidence threshold.
std::vector<std::string> icuAnswers(std::string_view data) {
  std::vector<std::string> names;
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&status);
  if (U_FAILURE(status) || !detector) return names;
  // The detector counts in 32 bits; past that it sees the first 2 GiB.
  const auto len = static_cast<int32_t>(std::min<std::size_t>(data.size(), INT32_MAX));
  ucsdet_setText(detector, data.empty() ? "" : data.data(), len, &status);
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

// The candidates for these bytes, best first and each once, in our own names
// (`more` starts with `data` and may run on, for uchardet). Without the ICU
// detector's list the answer is a prefix of the whole list, since nothing
// the later names bring moves an earlier one:
// a byte order mark; valid UTF-8 holding non-ASCII; what the text declares;
// uchardet's answer; the ICU detector's list. Names no table here knows are
// left out rather than read as UTF-8.
std::vector<std::string> candidates(std::string_view data, std::string_view more,
                                    bool withIcu = true) {
  std::vector<std::string> names;
  auto add = [&names](StringEncoding encoding) {
    if (encoding == kInvalidStringEncoding) return;
    std::string name = EncodingUtil::encodingForStringEncoding(encoding);
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(std::move(name));
    }
  };
  auto addName = [&add](std::string_view name) {
    if (!name.empty()) add(CharsetDeclaration::resolve(name));
  };
  const std::string mark = byteOrderMark(data);
  addName(mark);
  if (utf8WithNonAscii(data)) add(kUTF8StringEncoding);
  if (auto declared = CharsetDeclaration::declaredEncoding(data)) add(*declared);
  addName(uchardetAnswer(more));
  if (withIcu) {
    for (const std::string& name : icuAnswers(data)) addName(name);
  }

  if (auto koi8r = std::find(names.begin(), names.end(), "KOI8-R");
      koi8r != names.end() && koi8uLetters(data) &&
      std::find(names.begin(), names.end(), "KOI8-U") == names.end()) {
    names.insert(koi8r, "KOI8-U");
  }
  if (mark.rfind("UTF-16", 0) != 0) {
    std::erase_if(names, [&](const std::string& name) {
      if (name.rfind("UTF-16", 0) != 0) return false;
      return !utf16ByStructure(data, name != "UTF-16LE");
    });
  }
  return names;
}

Error notTextError(const std::string& path) {
  std::string text = localizedString("EncodingNotText");
  if (auto at = text.find("%@"); at != std::string::npos) text.replace(at, 2, path);
  return Error{kEncodingErrorDomain, 2, text};
}

}  // namespace

std::vector<std::string> DetectorCharacter::detectorBytesEncoding(const char* bytes,
                                                                  std::size_t length) {
  const std::string_view data = bytes ? std::string_view(bytes, length) : std::string_view();
  return candidates(data, data);
}

std::vector<std::string> DetectorCharacter::detectorDataEncoding(std::string_view data) {
  return candidates(sample(data), data.substr(0, kUchardetSample));
}

std::vector<std::string> DetectorCharacter::detectorFileEncoding(const std::string& path,
                                                                 Error* error) {
  std::optional<std::string> head = FileBytes::readHead(path, kUchardetSample, error);
  if (!head) return {};
  return detectorDataEncoding(*head);
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

bool DetectorCharacter::readsAsUtf8(std::string_view data) {
  return readsAsUtf8(data, data);
}

bool DetectorCharacter::readsAsUtf8(std::string_view head, std::string_view data) {
  if (!utf8WithNonAscii(sample(head))) return false;
  // The whole must decode, so no sequence may be cut by the end either.
  std::size_t i = 0;
  const auto* p = reinterpret_cast<const unsigned char*>(data.data());
  const std::size_t n = data.size();
  while (i < n) {
    // ASCII runs, the bulk of source code, eight bytes at a time.
    while (i + 8 <= n) {
      std::uint64_t word;
      std::memcpy(&word, p + i, 8);
      if (word & 0x8080808080808080ull) break;
      i += 8;
    }
    if (i >= n) break;
    const unsigned char c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    const std::size_t trail = utf8TrailBytes(c);
    if (trail == 0) return false;
    if (i + trail >= n) return false;
    for (std::size_t k = 1; k <= trail; ++k) {
      const unsigned char d = p[i + k];
      if ((d & 0xC0) != 0x80) return false;
      if (k == 1 && ((c == 0xE0 && d < 0xA0) || (c == 0xED && d > 0x9F) ||
                     (c == 0xF0 && d < 0x90) || (c == 0xF4 && d > 0x8F))) {
        return false;
      }
    }
    i += trail + 1;
  }
  return true;
}

std::optional<std::u16string> DetectorCharacter::detectorWithData(std::string_view data,
                                                                  std::string* outEncoding) {
  // The plain trial of detectorDataEncoding's list, built in steps so that
  // most files never pay for the later detectors: UTF-8 alone when the
  // sample is valid UTF-8, then the list up to uchardet's answer, then the
  // whole list.
  std::vector<std::string> tried;
  bool cancelled = false;
  auto attempt = [&](const std::vector<std::string>& names) -> std::optional<std::u16string> {
    for (const std::string& name : names) {
      // The editor loads on its own thread; closing it must not wait for the
      // rest of the candidates on a large file.
      if (isCurrentThreadCancelled()) {
        cancelled = true;
        return std::nullopt;
      }
      if (std::find(tried.begin(), tried.end(), name) != tried.end()) continue;
      tried.push_back(name);
      std::optional<std::u16string> text =
          StringEncodings::decode(data, EncodingUtil::convertStringToNSStringEncoding(name));
      if (text) {
        if (outEncoding) *outEncoding = name;
        return text;
      }
    }
    return std::nullopt;
  };
  const std::string_view head = sample(data), more = data.substr(0, kUchardetSample);
  if (utf8WithNonAscii(head)) {
    if (auto text = attempt({"UTF-8"})) return text;
  }
  if (cancelled) return std::nullopt;
  if (auto text = attempt(candidates(head, more, false))) return text;
  if (cancelled) return std::nullopt;
  return attempt(candidates(head, more, true));
}

std::optional<std::u16string> DetectorCharacter::detectorWithFilePath(const std::string& path,
                                                                      std::string* outEncoding,
                                                                      Error* error) {
  std::optional<FileBytes> bytes = FileBytes::read(path, error);
  if (!bytes) return std::nullopt;
  // The user's remembered choice for this file comes before any guess.
  if (std::int64_t stored = EncodingUtil::getCurrentFileEncoding(path); stored != -1) {
    const auto encoding = static_cast<StringEncoding>(stored);
    if (auto text = StringEncodings::decodeAsChosen(bytes->view(), encoding)) {
      if (outEncoding) *outEncoding = EncodingUtil::encodingForStringEncoding(encoding);
      return text;
    }
  }
  std::optional<std::u16string> text = detectorWithData(bytes->view(), outEncoding);
  if (!text && error) {
    *error = isCurrentThreadCancelled()
                 ? Error{kEncodingErrorDomain, 100, localizedString("EncodingCancelled")}
                 : notTextError(path);
  }
  return text;
}

}  // namespace harbor

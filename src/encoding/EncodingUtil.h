#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/EncodingItem.h"
#include "encoding/StringEncodings.h"

namespace harbor {

// Names and numbers, trial decoding, the per-file history, the guess by
// language and the encoding lists. Every operation is synchronous and safe on
// any thread; nothing here reports an error: a failed decoding is a missing
// string.
class EncodingUtil {
 public:
  using Charsets = std::vector<std::string>;

  EncodingUtil() = delete;

  // Names to numbers. An empty or unknown name is UTF-8 (4).
  static StringEncoding convertStringToNSStringEncoding(std::string_view name);
  // Empty for a number that names no encoding.
  static std::string encodingForStringEncoding(StringEncoding encoding);

  // Trial decoding: the names in order, the first that yields a string wins.
  static std::optional<std::u16string> detectWithCharsets(const Charsets& charsets,
                                                          std::string_view data);
  // NUL-ended bytes.
  static std::optional<std::u16string> detectWithCharsets(const Charsets& charsets,
                                                          const char* chars);
  // NUL-ended bytes, read in place (runs once per archive entry name).
  static std::optional<std::u16string> detectWithCharsetsAndChar(const Charsets& charsets,
                                                                 const char* ch);
  static std::optional<std::string> detectWithCharsetsRetrunCharset(const Charsets& charsets,
                                                                    std::string_view data);
  // Candidates from the detector's sample of `data`.
  static std::optional<std::u16string> detectWithData(std::string_view data);
  static std::optional<std::u16string> detectWithData(std::string_view data,
                                                      std::string* outEncoding);
  static std::optional<std::u16string> detectWithData(std::string_view data,
                                                      std::string* outEncoding,
                                                      const Charsets& charsets);
  // A candidate whose text also survives a trip through UTF-8 and back.
  static std::optional<std::string> getCorrectCharset(const Charsets& charsets,
                                                      std::string_view data);

  // History of the user's choices, a map from file key to charset name under
  // SYSTEM_ENCODING_HISTORY. Saving and reading use the key as given (the
  // picker passes the full path); removing one entry turns the path into a
  // document-relative one first, so an entry saved under a full path stays.
  static void saveFileEncoding(std::string_view key, std::string_view encoding);
  static std::optional<std::string> getFileEncoding(std::string_view key);
  static void removeFileEncoding(std::string_view path);
  // Drops every key that is not an existing path.
  static void removeFileEncoding();
  // The number of the stored name; -1 when there is none, or it is empty or
  // "Automatic".
  static std::int64_t getCurrentFileEncoding(std::string_view path);
  // The whole file as text: the stored encoding when it decodes, else
  // detection over all of it. Empty when unreadable or undecodable.
  static std::u16string getFileContent(const std::string& path);

  // The guess by byte order mark and system language; no detector involved.
  // Returns the first name to try and appends the fallbacks to backEncodings.
  static std::string autoDetectEncoding(std::string_view data, Charsets& backEncodings);
  static std::string autoDetectEncoding(std::string_view data);
  static std::optional<std::u16string> autoDetectReturnString(std::string_view data);
  static std::optional<std::u16string> autoDetectReturnString(std::string_view data,
                                                              std::string* outEncoding);

  // Windows locale identifiers: the charset of the locale's code page, "UTF-8"
  // for one not listed.
  static std::string getCharsetFromLCID(std::uint32_t lcid);
  static StringEncoding getEncodingFromLCID(std::uint32_t lcid);

  // Every encoding that can really be decoded here, with a name; and the same
  // sorted by localised name.
  static std::vector<EncodingItem> allAvailableStringEncodings();
  static std::vector<EncodingItem> allAvailableStringEncodingsOrdered();

  // The system language in the form "ja", "zh-Hans", "zh-Hant": the first of
  // LANGUAGE, LC_ALL, LC_MESSAGES and LANG that names one; a value that is
  // already a language tag ("zh-Hans-CN") is kept as it is. "en" by default.
  static std::string getSystemLanguage();
  // The local time zone is one of mainland China's.
  static bool isChinaInner();
  // The default under SYSTEM_DEFAULT_Encoding; "Automatic" when unset or empty.
  static std::string getSystemDefaultEncoding();
  static void saveSystemDefaultEncoding(std::string_view name);
  // The picker's row text: "<WebEncodings[key]>(<WebEncodingsName[that]>)".
  static std::string getDefaultEncodingDescription(std::string_view key);
  // The keys of the "en" table "WebEncodings", in `compare:` order.
  static std::vector<std::string> webEncodingKeys();
};

}  // namespace harbor

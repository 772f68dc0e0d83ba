#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// The platform's numeric string encoding: 4 is UTF-8, 1..30 are the classic
// constants, and every other encoding is its table number with the top bit
// of 32 set (GB 18030 is 0x80000632).
using StringEncoding = std::uint64_t;
// The table number of an encoding, independent of the string class.
using TableEncoding = std::uint32_t;

inline constexpr StringEncoding kUTF8StringEncoding = 4;
inline constexpr TableEncoding kInvalidTableEncoding = 0xFFFFFFFFu;
inline constexpr StringEncoding kInvalidStringEncoding = ~StringEncoding{0};

// The encoding table: charset names, table numbers, string encodings and ICU
// converters in one place, with the same name and number mapping everywhere.
// Decoding is strict: a byte sequence the converter cannot map, a truncated
// sequence or an unpaired surrogate makes the whole decoding fail, and so does
// text that would hold U+0000. A C1 control also fails a legacy (non-Unicode)
// table, since text in its real table never carries one; in the Unicode forms
// U+0085 and its neighbours are text like any other. No replacement character
// is ever inserted.
class StringEncodings {
 public:
  StringEncodings() = delete;

  // Case-insensitive; kInvalidTableEncoding for a name the table does not know.
  static TableEncoding convertIANACharSetNameToEncoding(std::string_view name);
  static StringEncoding convertEncodingToNSStringEncoding(TableEncoding encoding);
  // kInvalidTableEncoding for a number that names no encoding.
  static TableEncoding convertNSStringEncodingToEncoding(StringEncoding encoding);
  // The preferred name; empty for an unknown number.
  static std::string convertEncodingToIANACharSetName(TableEncoding encoding);
  // Every encoding an ICU converter can really convert, in table order.
  static std::vector<TableEncoding> getListOfAvailableEncodings();

  // The ICU converter behind an encoding (empty when none), and back: any
  // name ICU resolves to one of our converters.
  static std::string icuConverterName(StringEncoding encoding);
  static StringEncoding stringEncodingForConverterName(std::string_view icuName);

  // "Japanese (Shift JIS)", through the strings table; empty when unknown.
  static std::string localizedNameOfStringEncoding(StringEncoding encoding);

  // The whole text or nothing. A leading byte order mark of the encoding's own
  // form is dropped.
  static std::optional<std::u16string> decode(std::string_view bytes, StringEncoding encoding);
  // As decode, for an encoding the user named: a C1 control is text here too,
  // since the user, not a guess, decided the table.
  static std::optional<std::u16string> decodeAsChosen(std::string_view bytes,
                                                      StringEncoding encoding);
  // UTF-8, UTF-16, UTF-32 or UTF-7 in any byte order.
  static bool isUnicode(StringEncoding encoding);
  // The bytes up to the first NUL.
  static std::optional<std::u16string> decodeCString(const char* bytes, StringEncoding encoding);
};

}  // namespace harbor

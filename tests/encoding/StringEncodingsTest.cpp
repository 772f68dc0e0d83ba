// The encoding table: names and numbers both ways, and strict decoding.
#include "encoding/StringEncodings.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "EncodingTestHelpers.h"

namespace harbor {
namespace {

using test::utf8;
using SE = StringEncodings;

StringEncoding numberOf(std::string_view name) {
  return SE::convertEncodingToNSStringEncoding(SE::convertIANACharSetNameToEncoding(name));
}

TEST(StringEncodings, NamesAndNumbersRoundTrip) {
  // The classic constants, and the table-bit form of every other encoding.
  EXPECT_EQ(numberOf("UTF-8"), 4u);
  EXPECT_EQ(numberOf("utf-8"), 4u);
  EXPECT_EQ(numberOf("US-ASCII"), 1u);
  EXPECT_EQ(numberOf("cp932"), 8u);
  EXPECT_EQ(numberOf("windows-1251"), 11u);
  EXPECT_EQ(numberOf("Macintosh"), 30u);
  EXPECT_EQ(numberOf("GB18030"), 0x80000632u);
  EXPECT_EQ(numberOf("UTF-16LE"), 0x94000100u);

  // Names the platform never knew stay unknown, even where IANA lists them.
  for (const char* name : {"Korean", "Cyrillic1251", "Greek7", "Thai", "", "no-such"}) {
    EXPECT_EQ(SE::convertIANACharSetNameToEncoding(name), kInvalidTableEncoding) << name;
    EXPECT_EQ(numberOf(name), kInvalidStringEncoding) << name;
  }

  // Every table number survives number -> string encoding -> number -> name -> number.
  for (TableEncoding t : SE::getListOfAvailableEncodings()) {
    StringEncoding s = SE::convertEncodingToNSStringEncoding(t);
    EXPECT_EQ(SE::convertNSStringEncodingToEncoding(s), t);
    EXPECT_EQ(SE::convertIANACharSetNameToEncoding(SE::convertEncodingToIANACharSetName(t)), t);
  }
  EXPECT_EQ(SE::convertNSStringEncodingToEncoding(0x80001234u), kInvalidTableEncoding);
  EXPECT_EQ(SE::convertNSStringEncodingToEncoding(kInvalidStringEncoding), kInvalidTableEncoding);
  EXPECT_EQ(SE::convertEncodingToIANACharSetName(0x0A01), "Shift_JIS");
}

TEST(StringEncodings, ConverterNamesBothWays) {
  EXPECT_EQ(SE::icuConverterName(4), "UTF-8");
  EXPECT_EQ(SE::icuConverterName(numberOf("GB18030")), "gb18030");
  // ICU aliases lead back to our row, whichever alias is used.
  EXPECT_EQ(SE::stringEncodingForConverterName("ibm-5347_P100-1998"), 11u);
  EXPECT_EQ(SE::stringEncodingForConverterName("cp1251"), 11u);
  EXPECT_EQ(SE::stringEncodingForConverterName("SJIS"), numberOf("Shift_JIS"));
  EXPECT_EQ(SE::stringEncodingForConverterName("ISO-8859-1"), kInvalidStringEncoding);
  EXPECT_EQ(SE::stringEncodingForConverterName("windows-1252"), 12u);
  EXPECT_EQ(SE::stringEncodingForConverterName("no-such-converter"), kInvalidStringEncoding);
  // In the table but without a converter here: named, never listed or decoded.
  const StringEncoding latin10 = numberOf("ISO-8859-16");
  ASSERT_NE(latin10, kInvalidStringEncoding);
  EXPECT_EQ(SE::icuConverterName(latin10), "");
  EXPECT_FALSE(SE::decode("abc", latin10));
  auto available = SE::getListOfAvailableEncodings();
  EXPECT_EQ(std::count(available.begin(), available.end(), 0x0210u), 0);
  for (TableEncoding t : available) {
    StringEncoding s = SE::convertEncodingToNSStringEncoding(t);
    EXPECT_FALSE(SE::localizedNameOfStringEncoding(s).empty()) << t;
  }
  EXPECT_EQ(SE::localizedNameOfStringEncoding(4), "Unicode (UTF-8)");
}

TEST(StringEncodings, DecodingFailsInsteadOfReplacing) {
  EXPECT_EQ(utf8(SE::decode("", 4)), "");
  EXPECT_EQ(utf8(SE::decode("caf\xC3\xA9", 4)), "caf\xC3\xA9");
  EXPECT_FALSE(SE::decode("caf\xE9", 4));       // Latin-1 byte in UTF-8
  EXPECT_FALSE(SE::decode("\xE3\x81", 4));      // truncated at the end
  EXPECT_FALSE(SE::decode("\xED\xA0\x80", 4));  // an encoded surrogate
  EXPECT_FALSE(SE::decode("\xC0\xAF", 4));      // overlong
  EXPECT_FALSE(SE::decode("abc\xFF", numberOf("US-ASCII")));
  EXPECT_FALSE(SE::decode("\xAE", numberOf("ISO-8859-7")));  // unassigned
  EXPECT_FALSE(SE::decode(std::string("\x3E\xD8\x41\x00", 4), numberOf("UTF-16LE")));
  EXPECT_FALSE(SE::decode("abc", numberOf("UTF-16LE")));  // odd length
  EXPECT_FALSE(SE::decode("\x82", numberOf("Shift_JIS")));
  EXPECT_FALSE(SE::decode("\x1B$B\x4A", numberOf("ISO-2022-JP")));

  // NUL means binary; a C1 control the wrong legacy table, but in Unicode
  // forms it is text.
  EXPECT_FALSE(SE::decode(std::string("a\0b", 3), 4));
  EXPECT_FALSE(SE::decode(std::string("a\0\0\0", 4), numberOf("UTF-16LE")));
  EXPECT_FALSE(SE::decode("\x81", 5));
  EXPECT_FALSE(SE::decode("\x80", numberOf("Shift_JIS")));
  EXPECT_EQ(SE::decode("\xC2\x85", 4), u"\u0085");
  EXPECT_EQ(SE::decode(std::string("\0\x96", 2), numberOf("UTF-16BE")), u"\u0096");
  EXPECT_TRUE(SE::isUnicode(numberOf("UTF-32LE")));
  EXPECT_FALSE(SE::isUnicode(numberOf("KOI8-U")));
  // Latin-1 reads as its superset windows-1252, as files so named really are.
  EXPECT_EQ(utf8(SE::decode("\x93"
                            "caf\xE9\x94",
                            5)),
            "\xE2\x80\x9C"
            "caf\xC3\xA9\xE2\x80\x9D");
  EXPECT_FALSE(SE::decode("\x81", 12));  // unassigned in windows-1252
  EXPECT_EQ(utf8(SE::decode("\x80\x93", 12)), "\xE2\x82\xAC\xE2\x80\x9C");
  EXPECT_EQ(utf8(SE::decode("\tline\r\n\f\x1B[0m", 4)), "\tline\r\n\f\x1B[0m");
}

TEST(StringEncodings, OwnByteOrderMarkIsDropped) {
  EXPECT_EQ(SE::decode("\xEF\xBB\xBFhi", 4), u"hi");
  EXPECT_EQ(SE::decode(std::string("\xFF\xFEh\0i\0", 6), numberOf("UTF-16LE")), u"hi");
  EXPECT_EQ(SE::decode(std::string("\xFE\xFF\0h\0i", 6), numberOf("UTF-16BE")), u"hi");
  EXPECT_EQ(SE::decode(std::string("\xFF\xFEh\0i\0", 6), 10), u"hi");
  EXPECT_EQ(SE::decode(std::string("\0h\0i", 4), 10), u"hi");  // no mark: big-endian
  // Only one mark goes; a second is text.
  EXPECT_EQ(SE::decode("\xEF\xBB\xBF\xEF\xBB\xBFhi", 4), u"\uFEFFhi");
}

TEST(StringEncodings, LargeInputDecodesAcrossSlices) {
  // Multi-byte characters straddle every internal slice boundary when the
  // unit is 3 bytes and slices are a power of two.
  const std::string unit = "\xE6\x96\x87";  // 文
  std::string big;
  for (int i = 0; i < 1'200'000; ++i) big += unit;
  auto text = SE::decode(big, 4);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), 1'200'000u);
  EXPECT_EQ(std::count(text->begin(), text->end(), u'文'), 1'200'000);

  // A stateful encoding keeps its shift state across slices.
  std::string jis = "\x1B$B";
  for (int i = 0; i < 700'000; ++i) jis += "\x4A\x38";  // 文 in JIS X 0208
  jis += "\x1B(B.";
  auto jisText = SE::decode(jis, numberOf("ISO-2022-JP"));
  ASSERT_TRUE(jisText);
  EXPECT_EQ(jisText->size(), 700'001u);
  EXPECT_EQ(jisText->back(), u'.');

  // Binary after a long valid head still fails.
  big += '\0';
  EXPECT_FALSE(SE::decode(big, 4));
}

TEST(StringEncodings, CStringStopsAtNul) {
  const char bytes[] = "ab\0cd";
  EXPECT_EQ(SE::decodeCString(bytes, 4), u"ab");
  EXPECT_FALSE(SE::decodeCString(nullptr, 4));
}

}  // namespace
}  // namespace harbor

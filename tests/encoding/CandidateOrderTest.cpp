// The order of candidates on real text from this machine's manual pages and
// message catalogues, converted with iconv into the tables people still
// meet; and the rules that keep a wrong candidate from decoding.
#include <gtest/gtest.h>

#include "EncodingTestHelpers.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace {

using test::fixture;
using test::utf8;

std::pair<std::optional<std::string>, std::string> load(std::string_view bytes) {
  std::string used = "(none)";
  auto text = DetectorCharacter::detectorWithData(bytes, &used);
  return {utf8(text), used};
}

TEST(CandidateOrder, SingleByteTablesOfRealText) {
  struct Case {
    const char* encoded;
    const char* original;
    const char* name;
  };
  for (const Case& c : {
           Case{"russian-man.ibm866.txt", "russian-man.utf8.txt", "IBM866"},
           Case{"russian-man.maccyrillic.txt", "russian-man.utf8.txt", "x-mac-cyrillic"},
           // uchardet calls it KOI8-R; the Ukrainian letters say otherwise.
           Case{"ukrainian.koi8u.txt", "ukrainian.utf8.txt", "KOI8-U"},
           Case{"thai.tis620.txt", "thai.utf8.txt", "windows-874"},
           // English originals beside Czech and Hebrew translations.
           Case{"czech-po.latin2.txt", "czech-po.utf8.txt", "ISO-8859-2"},
           Case{"hebrew-po.cp1255.txt", "hebrew-po.utf8.txt", "windows-1255"},
       }) {
    SCOPED_TRACE(c.encoded);
    auto [text, used] = load(fixture(c.encoded));
    EXPECT_EQ(text, fixture(c.original));
    EXPECT_EQ(used, c.name);
  }
}

TEST(CandidateOrder, MarkThenUtf8ThenDeclarationThenStatistics) {
  // A mark decides before anything else, even against valid UTF-8 or a
  // declaration.
  const std::string cafe = "caf\xC3\xA9";
  EXPECT_EQ(load("\xEF\xBB\xBF" + cafe).second, "UTF-8");
  EXPECT_EQ(load(std::string("\xFF\xFE\x41\x00\x42\x00", 6)),
            std::make_pair(std::optional<std::string>("AB"), std::string("UTF-16LE")));

  // Valid UTF-8 beats a declaration that says otherwise.
  EXPECT_EQ(load("<meta charset=\"koi8-r\">" + cafe).second, "UTF-8");

  // A declaration beats statistics: Russian windows-1251 bytes in a page that
  // says KOI8-R are read as KOI8-R, since both tables decode every byte.
  const std::string cp1251 = fixture("russian.cp1251.txt");
  EXPECT_EQ(load(cp1251).second, "windows-1251");
  EXPECT_EQ(load("<html><head><meta charset=\"koi8-r\"></head><body>" + cp1251).second, "KOI8-R");
  EXPECT_EQ(load("# -*- coding: koi8-r -*-\n" + cp1251).second, "KOI8-R");

  // A declaration that cannot decode the bytes is passed over.
  auto [text, used] = load("<meta charset=\"us-ascii\">\n" + fixture("japanese.sjis.txt"));
  EXPECT_EQ(used, "Shift_JIS");

  // Every candidate once, in our own names; detector names we have no table
  // for are not read as UTF-8.
  auto names = DetectorCharacter::detectorDataEncoding(fixture("russian-man.ibm866.txt"));
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.front(), "IBM866");
  for (const std::string& name : names) {
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
    EXPECT_NE(StringEncodings::convertIANACharSetNameToEncoding(name), kInvalidTableEncoding)
        << name;
  }
}

TEST(CandidateOrder, C1ControlsAreTextOutsideLegacyTables) {
  // U+0085 (NEL) and U+0096 in valid UTF-8: text, whoever decides.
  const std::string nel = "line one\xC2\x85line two \xC2\x96 end";
  EXPECT_EQ(load(nel), std::make_pair(std::optional<std::string>(nel), std::string("UTF-8")));
  EXPECT_TRUE(StringEncodings::decode(nel, kUTF8StringEncoding));
  EXPECT_TRUE(StringEncodings::decode(std::string("\x85\x00", 2), 0x94000100u));  // UTF-16LE

  // A legacy table that maps a byte to a C1 control is no guess; chosen by
  // the user, it decodes. EBCDIC 0x15 is NEL.
  const StringEncoding ebcdic = EncodingUtil::convertStringToNSStringEncoding("IBM037");
  EXPECT_FALSE(StringEncodings::decode("\xC8\x15", ebcdic));
  EXPECT_EQ(StringEncodings::decodeAsChosen("\xC8\x15", ebcdic), u"H\u0085");
  // NUL stays out even for a chosen encoding.
  EXPECT_FALSE(StringEncodings::decodeAsChosen(std::string("a\0", 2), kUTF8StringEncoding));
}

TEST(CandidateOrder, NulBytesMakeUtf16OnlyByStructure) {
  // 8-bit text with stray NULs: every UTF-16 reading would give CJK
  // nonsense, so nothing decodes it.
  std::string stray = "plain ASCII text with a stray";
  stray += '\0';
  stray += "NUL byte inside it and more words after.\n";
  if (stray.size() % 2) stray += '.';
  EXPECT_FALSE(load(stray).first);
  std::string padded = "abcdefgh";
  padded += std::string("x\0", 2);
  EXPECT_FALSE(load(padded).first) << load(padded).second;

  // Real UTF-16 without a mark: ASCII-heavy and CJK text.
  auto utf16le = [](std::u16string_view s) {
    std::string out;
    for (char16_t c : s) {
      out += static_cast<char>(c & 0xFF);
      out += static_cast<char>(c >> 8);
    }
    return out;
  };
  const std::u16string english = u"Hello, this is plain text in UTF-16 with no mark at all.\n";
  EXPECT_EQ(load(utf16le(english)).second, "UTF-16LE");
  // Cyrillic: NULs only after spaces and newlines.
  const std::string russian = fixture("russian.utf8.txt");
  auto [text, used] = load(utf16le(toUtf16(russian)));
  EXPECT_EQ(used, "UTF-16LE");
  EXPECT_EQ(text, russian);
}

class RememberedChoice : public test::TempHome {};

TEST_F(RememberedChoice, ComesBeforeEveryGuess) {
  // Valid UTF-8 that the user reads as windows-1252, and a KOI8-R choice
  // for bytes the detectors would call windows-1251.
  const std::string path = (home() / "notes.txt").string();
  test::writeFile(home() / "notes.txt", "caf\xC3\xA9");
  EncodingUtil::saveFileEncoding(path, "windows-1252");
  std::string used;
  EXPECT_EQ(utf8(DetectorCharacter::detectorWithFilePath(path, &used)), "caf\xC3\x83\xC2\xA9");
  EXPECT_EQ(used, "windows-1252");
  EXPECT_EQ(toUtf8(EncodingUtil::getFileContent(path)), "caf\xC3\x83\xC2\xA9");

  // "Automatic" is no choice; a choice that cannot decode falls through.
  EncodingUtil::saveFileEncoding(path, "Automatic");
  EXPECT_EQ(utf8(DetectorCharacter::detectorWithFilePath(path, &used)), "caf\xC3\xA9");
  EncodingUtil::saveFileEncoding(path, "US-ASCII");
  EXPECT_EQ(utf8(DetectorCharacter::detectorWithFilePath(path, &used)), "caf\xC3\xA9");
  EXPECT_EQ(used, "UTF-8");
}

}  // namespace
}  // namespace harbor

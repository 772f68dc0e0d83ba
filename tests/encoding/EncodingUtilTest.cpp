// Trial decoding, the per-file history, the guess by language, LCIDs, lists.
#include "encoding/EncodingUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "EncodingTestHelpers.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

using test::fixture;
using test::ScopedEnv;
using test::ScopedLanguage;
using test::utf8;
using Charsets = EncodingUtil::Charsets;

TEST(EncodingUtilNames, UnknownNamesAreUtf8) {
  EXPECT_EQ(EncodingUtil::convertStringToNSStringEncoding(""), 4u);
  EXPECT_EQ(EncodingUtil::convertStringToNSStringEncoding("Korean"), 4u);
  EXPECT_EQ(EncodingUtil::convertStringToNSStringEncoding("Automatic"), 4u);
  EXPECT_EQ(EncodingUtil::convertStringToNSStringEncoding("shift_jis"), 0x80000A01u);
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(0x80000A01u), "Shift_JIS");
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(11), "windows-1251");
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(0x80001234u), "");
  // So an unknown name in a list is a second try of UTF-8, not a skip.
  EXPECT_EQ(EncodingUtil::detectWithCharsetsRetrunCharset({"Korean"}, "plain"), "Korean");
  EXPECT_FALSE(EncodingUtil::detectWithCharsetsRetrunCharset({"Korean"}, "caf\xE9"));
}

TEST(EncodingUtilTrial, FirstNameThatDecodesWins) {
  const std::string sjis = fixture("japanese.sjis.txt");
  const Charsets names{"UTF-8", "EUC-JP", "Shift_JIS", "windows-1252"};
  EXPECT_EQ(utf8(EncodingUtil::detectWithCharsets(names, std::string_view(sjis))),
            fixture("japanese.utf8.txt"));
  EXPECT_EQ(EncodingUtil::detectWithCharsetsRetrunCharset(names, sjis), "Shift_JIS");
  std::string used;
  EXPECT_TRUE(EncodingUtil::detectWithData(sjis, &used, names));
  EXPECT_EQ(used, "Shift_JIS");
  EXPECT_FALSE(EncodingUtil::detectWithCharsets({}, std::string_view(sjis)));
  EXPECT_FALSE(EncodingUtil::detectWithData(sjis, &used, {"UTF-8", "US-ASCII"}));
  EXPECT_EQ(used, "Shift_JIS");  // untouched on failure

  // The NUL-ended forms stop at the NUL whatever follows.
  const std::string name = sjis.substr(0, 20) + std::string("\0\xFF", 2);
  EXPECT_EQ(EncodingUtil::detectWithCharsets(Charsets{"UTF-8", "Shift_JIS"}, name.c_str()),
            EncodingUtil::detectWithCharsetsAndChar({"UTF-8", "Shift_JIS"}, name.c_str()));
  EXPECT_TRUE(EncodingUtil::detectWithCharsetsAndChar({"UTF-8", "Shift_JIS"}, name.c_str()));
  EXPECT_FALSE(EncodingUtil::detectWithCharsetsAndChar({"UTF-8"}, nullptr));

  EXPECT_EQ(utf8(EncodingUtil::detectWithData(fixture("russian.cp1251.txt"))),
            fixture("russian.utf8.txt"));
}

TEST(EncodingUtilTrial, CorrectCharsetNeedsTheRoundTrip) {
  // UTF-7 can carry a lone surrogate: it decodes, but has no UTF-8 form.
  const std::string data = "+2D4-";
  EXPECT_EQ(EncodingUtil::detectWithCharsetsRetrunCharset({"UTF-7", "UTF-8"}, data), "UTF-7");
  EXPECT_EQ(EncodingUtil::getCorrectCharset({"UTF-7", "UTF-8"}, data), "UTF-8");
  EXPECT_FALSE(EncodingUtil::getCorrectCharset({"UTF-7"}, data));
  EXPECT_EQ(EncodingUtil::getCorrectCharset({"UTF-8", "GBK"}, fixture("chinese.gbk.txt")), "GBK");
}

class EncodingHistory : public test::TempHome {};

TEST_F(EncodingHistory, KeysAreAsymmetricByDesign) {
  const std::string full = (root() / "notes" / "a.txt").string();
  EXPECT_FALSE(EncodingUtil::getFileEncoding(full));  // no map at all
  EncodingUtil::saveFileEncoding(full, "Shift_JIS");
  EXPECT_EQ(EncodingUtil::getFileEncoding(full), "Shift_JIS");
  EXPECT_FALSE(EncodingUtil::getFileEncoding("/notes/a.txt"));

  // Removing goes by the document-relative key, so the full-path entry stays...
  EncodingUtil::removeFileEncoding(full);
  EXPECT_EQ(EncodingUtil::getFileEncoding(full), "Shift_JIS");
  // ...and an entry kept under the relative key is the one that goes.
  EncodingUtil::saveFileEncoding("/notes/a.txt", "GBK");
  EncodingUtil::removeFileEncoding(full);
  EXPECT_FALSE(EncodingUtil::getFileEncoding("/notes/a.txt"));
  EXPECT_EQ(EncodingUtil::getFileEncoding(full), "Shift_JIS");

  // The history is the shared preference map.
  auto stored = defaults()->dictionaryForKey(keys::SYSTEM_ENCODING_HISTORY);
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->size(), 1u);
}

TEST_F(EncodingHistory, PurgeDropsKeysOfMissingFiles) {
  const fs::path kept = root() / "kept.txt";
  test::writeFile(kept, "x");
  EncodingUtil::saveFileEncoding(kept.string(), "GBK");
  EncodingUtil::saveFileEncoding((root() / "gone.txt").string(), "Big5");
  EncodingUtil::saveFileEncoding("/kept.txt", "EUC-KR");  // relative keys are not paths
  EncodingUtil::removeFileEncoding();
  EXPECT_EQ(EncodingUtil::getFileEncoding(kept.string()), "GBK");
  EXPECT_FALSE(EncodingUtil::getFileEncoding((root() / "gone.txt").string()));
  EXPECT_FALSE(EncodingUtil::getFileEncoding("/kept.txt"));
}

TEST_F(EncodingHistory, CurrentEncodingAndFileContent) {
  const fs::path file = root() / "ru.txt";
  test::writeFile(file, fixture("russian.cp1251.txt"));
  const std::string path = file.string();
  EXPECT_EQ(EncodingUtil::getCurrentFileEncoding(path), -1);
  for (const char* none : {"", "Automatic"}) {
    EncodingUtil::saveFileEncoding(path, none);
    EXPECT_EQ(EncodingUtil::getCurrentFileEncoding(path), -1) << none;
  }
  // Detection when nothing is stored.
  EXPECT_EQ(toUtf8(EncodingUtil::getFileContent(path)), fixture("russian.utf8.txt"));

  // A stored name wins over detection...
  EncodingUtil::saveFileEncoding(path, "KOI8-R");
  EXPECT_EQ(EncodingUtil::getCurrentFileEncoding(path), 0x80000A02);
  const std::u16string asKoi8 = EncodingUtil::getFileContent(path);
  EXPECT_NE(toUtf8(asKoi8), fixture("russian.utf8.txt"));
  EXPECT_FALSE(asKoi8.empty());
  // ...unless it cannot decode the file: then detection again.
  EncodingUtil::saveFileEncoding(path, "UTF-8");
  EXPECT_EQ(toUtf8(EncodingUtil::getFileContent(path)), fixture("russian.utf8.txt"));

  EXPECT_EQ(EncodingUtil::getFileContent((root() / "missing.txt").string()), u"");
}

class EncodingGuess : public ::testing::Test {
 protected:
  ScopedEnv tz_{"TZ", "UTC"};
};

TEST_F(EncodingGuess, MarkTestAsWritten) {
  ScopedLanguage lang("en_US.UTF-8");
  Charsets back;
  // Three bytes are read as six hex digits: the two-byte UTF-16 marks never match.
  EXPECT_EQ(EncodingUtil::autoDetectEncoding(std::string("\xFF\xFEh\0i\0", 6), back), "UTF-8");
  EXPECT_EQ(back, (Charsets{"Macintosh", "Windows-1252", "UTF-16LE"}));
  // UTF-16 still arrives, through the fallbacks: the single-byte tables fail on its NULs.
  std::string used;
  EXPECT_EQ(EncodingUtil::autoDetectReturnString(std::string("\xFF\xFEh\0i\0", 6), &used), u"hi");
  EXPECT_EQ(used, "UTF-16LE");

  back.clear();
  EXPECT_EQ(EncodingUtil::autoDetectEncoding("\xEF\xBB\xBFx", back), "UTF-8");
  EXPECT_TRUE(back.empty());
  // Two bytes skip the mark test.
  EXPECT_EQ(EncodingUtil::autoDetectEncoding("\xEF\xBB", back), "UTF-8");
  EXPECT_EQ(back.size(), 3u);
  EXPECT_FALSE(EncodingUtil::autoDetectReturnString(""));
}

TEST_F(EncodingGuess, JapaneseReturnsShiftJisUnlessMarked) {
  ScopedLanguage lang("ja_JP.UTF-8");
  Charsets back;
  EXPECT_EQ(EncodingUtil::autoDetectEncoding("\xEF\xBB\xBF\xE3\x81\x82", back), "UTF-8");
  EXPECT_TRUE(back.empty());
  EXPECT_EQ(EncodingUtil::autoDetectEncoding("\xE3\x81\x82", back), "Shift_JIS");
  EXPECT_EQ(back, (Charsets{"UTF-8", "EUC-JP", "ISO-2022-JP"}));

  std::string used;
  EXPECT_EQ(utf8(EncodingUtil::autoDetectReturnString(fixture("japanese.sjis.txt"), &used)),
            fixture("japanese.utf8.txt"));
  EXPECT_EQ(used, "Shift_JIS");
  EXPECT_EQ(utf8(EncodingUtil::autoDetectReturnString(fixture("japanese.utf8.txt"), &used)),
            fixture("japanese.utf8.txt"));
  EXPECT_EQ(used, "UTF-8");
}

TEST_F(EncodingGuess, LanguageRowsAndTheTimeZone) {
  struct Case {
    const char* language;
    Charsets added;
  };
  for (const Case& c :
       {Case{"zh_CN.UTF-8", {"GBK", "GB18030"}}, Case{"zh_TW.Big5", {"Big5", "Big5-HKSCS"}},
        Case{"ko_KR.UTF-8", {"Korean"}}, Case{"ru_RU.UTF-8", {"Cyrillic1251"}},
        Case{"el_GR", {"Greek7", "Greek1253"}}, Case{"de_DE.UTF-8", {}}}) {
    ScopedLanguage lang(c.language);
    Charsets back;
    EXPECT_EQ(EncodingUtil::autoDetectEncoding("abc", back), "UTF-8");
    Charsets expected = c.added;
    expected.insert(expected.end(), {"Macintosh", "Windows-1252", "UTF-16LE"});
    EXPECT_EQ(back, expected) << c.language;
  }

  // A full tag matches no row; in mainland China the time zone adds GBK and Big5.
  ScopedLanguage lang("zh-Hans-CN");
  ScopedEnv tz("TZ", "Asia/Shanghai");
  Charsets back;
  EXPECT_EQ(EncodingUtil::autoDetectEncoding("abc", back), "UTF-8");
  EXPECT_EQ(back, (Charsets{"GBK", "Big5", "Macintosh", "Windows-1252", "UTF-16LE"}));

  // "Korean" resolves to UTF-8, so Korean text in EUC-KR comes from the fallbacks.
  ScopedLanguage ko("ko");
  std::string used;
  EXPECT_TRUE(EncodingUtil::autoDetectReturnString("\xC7\xD1\xB1\xDB", &used));
  EXPECT_EQ(used, "Macintosh");
}

TEST(EncodingSystem, LanguageFromTheEnvironment) {
  struct Case {
    const char* language;
    const char* lcAll;
    const char* lang;
    const char* expected;
  };
  for (const Case& c :
       {Case{"ja_JP.UTF-8", nullptr, nullptr, "ja"}, Case{"fr:de", nullptr, nullptr, "fr"},
        Case{nullptr, "zh_HK.UTF-8", nullptr, "zh-Hant"},
        Case{nullptr, "zh_SG", nullptr, "zh-Hans"}, Case{nullptr, nullptr, "ru_RU.KOI8-R", "ru"},
        Case{nullptr, "C", "ko_KR.EUC-KR", "ko"}, Case{nullptr, "C.UTF-8", nullptr, "en"},
        Case{"zh-Hant-TW", nullptr, nullptr, "zh-Hant-TW"},
        Case{"", nullptr, "sr_RS@latin", "sr"}}) {
    ScopedEnv a("LANGUAGE", c.language), b("LC_ALL", c.lcAll), m("LC_MESSAGES", nullptr),
        l("LANG", c.lang);
    EXPECT_EQ(EncodingUtil::getSystemLanguage(), c.expected);
  }
  for (const char* zone : {"Asia/Shanghai", ":/usr/share/zoneinfo/Asia/Harbin", "PRC-Beijing"}) {
    ScopedEnv tz("TZ", zone);
    EXPECT_TRUE(EncodingUtil::isChinaInner()) << zone;
  }
  ScopedEnv tz("TZ", "Asia/Taipei");
  EXPECT_FALSE(EncodingUtil::isChinaInner());
}

TEST(EncodingLcid, TellingRows) {
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(2110), "ISO-8859-1");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(2115), "cp1251");
  for (std::uint32_t arabic : {3073u, 7169u, 13313u}) {
    EXPECT_EQ(EncodingUtil::getCharsetFromLCID(arabic), "ISO-8859-6") << arabic;
  }
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(14346), "ISO-8859-1");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(20490), "ISO-8859-1");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0x0411), "cp932");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0x0804), "GBK");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0x0C04), "BIG5");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0x041E), "ISO-8859-11");
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0x042A), "UTF-8");  // Vietnamese
  EXPECT_EQ(EncodingUtil::getCharsetFromLCID(0), "UTF-8");

  // Every charset the table gives is one the encoding table resolves.
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x0411), 8u);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x0419), 11u);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x0412), 0x80000422u);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x0404), 0x80000A03u);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x0425), 0x8000020Du);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x041E), 0x8000020Bu);
  EXPECT_EQ(EncodingUtil::getEncodingFromLCID(0x042A), 4u);
}

TEST(EncodingLists, OnlyWhatReallyConverts) {
  auto items = EncodingUtil::allAvailableStringEncodings();
  ASSERT_GT(items.size(), 50u);
  for (const auto& item : items) {
    EXPECT_FALSE(item.name.empty());
    EXPECT_TRUE(StringEncodings::decode("Harbor", item.encoding) ||
                item.name.rfind("UTF-16", 0) == 0 || item.name.rfind("UTF-32", 0) == 0 ||
                item.name == "IBM037")
        << item.name;
  }
  EXPECT_EQ(std::count_if(items.begin(), items.end(),
                          [](const EncodingItem& i) { return i.name == "ISO-8859-16"; }),
            0);
  auto ordered = EncodingUtil::allAvailableStringEncodingsOrdered();
  ASSERT_EQ(ordered.size(), items.size());
  EXPECT_TRUE(std::is_sorted(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) {
    return a.localizedCompare(b) < 0;
  }));
}

TEST(EncodingItem, AutomaticAndOrdering) {
  EncodingItem automatic = EncodingItem::automatic();
  EXPECT_TRUE(automatic.isAutomatic());
  EXPECT_EQ(automatic.encoding, 4u);
  EXPECT_EQ(automatic.localizedName, "Automatic");
  EncodingItem sjis(0x80000A01u, "Shift_JIS");
  EXPECT_EQ(sjis.localizedName, "Japanese (Shift JIS)");
  EXPECT_FALSE(sjis.isAutomatic());
  EncodingItem unknown(0x80001234u, "x-private");
  EXPECT_EQ(unknown.localizedName, "x-private");
  // By name "Shift_JIS" comes first; by label "Cyrillic (Windows)" does.
  EncodingItem cyrillic(11, "windows-1251");
  EXPECT_LT(sjis.compare(cyrillic), 0);
  EXPECT_GT(sjis.localizedCompare(cyrillic), 0);
  EXPECT_EQ(sjis.compare(sjis), 0);
  EXPECT_NE(sjis.description().find(">Shift_JIS:Japanese (Shift JIS)"), std::string::npos);
}

class EncodingDefaults : public test::TempHome {};

TEST_F(EncodingDefaults, SystemDefaultAndDescriptions) {
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "Automatic");
  EncodingUtil::saveSystemDefaultEncoding("");
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "Automatic");
  EncodingUtil::saveSystemDefaultEncoding("GBK");
  EXPECT_EQ(EncodingUtil::getSystemDefaultEncoding(), "GBK");

  ScopedLanguage lang("en");
  EXPECT_EQ(EncodingUtil::getDefaultEncodingDescription("windows-1251"), "Windows-1251(Cyrillic)");
  EXPECT_EQ(EncodingUtil::getDefaultEncodingDescription("Unlisted"), "Unlisted(Unlisted)");
  auto keys = EncodingUtil::webEncodingKeys();
  EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
  EXPECT_NE(std::find(keys.begin(), keys.end(), "Automatic"), keys.end());
  // Every offered name is one the table resolves (or the Automatic choice).
  for (const auto& key : keys) {
    if (key == "Automatic") continue;
    EXPECT_NE(StringEncodings::convertIANACharSetNameToEncoding(key), kInvalidTableEncoding) << key;
    EXPECT_TRUE(StringEncodings::decode("x", EncodingUtil::convertStringToNSStringEncoding(key)) ||
                key.rfind("UTF-", 0) == 0)
        << key;
  }
}

}  // namespace
}  // namespace harbor

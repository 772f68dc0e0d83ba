// Unicode helpers, application folders and localised strings.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/Directories.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

TEST(Unicode, Utf16RoundTripAndInvalidInput) {
  const std::string text = "a\u20AC\U0001F600z";  // a non-BMP character takes two units
  std::u16string utf16 = toUtf16(text);
  EXPECT_EQ(utf16, u"a\u20AC\U0001F600z");
  EXPECT_EQ(utf16.size(), 5u);
  EXPECT_EQ(toUtf8(utf16), text);

  // Invalid input becomes U+FFFD instead of failing.
  EXPECT_EQ(toUtf16("ab\xff\xfe"), u"ab\uFFFD\uFFFD");
  EXPECT_EQ(toUtf16("\xe2\x82"), u"\uFFFD");
  EXPECT_EQ(toUtf8(std::u16string(1, char16_t(0xD800))), "\uFFFD");
  EXPECT_EQ(toUtf16(""), u"");
}

TEST(Unicode, CaseAndWhiteSpace) {
  EXPECT_EQ(toLower("MiXeD.TXT"), "mixed.txt");
  EXPECT_EQ(toLower("\u00C9COLE"), "\u00E9cole");
  EXPECT_EQ(toLower(u"\u0130"), u"i\u0307");  // full mapping, not locale-tailored

  EXPECT_EQ(trim(u"\u00A0\t hi there \n\u2028"), u"hi there");
  EXPECT_EQ(trim(" \r\n "), "");
  EXPECT_EQ(trim("x"), "x");

  EXPECT_TRUE(equalsIgnoreCase("Index.HTML", "index.html"));
  EXPECT_TRUE(equalsIgnoreCase("\u00C9cole", "\u00E9COLE"));
  EXPECT_TRUE(equalsIgnoreCase("\u212A", "k"));  // Kelvin sign: lengths differ
  EXPECT_FALSE(equalsIgnoreCase("a@", "a`"));    // differ only in the 0x20 bit
  EXPECT_FALSE(equalsIgnoreCase("[", "{"));
  EXPECT_FALSE(equalsIgnoreCase("abc", "abcd"));
}

class DirectoriesTest : public test::TempHome {};

TEST_F(DirectoriesTest, DocumentRootChoiceAndFoldersMadeOnFirstUse) {
  const fs::path envRoot = home() / "Documents";
  EXPECT_FALSE(fs::exists(envRoot));
  EXPECT_EQ(Directories::documentDirectory(), envRoot);
  EXPECT_TRUE(fs::is_directory(envRoot));

  // The override wins over HARBOR_ROOT; a trailing separator is dropped.
  Directories::setDocumentRootOverride(home() / "served/");
  EXPECT_EQ(Directories::documentDirectory(), home() / "served");
  EXPECT_TRUE(fs::is_directory(home() / "served"));
  Directories::setDocumentRootOverride({});
  EXPECT_EQ(Directories::documentDirectory(), envRoot);

  // With neither, Documents in Harbor's own home under XDG_DATA_HOME.
  unsetenv("HARBOR_ROOT");
  EXPECT_EQ(Directories::homeDirectory(), home() / "data" / "harbor");
  EXPECT_EQ(Directories::documentDirectory(), home() / "data" / "harbor" / "Documents");
  EXPECT_EQ(Directories::configDirectory(), home() / "config" / "harbor");
  EXPECT_TRUE(fs::is_directory(home() / "config" / "harbor"));
  EXPECT_TRUE(fs::is_directory(Directories::temporaryDirectory()));
}

TEST(Strings, LooksUpTheUsersLanguageThenEnglishThenTheKey) {
  test::ScratchDir resources;
  test::writeFile(resources / "strings/en.json",
                  R"({"Delete": "Delete", "files.count": "%d files", "number": 3})");
  test::writeFile(resources / "strings/de.json", R"({"Delete": "Löschen"})");
  const char* oldResources = std::getenv("HARBOR_RESOURCES");
  const char* oldLanguage = std::getenv("LANGUAGE");
  std::string savedResources = oldResources ? oldResources : "";
  std::string savedLanguage = oldLanguage ? oldLanguage : "";
  setenv("HARBOR_RESOURCES", resources.path().c_str(), 1);

  setenv("LANGUAGE", "en", 1);
  reloadLocalizedStrings();
  EXPECT_EQ(localizedString("files.count"), "%d files");
  EXPECT_EQ(localizedString("No such key"), "No such key");
  EXPECT_EQ(localizedString("number"), "number");  // not a string: ignored

  setenv("LANGUAGE", "de_DE.UTF-8", 1);
  reloadLocalizedStrings();
  EXPECT_EQ(localizedString("Delete"), "Löschen");
  EXPECT_EQ(localizedString("files.count"), "%d files");

  if (oldResources)
    setenv("HARBOR_RESOURCES", savedResources.c_str(), 1);
  else
    unsetenv("HARBOR_RESOURCES");
  if (oldLanguage)
    setenv("LANGUAGE", savedLanguage.c_str(), 1);
  else
    unsetenv("LANGUAGE");
  reloadLocalizedStrings();
}

}  // namespace
}  // namespace harbor

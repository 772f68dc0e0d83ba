#include <gtest/gtest.h>

#include <ctime>

#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/SystemUtils.h"
#include "prefs/TextExtensions.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {

using Strings = std::vector<std::string>;

class Preferences : public test::TempHome {};

TEST_F(Preferences, ExtensionListsSplitAndDropBlanks) {
  EXPECT_EQ(EditorUserDefaults::getExtensionsWithExtString("html; htm,,"),
            (Strings{"html", " htm"}));
  EXPECT_TRUE(EditorUserDefaults::getExtensionsWithExtString(" ;, ;\t").empty());
  EXPECT_EQ(EditorUserDefaults::getExtensionsValidString({"a", "B"}), "a,B");
}

TEST_F(Preferences, SyntaxAssignmentsRefuseEmptyAndTakenValues) {
  Error error;
  EXPECT_FALSE(EditorUserDefaults::saveEditorSyntaxSettings(" ;,", "mine.stx", &error));
  EXPECT_EQ(error.code, -1);
  EXPECT_FALSE(error.domain.empty());
  EXPECT_TRUE(EditorUserDefaults::getEditorSynaxSettings().empty());

  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("php,inc", "a.stx", &error));
  EXPECT_FALSE(EditorUserDefaults::saveEditorSyntaxSettings("php", "b.stx", &error));
  EXPECT_NE(error.domain.find("php"), std::string::npos);
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings().count("b.stx"), 0u);
  // The same file may take its own values again.
  EXPECT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("php;phtml,,", "a.stx", &error));
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings().at("a.stx"), "php;phtml,,");
  EXPECT_EQ(EditorUserDefaults::getAllExtensionsToFileName(),
            (std::map<std::string, std::string>{{"php", "a.stx"}, {"phtml", "a.stx"}}));

  // Renaming replaces the old entry.
  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("php", "c.stx", &error, "a.stx"));
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings(),
            (EditorUserDefaults::Settings{{"c.stx", "php"}}));
  // The file-name store is separate.
  EXPECT_TRUE(EditorUserDefaults::saveEditorOnlyFileSyntaxSettings("php.ini", "c.stx", &error));
  EXPECT_EQ(EditorUserDefaults::getAllExtensionsToOnlyFileName().at("php.ini"), "c.stx");
}

TEST_F(Preferences, RemovingAnAssignmentDeletesItsFileAndOrphansGo) {
  Error error;
  const auto kept = EditorUtils::fullNameForSyntaxExtension("kept.stx");
  const auto gone = EditorUtils::fullNameForSyntaxExtension("gone.stx");
  const auto orphan = EditorUtils::fullNameForSyntaxExtension("orphan.stx");
  for (const auto& p : {kept, gone, orphan}) test::writeFile(p, "#KEYWORD=k\nx\n");
  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("a", "kept.stx", &error));
  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("b", "gone.stx", &error));

  EXPECT_TRUE(EditorUserDefaults::removeEditorSyntaxWithFileName("gone.stx"));
  EXPECT_FALSE(std::filesystem::exists(gone));
  EditorUserDefaults::removeMultipleSyntaxFile();
  EXPECT_TRUE(std::filesystem::exists(kept));
  EXPECT_FALSE(std::filesystem::exists(orphan));
  // Names from the store never reach outside the folder.
  EXPECT_FALSE(EditorUtils::removeEditorSyntaxFile("../../x"));
}

TEST_F(Preferences, SyntaxFileLocations) {
  EXPECT_EQ(EditorUtils::sourceURLWithConfigItem(1, "x.stx"),
            EditorUtils::defulatEditorDirectory() / "x.stx");
  EXPECT_EQ(EditorUtils::sourceURLWithConfigItem(2, "x.stx"),
            EditorUtils::defulatEditorOnlyFileDirectory() / "x.stx");
  EXPECT_FALSE(EditorUtils::sourceURLWithConfigItem(0, "").has_value());
  auto shipped = EditorUtils::sourceURLWithConfigItem(0, "cpp.stx");
  ASSERT_TRUE(shipped.has_value());
  EXPECT_EQ(EditorUtils::sourceURLWithName("cpp", "stx"), shipped);
  EXPECT_FALSE(EditorUtils::sourceURLWithName("no-such", "stx").has_value());
}

TEST_F(Preferences, LaunchCounter) {
  EXPECT_TRUE(SystemUtils::isFirstLogin());
  SystemUtils::systemLogin();
  SystemUtils::systemLogin();
  EXPECT_EQ(SystemUtils::getLoginTimes(), 2u);
  defaults()->setObject(keys::SystemLoginTimes, "seven");
  EXPECT_EQ(SystemUtils::getLoginTimes(), 0u);
  SystemUtils::systemLogin();
  EXPECT_EQ(SystemUtils::getLoginTimes(), 1u);
}

AppUserDefaultUtils::Clock::time_point todayAt(int hour, int minute) {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = 0;
  tm.tm_isdst = -1;
  return AppUserDefaultUtils::Clock::from_time_t(std::mktime(&tm));
}

TEST_F(Preferences, NightModeReadsTheTwoComparisonsLiterally) {
  EXPECT_EQ(AppUserDefaultUtils::getStartTimeString(), "22:00");
  EXPECT_EQ(AppUserDefaultUtils::getEndTimeString(), "07:00");
  EXPECT_FALSE(AppUserDefaultUtils::isNightModeTime(todayAt(3, 0))) << "switch is off";

  defaults()->setObject(keys::SYSTEM_NIGHT_MODE, "yes");
  EXPECT_FALSE(AppUserDefaultUtils::getNightMode()) << "a non-number reads no";

  AppUserDefaultUtils::saveNightMode(true);
  // With the default 22:00 to 07:00 only the small hours count: no wrap.
  EXPECT_TRUE(AppUserDefaultUtils::isNightModeTime(todayAt(3, 0)));
  EXPECT_FALSE(AppUserDefaultUtils::isNightModeTime(todayAt(12, 0)));
  EXPECT_FALSE(AppUserDefaultUtils::isNightModeTime(todayAt(23, 0)));

  AppUserDefaultUtils::saveStartTime(todayAt(20, 30));
  AppUserDefaultUtils::saveEndTime(todayAt(21, 0));
  EXPECT_EQ(AppUserDefaultUtils::getStartTimeString(), "20:30");
  EXPECT_TRUE(AppUserDefaultUtils::isNightModeTime(todayAt(20, 0)));
}

TEST_F(Preferences, ImageFormatIgnoresCase) {
  EXPECT_EQ(ImageSettings::getImportFormat(), "Automatic");
  ImageSettings::saveImportFormat("JPG");
  EXPECT_TRUE(ImageSettings::isJpg());
  EXPECT_FALSE(ImageSettings::isPng());
}

TEST_F(Preferences, OrientationLock) {
  EXPECT_EQ(AppUserDefaultUtils::getLockOrientationInterface(), 1);
  AppUserDefaultUtils::saveLockSetting(true, 4);
  EXPECT_TRUE(AppUserDefaultUtils::getLockOrientation());
  EXPECT_EQ(AppUserDefaultUtils::getLockOrientationInterface(), 4);
}

TEST_F(Preferences, AssignedExtensionsOpenAsTextOnceReloaded) {
  TextExtensions::reloadCustom();  // another test may have read another store
  EXPECT_TRUE(TextExtensions::contains("lua"));
  EXPECT_FALSE(TextExtensions::contains("LUA")) << "callers lower-case";
  EXPECT_FALSE(TextExtensions::contains(""));
  EXPECT_FALSE(TextExtensions::contains("zork"));
  Error error;
  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("zork", "z.stx", &error));
  TextExtensions::reloadCustom();
  EXPECT_TRUE(TextExtensions::contains("zork"));
  ASSERT_TRUE(EditorUserDefaults::removeEditorSyntaxWithFileName("z.stx"));
  EXPECT_TRUE(TextExtensions::contains("zork")) << "kept until the table is read again";
  TextExtensions::reloadCustom();
  EXPECT_FALSE(TextExtensions::contains("zork"));
}

}  // namespace
}  // namespace harbor

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/UserDefaults.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/SystemSettings.h"
#include "prefs/TouchIDUtils.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {

class LoginPasswordUtilTest : public test::TempHome {};

TEST_F(LoginPasswordUtilTest, PasswordsAreStoredEncipheredAndComparedInBothForms) {
  EXPECT_TRUE(LoginPasswordUtil::isSameWifiPassword("anything"));  // none stored
  LoginPasswordUtil::saveWifiPassword("s3cret ü");
  std::string stored = UserDefaults::standard().stringForKey(keys::SYSTEM_WIFI_LOGIN_PASSWORD);
  EXPECT_FALSE(stored.empty());
  EXPECT_EQ(stored.find("s3cret"), std::string::npos);
  EXPECT_EQ(LoginPasswordUtil::getWifiPassword(), "s3cret ü");
  EXPECT_TRUE(LoginPasswordUtil::isSameWifiPassword("s3cret ü"));
  EXPECT_TRUE(LoginPasswordUtil::isSameWifiPassword(stored));
  EXPECT_FALSE(LoginPasswordUtil::isSameWifiPassword("s3cret"));
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");
  // An empty password removes the key; a value that does not decipher reads as none.
  LoginPasswordUtil::saveWifiPassword("");
  EXPECT_FALSE(UserDefaults::standard().objectForKey(keys::SYSTEM_WIFI_LOGIN_PASSWORD));
  UserDefaults::standard().setObject(keys::SYSTEM_LOCAL_LOGIN_PASSWORD, "not-base64!");
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");
  LoginPasswordUtil::saveAutoLogin(true);
  EXPECT_TRUE(LoginPasswordUtil::getAutoLogin());
  LoginPasswordUtil::saveAutoLogin(false);
  EXPECT_FALSE(UserDefaults::standard().objectForKey(keys::System_Local_AutoLogin));
}

// The lock's key as this installation has always used it: stored passwords
// must keep reading back, so a change here is a change of the stored format.
constexpr char kLockKeyText[] = "harbor.login-lock.2f7c1e9a";

std::string lockKeyHex() {
  std::string hex;
  char buf[3];
  for (std::size_t i = 0; i < 32; ++i) {
    unsigned char c = i < sizeof kLockKeyText - 1 ? kLockKeyText[i] : 0;
    std::snprintf(buf, sizeof buf, "%02x", c);
    hex += buf;
  }
  return hex;
}

// Runs the openssl program over `input`; its standard output, or nothing
// when it fails.
std::optional<std::string> openssl(const std::string& args, const std::string& input) {
  test::ScratchDir dir;
  test::writeFile(dir / "in", input);
  std::string cmd = "openssl enc -aes-256-cbc " + args + " -K " + lockKeyHex() +
                    " -iv 00000000000000000000000000000000 -in '" + (dir / "in").string() +
                    "' -out '" + (dir / "out").string() + "' 2>/dev/null";
  if (std::system(cmd.c_str()) != 0) return std::nullopt;
  return test::readFile(dir / "out");
}

TEST_F(LoginPasswordUtilTest, StoredLockPasswordIsPlainAesTheOpensslToolReads) {
  // Longer than one block, with bytes outside ASCII.
  const std::string clear = "correct horse battery stäple";
  LoginPasswordUtil::saveLocalPassword(clear);
  const std::string stored =
      UserDefaults::standard().stringForKey(keys::SYSTEM_LOCAL_LOGIN_PASSWORD);
  auto opened = openssl("-d -a -A", stored);
  ASSERT_TRUE(opened.has_value()) << "openssl could not decipher " << stored;
  EXPECT_EQ(*opened, clear);

  // And the other way: what the tool enciphers reads back as the password.
  auto sealed = openssl("-e -a -A", "from the tool");
  ASSERT_TRUE(sealed.has_value());
  UserDefaults::standard().setObject(keys::SYSTEM_WIFI_LOGIN_PASSWORD, *sealed);
  EXPECT_EQ(LoginPasswordUtil::getWifiPassword(), "from the tool");
}

TEST_F(LoginPasswordUtilTest, UndecodableStoredValuesReadAsNone) {
  const std::string good = LoginPasswordUtil::encipher("pw");
  ASSERT_FALSE(good.empty());
  for (const std::string& bad : {
           std::string("not-base64!"),
           std::string("QUJD"),                      // base64, but not a whole block
           good.substr(0, good.size() - 4),          // cut short
           std::string(good.size(), 'A'),            // whole blocks that do not unpad
           "=" + good.substr(1),                     // padding in front
           good.substr(0, good.size() - 2) + "\n=",  // a character the decoder skips
       }) {
    UserDefaults::standard().setObject(keys::SYSTEM_LOCAL_LOGIN_PASSWORD, bad);
    EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "") << bad;
  }
  // A wrongly typed value is none as well, and so compares as no password.
  UserDefaults::standard().setObject(keys::SYSTEM_LOCAL_LOGIN_PASSWORD, 42);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");
  EXPECT_TRUE(LoginPasswordUtil::isSameLocalPassword("whatever"));
  // Auto login needs a number: a string "yes" is off.
  UserDefaults::standard().setObject(keys::System_Local_AutoLogin, "yes");
  EXPECT_FALSE(LoginPasswordUtil::getAutoLogin());
}

TEST_F(LoginPasswordUtilTest, BiometricsAreAbsentHereAndBothSwitchesDefaultOn) {
  EXPECT_FALSE(TouchIDUtils::isSupportTouchID());
  long code = 0;
  bool called = false;
  TouchIDUtils::authentionTouchID([&](bool ok, long c) {
    called = true;
    EXPECT_FALSE(ok);
    code = c;
  });
  EXPECT_TRUE(called);
  EXPECT_NE(code, IBiometrics::kUserCancel) << "a missing service is a failure, not a cancel";

  EXPECT_TRUE(TouchIDSettings::isTouchIDAuthentication());
  EXPECT_TRUE(TouchIDSettings::isTouchIDAuthenticationFolder());
  TouchIDSettings::setTouchIDAuthenticationFolder(false);
  EXPECT_TRUE(TouchIDSettings::isTouchIDAuthentication());
  EXPECT_FALSE(TouchIDSettings::isTouchIDAuthenticationFolder());
}

class SettingsTable : public test::TempHome {
 protected:
  static std::vector<std::string> texts(const PreferenceSection& section) {
    std::vector<std::string> out;
    for (const auto& row : section) out.push_back(row.at(rowkeys::text));
    return out;
  }
  static std::string title(const PreferenceSection& section) {
    auto it = section.front().find(rowkeys::sectionTitle);
    return it == section.front().end() ? "" : it->second;
  }
};

TEST_F(SettingsTable, SectionsComeInTheirOrderWithTheirEvents) {
  SystemSettings settings;
  settings.loadPreferences();
  const auto& t = settings.preferences;
  ASSERT_GE(t.size(), 8u);
  EXPECT_EQ(title(t[0]), "Encoding");
  EXPECT_EQ(t[0][0].at(rowkeys::event), "loadEncoding:");
  EXPECT_EQ(t[1][0].at(rowkeys::event), "loadShowItemsType:");
  EXPECT_EQ(t[2][0].at(rowkeys::event), "loadLoginPassword:");
  EXPECT_EQ(texts(t[3]), (std::vector<std::string>{"DefaultFileOrderType", "LockOrientation"}));
  EXPECT_EQ(t[3][1].at(rowkeys::control), "UISwitch");
  EXPECT_EQ(t[3][1].at(rowkeys::content), keys::SYSTEM_LOCKORIENTATION);
  EXPECT_EQ(title(t[4]), "Text file editor");
  EXPECT_EQ(texts(t[4]),
            (std::vector<std::string>{"Auto Backup", "Syntax highlighting for extension",
                                      "Syntax highlighting for file name"}));
  EXPECT_EQ(texts(t[5]),
            (std::vector<std::string>{"Import image format", "Clear cache and temp files"}));
  EXPECT_EQ(texts(t[6]), (std::vector<std::string>{"AboutUs"}));
  // One credits section per library.
  EXPECT_EQ(t.size(), 7 + SystemSettings::creditsArray().size());
  for (std::size_t i = 7; i < t.size(); ++i) EXPECT_EQ(title(t[i]), "Credits");
}

TEST_F(SettingsTable, RebuildsWhenASettingOrTheEncodingChanges) {
  SystemSettings settings;
  settings.startObserving();
  settings.loadPreferences();
  EXPECT_EQ(settings.preferences[0][0].at(rowkeys::text), "Automatic");
  UserDefaults::standard().setObject(keys::SYSTEM_DEFAULT_Encoding, "Shift_JIS");
  NotificationCenter::defaultCenter().post(notifications::HBEncodingChangeNotication);
  EXPECT_EQ(settings.preferences[0][0].at(rowkeys::text), "Shift_JIS");
  UserDefaults::standard().setObject(keys::SystemSettingsImageImportFormat, "png");
  NotificationCenter::defaultCenter().post(notifications::SystemSettingsNotification);
  EXPECT_EQ(settings.preferences[5][0].at(rowkeys::detail), "png");
}

}  // namespace
}  // namespace harbor

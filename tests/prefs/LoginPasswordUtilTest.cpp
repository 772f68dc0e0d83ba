#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/PreferenceKeys.h"
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

}  // namespace
}  // namespace harbor

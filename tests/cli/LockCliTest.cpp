// harbor settings and harbor lock as scripts use them.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

using test::runHarbor;

class SettingsCli : public test::TempHome {};

TEST_F(SettingsCli, GetGivesTheOwnersDefaultAndRawTheStoredValue) {
  auto r = runHarbor({"settings", "get", "SystemEditorAutoBak"});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "true\n");
  EXPECT_EQ(runHarbor({"settings", "get", "SystemEditorAutoBak", "--raw"}).out, "null\n");
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_START_TIME"}).out, "22:00\n");
  EXPECT_EQ(runHarbor({"settings", "get", "SystemTouchIDAuthenticationFolder"}).out, "true\n");

  ASSERT_EQ(runHarbor({"settings", "set", "SystemEditorAutoBak", "no", "--type", "bool"}).code, 0);
  EXPECT_EQ(runHarbor({"settings", "get", "SystemEditorAutoBak"}).out, "false\n");
  EXPECT_EQ(runHarbor({"settings", "get", "SystemEditorAutoBak", "--raw"}).out, "false\n");

  // A wrongly typed value reads as the default; raw shows what is there.
  ASSERT_EQ(runHarbor({"settings", "set", "SYSTEM_NIGHT_MODE", "on", "--type", "string"}).code, 0);
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_NIGHT_MODE"}).out, "false\n");
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_NIGHT_MODE", "--raw"}).out, "\"on\"\n");

  ASSERT_EQ(
      runHarbor({"settings", "set", "SYSTEM_START_TIME", "2024-05-01T21:30:00Z", "--type", "date"})
          .code,
      0);
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_START_TIME", "--raw"}).out,
            "\"2024-05-01T21:30:00.000Z\"\n");
  ASSERT_EQ(runHarbor({"settings", "set", "Anything", "2.5", "--type", "real"}).code, 0);
  EXPECT_EQ(runHarbor({"settings", "get", "Anything", "--raw"}).out, "2.5\n");
  EXPECT_EQ(runHarbor({"settings", "get", "Anything"}).code, 1) << "no owner reads it";
}

TEST_F(SettingsCli, BadValuesAndTypesAreUsageErrors) {
  EXPECT_EQ(runHarbor({"settings", "set", "K", "maybe", "--type", "bool"}).code, 2);
  EXPECT_EQ(runHarbor({"settings", "set", "K", "12x", "--type", "int"}).code, 2);
  EXPECT_EQ(runHarbor({"settings", "set", "K", "yesterday", "--type", "date"}).code, 2);
  EXPECT_EQ(runHarbor({"settings", "set", "K", "1", "--type", "float"}).code, 2);
  EXPECT_EQ(runHarbor({"settings", "set", "K", "1"}).code, 2);
  EXPECT_EQ(runHarbor({"settings", "get", "K", "--raw"}).out, "null\n");
}

TEST_F(SettingsCli, TableAndSyntaxAssignments) {
  auto r = runHarbor({"settings", "table", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  auto table = nlohmann::json::parse(r.out);
  ASSERT_GE(table.size(), 7u);
  EXPECT_EQ(table[0]["title"], "Encoding");
  EXPECT_EQ(table[3]["rows"][1]["key"], "LockOrientation");
  EXPECT_EQ(table[3]["rows"][1]["switch"], false);
  EXPECT_EQ(table[4]["rows"][0]["switch"], true) << "auto backup is on by default";

  EXPECT_EQ(runHarbor({"settings", "syntax", "set", "mine.stx", "foo;bar"}).code, 0);
  r = runHarbor({"settings", "syntax", "set", "other.stx", "baz,bar"});
  EXPECT_EQ(r.code, 1) << "an extension already taken";
  EXPECT_NE(r.err.find("bar"), std::string::npos) << r.err;
  EXPECT_EQ(runHarbor({"settings", "syntax", "set", "other.stx", " ;, "}).code, 1);
  EXPECT_EQ(runHarbor({"settings", "syntax", "set", "mk.stx", "Makefile", "--file-name"}).code, 0);
  auto ext =
      nlohmann::json::parse(runHarbor({"settings", "get", "EditorSyntaxSystemSettings"}).out);
  EXPECT_EQ(ext, (nlohmann::json{{"mine.stx", "foo;bar"}})) << "kept as typed";
  auto names = nlohmann::json::parse(
      runHarbor({"settings", "get", "EditorSyntaxOnlyFileSystemSettings"}).out);
  EXPECT_EQ(names, (nlohmann::json{{"mk.stx", "Makefile"}}));
}

class LockCli : public test::TempHome {
 protected:
  nlohmann::json status(const std::string& at = "") {
    auto r = at.empty() ? runHarbor({"lock", "status"}) : runHarbor({"lock", "status", "--at", at});
    EXPECT_EQ(r.code, 0) << r.err;
    return nlohmann::json::parse(r.out);
  }
};

TEST_F(LockCli, LocalPasswordSetChangeLoginAndRemove) {
  EXPECT_EQ(status(), (nlohmann::json{{"locked", false}, {"header", ""}}));
  EXPECT_EQ(runHarbor({"lock", "set", "--local", "a", "--local-confirm", "b"}).code, 1);
  EXPECT_EQ(runHarbor({"lock", "set", "--local", "a"}).code, 2) << "the confirmation is needed";
  ASSERT_EQ(runHarbor({"lock", "set", "--local", "pw", "--local-confirm", "pw"}).code, 0);
  auto s = status();
  EXPECT_EQ(s["locked"], true);
  EXPECT_EQ(s["header"], "Password lock");
  EXPECT_EQ(runHarbor({"lock", "login", "nope"}).code, 1);
  EXPECT_EQ(runHarbor({"lock", "login", "pw"}).code, 0);

  // A change needs the old password.
  auto r = runHarbor({"lock", "set", "--local", "new", "--local-confirm", "new"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("--old"), std::string::npos) << r.err;
  EXPECT_EQ(
      runHarbor({"lock", "set", "--local", "new", "--local-confirm", "new", "--old", "x"}).code, 1);
  EXPECT_EQ(runHarbor({"lock", "login", "new"}).code, 1);
  ASSERT_EQ(
      runHarbor({"lock", "set", "--local", "new", "--local-confirm", "new", "--old", "pw"}).code,
      0);
  EXPECT_EQ(runHarbor({"lock", "login", "new"}).code, 0);

  ASSERT_EQ(runHarbor({"lock", "set", "--local", "", "--local-confirm", "", "--old", "new"}).code,
            0);
  EXPECT_EQ(status()["locked"], false);
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_LOCAL_LOGIN_PASSWORD", "--raw"}).out, "null\n");
}

TEST_F(LockCli, AutoLoginAndLockedFolders) {
  ASSERT_EQ(runHarbor({"lock", "set", "--local", "pw", "--local-confirm", "pw", "--wifi", "share",
                       "--wifi-confirm", "share"})
                .code,
            0);
  EXPECT_EQ(runHarbor({"settings", "get", "SYSTEM_WIFI_LOGIN_PASSWORD"}).out, "********\n");
  EXPECT_EQ(runHarbor({"lock", "autologin", "on"}).code, 1);
  EXPECT_EQ(runHarbor({"lock", "autologin", "on", "--password", "bad"}).code, 1);
  ASSERT_EQ(runHarbor({"lock", "autologin", "on", "--password", "pw"}).code, 0);
  EXPECT_EQ(status()["locked"], false);

  fs::create_directories(root() / "private" / "inner");
  ASSERT_EQ(runHarbor({"lock", "folder", (root() / "private").string(), "fpw"}).code, 0);
  auto s = status("private/inner");
  EXPECT_EQ(s["locked"], true);
  EXPECT_EQ(s["header"], "/private");
  EXPECT_EQ(runHarbor({"lock", "login", "pw", "--at", "private/inner"}).code, 1);
  EXPECT_EQ(runHarbor({"lock", "login", "fpw", "--at", "private/inner"}).code, 0);
  EXPECT_EQ(runHarbor({"lock", "status", "--at", "../outside"}).code, 1);

  ASSERT_EQ(runHarbor({"lock", "autologin", "off"}).code, 0);
  EXPECT_EQ(status("private")["header"], "Password lock");
}

}  // namespace
}  // namespace harbor

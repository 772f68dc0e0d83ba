// The lock screen and the password setup screen over real storage, driven
// through a port that answers from a queue.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <thread>

#include "app/AppDelegate.h"
#include "app/GlobalConfig.h"
#include "app/LocalLoginController.h"
#include "app/LockServices.h"
#include "app/SettingsLoginPassword.h"
#include "filemanager/FileManagerUtil.h"
#include "platform/MainQueue.h"
#include "platform/ScreenPort.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/TouchIDUtils.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

struct Answer {
  int button;  // 0 Cancel, 1 OK
  std::string field;
};

// Records every request; alerts take the next queued answer, Cancel when
// none is left. Replies come through the main queue, as on screen.
class RecordingPort : public IScreenPort {
 public:
  void showAlert(const ScreenAlert& alert, AlertReply reply) override {
    alerts.push_back(alert);
    Answer a = answers.empty() ? Answer{0, ""} : answers.front();
    if (!answers.empty()) answers.pop_front();
    MainQueue::shared().post([reply, a] { reply(a.button, {a.field}); });
  }
  void showSheet(const ScreenSheet&, SheetReply reply) override {
    MainQueue::shared().post([reply] { reply(-1); });
  }
  void showMessage(const std::string& key, const std::string& text) override {
    messages.push_back(key);
    texts.push_back(text);
  }
  void setTitle(const std::string& t) override { title = t; }
  void setBusy(bool) override {}
  void close() override { ++closed; }

  std::deque<Answer> answers;
  std::vector<ScreenAlert> alerts;
  std::vector<std::string> messages, texts;
  std::string title;
  int closed = 0;
};

struct Browser : ViewController, IFileExplorer {
  std::string className() const override { return "HarborFileManagerController"; }
  std::string fullRelativePath() const override { return folder; }
  std::string folder;
};

// A device with biometrics whose reply comes from another thread.
struct Fingerprint : IBiometrics {
  bool succeed = true;
  int asked = 0;
  bool canEvaluatePolicy() override { return true; }
  void evaluatePolicy(const std::string&, Reply reply) override {
    ++asked;
    std::thread([reply, ok = succeed] { reply(ok, ok ? 0 : -1); }).join();
  }
};

class LockScreens : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
    ApplicationServices::shared() = ApplicationServices{};
  }
  void TearDown() override {
    ApplicationServices::shared() = ApplicationServices{};
    TouchIDUtils::setBiometrics(nullptr);
    LocalLoginController::singleInstance()->txtField.clear();
    GlobalConfig::reset();
    TempHome::TearDown();
  }

  static void drain() {
    while (MainQueue::shared().runPending() > 0) {
    }
  }

  // Launches with the browser showing `folder`, then locks as on leaving.
  std::unique_ptr<AppDelegate> launch(const std::string& folder = "") {
    browser->folder = folder;
    auto app = std::make_unique<AppDelegate>();
    installLockServices(*app, port);
    ApplicationServices::shared().fileManagerController = [this] { return browser; };
    app->didFinishLaunchingWithOptions({});
    app->waitForClearTemp(std::chrono::seconds(10));
    app->isSecurity();
    return app;
  }
  bool locked(AppDelegate& app) {
    return app.window()->rootViewController == LocalLoginController::singleInstance();
  }
  bool login(const std::string& password) {
    auto screen = LocalLoginController::singleInstance();
    screen->txtField = password;
    bool ok = screen->LoginSystem();
    drain();
    return ok;
  }
  void lockFolder(const std::string& rel, const std::string& password) {
    fs::create_directories(root() / rel);
    ASSERT_TRUE(FileManagerUtil::saveFilePassword((root() / rel).string(), password));
  }

  std::shared_ptr<RecordingPort> port = std::make_shared<RecordingPort>();
  std::shared_ptr<Browser> browser = std::make_shared<Browser>();
};

TEST_F(LockScreens, LocalPasswordLocksAtLaunchAndOnlyItOpens) {
  LoginPasswordUtil::saveLocalPassword("local");
  lockFolder("private", "folder");
  std::vector<std::shared_ptr<ViewController>> roots;
  ApplicationServices::shared().rootChanged = [&](const auto& r) { roots.push_back(r); };
  auto app = launch("/private/sub");
  ASSERT_TRUE(locked(*app));
  EXPECT_EQ(roots.size(), 1u) << "the lock screen became the root once";
  auto screen = LocalLoginController::singleInstance();
  EXPECT_TRUE(screen->viewWillAppear()) << "no biometrics: the keyboard opens";
  EXPECT_EQ(port->title, localizedString("LocalLoginPassword"));

  EXPECT_FALSE(login("")) << "empty";
  EXPECT_FALSE(login("folder")) << "the folder's password does not open the program's lock";
  EXPECT_EQ(port->messages, (std::vector<std::string>{"PasswordIsError", "PasswordIsError"}));
  EXPECT_TRUE(locked(*app));
  EXPECT_TRUE(login("local"));
  EXPECT_FALSE(locked(*app));
  EXPECT_EQ(roots.back(), app->fileManagerNavController);
  screen->viewWillDisappear();
  EXPECT_EQ(screen->txtField, "");
}

TEST_F(LockScreens, LockedFolderWithoutLocalPasswordShowsItsPath) {
  lockFolder("a/b", "outer");
  lockFolder("a/b/c", "inner");
  auto app = launch("/a/b/c/d");
  ASSERT_TRUE(locked(*app));
  EXPECT_EQ(app->getFileExplorePwdPath(), "/a/b/c") << "the nearest locked level";
  LocalLoginController::singleInstance()->viewWillAppear();
  EXPECT_EQ(port->title, "/a/b/c");
  EXPECT_FALSE(login("outer"));
  EXPECT_TRUE(login("inner"));
  EXPECT_FALSE(locked(*app));

  // Outside any locked folder nothing locks.
  auto free = launch("/a");
  EXPECT_FALSE(locked(*free));
}

TEST_F(LockScreens, AutoLoginStillLocksInsideALockedFolderWithTheFolderPassword) {
  LoginPasswordUtil::saveLocalPassword("local");
  LoginPasswordUtil::saveAutoLogin(true);
  lockFolder("private", "folder");
  auto app = launch("/elsewhere");
  EXPECT_FALSE(locked(*app)) << "auto login and nothing locked on screen";

  browser->folder = "/private";
  app->applicationDidEnterBackground();
  ASSERT_TRUE(locked(*app));
  LocalLoginController::singleInstance()->viewWillAppear();
  EXPECT_EQ(port->title, "/private");
  EXPECT_FALSE(login("local"));
  EXPECT_TRUE(login("folder"));
}

TEST_F(LockScreens, RootFolderLockHeaderIsASlash) {
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(root().string(), "rootpw"));
  auto app = launch("/x");
  ASSERT_TRUE(locked(*app));
  EXPECT_EQ(LocalLoginController::singleInstance()->headerText(), "/");
}

TEST_F(LockScreens, ALaunchWithNothingInstalledStillLocks) {
  LoginPasswordUtil::saveLocalPassword("local");
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  EXPECT_TRUE(locked(app));
}

TEST_F(LockScreens, AStoredPasswordThatNoLongerDeciphersIsToldNotSilentlyDropped) {
  // What an earlier build wrote with another key: valid base64, wrong cipher.
  UserDefaults::standard().setObject(keys::SYSTEM_LOCAL_LOGIN_PASSWORD,
                                     PlistValue(std::string("q83vEjRWeJCrze8SNFZ4kA==")));
  UserDefaults::standard().setObject(keys::SYSTEM_WIFI_LOGIN_PASSWORD,
                                     PlistValue(std::string("not base64 at all")));
  EXPECT_TRUE(LoginPasswordUtil::isUnreadableLocalPassword());
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");
  auto app = launch();
  EXPECT_FALSE(locked(*app)) << "an unreadable password cannot be typed: no lock";
  ASSERT_EQ(port->texts.size(), 2u) << "the launch says why the lock is off";
  EXPECT_EQ(port->texts[0], localizedString("LockPasswordUnreadable"));
  EXPECT_EQ(port->texts[1], localizedString("WifiPasswordUnreadable"));

  // A new password replaces it without asking for the old one.
  LoginPasswordUtil::saveLocalPassword("fresh");
  EXPECT_FALSE(LoginPasswordUtil::isUnreadableLocalPassword());
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "fresh");
  LoginPasswordUtil::saveWifiPassword("");
  EXPECT_EQ(warnUnreadablePasswords(), 0);
}

class PasswordSetup : public LockScreens {
 protected:
  std::unique_ptr<SettingsLoginPassword> screen() {
    auto s = std::make_unique<SettingsLoginPassword>(port);
    s->viewDidLoad();
    s->reloadData = [this] { ++reloads; };
    return s;
  }
  void save(SettingsLoginPassword& s) {
    s.savePassword(SettingsLoginPassword::Sender{});
    drain();
  }
  int reloads = 0;
};

TEST_F(PasswordSetup, PairsMustMatchAndAnEmptyPasswordRemovesTheLock) {
  auto s = screen();
  s->localPassword = "one";
  s->localConfirm = "two";
  save(*s);
  EXPECT_EQ(port->texts, (std::vector<std::string>{localizedString("Local") + " " +
                                                   localizedString("PasswordNotEqualConfirm")}));
  EXPECT_EQ(port->closed, 0);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");

  s->localConfirm = "one";
  s->wifiPassword = s->wifiConfirm = "share";
  save(*s);
  EXPECT_TRUE(port->alerts.empty()) << "nothing stored before: no old password asked";
  EXPECT_EQ(port->closed, 1);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "one");
  EXPECT_EQ(LoginPasswordUtil::getWifiPassword(), "share");

  // Removing takes the old password, then the key and the lock go.
  port->answers.push_back({1, "one"});
  auto again = screen();
  again->localPassword = again->localConfirm = "";
  save(*again);
  EXPECT_FALSE(UserDefaults::standard().objectForKey(keys::SYSTEM_LOCAL_LOGIN_PASSWORD));
  auto app = launch();
  EXPECT_FALSE(locked(*app));
}

TEST_F(PasswordSetup, ChangingTheLocalPasswordAsksForTheOldOne) {
  LoginPasswordUtil::saveLocalPassword("old");
  auto s = screen();
  EXPECT_EQ(s->localPassword, "old");
  s->localPassword = s->localConfirm = "new";

  save(*s);  // cancelled: the screen goes, nothing changes
  ASSERT_EQ(port->alerts.size(), 1u);
  EXPECT_EQ(port->alerts[0].tag, SettingsLoginPassword::kOldPasswordTag);
  EXPECT_EQ(port->alerts[0].key, "InputOldLocalPassword");
  EXPECT_EQ(port->closed, 1);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "old");

  port->answers.push_back({1, "wrong"});
  save(*s);
  EXPECT_EQ(port->messages, (std::vector<std::string>{"PasswordIsError"}));
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "old");

  port->answers.push_back({1, "old"});
  save(*s);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "new");
  EXPECT_EQ(port->closed, 2);

  // Only the Wi-Fi password changing asks nothing.
  auto w = screen();
  w->wifiPassword = w->wifiConfirm = "share";
  save(*w);
  EXPECT_EQ(port->alerts.size(), 3u);
  EXPECT_EQ(LoginPasswordUtil::getWifiPassword(), "share");
}

TEST_F(PasswordSetup, BiometricsStandInForTheOldPasswordWhenTheDeviceHasThem) {
  auto finger = std::make_shared<Fingerprint>();
  TouchIDUtils::setBiometrics(finger);
  LoginPasswordUtil::saveLocalPassword("old");
  auto s = screen();
  s->localPassword = s->localConfirm = "new";
  save(*s);
  EXPECT_EQ(finger->asked, 1);
  EXPECT_TRUE(port->alerts.empty());
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "new");

  // A failed reading falls back to the dialog.
  finger->succeed = false;
  s->localPassword = s->localConfirm = "newer";
  port->answers.push_back({1, "new"});
  save(*s);
  ASSERT_EQ(port->alerts.size(), 1u);
  EXPECT_EQ(port->alerts[0].tag, SettingsLoginPassword::kOldPasswordTag);
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "newer");
}

TEST_F(PasswordSetup, AutoLoginNeedsThePasswordOnlyWhenOneIsStored) {
  auto s = screen();
  s->changeAutoLogin(true);
  drain();
  EXPECT_TRUE(port->alerts.empty()) << "no stored password: saved at once";
  EXPECT_TRUE(LoginPasswordUtil::getAutoLogin());
  s->changeAutoLogin(false);
  EXPECT_FALSE(UserDefaults::standard().objectForKey(keys::System_Local_AutoLogin));

  LoginPasswordUtil::saveLocalPassword("pw");
  s->changeAutoLogin(true);  // cancelled
  drain();
  ASSERT_EQ(port->alerts.size(), 1u);
  EXPECT_EQ(port->alerts[0].tag, SettingsLoginPassword::kAutoLoginTag);
  EXPECT_EQ(reloads, 1);
  EXPECT_FALSE(s->autoLogin);
  EXPECT_FALSE(LoginPasswordUtil::getAutoLogin());

  port->answers.push_back({1, "nope"});
  s->changeAutoLogin(true);
  drain();
  EXPECT_EQ(port->messages, (std::vector<std::string>{"PasswordIsError"}));
  EXPECT_FALSE(LoginPasswordUtil::getAutoLogin());

  port->answers.push_back({1, "pw"});
  s->changeAutoLogin(true);
  drain();
  EXPECT_TRUE(LoginPasswordUtil::getAutoLogin());
  EXPECT_TRUE(s->autoLogin);
}

TEST_F(PasswordSetup, ClearingFolderPasswordsTakesTheLocalPassword) {
  LoginPasswordUtil::saveLocalPassword("pw");
  lockFolder("a", "x");
  lockFolder("b", "y");
  auto s = screen();
  port->answers.push_back({1, "wrong"});
  s->clearDirectoryPassword();
  drain();
  EXPECT_EQ(port->alerts.at(0).tag, SettingsLoginPassword::kClearFolderPasswordTag);
  EXPECT_EQ(port->alerts.at(0).key, "InputLocalPassword");
  EXPECT_EQ(FileManagerUtil::getPasswordHashTable().size(), 2u);
  s->clearDirectoryPassword();  // cancelled
  drain();
  EXPECT_EQ(FileManagerUtil::getPasswordHashTable().size(), 2u);
  port->answers.push_back({1, "pw"});
  s->clearDirectoryPassword();
  drain();
  EXPECT_TRUE(FileManagerUtil::getPasswordHashTable().empty());
}

}  // namespace
}  // namespace harbor

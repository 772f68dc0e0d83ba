#include <gtest/gtest.h>

#include <filesystem>

#include "app/AppDelegate.h"
#include "app/GlobalConfig.h"
#include "app/GlobalUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "platform/MainQueue.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/UserDefaults.h"
#include "prefs/FileShareUtil.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/SystemUtils.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

struct Screen : ViewController {
  explicit Screen(std::string n) : name(std::move(n)) {}
  std::string className() const override { return name; }
  std::string name;
};

struct Browser : Screen, IFileExplorer {
  Browser() : Screen("HarborFileManagerController") {}
  std::string fullRelativePath() const override { return folder; }
  std::string folder;
};

struct Passwords : IPasswordStore {
  std::string local;
  bool autoLogin = false;
  std::map<std::string, std::string> folders;  // relative path -> password
  std::string getLocalPassword() override { return local; }
  bool getAutoLogin() override { return autoLogin; }
  std::string getFilePassword(const std::string& fullPath) override {
    auto it = folders.find(FileUtil::getDocumentRelativePath(fullPath));
    return it == folders.end() ? "" : it->second;
  }
  std::optional<std::string> isExistsPasswordInPathComponents(const std::string& rel) override {
    for (fs::path p = rel; !p.empty() && p != "/"; p = p.parent_path()) {
      if (folders.count(p.string())) return p.string();
    }
    return std::nullopt;
  }
};

struct Biometrics : IBiometrics {
  bool succeed = true;
  long code = 0;
  int asked = 0;
  bool canEvaluatePolicy() override { return true; }
  void evaluatePolicy(const std::string&, Reply reply) override {
    ++asked;
    reply(succeed, code);
  }
};

struct Share : IShareServer {
  bool running = false;
  bool startHttpServer() override { return running = true; }
  void stopHttpServer() override { running = false; }
  bool isRunning() const override { return running; }
};

class Application : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
    auto& s = ApplicationServices::shared();
    s = ApplicationServices{};
    s.passwords = passwords;
    TouchIDUtils::setBiometrics(biometrics);
    s.loginController = [this] { return login; };
    s.fileManagerController = [this] { return browser; };
    s.alertMsg = [this](const std::string& m) { alerts.push_back(m); };
  }
  void TearDown() override {
    ApplicationServices::shared() = ApplicationServices{};
    TouchIDUtils::setBiometrics(nullptr);
    GlobalConfig::reset();
    TempHome::TearDown();
  }

  std::shared_ptr<ViewController> shown(AppDelegate& app) {
    return app.window()->rootViewController;
  }

  std::shared_ptr<Passwords> passwords = std::make_shared<Passwords>();
  std::shared_ptr<Biometrics> biometrics = std::make_shared<Biometrics>();
  std::shared_ptr<Screen> login = std::make_shared<Screen>("LocalLoginController");
  std::shared_ptr<Browser> browser = std::make_shared<Browser>();
  std::vector<std::string> alerts;
};

TEST_F(Application, LaunchWithoutLockShowsTheBrowserAndHandlesTheQuickAction) {
  auto share = std::make_shared<Share>();
  ApplicationServices::shared().makeShareServer = [share] { return share; };
  test::writeFile(fs::path(FileUtil::tempDirectory()) / "left-over" / "x.tmp", "x");
  defaults()->setObject(keys::SYSTEM_FILE_PASSWORD,
                        PlistValue::Map{{"gone/folder", "pw"}, {"", "root"}});

  AppDelegate app;
  ASSERT_TRUE(app.didFinishLaunchingWithOptions(LaunchOptions{ShortcutItem{"WIFISHARE"}}));

  EXPECT_EQ(CommonApplication::sharedAppDelegate(), &app);
  EXPECT_EQ(GlobalConfig::instance()->app, &app);
  EXPECT_EQ(SystemUtils::getLoginTimes(), 1u);
  EXPECT_TRUE(app.window()->isKeyAndVisible);
  ASSERT_EQ(shown(app), app.fileManagerNavController);
  EXPECT_EQ(app.fileManagerNavController->viewControllers.front(), browser);
  EXPECT_FALSE(app.currentShortcutItem().has_value()) << "handled once the normal root showed";
  // The share opens by itself and is published.
  EXPECT_TRUE(share->running);
  EXPECT_EQ(GlobalConfig::instance()->httpServer, share);
  EXPECT_EQ(app.imageFormats().size(), 2u);
  // Left-overs of the last run go, and so do passwords of vanished folders.
  ASSERT_TRUE(app.waitForClearTemp(std::chrono::seconds(10)));
  EXPECT_TRUE(fs::is_empty(FileUtil::tempDirectory()));
  auto pw = defaults()->dictionaryForKey(keys::SYSTEM_FILE_PASSWORD);
  ASSERT_TRUE(pw.has_value());
  EXPECT_EQ(pw->count("gone/folder"), 0u);
  EXPECT_EQ(pw->count(""), 1u);
}

TEST_F(Application, ShareStaysClosedWhenNotOpenedAutomatically) {
  auto share = std::make_shared<Share>();
  ApplicationServices::shared().makeShareServer = [share] { return share; };
  FileShareUtil::setAutomaticallyOpenShare(false);
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  EXPECT_FALSE(share->running);
  EXPECT_EQ(app.httpServer(), share);
}

TEST_F(Application, LocalPasswordLocksAtLaunchAndKeepsTheQuickActionPending) {
  passwords->local = "secret";
  biometrics->succeed = false;
  biometrics->code = -2;  // the user cancelled
  AppDelegate app;
  app.didFinishLaunchingWithOptions(LaunchOptions{ShortcutItem{"WIFISHARE"}});

  EXPECT_EQ(shown(app), login);
  EXPECT_EQ(biometrics->asked, 1);
  EXPECT_TRUE(alerts.empty()) << "a cancel shows nothing";
  EXPECT_TRUE(app.currentShortcutItem().has_value());

  app.performActionForShortcutItem(ShortcutItem{"WIFISHARE"}, nullptr);
  EXPECT_TRUE(app.currentShortcutItem().has_value()) << "never behind the lock screen";

  app.restoreWindowRootViewController();
  EXPECT_EQ(shown(app), app.fileManagerNavController);
  EXPECT_FALSE(app.currentShortcutItem().has_value());
}

TEST_F(Application, LockedFolderLocksEvenWithAutoLogin) {
  passwords->local = "secret";
  passwords->autoLogin = true;
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  EXPECT_EQ(shown(app), app.fileManagerNavController) << "auto login, nothing locked on screen";

  passwords->folders["/private"] = "pw";
  browser->folder = "/private/sub";
  EXPECT_EQ(app.getFileExplorePwdPath(), "/private");
  EXPECT_EQ(app.getFileExplorePassword(), "pw");

  app.applicationDidEnterBackground();
  EXPECT_EQ(shown(app), login);
  EXPECT_EQ(biometrics->asked, 0) << "no biometrics on the way out";

  biometrics->succeed = false;
  biometrics->code = -1;
  app.applicationWillEnterForeground();
  EXPECT_EQ(shown(app), login);
  EXPECT_EQ(alerts.size(), 1u);

  biometrics->succeed = true;
  app.applicationWillEnterForeground();
  EXPECT_EQ(shown(app), app.fileManagerNavController);
}

TEST_F(Application, BiometricsAreNotOfferedWhenTheUserTurnedThemOff) {
  passwords->local = "secret";
  TouchIDSettings::setTouchIDAuthentication(false);
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  app.applicationWillEnterForeground();
  EXPECT_EQ(shown(app), login);
  EXPECT_EQ(biometrics->asked, 0);
}

TEST_F(Application, NoPasswordNeverLocks) {
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  app.applicationDidEnterBackground();
  app.applicationWillEnterForeground();
  EXPECT_EQ(shown(app), app.fileManagerNavController);
  EXPECT_EQ(biometrics->asked, 0);
}

TEST_F(Application, EnteringTheBackgroundPurgesBookmarksOfVanishedFiles) {
  test::writeFile(root() / "kept.txt", "k");
  defaults()->setObject(keys::SYSTEM_BOOKMARK,
                        PlistValue::Map{{"kept.txt", PlistValue::Map{}}, {"gone.txt", 1}});
  AppDelegate app;
  app.didFinishLaunchingWithOptions({});
  app.applicationDidEnterBackground();
  auto marks = defaults()->dictionaryForKey(keys::SYSTEM_BOOKMARK);
  ASSERT_TRUE(marks.has_value());
  EXPECT_EQ(marks->size(), 1u);
  EXPECT_EQ(marks->count("kept.txt"), 1u);
}

class Incoming : public Application {
 protected:
  std::vector<std::string> importedNames() {
    std::vector<std::string> names;
    for (auto& e : fs::directory_iterator(root() / "Imported")) {
      names.push_back(e.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(Incoming, FilledInboxMovesEverythingUnderFreeNames) {
  test::writeFile(root() / "Imported" / "notes.txt", "old");
  test::writeFile(root() / "Imported" / "report.tar.gz", "old");
  test::writeFile(root() / "Inbox" / "notes.txt", "new");
  test::writeFile(root() / "Inbox" / "report.tar.gz", "new");
  test::writeFile(root() / "Inbox" / "data" / "inner.txt", "i");
  fs::create_directories(root() / "Imported" / "data");
  test::ScratchDir outside;
  test::writeFile(outside / "ignored.txt", "url content");

  int posted = 0;
  auto token = NotificationCenter::defaultCenter().addObserver(
      notifications::HBFileDirectoryChangeToParentNotification,
      [&](const NotificationCenter::Notification& n) {
        ++posted;
        EXPECT_EQ(std::any_cast<std::string>(n.object), "");
      });
  AppDelegate app;
  EXPECT_TRUE(app.openURL("file://" + (outside / "ignored.txt").string()));
  NotificationCenter::defaultCenter().removeObserver(token);

  EXPECT_EQ(importedNames(), (std::vector<std::string>{"data", "data 2", "notes 2.txt", "notes.txt",
                                                       "report 2.tar.gz", "report.tar.gz"}));
  EXPECT_EQ(test::readFile(root() / "Imported" / "notes 2.txt"), "new");
  EXPECT_TRUE(fs::exists(root() / "Imported" / "data 2" / "inner.txt"));
  EXPECT_TRUE(fs::is_empty(root() / "Inbox"));
  EXPECT_EQ(posted, 1);
}

TEST_F(Incoming, EmptyInboxCopiesTheHandedOverFile) {
  test::ScratchDir outside;
  test::writeFile(outside / "a" / "notes.txt", "one");
  test::writeFile(outside / "b" / "notes.txt", "two");
  AppDelegate app;
  EXPECT_TRUE(app.openURL("file://" + (outside / "a" / "notes.txt").string()));
  EXPECT_TRUE(app.openURL((outside / "b" / "notes.txt").string()));
  EXPECT_EQ(importedNames(), (std::vector<std::string>{"notes 2.txt", "notes.txt"}));
  EXPECT_EQ(test::readFile(root() / "Imported" / "notes 2.txt"), "two");
  EXPECT_TRUE(fs::exists(outside / "a" / "notes.txt")) << "the original stays";

  // Percent escapes in a file URL name the real file.
  test::writeFile(outside / "with space.txt", "s");
  EXPECT_TRUE(app.openURL("file://" + outside.path().string() + "/with%20space.txt"));
  EXPECT_TRUE(fs::exists(root() / "Imported" / "with space.txt"));
}

TEST_F(Incoming, NonFileURLsAreAnsweredButIgnored) {
  AppDelegate app;
  EXPECT_TRUE(app.openURL("https://example.invalid/x.txt"));
  EXPECT_TRUE(app.openURL(""));
  EXPECT_FALSE(fs::exists(root() / "Imported"));
}

TEST(ApplicationCounters, IdleTimerHoldsAndNetworkRequests) {
  MainQueue::shared().adoptCurrentThread();
  std::vector<bool> switched;
  GlobalUtil::setIdleTimerHandler([&](bool disabled) { switched.push_back(disabled); });
  GlobalUtil::lockScreen();  // never below zero
  GlobalUtil::unLockScreen();
  GlobalUtil::unLockScreen();
  GlobalUtil::lockScreen();
  GlobalUtil::lockScreen();
  MainQueue::shared().runPending();
  EXPECT_EQ(switched, (std::vector<bool>{true, false}));
  EXPECT_EQ(GlobalUtil::holdCount(), 0);
  GlobalUtil::setIdleTimerHandler(nullptr);

  CommonApplication app;
  app.networkRequestStarted();
  app.networkRequestStarted();
  app.networkRequestStopped();
  EXPECT_TRUE(app.isNetworkActivityIndicatorVisible());
  app.networkRequestStopped();
  app.networkRequestStopped();
  EXPECT_EQ(app.outstandingRequests(), 0);
  EXPECT_FALSE(app.isNetworkActivityIndicatorVisible());
}

TEST_F(Application, MemoryWarningEmptiesTheImageCache) {
  CommonApplication::processedImageCache().setObject("a", std::make_shared<int>(1));
  AppDelegate app;
  app.applicationDidReceiveMemoryWarning();
  EXPECT_EQ(CommonApplication::processedImageCache().count(), 0u);
}

TEST_F(Application, ExitRemovesTheTemporaryFolder) {
  const fs::path tmp = Directories::temporaryDirectory();
  test::writeFile(tmp / "work.tmp", "x");
  EXPECT_EXIT(
      {
        AppDelegate app;
        app.exitCurrentApplication();
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_FALSE(fs::exists(tmp / "work.tmp"));
}

}  // namespace
}  // namespace harbor

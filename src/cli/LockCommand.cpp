#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "app/AppDelegate.h"
#include "app/LocalLoginController.h"
#include "app/LockServices.h"
#include "app/SettingsLoginPassword.h"
#include "cli/Commands.h"
#include "cli/Output.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "platform/MainQueue.h"
#include "platform/Paths.h"
#include "platform/ScreenPort.h"
#include "platform/UserDefaults.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

struct LockFolderOptions {
  std::string path;
  std::string password;
};

int runLockFolder(const LockFolderOptions& opts) {
  std::string root = FileUtil::documentDirectory();
  std::error_code ec;
  fs::path full = fs::absolute(opts.path, ec).lexically_normal();
  std::string text = full.string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  if (relativePathBelow(text, root).empty()) {
    return fail("lock folder", opts.path + " is not below the document root " + root);
  }
  if (auto problem = checkPath(text, PathNeed::Folder)) {
    return fail("lock folder", opts.path + ": " + *pathProblem(text, PathNeed::Folder));
  }
  if (!FileManagerUtil::saveFilePassword(text, opts.password)) {
    return fail("lock folder", "cannot store the password");
  }
  UserDefaults::standard().synchronize();
  std::cout << (opts.password.empty() ? "unlocked " : "locked ") << text << "\n";
  return 0;
}

// The lock screens' port on a terminal: alerts are answered from what the
// command line gave (Cancel when nothing), messages go to standard error.
class TerminalPort : public IScreenPort {
 public:
  explicit TerminalPort(std::string command) : command_(std::move(command)) {}

  void answer(int tag, std::string password) { answers_[tag] = std::move(password); }

  void showAlert(const ScreenAlert& alert, AlertReply reply) override {
    auto it = answers_.find(alert.tag);
    int button = it == answers_.end() ? 0 : 1;
    std::vector<std::string> fields;
    if (it != answers_.end()) fields.push_back(it->second);
    if (button == 0) unanswered.push_back(alert.key);
    MainQueue::shared().post([reply, button, fields] { reply(button, fields); });
  }
  void showSheet(const ScreenSheet&, SheetReply reply) override {
    MainQueue::shared().post([reply] { reply(-1); });
  }
  void showMessage(const std::string&, const std::string& text) override {
    warn(command_, text);
    ++messages;
  }
  void setTitle(const std::string& title) override { this->title = title; }
  void setBusy(bool) override {}
  void close() override { closed = true; }

  // Runs the replies, and whatever they post in turn.
  static void drain() {
    while (MainQueue::shared().runPending() > 0) {
    }
  }

  std::vector<std::string> unanswered;  // keys of alerts answered Cancel
  int messages = 0;
  bool closed = false;
  std::string title;

 private:
  std::string command_;
  std::map<int, std::string> answers_;
};

// The browser as the lock sees it: the folder on screen.
class FolderScreen : public ViewController, public IFileExplorer {
 public:
  explicit FolderScreen(std::string folder) : folder_(std::move(folder)) {}
  std::string className() const override { return "HarborFileManagerController"; }
  std::string fullRelativePath() const override { return folder_; }

 private:
  std::string folder_;
};

// "a/b/" -> "/a/b"; "" and "/" are the root (""). Nothing for a path that
// leaves the root or names no folder.
std::optional<std::string> folderAt(const std::string& rel, std::string& problem) {
  fs::path p = fs::path("/" + rel).lexically_normal();
  std::string text = p.string();
  while (!text.empty() && text.back() == '/') text.pop_back();
  if (text.find("/..") == 0) {
    problem = rel + " leaves the document root";
    return std::nullopt;
  }
  const std::string full = FileUtil::documentDirectory() + text;
  if (auto why = pathProblem(full, PathNeed::Folder)) {
    problem = rel + ": " + *why;
    return std::nullopt;
  }
  return text;
}

// A launch of the application with the browser showing `folder`, then the
// lock check the platform runs when the program leaves the screen.
struct LockedLaunch {
  std::unique_ptr<AppDelegate> app;
  std::shared_ptr<LocalLoginController> login;

  bool locked() const { return login && app->window()->rootViewController == login; }
};

LockedLaunch launchAt(const std::string& folder, std::shared_ptr<TerminalPort> port) {
  MainQueue::shared().adoptCurrentThread();
  LockedLaunch out;
  out.app = std::make_unique<AppDelegate>();
  installLockServices(*out.app, port);
  ApplicationServices::shared().fileManagerController = [folder] {
    return std::make_shared<FolderScreen>(folder);
  };
  out.app->didFinishLaunchingWithOptions({});
  out.app->isSecurity();
  TerminalPort::drain();
  out.app->waitForClearTemp(std::chrono::seconds(10));
  out.login = LocalLoginController::singleInstance();
  return out;
}

int runLockStatus(const std::string& at) {
  std::string problem;
  auto folder = folderAt(at, problem);
  if (!folder) return fail("lock status", problem);
  auto port = std::make_shared<TerminalPort>("lock status");
  LockedLaunch launch = launchAt(*folder, port);
  const bool locked = launch.locked();
  std::cout << ordered_json{{"locked", locked},
                            {"header", locked ? launch.login->headerText() : std::string()}}
                   .dump()
            << "\n";
  return 0;
}

int runLockLogin(const std::string& password, const std::string& at) {
  std::string problem;
  auto folder = folderAt(at, problem);
  if (!folder) return fail("lock login", problem);
  auto port = std::make_shared<TerminalPort>("lock login");
  LockedLaunch launch = launchAt(*folder, port);
  if (!launch.locked()) {
    std::cout << "not locked\n";
    return 0;
  }
  launch.login->viewWillAppear();
  launch.login->txtField = password;
  const bool opened = launch.login->LoginSystem();
  TerminalPort::drain();
  launch.login->viewWillDisappear();
  if (!opened || launch.locked()) return 1;
  std::cout << "unlocked\n";
  return 0;
}

struct LockSetOptions {
  std::optional<std::string> local, localConfirm, wifi, wifiConfirm, old;
};

int runLockSet(const LockSetOptions& o) {
  if (!o.local && !o.wifi) return fail("lock set", "give --local or --wifi", 2);
  auto port = std::make_shared<TerminalPort>("lock set");
  if (o.old) port->answer(SettingsLoginPassword::kOldPasswordTag, *o.old);
  SettingsLoginPassword screen(port);
  screen.viewDidLoad();
  if (o.local) {
    screen.localPassword = *o.local;
    screen.localConfirm = o.localConfirm.value_or(std::string());
  }
  if (o.wifi) {
    screen.wifiPassword = *o.wifi;
    screen.wifiConfirm = o.wifiConfirm.value_or(std::string());
  }
  screen.savePassword(SettingsLoginPassword::Sender{});
  TerminalPort::drain();
  const bool stored = LoginPasswordUtil::getLocalPassword() == screen.localPassword &&
                      LoginPasswordUtil::getWifiPassword() == screen.wifiPassword;
  if (stored && port->messages == 0) return 0;
  if (!port->unanswered.empty() && port->messages == 0) {
    warn("lock set", "the current local password is needed (--old)");
  }
  return 1;
}

int runLockAutoLogin(const std::string& state, const std::optional<std::string>& password) {
  const bool on = state == "on";
  auto port = std::make_shared<TerminalPort>("lock autologin");
  if (password) port->answer(SettingsLoginPassword::kAutoLoginTag, *password);
  SettingsLoginPassword screen(port);
  screen.viewDidLoad();
  screen.changeAutoLogin(on);
  TerminalPort::drain();
  if (LoginPasswordUtil::getAutoLogin() == on) return 0;
  if (!port->unanswered.empty() && port->messages == 0) {
    warn("lock autologin", "the local password is needed (--password)");
  }
  return 1;
}

void addLockCommand(CLI::App& app, int& exitCode) {
  CLI::App* lock = app.add_subcommand("lock", "The program's password lock and folder passwords");
  lock->require_subcommand(1);
  lock->footer("Exit codes: 0 done, 1 refused (wrong or missing password), 2 bad usage.");
  auto folder = std::make_shared<LockFolderOptions>();
  CLI::App* cmd = lock->add_subcommand(
      "folder", "Set a folder's password, or remove it when no PASSWORD is given");
  cmd->add_option("PATH", folder->path, "A folder below the document root")->required();
  cmd->add_option("PASSWORD", folder->password, "The new password (none: unlock)");
  cmd->callback([folder, &exitCode] { exitCode = runLockFolder(*folder); });

  auto at = std::make_shared<std::string>();
  CLI::App* status = lock->add_subcommand(
      "status", "Whether the lock screen shows, as JSON {\"locked\", \"header\"}");
  status->add_option("--at", *at, "The folder the file browser shows, relative to the root");
  status->callback([at, &exitCode] { exitCode = runLockStatus(*at); });

  auto set = std::make_shared<LockSetOptions>();
  CLI::App* setCmd =
      lock->add_subcommand("set", "Set the local and Wi-Fi passwords (an empty one removes it)");
  auto* local = setCmd->add_option("--local", set->local, "The program's own password");
  auto* localConfirm = setCmd->add_option("--local-confirm", set->localConfirm, "It again");
  auto* wifi = setCmd->add_option("--wifi", set->wifi, "The Wi-Fi share's password");
  auto* wifiConfirm = setCmd->add_option("--wifi-confirm", set->wifiConfirm, "It again");
  local->needs(localConfirm);
  localConfirm->needs(local);
  wifi->needs(wifiConfirm);
  wifiConfirm->needs(wifi);
  setCmd->add_option("--old", set->old, "The current local password, needed to change it");
  setCmd->callback([set, &exitCode] { exitCode = runLockSet(*set); });

  auto state = std::make_shared<std::string>();
  auto autoPassword = std::make_shared<std::optional<std::string>>();
  CLI::App* autoCmd =
      lock->add_subcommand("autologin", "Open without the local password (on) or not (off)");
  autoCmd->add_option("STATE", *state, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  autoCmd->add_option("--password", *autoPassword, "The local password, needed to turn it on");
  autoCmd->callback(
      [state, autoPassword, &exitCode] { exitCode = runLockAutoLogin(*state, *autoPassword); });

  auto login = std::make_shared<std::pair<std::string, std::string>>();
  CLI::App* loginCmd =
      lock->add_subcommand("login", "Try a password at the lock screen; exit 1 when refused");
  loginCmd->add_option("PASSWORD", login->first, "The password")->required();
  loginCmd->add_option("--at", login->second, "The folder the file browser shows");
  loginCmd->callback([login, &exitCode] { exitCode = runLockLogin(login->first, login->second); });
}

}  // namespace

const CommandRegistrar lockCommand(75, addLockCommand);

}  // namespace harbor::cli

// harbor browse: the file browser driven line by line from a script, each
// thing a screen shows printed as one JSON line.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/ICloudDriveController.h"
#include "browser/BrowserSupport.h"
#include "browser/FileManagerController.h"
#include "browser/FilePropertyController.h"
#include "browser/FileTransferController.h"
#include "cli/Commands.h"
#include "cli/Output.h"
#include "filemanager/FileUtil.h"
#include "platform/MainQueue.h"
#include "platform/Paths.h"
#include "platform/ScreenPort.h"
#include "platform/UserDefaults.h"

namespace harbor::cli {
namespace {

std::string shownPath(const std::string& path) {
  const std::string root = FileUtil::documentDirectory();
  if (!isPathAtOrBelow(path, root)) return path;
  std::string relative = FileUtil::getDocumentRelativePath(path);
  return relative.empty() ? "/" : relative;
}

ordered_json propertyJson(const FilePropertyInfo& info) {
  ordered_json line{{"ui", "property"},
                    {"name", info.name},
                    {"path", info.relativePath.empty() ? info.path : info.relativePath},
                    {"kind", info.kind}};
  if (!info.isDirectory) {
    line["extension"] = info.extension;
    line["mime"] = info.mimeType;
  }
  line["size"] = info.size;
  if (info.isDirectory) {
    line["files"] = info.fileNumber;
    line["folders"] = info.folderNumber;
    line["complete"] = !info.counting && !info.countCancelled;
  }
  auto date = [](const std::optional<FilePropertyInfo::Date>& d) {
    return d ? ordered_json(formatPlistDate(*d)) : ordered_json(nullptr);
  };
  line["created"] = date(info.created);
  line["modified"] = date(info.modified);
  line["permissions"] = FilePropertyController::permissionText(info.permissions);
  line["locked"] = info.isLocked;
  if (info.isSymbolicLink) line["link"] = info.linkTarget;
  return line;
}

// Prints what the screens show and keeps the one dialog that waits.
class ScriptPort : public IScreenPort {
 public:
  std::shared_ptr<NavigationController> nav;
  std::vector<std::weak_ptr<FileManagerBaseController>> seen;

  std::optional<ScreenAlert> alert;
  AlertReply alertReply;
  std::optional<ScreenSheet> sheet;
  SheetReply sheetReply;

  void print(const ordered_json& line) {
    std::lock_guard lock(mutex_);
    std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    std::cout.flush();
  }

  bool dialogWaits() const { return alert.has_value() || sheet.has_value(); }

  void showAlert(const ScreenAlert& a, AlertReply reply) override {
    // A new question replaces one nobody answered; that one is cancelled.
    dropDialogs();
    ordered_json line{{"ui", a.fields.empty() ? "alert" : "prompt"},
                      {"tag", a.tag},
                      {"key", a.key},
                      {"text", a.text},
                      {"entries", a.buttons}};
    if (!a.screenClass.empty()) line["class"] = a.screenClass;
    if (!a.screenPath.empty()) line["path"] = a.screenPath;
    print(line);
    alert = a;
    alertReply = std::move(reply);
  }
  void showSheet(const ScreenSheet& s, SheetReply reply) override {
    dropDialogs();
    ordered_json line{{"ui", "sheet"}, {"tag", s.tag}};
    if (!s.key.empty()) line["key"] = s.key;
    line["entries"] = s.rows;
    if (!s.screenClass.empty()) line["class"] = s.screenClass;
    if (!s.screenPath.empty()) line["path"] = s.screenPath;
    print(line);
    sheet = s;
    sheetReply = std::move(reply);
  }
  void showMessage(const std::string& key, const std::string& text) override {
    print({{"ui", "message"}, {"key", key}, {"text", text}});
  }
  void setTitle(const std::string& title) override { print({{"ui", "title"}, {"text", title}}); }
  void setStatus(const std::string& text) override { print({{"ui", "status"}, {"text", text}}); }
  void setBusy(bool busy) override {
    if (busy == busy_) return;
    busy_ = busy;
    print({{"ui", "busy"}, {"text", busy ? "on" : "off"}});
  }
  void push(std::shared_ptr<ViewController> screen) override {
    ordered_json line{{"ui", "push"}, {"class", screen->className()}};
    if (auto explorer = std::dynamic_pointer_cast<IFileExplorer>(screen))
      line["path"] = explorer->fullRelativePath();
    if (auto browser = std::dynamic_pointer_cast<FileManagerBaseController>(screen))
      seen.push_back(browser);
    if (auto property = std::dynamic_pointer_cast<FilePropertyController>(screen)) {
      line["path"] = shownPath(property->path());
      properties.push_back(property);
      // One line once the figures are whole (a folder's after its walk).
      property->setOnChange([this](const FilePropertyInfo& info) {
        if (!info.counting) print(propertyJson(info));
      });
    }
    if (auto cloud = std::dynamic_pointer_cast<ICloudDriveController>(screen))
      line["path"] = cloud->relativeFolder();
    print(line);
    if (nav) nav->pushViewController(std::move(screen));
  }
  void pop() override {
    if (!nav || nav->viewControllers.size() < 2) return;
    auto top = nav->topViewController();
    ordered_json line{{"ui", "pop"}, {"class", top->className()}};
    if (auto explorer = std::dynamic_pointer_cast<IFileExplorer>(top))
      line["path"] = explorer->fullRelativePath();
    print(line);
    // A screen that goes stops what it started.
    if (auto property = std::dynamic_pointer_cast<FilePropertyController>(top))
      property->viewDidDisappear();
    nav->popViewController();
  }
  void close() override { pop(); }
  bool supportsRoute(ScreenRoute) const override { return true; }
  void openFiles(ScreenRoute route, const std::vector<std::string>& files,
                 std::size_t current) override {
    std::vector<std::string> shown;
    for (const auto& f : files) shown.push_back(shownPath(f));
    ordered_json line{{"ui", "open"}, {"route", screenRouteName(route)}, {"files", shown}};
    if (files.size() > 1) line["current"] = current;
    print(line);
  }

  void dropDialogs() {
    if (alert) {
      auto reply = std::move(alertReply);
      alert.reset();
      if (reply) MainQueue::shared().post([reply] { reply(kScreenCancel, {}); });
    }
    if (sheet) {
      auto reply = std::move(sheetReply);
      sheet.reset();
      if (reply) MainQueue::shared().post([reply] { reply(kScreenCancel); });
    }
  }

  bool anyWorking() {
    for (const auto& weak : seen) {
      if (auto browser = weak.lock(); browser && browser->isWorking()) return true;
    }
    for (const auto& weak : properties) {
      if (auto property = weak.lock(); property && property->isCounting()) return true;
    }
    return false;
  }

  std::vector<std::weak_ptr<FilePropertyController>> properties;

 private:
  std::mutex mutex_;
  bool busy_ = false;
};

// Words of a line; "double quotes" keep spaces.
std::vector<std::string> splitWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool quoted = false;
  bool any = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      if (any) words.push_back(word);
      word.clear();
      any = false;
    } else {
      word += c;
      any = true;
    }
  }
  if (any) words.push_back(word);
  return words;
}

std::string joinFrom(const std::vector<std::string>& words, std::size_t first) {
  std::string out;
  for (std::size_t i = first; i < words.size(); ++i) {
    if (i > first) out += " ";
    out += words[i];
  }
  return out;
}

class BrowseSession {
 public:
  explicit BrowseSession(std::shared_ptr<ScriptPort> port) : port_(std::move(port)) {}

  std::shared_ptr<FileManagerBaseController> top() const {
    return std::dynamic_pointer_cast<FileManagerBaseController>(port_->nav->topViewController());
  }

  // Runs the main queue until every worker ended or a dialog waits.
  void settle() {
    MainQueue& main = MainQueue::shared();
    for (;;) {
      main.runUntil([&] { return port_->dialogWaits() || !port_->anyWorking(); },
                    std::chrono::hours(24));
      main.runPending();
      if (port_->dialogWaits() || !port_->anyWorking()) break;
    }
    // What the workers posted last (status, reloads) comes out before the next line.
    while (main.runPending() > 0) {
    }
  }

  // 0 to go on, else the exit code.
  int run(const std::string& line, int number) {
    std::vector<std::string> words = splitWords(line);
    if (words.empty() || words[0].starts_with("#")) return 0;
    const std::string& cmd = words[0];
    auto bad = [&](const std::string& why) {
      return fail("browse", "line " + std::to_string(number) + ": " + why, 2);
    };
    if (cmd == "back" && words.size() == 1) {
      port_->pop();
      settle();
      return 0;
    }
    auto screen = port_->nav->topViewController();
    // The screens that are not browsers: the property screen and the drive.
    if (auto property = std::dynamic_pointer_cast<FilePropertyController>(screen)) {
      if (cmd == "ls") {
        port_->print(propertyJson(property->info()));
        return 0;
      }
      return bad("the property screen takes ls and back");
    }
    if (auto cloud = std::dynamic_pointer_cast<ICloudDriveController>(screen)) {
      if (cmd == "ls") {
        if (words.size() == 2 && words[1] == "--json") {
          ordered_json items = ordered_json::array();
          for (const auto& item : cloud->items())
            items.push_back({{"name", item._displayName},
                             {"folder", item._isDirectory},
                             {"size", item.totalBytes},
                             {"downloaded", item._metadataItem.downloaded}});
          port_->print(
              {{"path", cloud->relativeFolder()}, {"class", cloud->className()}, {"items", items}});
        } else {
          for (const auto& item : cloud->items())
            std::cout << item._displayName << (item._isDirectory ? "/" : "") << "\n";
          std::cout.flush();
        }
        return 0;
      }
      if (cmd == "tap" && words.size() >= 2) {
        std::string name = joinFrom(words, 1);
        if (!cloud->tapRow(name)) return bad("no item \"" + name + "\"");
        settle();
        return 0;
      }
      return bad("the drive screen takes ls, tap and back");
    }
    auto browser = top();
    if (!browser) return bad("no browser on screen");
    auto* full = dynamic_cast<FileManagerController*>(browser.get());

    if (cmd == "cd" && words.size() == 2) {
      std::stringstream parts(words[1]);
      std::string part;
      while (std::getline(parts, part, '/')) {
        if (part.empty() || part == ".") continue;
        auto here = top();
        if (!here->tapRow(part)) return bad("no folder \"" + part + "\"");
        settle();
        if (port_->dialogWaits() || top() == here) break;
      }
    } else if ((cmd == "tap" || cmd == "hold") && words.size() >= 2) {
      std::string name = joinFrom(words, 1);
      bool found = cmd == "tap" ? browser->tapRow(name) : browser->holdRow(name);
      if (!found) return bad("no item \"" + name + "\"");
    } else if (cmd == "select" && words.size() >= 2) {
      if (!browser->isEditing()) browser->setEditing(true);
      for (std::size_t i = 1; i < words.size(); ++i) {
        if (!browser->tapRow(words[i])) return bad("no item \"" + words[i] + "\"");
      }
    } else if (cmd == "sheet" && words.size() == 1) {
      browser->openSheet();
      settle();
    } else if (cmd == "do" && words.size() >= 2) {
      const std::string entry = joinFrom(words, 1);
      if (!port_->sheet) {
        browser->openSheet();
        MainQueue::shared().runPending();
      }
      if (!port_->sheet) return bad("no sheet");
      const auto& rows = port_->sheet->rows;
      auto at = std::find(rows.begin(), rows.end(), entry);
      if (at == rows.end())
        return fail("browse",
                    "line " + std::to_string(number) + ": the sheet offers no \"" + entry + "\"",
                    3);
      auto reply = std::move(port_->sheetReply);
      int row = static_cast<int>(at - rows.begin());
      port_->sheet.reset();
      if (reply) reply(row);
    } else if (cmd == "answer" && words.size() >= 2) {
      if (!port_->alert) return bad("no dialog waits");
      const auto& buttons = port_->alert->buttons;
      auto at = std::find(buttons.begin(), buttons.end(), words[1]);
      if (at == buttons.end())
        return fail(
            "browse",
            "line " + std::to_string(number) + ": the dialog offers no \"" + words[1] + "\"", 3);
      std::vector<std::string> fields(words.begin() + 2, words.end());
      auto reply = std::move(port_->alertReply);
      int button = static_cast<int>(at - buttons.begin());
      port_->alert.reset();
      if (reply) reply(button, fields);
    } else if (cmd == "paste" && words.size() == 1) {
      if (!full) return bad("this screen cannot paste");
      if (auto* chooser = dynamic_cast<FileTransferController*>(full)) {
        chooser->saveCategory();
      } else {
        full->pasteFile();
      }
    } else if (cmd == "delete" && words.size() == 1) {
      if (!full) return bad("this screen cannot delete");
      full->deleteItems();
    } else if (cmd == "mkdir" && (words.size() == 2 || words.size() == 3)) {
      if (!full) return bad("this screen cannot make folders");
      Error error;
      if (!full->createFolder(words[1], words.size() == 3 ? words[2] : "", &error))
        port_->showMessage("FileExists", error.message);
    } else if (cmd == "order" && words.size() == 2) {
      static const std::vector<std::string> orders{"name", "date", "type", "size"};
      auto at = std::find(orders.begin(), orders.end(), words[1]);
      if (at == orders.end()) return bad("order is name, date, type or size");
      browser->segmentAction(static_cast<int>(at - orders.begin()));
    } else if (cmd == "direction" && words.size() == 1) {
      browser->orderAction();
    } else if (cmd == "ls" && (words.size() == 1 || (words.size() == 2 && words[1] == "--json"))) {
      auto rows = browser->rows();
      if (words.size() == 2) {
        ordered_json items = ordered_json::array();
        for (const auto& row : rows) {
          items.push_back({{"name", row.name},
                           {"folder", row.isFolder},
                           {"size", row.size},
                           {"selected", row.selected}});
        }
        port_->print({{"path", browser->fullRelativePath()},
                      {"class", browser->className()},
                      {"ascending", browser->isOrderAsc()},
                      {"items", items}});
      } else {
        for (const auto& row : rows) std::cout << row.name << (row.isFolder ? "/" : "") << "\n";
        std::cout.flush();
      }
    } else if (cmd == "cancel" && words.size() == 3 && words[1] == "after") {
      if (!full) return bad("nothing to cancel here");
      try {
        std::size_t used = 0;
        unsigned long long n = std::stoull(words[2], &used);
        if (used != words[2].size()) return bad("cancel after takes a number");
        full->setCancelAfter(n);
      } catch (const std::exception&) {
        return bad("cancel after takes a number");
      }
    } else {
      return bad("unknown command \"" + line + "\"");
    }
    settle();
    return 0;
  }

 private:
  std::shared_ptr<ScriptPort> port_;
};

int runBrowse(const std::string& script) {
  std::ifstream file;
  std::istream* in = &std::cin;
  if (!script.empty() && script != "-") {
    if (auto problem = checkPath(script, PathNeed::File)) return fail("browse", *problem);
    file.open(script);
    if (!file) return fail("browse", script + ": cannot read");
    in = &file;
  }
  MainQueue& main = MainQueue::shared();
  main.adoptCurrentThread();
  auto port = std::make_shared<ScriptPort>();
  if (!ScreenPort::set(port)) return fail("browse", "a screen port is already in place");

  AppDelegate app;
  app.didFinishLaunchingWithOptions(LaunchOptions{});
  port->nav = app.fileManagerNavController;
  if (!port->nav || port->nav->viewControllers.empty()) return fail("browse", "no browser to show");
  if (auto root =
          std::dynamic_pointer_cast<FileManagerBaseController>(port->nav->topViewController()))
    port->seen.push_back(root);
  app.waitForClearTemp(std::chrono::minutes(5));
  main.runPending();

  BrowseSession session(port);
  std::string line;
  int number = 0;
  while (std::getline(*in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (int code = session.run(line, number)) {
      port->dropDialogs();
      session.settle();
      return code;
    }
  }
  port->dropDialogs();
  session.settle();
  return 0;
}

void addBrowseCommand(CLI::App& app, int& exitCode) {
  auto script = std::make_shared<std::string>();
  CLI::App* cmd = app.add_subcommand(
      "browse",
      "Drive the file browser from a script (one command a line), printing each thing the "
      "screens show as a JSON line. Commands: cd REL, back, tap NAME, hold NAME, select NAME..., "
      "sheet, do ENTRY, answer BUTTON [FIELD...], paste, delete, mkdir NAME [PASSWORD], "
      "order name|date|type|size, direction, ls [--json], cancel after N. The property screen "
      "(\"Property\") prints one {\"ui\": \"property\"} line and takes ls and back; the "
      "drive's screen (\"Cloud Drive\") takes ls, tap and back. Exit 2 names a bad "
      "line, 3 an entry or button not offered.");
  cmd->add_option("--script", *script, "Read the commands from FILE instead of standard input");
  cmd->callback([script, &exitCode] { exitCode = runBrowse(*script); });
}

}  // namespace

const CommandRegistrar browseCommand(72, addBrowseCommand);

}  // namespace harbor::cli

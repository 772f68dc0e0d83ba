#include <cerrno>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "editor/EditorBak.h"
#include "encoding/EncodingUtil.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/LoginPasswordUtil.h"
#include "prefs/PreferenceKeys.h"
#include "prefs/SystemSettings.h"
#include "prefs/SystemUtils.h"
#include "prefs/TouchIDUtils.h"

namespace harbor::cli {
namespace {

ordered_json plistJson(const PlistValue& v) {
  if (v.isBool()) return *v.asBool();
  if (v.isInteger()) return *v.asInteger();
  if (v.isReal()) return *v.asReal();
  if (auto s = v.asString()) return *s;
  if (auto d = v.asDate()) return formatPlistDate(*d);
  if (auto d = v.asData()) return ordered_json{{"data-bytes", d->size()}};
  if (auto a = v.asArray()) {
    ordered_json out = ordered_json::array();
    for (const auto& item : *a) out.push_back(plistJson(item));
    return out;
  }
  if (auto m = v.asMap()) {
    ordered_json out = ordered_json::object();
    for (const auto& [k, item] : *m) out[k] = plistJson(item);
    return out;
  }
  return nullptr;
}

ordered_json mapJson(const std::map<std::string, std::string>& m) {
  ordered_json out = ordered_json::object();
  for (const auto& [k, v] : m) out[k] = v;
  return out;
}

ordered_json storedMap(const char* key) {
  return plistJson(UserDefaults::standard().dictionaryForKey(key).value_or(PlistValue::Map{}));
}

// The stored passwords are not shown in clear; only whether one is set.
ordered_json maskedPassword(const std::string& clear) {
  return clear.empty() ? "" : "********";
}

// Each key of the frame and the editor, read the way its owner reads it,
// so a missing or wrongly typed value gives the owner's default.
const std::map<std::string, std::function<ordered_json()>>& ownerReadings() {
  static const std::map<std::string, std::function<ordered_json()>> table = {
      {keys::SystemLoginTimes, [] { return ordered_json(SystemUtils::getLoginTimes()); }},
      {keys::SYSTEM_DEFAULT_Encoding,
       [] { return ordered_json(EncodingUtil::getSystemDefaultEncoding()); }},
      {keys::SYSTEM_ENCODING_HISTORY, [] { return storedMap(keys::SYSTEM_ENCODING_HISTORY); }},
      {keys::SystemEditorAutoBak, [] { return ordered_json(EditorBak::getSystemEditorAutoBak()); }},
      {keys::SYSTEM_BOOKMARK, [] { return storedMap(keys::SYSTEM_BOOKMARK); }},
      {keys::SYSTEM_LASTOPEN_INFO, [] { return storedMap(keys::SYSTEM_LASTOPEN_INFO); }},
      {keys::EditorSyntaxSystemSettings,
       [] { return mapJson(EditorUserDefaults::getEditorSynaxSettings()); }},
      {keys::EditorSyntaxOnlyFileSystemSettings,
       [] { return mapJson(EditorUserDefaults::getEditorSynaxOnlyFileSettings()); }},
      {keys::SYSTEM_NIGHT_MODE, [] { return ordered_json(AppUserDefaultUtils::getNightMode()); }},
      {keys::SYSTEM_START_TIME,
       [] { return ordered_json(AppUserDefaultUtils::getStartTimeString()); }},
      {keys::SYSTEM_END_TIME, [] { return ordered_json(AppUserDefaultUtils::getEndTimeString()); }},
      // A terminal has no screen brightness of its own: full.
      {keys::SYSTEM_BRIGHTNESS,
       [] { return ordered_json(AppUserDefaultUtils::getBrightness(1.0)); }},
      {keys::SYSTEM_LOCKORIENTATION,
       [] { return ordered_json(AppUserDefaultUtils::getLockOrientation()); }},
      {keys::SYSTEM_LOCKORIENTATION_Interface,
       [] { return ordered_json(AppUserDefaultUtils::getLockOrientationInterface()); }},
      {keys::SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO,
       [] { return ordered_json(AppUserDefaultUtils::getHiddenTitlePlayingVideo()); }},
      {keys::SystemSettingsImageImportFormat,
       [] { return ordered_json(ImageSettings::getImportFormat()); }},
      {keys::SystemPDFDisplayDirection,
       [] {
         return ordered_json(
             UserDefaults::standard().boolForKey(keys::SystemPDFDisplayDirection, false));
       }},
      {keys::SYSTEM_LOCAL_LOGIN_PASSWORD,
       [] { return maskedPassword(LoginPasswordUtil::getLocalPassword()); }},
      {keys::SYSTEM_WIFI_LOGIN_PASSWORD,
       [] { return maskedPassword(LoginPasswordUtil::getWifiPassword()); }},
      {keys::System_Local_AutoLogin,
       [] { return ordered_json(LoginPasswordUtil::getAutoLogin()); }},
      {keys::SystemTouchIDAuthentication,
       [] { return ordered_json(TouchIDSettings::isTouchIDAuthentication()); }},
      {keys::SystemTouchIDAuthenticationFolder,
       [] { return ordered_json(TouchIDSettings::isTouchIDAuthenticationFolder()); }},
      {keys::SYSTEM_FILE_PASSWORD, [] { return storedMap(keys::SYSTEM_FILE_PASSWORD); }},
  };
  return table;
}

std::string compact(const ordered_json& j) {
  return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Scalars as plain text, the rest as one line of JSON.
std::string plainText(const ordered_json& j) {
  return j.is_string() ? j.get<std::string>() : compact(j);
}

struct GetOptions {
  std::string key;
  bool raw = false;
};

int runGet(const GetOptions& o) {
  if (o.raw) {
    auto v = UserDefaults::standard().objectForKey(o.key);
    std::cout << (v ? compact(plistJson(*v)) : std::string("null")) << "\n";
    return 0;
  }
  const auto& table = ownerReadings();
  auto it = table.find(o.key);
  if (it == table.end()) {
    return fail("settings get", "no owner reads " + o.key + "; --raw shows what is stored");
  }
  std::cout << plainText(it->second()) << "\n";
  return 0;
}

struct SetOptions {
  std::string key, value, type;
};

std::optional<bool> parseBool(const std::string& s) {
  if (s == "true" || s == "yes" || s == "on" || s == "1") return true;
  if (s == "false" || s == "no" || s == "off" || s == "0") return false;
  return std::nullopt;
}

std::optional<PlistValue> parseValue(const std::string& value, const std::string& type) {
  if (type == "string") return PlistValue(value);
  if (type == "bool") {
    if (auto b = parseBool(value)) return PlistValue(*b);
    return std::nullopt;
  }
  if (type == "date") {
    if (auto d = parsePlistDate(value)) return PlistValue(*d);
    return std::nullopt;
  }
  if (value.empty()) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  if (type == "int") {
    long long n = std::strtoll(value.c_str(), &end, 10);
    if (errno != 0 || *end != '\0') return std::nullopt;
    return PlistValue(n);
  }
  double d = std::strtod(value.c_str(), &end);
  if (errno != 0 || *end != '\0') return std::nullopt;
  return PlistValue(d);
}

int runSet(const SetOptions& o) {
  auto value = parseValue(o.value, o.type);
  if (!value) return fail("settings set", "\"" + o.value + "\" is not a " + o.type, 2);
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(o.key, *value);
  if (!defaults.synchronize()) return fail("settings set", "cannot write the preferences");
  NotificationCenter::defaultCenter().post(notifications::SystemSettingsNotification);
  return 0;
}

// The value a switch row shows, read through its owner.
std::optional<bool> switchState(const PreferenceRow& row) {
  auto control = row.find(rowkeys::control);
  auto content = row.find(rowkeys::content);
  if (control == row.end() || control->second != "UISwitch" || content == row.end()) {
    return std::nullopt;
  }
  const auto& table = ownerReadings();
  auto it = table.find(content->second);
  if (it != table.end()) {
    ordered_json v = it->second();
    if (v.is_boolean()) return v.get<bool>();
  }
  return UserDefaults::standard().boolForKey(content->second, false);
}

int runTable(bool json) {
  SystemSettings settings;
  settings.loadPreferences();
  ordered_json out = ordered_json::array();
  for (const auto& section : settings.preferences) {
    ordered_json rows = ordered_json::array();
    std::string title;
    for (const auto& row : section) {
      auto get = [&](const char* key) {
        auto it = row.find(key);
        return it == row.end() ? std::string() : it->second;
      };
      if (title.empty()) title = get(rowkeys::sectionTitle);
      ordered_json r{{"key", get(rowkeys::text)}, {"text", localizedString(get(rowkeys::text))}};
      if (auto detail = get(rowkeys::detail); !detail.empty()) r["detail"] = detail;
      if (auto on = switchState(row)) r["switch"] = *on;
      if (auto event = get(rowkeys::event); !event.empty()) r["event"] = event;
      rows.push_back(std::move(r));
    }
    out.push_back({{"title", title.empty() ? "" : localizedString(title)}, {"rows", rows}});
  }
  if (json) {
    std::cout << compact(out) << "\n";
    return 0;
  }
  bool first = true;
  for (const auto& section : out) {
    if (!first) std::cout << "\n";
    first = false;
    if (!section["title"].get<std::string>().empty()) {
      std::cout << section["title"].get<std::string>() << "\n";
    }
    for (const auto& row : section["rows"]) {
      std::cout << "  " << row["text"].get<std::string>();
      if (row.contains("switch")) std::cout << ": " << (row["switch"].get<bool>() ? "on" : "off");
      if (row.contains("detail")) std::cout << ": " << row["detail"].get<std::string>();
      std::cout << "\n";
    }
  }
  return 0;
}

struct SyntaxOptions {
  std::string name, extensions;
  bool fileName = false;
};

int runSyntaxSet(const SyntaxOptions& o) {
  Error error;
  bool ok = o.fileName
                ? EditorUserDefaults::saveEditorOnlyFileSyntaxSettings(o.extensions, o.name, &error)
                : EditorUserDefaults::saveEditorSyntaxSettings(o.extensions, o.name, &error);
  if (!ok) return fail("settings syntax set", error.domain);
  return 0;
}

void addSettingsCommand(CLI::App& app, int& exitCode) {
  CLI::App* settings = app.add_subcommand("settings", "Read and change the stored preferences");
  settings->require_subcommand(1);

  auto get = std::make_shared<GetOptions>();
  CLI::App* getCmd = settings->add_subcommand(
      "get", "Print a preference as its owner reads it, with its default when unset");
  getCmd->add_option("KEY", get->key, "The preference key")->required();
  getCmd->add_flag("--raw", get->raw, "Print the stored value as JSON, or null when there is none");
  getCmd->callback([get, &exitCode] { exitCode = runGet(*get); });

  auto set = std::make_shared<SetOptions>();
  CLI::App* setCmd = settings->add_subcommand("set", "Store a preference");
  setCmd->add_option("KEY", set->key, "The preference key")->required();
  setCmd->add_option("VALUE", set->value, "The value; dates in ISO 8601")->required();
  setCmd->add_option("--type", set->type, "The value's type")
      ->required()
      ->check(CLI::IsMember({"bool", "int", "real", "string", "date"}));
  setCmd->callback([set, &exitCode] { exitCode = runSet(*set); });

  auto json = std::make_shared<bool>(false);
  CLI::App* tableCmd = settings->add_subcommand("table", "Print the settings screen's table");
  addJsonFlag(tableCmd, *json, "Print the table as one line of JSON");
  tableCmd->callback([json, &exitCode] { exitCode = runTable(*json); });

  CLI::App* syntax = settings->add_subcommand("syntax", "Syntax files chosen by the user");
  syntax->require_subcommand(1);
  auto syn = std::make_shared<SyntaxOptions>();
  CLI::App* synSet = syntax->add_subcommand(
      "set", "Assign extensions (or file names) to a syntax file; refused when one is taken");
  synSet->add_option("NAME", syn->name, "The syntax file's name, e.g. c.stx")->required();
  synSet->add_option("EXTS", syn->extensions, "Extensions separated by ',' or ';'")->required();
  synSet->add_flag("--file-name", syn->fileName, "EXTS are whole file names, e.g. Makefile");
  synSet->callback([syn, &exitCode] { exitCode = runSyntaxSet(*syn); });
}

}  // namespace

const CommandRegistrar settingsCommand(76, addSettingsCommand);

}  // namespace harbor::cli

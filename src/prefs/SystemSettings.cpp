#include "prefs/SystemSettings.h"

#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {

// A row that opens another screen.
PreferenceRow action(const std::string& text, const std::string& event) {
  return {{rowkeys::text, text},
          {rowkeys::event, event},
          {rowkeys::accessoryType, "1"},
          {rowkeys::selectStyle, "1"}};
}

// A row with a switch over a stored flag.
PreferenceRow toggle(const std::string& text, const std::string& key, const std::string& event) {
  return {{rowkeys::text, text},   {rowkeys::control, "UISwitch"}, {rowkeys::content, key},
          {rowkeys::event, event}, {rowkeys::accessoryType, "0"},  {rowkeys::selectStyle, "0"}};
}

PreferenceSection titled(const std::string& title, PreferenceSection rows) {
  if (!rows.empty() && !title.empty()) rows.front()[rowkeys::sectionTitle] = title;
  return rows;
}

std::string defaultEncodingDescription() {
  std::string name =
      UserDefaults::standard().stringForKey(keys::SYSTEM_DEFAULT_Encoding, "Automatic");
  if (name.empty()) name = "Automatic";
  return name == "Automatic" ? localizedString(name) : name;
}

}  // namespace

SystemSettings::~SystemSettings() {
  for (auto token : tokens_) NotificationCenter::defaultCenter().removeObserver(token);
}

void SystemSettings::startObserving() {
  if (!tokens_.empty()) return;
  auto& center = NotificationCenter::defaultCenter();
  tokens_.push_back(center.addObserver(notifications::SystemSettingsNotification,
                                       [this](const auto&) { systemSettingsChange(); }));
  tokens_.push_back(center.addObserver(notifications::HBEncodingChangeNotication,
                                       [this](const auto&) { encodingChange(); }));
}

void SystemSettings::loadPreferences() {
  std::vector<PreferenceSection> table;
  PreferenceRow encoding = action(defaultEncodingDescription(), "loadEncoding:");
  table.push_back(titled("Encoding", {encoding}));
  table.push_back(titled("Display Options", {action("Display Options", "loadShowItemsType:")}));
  table.push_back(titled("Authentication", {action("LocalLoginPassword", "loadLoginPassword:")}));
  table.push_back({action("DefaultFileOrderType", "loadFileOrderType:"),
                   toggle("LockOrientation", keys::SYSTEM_LOCKORIENTATION, "lockOrientiation:")});
  // loadEditorPreferences
  table.push_back(titled("Text file editor",
                         {toggle("Auto Backup", keys::SystemEditorAutoBak, "editorAutoBak:"),
                          action("Syntax highlighting for extension", "loadSyntaxExtension:"),
                          action("Syntax highlighting for file name", "loadSyntaxFileName:")}));
  // loadClearTempPreferences
  PreferenceRow imageFormat = action("Import image format", "loadImageFormat:");
  std::string format =
      UserDefaults::standard().stringForKey(keys::SystemSettingsImageImportFormat, "Automatic");
  imageFormat[rowkeys::detail] = localizedString(format.empty() ? "Automatic" : format);
  table.push_back({imageFormat, action("Clear cache and temp files", "clearTemp:")});
  table.push_back({action("AboutUs", "aboutUs:")});
  for (const Credit& credit : creditsArray()) {
    PreferenceRow row{{rowkeys::text, credit[0]},
                      {rowkeys::detail, credit[1]},
                      {rowkeys::accessoryTitle, credit[2]},
                      {rowkeys::style, "3"},
                      {rowkeys::selectStyle, "0"}};
    table.push_back(titled("Credits", {row}));
  }
  preferences = std::move(table);
}

PreferenceSection SystemSettings::loadNightMode() const {
  return titled("Night mode", {toggle("Night mode", keys::SYSTEM_NIGHT_MODE, "nightMode:"),
                               action("Options", "loadNightModeOptions:")});
}

PreferenceSection SystemSettings::loadPrivacySettings() const {
  return titled("Privacy", {toggle("Hide title when playing video",
                                   keys::SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO, "hiddenTitle:")});
}

const std::vector<SystemSettings::Credit>& SystemSettings::creditsArray() {
  static const std::vector<Credit> credits = {
      {"ICU", "Unicode text, collation, charset detection and regular expressions",
       "Unicode License"},
      {"zlib", "Deflate and gzip", "zlib License"},
      {"bzip2", "Bzip2 compression", "BSD-style"},
      {"liblzma", "LZMA and LZMA2 for 7z archives", "Public domain"},
      {"minizip", "Zip archives", "zlib License"},
      {"libarchive", "RAR reading", "BSD 2-Clause"},
      {"OpenSSL", "AES, SHA and MD5", "Apache License 2.0"},
      {"libxml2", "WebDAV request bodies", "MIT License"},
      {"Asio", "Sockets for the web file manager", "Boost Software License"},
      {"nlohmann/json", "JSON", "MIT License"},
      {"fmt", "Text formatting", "MIT License"},
      {"CLI11", "Command-line arguments", "BSD 3-Clause"},
  };
  return credits;
}

}  // namespace harbor

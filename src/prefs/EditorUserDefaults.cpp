#include "prefs/EditorUserDefaults.h"

#include <filesystem>
#include <set>
#include <system_error>

#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"
#include "prefs/EditorUtils.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace {

EditorUserDefaults::Settings readStore(const char* key) {
  EditorUserDefaults::Settings out;
  auto map = UserDefaults::standard().dictionaryForKey(key);
  if (!map) return out;
  for (const auto& [file, value] : *map) {
    if (const std::string* s = value.asString()) out[file] = *s;
  }
  return out;
}

bool writeStore(const char* key, const EditorUserDefaults::Settings& settings) {
  PlistValue::Map map;
  for (const auto& [file, value] : settings) map[file] = value;
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(key, std::move(map));
  return defaults.synchronize();
}

std::map<std::string, std::string> invert(const EditorUserDefaults::Settings& settings,
                                          std::string_view except = {},
                                          std::string_view except2 = {}) {
  std::map<std::string, std::string> out;
  for (const auto& [file, value] : settings) {
    if ((!except.empty() && file == except) || (!except2.empty() && file == except2)) continue;
    for (auto& entry : EditorUserDefaults::getExtensionsWithExtString(value)) out[entry] = file;
  }
  return out;
}

Error storeError(std::string text) {
  return Error{std::move(text), -1, {}};
}

bool save(const char* key, std::string_view value, std::string_view file, Error* error,
          std::string_view oldFile) {
  std::vector<std::string> entries = EditorUserDefaults::getExtensionsWithExtString(value);
  if (entries.empty()) {
    if (error) *error = storeError(localizedString("Value can not be null"));
    return false;
  }
  EditorUserDefaults::Settings settings = readStore(key);
  // The entry being renamed away is no other file: its values move along.
  const auto assigned = invert(settings, file, oldFile);
  for (const auto& entry : entries) {
    if (assigned.count(entry)) {
      std::string text = localizedString("FileItemExists");
      if (auto at = text.find("%@"); at != std::string::npos) {
        text.replace(at, 2, entry);
      } else {
        text += " " + entry;
      }
      if (error) *error = storeError(std::move(text));
      return false;
    }
  }
  if (!oldFile.empty()) settings.erase(std::string(oldFile));
  // Kept as typed: the list screen shows the user's own text back.
  settings[std::string(file)] = std::string(value);
  return writeStore(key, settings);
}

bool removeEntry(const char* key, std::string_view file, bool isOnlyFile) {
  EditorUserDefaults::Settings settings = readStore(key);
  settings.erase(std::string(file));
  if (!writeStore(key, settings)) return false;
  if (isOnlyFile) {
    EditorUtils::removeEditorSyntaxFileOnly(file);
  } else {
    EditorUtils::removeEditorSyntaxFile(file);
  }
  return true;
}

void removeUnnamedFiles(const char* key, const std::filesystem::path& folder) {
  const EditorUserDefaults::Settings settings = readStore(key);
  std::error_code ec;
  std::vector<std::filesystem::path> orphans;
  for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
       it.increment(ec)) {
    if (!settings.count(it->path().filename().string())) orphans.push_back(it->path());
  }
  for (const auto& p : orphans) std::filesystem::remove_all(p, ec);
}

}  // namespace

std::vector<std::string> EditorUserDefaults::getExtensionsWithExtString(std::string_view text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of(",;", start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view entry = text.substr(start, end - start);
    if (!trim(entry).empty()) out.emplace_back(entry);
    start = end + 1;
  }
  return out;
}

std::string EditorUserDefaults::getExtensionsValidString(const std::vector<std::string>& entries) {
  std::string out;
  for (const auto& e : entries) {
    if (!out.empty()) out += ",";
    out += e;
  }
  return out;
}

EditorUserDefaults::Settings EditorUserDefaults::getEditorSynaxSettings() {
  return readStore(keys::EditorSyntaxSystemSettings);
}

EditorUserDefaults::Settings EditorUserDefaults::getEditorSynaxOnlyFileSettings() {
  return readStore(keys::EditorSyntaxOnlyFileSystemSettings);
}

bool EditorUserDefaults::saveEditorSyntaxSettings(std::string_view value,
                                                  std::string_view fileNameCtlFile, Error* error,
                                                  std::string_view oldStxFileName) {
  return save(keys::EditorSyntaxSystemSettings, value, fileNameCtlFile, error, oldStxFileName);
}

bool EditorUserDefaults::saveEditorOnlyFileSyntaxSettings(std::string_view value,
                                                          std::string_view fileNameCtlFile,
                                                          Error* error,
                                                          std::string_view oldStxFileName) {
  return save(keys::EditorSyntaxOnlyFileSystemSettings, value, fileNameCtlFile, error,
              oldStxFileName);
}

bool EditorUserDefaults::removeEditorSyntaxWithFileName(std::string_view fileName) {
  return removeEntry(keys::EditorSyntaxSystemSettings, fileName, false);
}

bool EditorUserDefaults::removeEditorSyntaxOnlyFileWithFileName(std::string_view fileName) {
  return removeEntry(keys::EditorSyntaxOnlyFileSystemSettings, fileName, true);
}

std::map<std::string, std::string> EditorUserDefaults::getAllExtensionsToFileName() {
  return invert(getEditorSynaxSettings());
}

std::map<std::string, std::string> EditorUserDefaults::getAllExtensionsToOnlyFileName() {
  return invert(getEditorSynaxOnlyFileSettings());
}

void EditorUserDefaults::removeMultipleSyntaxFile() {
  removeUnnamedFiles(keys::EditorSyntaxSystemSettings, EditorUtils::defulatEditorDirectory());
}

void EditorUserDefaults::removeMultipleSyntaxOnlyFile() {
  removeUnnamedFiles(keys::EditorSyntaxOnlyFileSystemSettings,
                     EditorUtils::defulatEditorOnlyFileDirectory());
}

}  // namespace harbor

#include "platform/Strings.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/Log.h"
#include "platform/Resources.h"

namespace harbor {
namespace {

using Table = std::map<std::string, std::string, std::less<>>;

std::mutex tableMutex;
std::optional<Table> table;

// "de_DE.UTF-8" -> "de"
std::string userLanguage() {
  for (const char* var : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(var);
    if (!v || !*v) continue;
    std::string s(v);
    s = s.substr(0, s.find_first_of(":_.@"));
    if (!s.empty() && s != "C" && s != "POSIX") return s;
  }
  return "en";
}

void loadInto(Table& t, const std::string& lang) {
  auto path = resourcePath("strings/" + lang + ".json");
  if (!path) return;
  std::ifstream in(*path);
  nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
  if (!j.is_object()) {
    HB_LOG("Strings", "cannot read " + path->string());
    return;
  }
  for (auto& [k, v] : j.items()) {
    if (v.is_string()) t[k] = v.get<std::string>();
  }
}

}  // namespace

std::string localizedString(std::string_view key) {
  std::lock_guard lock(tableMutex);
  if (!table) {
    table.emplace();
    loadInto(*table, "en");
    if (std::string lang = userLanguage(); lang != "en") loadInto(*table, lang);
  }
  auto it = table->find(key);
  return it == table->end() ? std::string(key) : it->second;
}

void reloadLocalizedStrings() {
  std::lock_guard lock(tableMutex);
  table.reset();
}

}  // namespace harbor

#include "encoding/EncodingUtil.h"

#include <fmt/format.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "encoding/DetectorCharacter.h"
#include "encoding/FileBytes.h"
#include "platform/Directories.h"
#include "platform/Log.h"
#include "platform/Paths.h"
#include "platform/Resources.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

std::optional<std::u16string> decodeWith(std::string_view data, std::string_view name) {
  return StringEncodings::decode(data, EncodingUtil::convertStringToNSStringEncoding(name));
}

// Strict: an unpaired surrogate has no UTF-8 form.
std::optional<std::string> strictUtf8(const std::u16string& text) {
  if (text.empty()) return std::string();
  UErrorCode status = U_ZERO_ERROR;
  int32_t needed = 0;
  u_strToUTF8(nullptr, 0, &needed, text.data(), static_cast<int32_t>(text.size()), &status);
  if (status != U_BUFFER_OVERFLOW_ERROR) return std::nullopt;
  std::string out(static_cast<std::size_t>(needed), '\0');
  status = U_ZERO_ERROR;
  u_strToUTF8(out.data(), needed, &needed, text.data(), static_cast<int32_t>(text.size()), &status);
  if (U_FAILURE(status)) return std::nullopt;
  return out;
}

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

// --- history -----------------------------------------------------------------

std::optional<PlistValue::Map> history() {
  return UserDefaults::standard().dictionaryForKey(keys::SYSTEM_ENCODING_HISTORY);
}

void storeHistory(PlistValue::Map map) {
  UserDefaults::standard().setObject(keys::SYSTEM_ENCODING_HISTORY, std::move(map));
}

// "/a/b.txt" for <root>/a/b.txt; empty for a path outside the root.
std::string documentRelativePath(std::string_view path) {
  return relativePathBelow(path, Directories::documentDirectory().string());
}

// --- resource tables ---------------------------------------------------------

using Table = std::map<std::string, std::string, std::less<>>;

// A table of resources/encodings/<name>/<lang>.json; empty when missing.
const Table& loadTable(const std::string& name, const std::string& lang) {
  static std::mutex mutex;
  static std::map<std::string, Table> cache;
  std::lock_guard lock(mutex);
  const std::string key = name + "/" + lang;
  if (auto it = cache.find(key); it != cache.end()) return it->second;
  Table& table = cache[key];
  auto path = resourcePath("encodings/" + key + ".json");
  if (!path) return table;
  std::ifstream in(*path);
  nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
  if (!j.is_object()) {
    HB_LOG("EncodingUtil", "cannot read " + path->string());
    return table;
  }
  for (auto& [k, v] : j.items()) {
    if (v.is_string()) table[k] = v.get<std::string>();
  }
  return table;
}

// The user's localisation, then the bare language, then English, then the key.
std::string lookupTable(const std::string& name, std::string_view key) {
  const std::string lang = EncodingUtil::getSystemLanguage();
  std::vector<std::string> langs{lang};
  if (auto dash = lang.find('-'); dash != std::string::npos) langs.push_back(lang.substr(0, dash));
  langs.emplace_back("en");
  for (const auto& l : langs) {
    const Table& t = loadTable(name, l);
    if (auto it = t.find(key); it != t.end()) return it->second;
  }
  return std::string(key);
}

// --- time zone ---------------------------------------------------------------

std::string localTimeZoneName() {
  std::string zone;
  if (const char* tz = std::getenv("TZ"); tz && *tz) {
    zone = tz;
    if (zone.front() == ':') zone.erase(0, 1);
  } else {
    std::ifstream in("/etc/timezone");
    std::getline(in, zone);
    if (zone.empty()) {
      std::error_code ec;
      zone = fs::read_symlink("/etc/localtime", ec).string();
    }
  }
  if (auto at = zone.find("zoneinfo/"); at != std::string::npos) zone.erase(0, at + 9);
  return zone;
}

}  // namespace

// --- names -------------------------------------------------------------------

StringEncoding EncodingUtil::convertStringToNSStringEncoding(std::string_view name) {
  if (name.empty()) return kUTF8StringEncoding;
  StringEncoding encoding = StringEncodings::convertEncodingToNSStringEncoding(
      StringEncodings::convertIANACharSetNameToEncoding(name));
  return encoding == kInvalidStringEncoding ? kUTF8StringEncoding : encoding;
}

std::string EncodingUtil::encodingForStringEncoding(StringEncoding encoding) {
  return StringEncodings::convertEncodingToIANACharSetName(
      StringEncodings::convertNSStringEncodingToEncoding(encoding));
}

// --- trial decoding ----------------------------------------------------------

std::optional<std::u16string> EncodingUtil::detectWithCharsets(const Charsets& charsets,
                                                               std::string_view data) {
  for (const auto& name : charsets) {
    if (auto text = decodeWith(data, name)) return text;
  }
  return std::nullopt;
}

std::optional<std::u16string> EncodingUtil::detectWithCharsets(const Charsets& charsets,
                                                               const char* chars) {
  if (!chars) return std::nullopt;
  for (const auto& name : charsets) {
    if (auto text = StringEncodings::decodeCString(chars, convertStringToNSStringEncoding(name))) {
      return text;
    }
  }
  return std::nullopt;
}

std::optional<std::u16string> EncodingUtil::detectWithCharsetsAndChar(const Charsets& charsets,
                                                                      const char* ch) {
  if (!ch) return std::nullopt;
  return detectWithCharsets(charsets, std::string_view(ch));
}

std::optional<std::string> EncodingUtil::detectWithCharsetsRetrunCharset(const Charsets& charsets,
                                                                         std::string_view data) {
  for (const auto& name : charsets) {
    if (decodeWith(data, name)) return name;
  }
  return std::nullopt;
}

std::optional<std::u16string> EncodingUtil::detectWithData(std::string_view data) {
  return detectWithData(data, nullptr);
}

std::optional<std::u16string> EncodingUtil::detectWithData(std::string_view data,
                                                           std::string* outEncoding) {
  return detectWithData(data, outEncoding, DetectorCharacter::detectorDataEncoding(data));
}

std::optional<std::u16string> EncodingUtil::detectWithData(std::string_view data,
                                                           std::string* outEncoding,
                                                           const Charsets& charsets) {
  for (const auto& name : charsets) {
    if (auto text = decodeWith(data, name)) {
      if (outEncoding) *outEncoding = name;
      return text;
    }
  }
  return std::nullopt;
}

std::optional<std::string> EncodingUtil::getCorrectCharset(const Charsets& charsets,
                                                           std::string_view data) {
  for (const auto& name : charsets) {
    std::optional<std::u16string> text = decodeWith(data, name);
    if (!text) continue;
    std::optional<std::string> utf8 = strictUtf8(*text);
    if (!utf8) continue;
    std::optional<std::u16string> back = StringEncodings::decode(*utf8, kUTF8StringEncoding);
    if (back && *back == *text) return name;
  }
  return std::nullopt;
}

// --- history -----------------------------------------------------------------

void EncodingUtil::saveFileEncoding(std::string_view key, std::string_view encoding) {
  PlistValue::Map map = history().value_or(PlistValue::Map{});
  map[std::string(key)] = PlistValue(encoding);
  storeHistory(std::move(map));
}

std::optional<std::string> EncodingUtil::getFileEncoding(std::string_view key) {
  std::optional<PlistValue::Map> map = history();
  if (!map) return std::nullopt;
  auto it = map->find(std::string(key));
  if (it == map->end() || !it->second.asString()) return std::nullopt;
  return *it->second.asString();
}

void EncodingUtil::removeFileEncoding(std::string_view path) {
  std::optional<PlistValue::Map> map = history();
  if (!map) return;
  if (map->erase(documentRelativePath(path)) > 0) storeHistory(std::move(*map));
}

void EncodingUtil::removeFileEncoding() {
  std::optional<PlistValue::Map> map = history();
  if (!map) return;
  std::erase_if(*map, [](const auto& entry) {
    std::error_code ec;
    return !fs::exists(entry.first, ec);
  });
  storeHistory(std::move(*map));
}

std::int64_t EncodingUtil::getCurrentFileEncoding(std::string_view path) {
  std::optional<std::string> name = getFileEncoding(path);
  if (!name || name->empty() || *name == "Automatic") return -1;
  return static_cast<std::int64_t>(convertStringToNSStringEncoding(*name));
}

std::u16string EncodingUtil::getFileContent(const std::string& path) {
  std::optional<FileBytes> bytes = FileBytes::read(path);
  if (!bytes) return {};
  if (std::int64_t stored = getCurrentFileEncoding(path); stored != -1) {
    if (auto text =
            StringEncodings::decodeAsChosen(bytes->view(), static_cast<StringEncoding>(stored))) {
      return *text;
    }
  }
  return DetectorCharacter::detectorForData(bytes->view()).value_or(std::u16string());
}

// --- the guess by language ---------------------------------------------------

std::string EncodingUtil::autoDetectEncoding(std::string_view data, Charsets& backEncodings) {
  if (data.size() >= 3) {
    const std::string mark =
        fmt::format("{:02X}{:02X}{:02X}", static_cast<unsigned char>(data[0]),
                    static_cast<unsigned char>(data[1]), static_cast<unsigned char>(data[2]));
    // The UTF-16 marks are two bytes and never equal three bytes' worth of
    // digits, so UTF-16 text finds its decoder through the fallbacks. Kept so:
    // fixing it would change which encoding files already in use open with.
    if (equalsIgnoreCase(mark, "FFFE") || equalsIgnoreCase(mark, "FEFF")) return "UTF-16LE";
    if (equalsIgnoreCase(mark, "EFBBBF")) return "UTF-8";
  }

  const std::string language = getSystemLanguage();
  auto add = [&](std::initializer_list<const char*> names) {
    backEncodings.insert(backEncodings.end(), names.begin(), names.end());
  };
  auto is = [&](const char* l) { return equalsIgnoreCase(language, l); };
  if (is("ja")) {
    add({"UTF-8", "EUC-JP", "ISO-2022-JP"});
    return "Shift_JIS";
  }
  if (is("zh-Hans")) {
    add({"GBK", "GB18030"});
  } else if (is("zh-Hant")) {
    add({"Big5", "Big5-HKSCS"});
  } else if (is("ko")) {
    add({"Korean"});
  } else if (is("ru")) {
    add({"Cyrillic1251"});
  } else if (is("tr")) {
    add({"Turkish"});
  } else if (is("el")) {
    add({"Greek7", "Greek1253"});
  } else if (is("th")) {
    add({"Thai"});
  } else if (is("vi")) {
    add({"Vietnamese"});
  }
  if (backEncodings.empty() && isChinaInner()) add({"GBK", "Big5"});
  add({"Macintosh", "Windows-1252", "UTF-16LE"});
  return "UTF-8";
}

std::string EncodingUtil::autoDetectEncoding(std::string_view data) {
  Charsets ignored;
  return autoDetectEncoding(data, ignored);
}

std::optional<std::u16string> EncodingUtil::autoDetectReturnString(std::string_view data) {
  return autoDetectReturnString(data, nullptr);
}

std::optional<std::u16string> EncodingUtil::autoDetectReturnString(std::string_view data,
                                                                   std::string* outEncoding) {
  if (data.empty()) return std::nullopt;
  Charsets fallbacks;
  Charsets names{autoDetectEncoding(data, fallbacks)};
  names.insert(names.end(), fallbacks.begin(), fallbacks.end());
  return detectWithData(data, outEncoding, names);
}

// --- lists -------------------------------------------------------------------

StringEncoding EncodingUtil::getEncodingFromLCID(std::uint32_t lcid) {
  return convertStringToNSStringEncoding(getCharsetFromLCID(lcid));
}

std::vector<EncodingItem> EncodingUtil::allAvailableStringEncodings() {
  std::vector<EncodingItem> items;
  for (TableEncoding t : StringEncodings::getListOfAvailableEncodings()) {
    StringEncoding encoding = StringEncodings::convertEncodingToNSStringEncoding(t);
    std::string name = encodingForStringEncoding(encoding);
    if (!name.empty()) items.emplace_back(encoding, std::move(name));
  }
  return items;
}

std::vector<EncodingItem> EncodingUtil::allAvailableStringEncodingsOrdered() {
  std::vector<EncodingItem> items = allAvailableStringEncodings();
  std::stable_sort(items.begin(), items.end(), [](const EncodingItem& a, const EncodingItem& b) {
    return a.localizedCompare(b) < 0;
  });
  return items;
}

// --- system language, time zone and default --------------------------------

std::string EncodingUtil::getSystemLanguage() {
  for (const char* var : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(var);
    if (!value || !*value) continue;
    std::string s(value);
    s = s.substr(0, s.find(':'));
    s = s.substr(0, s.find_first_of(".@"));
    if (s.empty() || s == "C" || s == "POSIX") continue;
    if (s.find('-') != std::string::npos) return s;
    const std::size_t underscore = s.find('_');
    const std::string language = asciiLower(s.substr(0, underscore));
    if (language == "zh") {
      const std::string region =
          underscore == std::string::npos ? std::string() : asciiLower(s.substr(underscore + 1));
      return region == "tw" || region == "hk" || region == "mo" ? "zh-Hant" : "zh-Hans";
    }
    return language;
  }
  return "en";
}

bool EncodingUtil::isChinaInner() {
  const std::string zone = asciiLower(localTimeZoneName());
  for (const char* city : {"shanghai", "beijing", "asia/harbin"}) {
    if (zone.find(city) != std::string::npos) return true;
  }
  return false;
}

std::string EncodingUtil::getSystemDefaultEncoding() {
  std::string name = UserDefaults::standard().stringForKey(keys::SYSTEM_DEFAULT_Encoding);
  return name.empty() ? "Automatic" : name;
}

void EncodingUtil::saveSystemDefaultEncoding(std::string_view name) {
  UserDefaults::standard().setObject(keys::SYSTEM_DEFAULT_Encoding, PlistValue(name));
}

std::string EncodingUtil::getDefaultEncodingDescription(std::string_view key) {
  const std::string label = lookupTable("WebEncodings", key);
  return label + "(" + lookupTable("WebEncodingsName", label) + ")";
}

std::vector<std::string> EncodingUtil::webEncodingKeys() {
  std::vector<std::string> keys;
  for (const auto& [k, v] : loadTable("WebEncodings", "en")) keys.push_back(k);
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace harbor

#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace harbor {

// A property-list value: what the preferences store holds.
class PlistValue {
 public:
  using Date = std::chrono::system_clock::time_point;
  using Data = std::vector<std::uint8_t>;
  using Array = std::vector<PlistValue>;
  using Map = std::map<std::string, PlistValue>;

  PlistValue() = default;
  PlistValue(bool b) : v_(b) {}
  PlistValue(int i) : v_(static_cast<std::int64_t>(i)) {}
  PlistValue(long i) : v_(static_cast<std::int64_t>(i)) {}
  PlistValue(long long i) : v_(static_cast<std::int64_t>(i)) {}
  PlistValue(unsigned i) : v_(static_cast<std::int64_t>(i)) {}
  PlistValue(double d) : v_(d) {}
  PlistValue(const char* s) : v_(std::string(s)) {}
  PlistValue(std::string s) : v_(std::move(s)) {}
  PlistValue(std::string_view s) : v_(std::string(s)) {}
  PlistValue(Date d) : v_(d) {}
  PlistValue(Data d) : v_(std::move(d)) {}
  PlistValue(Array a) : v_(std::move(a)) {}
  PlistValue(Map m) : v_(std::move(m)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
  bool isBool() const { return std::holds_alternative<bool>(v_); }
  bool isInteger() const { return std::holds_alternative<std::int64_t>(v_); }
  bool isReal() const { return std::holds_alternative<double>(v_); }
  // A number in the platform's sense: bool, integer or real.
  bool isNumber() const { return isBool() || isInteger() || isReal(); }
  bool isString() const { return std::holds_alternative<std::string>(v_); }
  bool isDate() const { return std::holds_alternative<Date>(v_); }
  bool isData() const { return std::holds_alternative<Data>(v_); }
  bool isArray() const { return std::holds_alternative<Array>(v_); }
  bool isMap() const { return std::holds_alternative<Map>(v_); }

  // Typed reads; nullptr / nullopt when the value is of another type.
  std::optional<bool> asBool() const;             // numbers count: non-zero is true
  std::optional<std::int64_t> asInteger() const;  // bool and real convert
  std::optional<double> asReal() const;           // bool and integer convert
  const std::string* asString() const { return std::get_if<std::string>(&v_); }
  const Date* asDate() const { return std::get_if<Date>(&v_); }
  const Data* asData() const { return std::get_if<Data>(&v_); }
  const Array* asArray() const { return std::get_if<Array>(&v_); }
  const Map* asMap() const { return std::get_if<Map>(&v_); }
  Array* asArray() { return std::get_if<Array>(&v_); }
  Map* asMap() { return std::get_if<Map>(&v_); }

  bool operator==(const PlistValue& o) const { return v_ == o.v_; }

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Data, Array, Map> v_;
};

// Dates as the store writes them: ISO 8601 in UTC ("2024-03-01T12:00:00.250Z");
// reading also takes an offset ("+02:00").
std::string formatPlistDate(PlistValue::Date date);
std::optional<PlistValue::Date> parsePlistDate(std::string_view text);

// The flat preferences store. A read of a missing or wrongly typed value
// gives the caller's default. A file-backed store persists every change as
// JSON through a temporary file and a rename; a corrupt file is moved aside
// (kept) with a logged message and the store starts empty.
class UserDefaults {
 public:
  // A store kept only in memory (tests).
  UserDefaults();
  // A store persisted in `file`, read now.
  explicit UserDefaults(std::filesystem::path file);
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // The process-wide store: $XDG_CONFIG_HOME/harbor/preferences.json unless
  // replaced with setStandard (tests put an in-memory store there).
  static UserDefaults& standard();
  static void setStandard(std::shared_ptr<UserDefaults> store);
  // Drops the process-wide store; the next standard() reads the file anew.
  static void resetStandardUserDefaults();

  std::optional<PlistValue> objectForKey(std::string_view key) const;
  bool boolForKey(std::string_view key, bool defaultValue = false) const;
  std::int64_t integerForKey(std::string_view key, std::int64_t defaultValue = 0) const;
  double doubleForKey(std::string_view key, double defaultValue = 0) const;
  std::string stringForKey(std::string_view key, std::string_view defaultValue = {}) const;
  std::optional<PlistValue::Date> dateForKey(std::string_view key) const;
  std::optional<PlistValue::Data> dataForKey(std::string_view key) const;
  std::optional<PlistValue::Array> arrayForKey(std::string_view key) const;
  std::optional<PlistValue::Map> dictionaryForKey(std::string_view key) const;

  void setObject(std::string_view key, PlistValue value);
  void removeObjectForKey(std::string_view key);
  // Writes pending changes; false when the file could not be written.
  bool synchronize();

  std::map<std::string, PlistValue> dictionaryRepresentation() const;
  const std::filesystem::path& file() const { return file_; }

 private:
  bool writeLocked();
  void readLocked();

  mutable std::mutex mutex_;
  std::filesystem::path file_;  // empty: memory only
  std::map<std::string, PlistValue, std::less<>> values_;
  bool dirty_ = false;
  bool memoryOnly_ = false;  // a damaged file that could not be moved aside
};

}  // namespace harbor

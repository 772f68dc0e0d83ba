#include "platform/UserDefaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "platform/Directories.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;
using json = nlohmann::json;

// ---------------------------------------------------------------------------
// PlistValue

std::optional<bool> PlistValue::asBool() const {
  if (auto b = std::get_if<bool>(&v_)) return *b;
  if (auto i = std::get_if<std::int64_t>(&v_)) return *i != 0;
  if (auto d = std::get_if<double>(&v_)) return *d != 0;
  return std::nullopt;
}

std::optional<std::int64_t> PlistValue::asInteger() const {
  if (auto b = std::get_if<bool>(&v_)) return *b ? 1 : 0;
  if (auto i = std::get_if<std::int64_t>(&v_)) return *i;
  if (auto d = std::get_if<double>(&v_)) {
    if (std::isnan(*d)) return std::nullopt;
    // Out-of-range conversion is undefined; saturate instead.
    constexpr double kMax = 9223372036854775807.0;
    if (*d >= kMax) return std::numeric_limits<std::int64_t>::max();
    if (*d <= -kMax) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(*d);
  }
  return std::nullopt;
}

std::optional<double> PlistValue::asReal() const {
  if (auto b = std::get_if<bool>(&v_)) return *b ? 1.0 : 0.0;
  if (auto i = std::get_if<std::int64_t>(&v_)) return static_cast<double>(*i);
  if (auto d = std::get_if<double>(&v_)) return *d;
  return std::nullopt;
}

namespace {

// ---------------------------------------------------------------------------
// JSON form. Dates and data have no JSON type, so they are written as objects
// with a single tag key; a map that happens to look like such an object is
// wrapped in {"$map": ...} so reading it back cannot mistake it.

constexpr const char* kDateTag = "$date";
constexpr const char* kDataTag = "$data";
constexpr const char* kRealTag = "$real";  // non-finite reals, which JSON lacks
constexpr const char* kMapTag = "$map";

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(const PlistValue::Data& data) {
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < data.size(); i += 3) {
    std::uint32_t n = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
    out += kBase64[(n >> 18) & 63];
    out += kBase64[(n >> 12) & 63];
    out += kBase64[(n >> 6) & 63];
    out += kBase64[n & 63];
  }
  if (i < data.size()) {
    std::uint32_t n = data[i] << 16;
    if (i + 1 < data.size()) n |= data[i + 1] << 8;
    out += kBase64[(n >> 18) & 63];
    out += kBase64[(n >> 12) & 63];
    out += (i + 1 < data.size()) ? kBase64[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::optional<PlistValue::Data> base64Decode(std::string_view text) {
  PlistValue::Data out;
  std::uint32_t acc = 0;
  int bits = 0;
  bool padding = false;
  for (char c : text) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    if (c == '=') {
      padding = true;
      continue;
    }
    const char* p = std::strchr(kBase64, c);
    if (!p || c == '\0' || padding) return std::nullopt;
    acc = (acc << 6) | static_cast<std::uint32_t>(p - kBase64);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<std::uint8_t>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

// 2024-03-01T12:00:00.250Z: UTC, with as many fraction digits as needed.
std::string formatDate(PlistValue::Date date) {
  using namespace std::chrono;
  auto ns = time_point_cast<nanoseconds>(date);
  auto day = floor<days>(ns);
  year_month_day ymd{day};
  hh_mm_ss<nanoseconds> tod{ns - day};
  char buf[64];
  int n = std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02d:%02d:%02d", int(ymd.year()),
                        unsigned(ymd.month()), unsigned(ymd.day()), int(tod.hours().count()),
                        int(tod.minutes().count()), int(tod.seconds().count()));
  long long frac = tod.subseconds().count();
  if (frac % 1000000 == 0) {
    std::snprintf(buf + n, sizeof buf - n, ".%03lldZ", frac / 1000000);
  } else if (frac % 1000 == 0) {
    std::snprintf(buf + n, sizeof buf - n, ".%06lldZ", frac / 1000);
  } else {
    std::snprintf(buf + n, sizeof buf - n, ".%09lldZ", frac);
  }
  return buf;
}

// Reads what formatDate writes, and also offsets (+02:00) and any fraction.
std::optional<PlistValue::Date> parseDate(std::string_view s) {
  using namespace std::chrono;
  size_t pos = 0;
  auto number = [&](size_t digits, int& out) {
    if (pos + digits > s.size()) return false;
    out = 0;
    for (size_t i = 0; i < digits; ++i) {
      char c = s[pos + i];
      if (c < '0' || c > '9') return false;
      out = out * 10 + (c - '0');
    }
    pos += digits;
    return true;
  };
  auto expect = [&](auto pred) {
    if (pos >= s.size() || !pred(s[pos])) return false;
    ++pos;
    return true;
  };
  int y, mo, d, h, mi, sec;
  if (!number(4, y) || !expect([](char c) { return c == '-'; }) || !number(2, mo) ||
      !expect([](char c) { return c == '-'; }) || !number(2, d) ||
      !expect([](char c) { return c == 'T' || c == 't' || c == ' '; }) || !number(2, h) ||
      !expect([](char c) { return c == ':'; }) || !number(2, mi) ||
      !expect([](char c) { return c == ':'; }) || !number(2, sec)) {
    return std::nullopt;
  }
  year_month_day ymd{year(y), month(unsigned(mo)), day(unsigned(d))};
  if (!ymd.ok() || h > 23 || mi > 59 || sec > 60) return std::nullopt;
  nanoseconds frac{0};
  if (pos < s.size() && (s[pos] == '.' || s[pos] == ',')) {
    ++pos;
    long long value = 0, scale = 100000000;
    size_t start = pos;
    while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9') {
      value += (s[pos] - '0') * scale;
      scale /= 10;
      ++pos;
    }
    if (pos == start) return std::nullopt;
    frac = nanoseconds(value);
  }
  minutes offset{0};
  if (pos < s.size() && (s[pos] == 'Z' || s[pos] == 'z')) {
    ++pos;
  } else if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) {
    int sign = s[pos] == '-' ? -1 : 1;
    ++pos;
    int oh, om;
    if (!number(2, oh)) return std::nullopt;
    if (pos < s.size() && s[pos] == ':') ++pos;
    if (!number(2, om)) return std::nullopt;
    offset = minutes(sign * (oh * 60 + om));
  } else {
    return std::nullopt;
  }
  if (pos != s.size()) return std::nullopt;
  auto tp = sys_days(ymd) + hours(h) + minutes(mi) + seconds(sec) + frac - offset;
  return time_point_cast<PlistValue::Date::duration>(tp);
}

bool looksTagged(const PlistValue::Map& m) {
  if (m.size() != 1) return false;
  const std::string& k = m.begin()->first;
  return k == kDateTag || k == kDataTag || k == kRealTag || k == kMapTag;
}

json toJson(const PlistValue& v) {
  if (v.isBool()) return *v.asBool();
  if (v.isInteger()) return *v.asInteger();
  if (v.isReal()) {
    double d = *v.asReal();
    if (std::isfinite(d)) return d;
    return json{{kRealTag, std::isnan(d) ? "nan" : (d > 0 ? "inf" : "-inf")}};
  }
  if (auto s = v.asString()) return *s;
  if (auto d = v.asDate()) return json{{kDateTag, formatDate(*d)}};
  if (auto d = v.asData()) return json{{kDataTag, base64Encode(*d)}};
  if (auto a = v.asArray()) {
    json out = json::array();
    for (const auto& item : *a) out.push_back(toJson(item));
    return out;
  }
  if (auto m = v.asMap()) {
    json out = json::object();
    for (const auto& [k, item] : *m) out[k] = toJson(item);
    return looksTagged(*m) ? json{{kMapTag, std::move(out)}} : out;
  }
  return nullptr;
}

PlistValue fromJson(const json& j);

PlistValue mapFromJson(const json& j) {
  PlistValue::Map m;
  for (const auto& [k, item] : j.items()) m.emplace(k, fromJson(item));
  return m;
}

PlistValue fromJson(const json& j) {
  switch (j.type()) {
    case json::value_t::boolean:
      return j.get<bool>();
    case json::value_t::number_integer:
      return static_cast<long long>(j.get<std::int64_t>());
    case json::value_t::number_unsigned: {
      auto u = j.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return static_cast<long long>(u);
      }
      return static_cast<double>(u);
    }
    case json::value_t::number_float:
      return j.get<double>();
    case json::value_t::string:
      return j.get<std::string>();
    case json::value_t::array: {
      PlistValue::Array a;
      a.reserve(j.size());
      for (const auto& item : j) a.push_back(fromJson(item));
      return a;
    }
    case json::value_t::object: {
      // A malformed tag is kept as the plain map it is, so nothing is dropped.
      if (j.size() == 1) {
        auto it = j.begin();
        const std::string& key = it.key();
        const json& inner = it.value();
        if (key == kMapTag && inner.is_object()) return mapFromJson(inner);
        if (inner.is_string()) {
          const auto& text = inner.get_ref<const std::string&>();
          if (key == kDateTag) {
            if (auto d = parseDate(text)) return *d;
          } else if (key == kDataTag) {
            if (auto d = base64Decode(text)) return std::move(*d);
          } else if (key == kRealTag) {
            if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
            if (text == "inf") return std::numeric_limits<double>::infinity();
            if (text == "-inf") return -std::numeric_limits<double>::infinity();
          }
        }
      }
      return mapFromJson(j);
    }
    default:
      return PlistValue();
  }
}

std::string errnoText(int err) {
  return std::error_code(err, std::generic_category()).message();
}

std::string utcStamp() {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&now, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%dT%H%M%SZ", &tm);
  return buf;
}

// Renames without replacing an existing file; false when `to` exists.
bool renameNoReplace(const fs::path& from, const fs::path& to, int& err) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  err = errno;
  if (err != EINVAL && err != ENOSYS) return false;
  // File systems without RENAME_NOREPLACE: check first, accepting the race.
  std::error_code ec;
  if (fs::exists(to, ec)) {
    err = EEXIST;
    return false;
  }
  if (::rename(from.c_str(), to.c_str()) == 0) return true;
  err = errno;
  return false;
}

// Where writes go: through a symbolic link to the file it names, so a linked
// preferences file stays linked.
fs::path writeTarget(const fs::path& file) {
  std::error_code ec;
  if (fs::is_symlink(file, ec)) {
    fs::path target = fs::read_symlink(file, ec);
    if (!ec) return target.is_absolute() ? target : file.parent_path() / target;
  }
  return file;
}

struct StandardState {
  std::mutex mutex;
  std::shared_ptr<UserDefaults> assigned;
  std::shared_ptr<UserDefaults> lazy;
  // Callers may still hold a reference to a dropped store; keep it alive.
  std::vector<std::shared_ptr<UserDefaults>> retired;
};

StandardState& standardState() {
  // Never destroyed: stores may be used by threads still running at exit.
  static StandardState* state = new StandardState;
  return *state;
}

}  // namespace

// ---------------------------------------------------------------------------
// UserDefaults

UserDefaults::UserDefaults() = default;

UserDefaults::UserDefaults(fs::path file) : file_(std::move(file)) {
  std::lock_guard lock(mutex_);
  readLocked();
}

UserDefaults::~UserDefaults() {
  std::lock_guard lock(mutex_);
  if (dirty_) writeLocked();
}

UserDefaults& UserDefaults::standard() {
  StandardState& s = standardState();
  std::lock_guard lock(s.mutex);
  if (s.assigned) return *s.assigned;
  if (!s.lazy)
    s.lazy = std::make_shared<UserDefaults>(Directories::configDirectory() / "preferences.json");
  return *s.lazy;
}

void UserDefaults::setStandard(std::shared_ptr<UserDefaults> store) {
  StandardState& s = standardState();
  std::lock_guard lock(s.mutex);
  s.assigned = std::move(store);
}

void UserDefaults::resetStandardUserDefaults() {
  StandardState& s = standardState();
  std::lock_guard lock(s.mutex);
  if (s.lazy) {
    s.lazy->synchronize();
    s.retired.push_back(std::move(s.lazy));
  }
}

std::optional<PlistValue> UserDefaults::objectForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

bool UserDefaults::boolForKey(std::string_view key, bool defaultValue) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  return it == values_.end() ? defaultValue : it->second.asBool().value_or(defaultValue);
}

std::int64_t UserDefaults::integerForKey(std::string_view key, std::int64_t defaultValue) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  return it == values_.end() ? defaultValue : it->second.asInteger().value_or(defaultValue);
}

double UserDefaults::doubleForKey(std::string_view key, double defaultValue) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  return it == values_.end() ? defaultValue : it->second.asReal().value_or(defaultValue);
}

std::string UserDefaults::stringForKey(std::string_view key, std::string_view defaultValue) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  const std::string* s = it == values_.end() ? nullptr : it->second.asString();
  return s ? *s : std::string(defaultValue);
}

std::optional<PlistValue::Date> UserDefaults::dateForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end() || !it->second.isDate()) return std::nullopt;
  return *it->second.asDate();
}

std::optional<PlistValue::Data> UserDefaults::dataForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end() || !it->second.isData()) return std::nullopt;
  return *it->second.asData();
}

std::optional<PlistValue::Array> UserDefaults::arrayForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end() || !it->second.isArray()) return std::nullopt;
  return *it->second.asArray();
}

std::optional<PlistValue::Map> UserDefaults::dictionaryForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end() || !it->second.isMap()) return std::nullopt;
  return *it->second.asMap();
}

void UserDefaults::setObject(std::string_view key, PlistValue value) {
  // Setting nothing removes the key, as the platform's store does.
  if (value.isNull()) {
    removeObjectForKey(key);
    return;
  }
  std::lock_guard lock(mutex_);
  values_.insert_or_assign(std::string(key), std::move(value));
  dirty_ = true;
  writeLocked();
}

void UserDefaults::removeObjectForKey(std::string_view key) {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return;
  values_.erase(it);
  dirty_ = true;
  writeLocked();
}

bool UserDefaults::synchronize() {
  std::lock_guard lock(mutex_);
  return !dirty_ || writeLocked();
}

std::map<std::string, PlistValue> UserDefaults::dictionaryRepresentation() const {
  std::lock_guard lock(mutex_);
  return {values_.begin(), values_.end()};
}

void UserDefaults::readLocked() {
  values_.clear();
  dirty_ = false;
  std::error_code ec;
  auto status = fs::status(file_, ec);
  if (!fs::exists(status)) return;
  if (!fs::is_regular_file(status)) {
    HB_LOG("UserDefaults", file_.string() + " is not a file; starting empty");
    return;
  }

  std::string text;
  bool readable = false;
  {
    std::ifstream in(file_, std::ios::binary);
    if (in) {
      std::ostringstream buf;
      buf << in.rdbuf();
      readable = !in.bad();
      text = std::move(buf).str();
    }
  }
  json j = readable ? json::parse(text, nullptr, false) : json(json::value_t::discarded);
  if (j.is_object()) {
    for (const auto& [k, item] : j.items()) {
      PlistValue v = fromJson(item);
      if (!v.isNull()) values_.emplace(k, std::move(v));
    }
    return;
  }

  // Keep the damaged file for the user instead of overwriting it on the next write.
  const std::string base = file_.string() + ".corrupt-" + utcStamp();
  for (int n = 1; n < 1000; ++n) {
    fs::path aside = n == 1 ? fs::path(base) : fs::path(base + "-" + std::to_string(n));
    int err = 0;
    if (renameNoReplace(file_, aside, err)) {
      HB_LOG("UserDefaults", file_.string() + " is " + (readable ? "not valid" : "unreadable") +
                                 "; moved aside to " + aside.string() + ", starting empty");
      return;
    }
    if (err != EEXIST) {
      HB_LOG("UserDefaults", "cannot move aside damaged " + file_.string() + ": " + errnoText(err));
      break;
    }
  }
  // It could not be moved; leave it untouched rather than overwrite it.
  HB_LOG("UserDefaults", "keeping preferences in memory only");
  memoryOnly_ = true;
}

namespace {
// One writer of a preferences file at a time, taken before the store's own
// lock and never while holding it.
std::mutex& fileWriteMutex() {
  static std::mutex mutex;
  return mutex;
}
bool writePreferencesFile(const fs::path& file_, const std::string& text);
}  // namespace

// Called with mutex_ held, and returns with it held. The flush to disk runs
// with mutex_ released, so a reader (the main thread) never waits for a
// disk; the file lock makes the snapshot and its write one step, so an older
// snapshot never lands after a newer one.
bool UserDefaults::writeLocked() {
  if (file_.empty()) {
    dirty_ = false;
    return true;
  }
  if (memoryOnly_) return false;
  mutex_.unlock();
  std::lock_guard writing(fileWriteMutex());
  mutex_.lock();
  // A writer before us took this change with its own.
  if (!dirty_) return true;
  json j = json::object();
  for (const auto& [k, v] : values_) {
    json item = toJson(v);
    if (!item.is_null()) j[k] = std::move(item);
  }
  // Invalid UTF-8 in a string must not make the whole file unwritable.
  std::string text = j.dump(2, ' ', false, json::error_handler_t::replace);
  text += '\n';
  dirty_ = false;
  mutex_.unlock();
  const bool written = writePreferencesFile(file_, text);
  mutex_.lock();
  // A failed write leaves the change pending for the next synchronize.
  if (!written) dirty_ = true;
  return written;
}

namespace {
// Writes through a temporary file, a flush and a rename.
bool writePreferencesFile(const fs::path& file_, const std::string& text) {
  const fs::path target = writeTarget(file_);
  fs::path dir = target.parent_path();
  if (dir.empty()) dir = ".";
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec) {
    HB_LOG("UserDefaults", "cannot create " + dir.string() + ": " + ec.message());
    return false;
  }

  std::string temp = (dir / ("." + target.filename().string() + ".tmp-XXXXXX")).string();
  int fd = ::mkstemp(temp.data());
  if (fd < 0) {
    HB_LOG("UserDefaults", "cannot create a file in " + dir.string() + ": " + errnoText(errno));
    return false;
  }
  auto fail = [&](const char* what, int err) {
    ::close(fd);
    ::unlink(temp.c_str());
    HB_LOG("UserDefaults", std::string(what) + " " + target.string() + ": " + errnoText(err));
    return false;
  };

  // Keep the permissions the user gave the file; new files are private.
  struct stat st;
  if (::stat(target.c_str(), &st) == 0) ::fchmod(fd, st.st_mode & 07777);

  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail("cannot write", errno);
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  if (::fsync(fd) != 0) return fail("cannot flush", errno);
  if (::close(fd) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    HB_LOG("UserDefaults", "cannot write " + target.string() + ": " + errnoText(err));
    return false;
  }
  if (::rename(temp.c_str(), target.c_str()) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    HB_LOG("UserDefaults", "cannot replace " + target.string() + ": " + errnoText(err));
    return false;
  }
  // Make the rename itself durable.
  int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    ::fsync(dirFd);
    ::close(dirFd);
  }
  return true;
}
}  // namespace

std::string formatPlistDate(PlistValue::Date date) {
  return formatDate(date);
}

std::optional<PlistValue::Date> parsePlistDate(std::string_view text) {
  return parseDate(text);
}

}  // namespace harbor

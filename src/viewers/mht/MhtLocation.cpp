#include "viewers/mht/MhtLocation.h"

#include <cctype>
#include <vector>

#include "platform/Unicode.h"

namespace harbor::mht {
namespace {

constexpr std::size_t kMaxNameBytes = 255;

std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i <= path.size()) {
    std::size_t j = path.find('/', i);
    if (j == std::string_view::npos) j = path.size();
    std::string_view c = path.substr(i, j - i);
    if (!c.empty() && c != ".") out.push_back(c);
    i = j + 1;
  }
  return out;
}

// Cuts a name to `limit` bytes at a character boundary, keeping a short
// extension so the file still opens as what it is.
std::string cutName(const std::string& name, std::size_t limit) {
  if (name.size() <= limit) return name;
  std::string ext;
  const std::size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0 && name.size() - dot <= 16) ext = name.substr(dot);
  std::size_t keep = limit - ext.size();
  // Never split a UTF-8 sequence (names are ASCII here, but be safe).
  while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
  return name.substr(0, keep) + ext;
}

}  // namespace

Location parseLocation(std::string_view location) {
  Location out;
  std::string_view rest = location;
  const std::size_t colon = rest.find(':');
  const std::size_t firstSlash = rest.find('/');
  if (colon != std::string_view::npos && colon > 0 &&
      (firstSlash == std::string_view::npos || colon < firstSlash)) {
    bool schemeChars = true;
    for (char c : rest.substr(0, colon)) {
      if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.'))
        schemeChars = false;
    }
    // "C:\x" is a drive, not a scheme.
    if (schemeChars && colon > 1) {
      out.scheme = toLower(rest.substr(0, colon));
      rest.remove_prefix(colon + 1);
    }
  }
  if (rest.substr(0, 2) == "//") {
    out.hasAuthority = true;
    rest.remove_prefix(2);
    std::size_t end = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end);
    if (auto at = authority.rfind('@'); at != std::string_view::npos)
      authority.remove_prefix(at + 1);
    if (!authority.empty() && authority.front() == '[') {
      auto close = authority.find(']');
      authority =
          authority.substr(0, close == std::string_view::npos ? authority.size() : close + 1);
    } else if (auto c = authority.rfind(':'); c != std::string_view::npos) {
      authority = authority.substr(0, c);
    }
    out.host = toLower(authority);
  }
  const std::size_t cut = rest.find_first_of("?#");
  out.path = std::string(rest.substr(0, cut));
  return out;
}

std::string folderOfPath(std::string_view path) {
  if (path.empty() || path.back() == '/') return std::string(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(path.substr(0, slash + 1));
}

std::string leafOfLocation(std::string_view location) {
  std::string_view s = location;
  if (s.size() >= 7 && toLower(s.substr(0, 7)) == "file://") s.remove_prefix(7);
  const Location loc = parseLocation(s);
  std::string_view path = loc.path;
  // Windows paths in locations use backslashes.
  const std::size_t slash = path.find_last_of("/\\");
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string pathRelativeTo(std::string_view path, std::string_view base) {
  const auto p = components(path);
  const auto b = components(base);
  std::size_t common = 0;
  while (common < p.size() && common < b.size() && p[common] == b[common]) ++common;
  std::string out;
  for (std::size_t i = common; i < b.size(); ++i) out += out.empty() ? ".." : "/..";
  for (std::size_t i = common; i < p.size(); ++i) {
    if (!out.empty()) out += '/';
    out += p[i];
  }
  return out;
}

std::string safeFileName(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (std::size_t i = 0; i < name.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    if (c >= 0x80) {
      // One "_" per character, not per byte.
      if ((c & 0xC0) != 0x80) out += '_';
      continue;
    }
    if (c < 0x20 || c == 0x7F || c == '/' || c == '\\' || c == ':' || c == '*' || c == '?' ||
        c == '"' || c == '<' || c == '>' || c == '|') {
      out += '_';
      continue;
    }
    out += static_cast<char>(c);
  }
  if (out == "." || out == "..") out = "_";
  return cutName(out, kMaxNameBytes);
}

std::string safeFolderPath(std::string_view folder) {
  std::string out;
  std::size_t i = 0;
  while (i <= folder.size()) {
    std::size_t j = folder.find_first_of("/\\", i);
    if (j == std::string_view::npos) j = folder.size();
    std::string_view c = folder.substr(i, j - i);
    i = j + 1;
    if (c.empty() || c == ".") continue;
    out += '/';
    out += safeFileName(c);
  }
  return out.empty() ? "/" : out;
}

std::u16string urlEscapePath(std::string_view path) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size());
  for (char ch : path) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c <= 0x20 || c >= 0x7F || c == '%' || c == '#' || c == '?' || c == '"' || c == '\'' ||
        c == '(' || c == ')' || c == '<' || c == '>') {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    } else {
      out += ch;
    }
  }
  return toUtf16(out);
}

std::string extensionForType(std::string_view type) {
  const std::string t = toLower(type);
  static const std::pair<const char*, const char*> table[] = {
      {"text/html", "html"},     {"text/css", "css"},
      {"image/png", "png"},      {"image/jpeg", "jpg"},
      {"image/jpg", "jpg"},      {"image/gif", "gif"},
      {"image/svg+xml", "svg"},  {"image/webp", "webp"},
      {"image/x-icon", "ico"},   {"image/vnd.microsoft.icon", "ico"},
      {"image/bmp", "bmp"},      {"image/avif", "avif"},
      {"text/javascript", "js"}, {"application/javascript", "js"},
      {"font/woff", "woff"},     {"font/woff2", "woff2"},
      {"text/plain", "txt"},
  };
  for (const auto& [mime, ext] : table) {
    if (t == mime) return ext;
  }
  return {};
}

}  // namespace harbor::mht

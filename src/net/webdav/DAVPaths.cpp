#include "net/webdav/DAVPaths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <cctype>
#include <filesystem>
#include <vector>

#include "archive/SafeExtraction.h"
#include "filemanager/FileManagerUtil.h"
#include "net/http/HTTPConnection.h"

namespace harbor::davpath {
namespace fs = std::filesystem;
namespace {

bool hasSurvivingEscape(std::string_view s) {
  // A second decoding elsewhere must not turn these into dots, slashes or NUL.
  for (std::size_t i = 0; i + 2 < s.size(); ++i) {
    if (s[i] != '%') continue;
    char a = s[i + 1];
    char b = static_cast<char>(std::tolower(static_cast<unsigned char>(s[i + 2])));
    if ((a == '2' && (b == 'e' || b == 'f')) || (a == '5' && b == 'c') || (a == '0' && b == '0')) {
      return true;
    }
  }
  return false;
}

std::string joinPath(const std::string& a, std::string_view b) {
  std::string out = a;
  if (out.empty() || out.back() != '/') out += '/';
  out += b;
  return out;
}

}  // namespace

bool isBelow(const std::string& path, const std::string& ancestor, bool orSame) {
  if (path == ancestor) return orSame;
  if (ancestor == "/") return path.size() > 1 && path.front() == '/';
  return path.size() > ancestor.size() && path.compare(0, ancestor.size(), ancestor) == 0 &&
         path[ancestor.size()] == '/';
}

std::optional<std::string> realRoot(const std::string& documentRoot) {
  std::error_code ec;
  fs::path real = fs::canonical(documentRoot, ec);
  if (ec) return std::nullopt;
  return real.string();
}

std::optional<std::string> resolve(std::string_view decodedPath, const std::string& root) {
  if (decodedPath.find('\0') != std::string_view::npos || hasSurvivingEscape(decodedPath)) {
    return std::nullopt;
  }
  std::vector<std::string_view> names;
  std::size_t pos = 0;
  while (pos <= decodedPath.size()) {
    std::size_t slash = decodedPath.find('/', pos);
    if (slash == std::string_view::npos) slash = decodedPath.size();
    std::string_view name = decodedPath.substr(pos, slash - pos);
    if (name == "." || name == ".." || name.find('\\') != std::string_view::npos) {
      return std::nullopt;
    }
    if (!name.empty()) names.push_back(name);
    pos = slash + 1;
  }
  if (names.empty()) return root;
  std::string parent = root;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) parent = joinPath(parent, names[i]);
  std::error_code ec;
  if (names.size() > 1) {
    // The folders on the way, links resolved (a missing tail stays as named).
    fs::path real = fs::weakly_canonical(parent, ec);
    if (ec || !isBelow(real.string(), root, true)) return std::nullopt;
    parent = real.string();
  }
  std::string path = joinPath(parent, names.back());
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    fs::path target = fs::weakly_canonical(path, ec);
    if (ec || !isBelow(target.string(), root, true)) return std::nullopt;
  }
  return path;
}

std::optional<std::string> pathForURI(std::string_view uri, const std::string& root) {
  auto decoded = HTTPConnection::decodedPathOfURI(uri);
  if (!decoded) return std::nullopt;
  return resolve(*decoded, root);
}

std::optional<std::string> destinationPath(std::string_view destination, std::string_view host,
                                           const std::string& root) {
  if (host.empty()) return std::nullopt;
  std::size_t at = destination.find(host);
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view rest = destination.substr(at + host.size());
  if (rest.empty()) rest = "/";
  if (rest.front() != '/') return std::nullopt;  // "host" was only a prefix of another
  return pathForURI(rest, root);
}

std::string resourcePath(const std::string& path, const std::string& root) {
  if (path.size() <= root.size() + 1) return {};
  return path.substr(root.size() + 1);
}

std::string escapeHref(std::string_view path) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size() + 16);
  for (unsigned char c : path) {
    bool keep = std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~' ||
                c == '!' || c == '$' || c == '\'' || c == '(' || c == ')' || c == '*' || c == ',' ||
                c == ';' || c == '=' || c == ':' || c == '@';
    if (keep && c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

bool isLocked(const std::string& documentRoot, const std::string& relative) {
  if (relative.empty() || FileManagerUtil::getPasswordHashTable().empty()) return false;
  std::size_t pos = 0;
  while (true) {
    std::size_t slash = relative.find('/', pos);
    std::string prefix = relative.substr(0, slash);
    if (FileManagerUtil::isPasswordFile(joinPath(documentRoot, prefix))) return true;
    if (slash == std::string::npos) return false;
    pos = slash + 1;
  }
}

bool treeHoldsLocked(const std::string& documentRoot, const std::string& relative) {
  if (FileManagerUtil::getPasswordHashTable().empty()) return false;
  std::string full = relative.empty() ? documentRoot : joinPath(documentRoot, relative);
  while (full.size() > 1 && full.back() == '/') full.pop_back();
  for (const auto& locked : FileManagerUtil::getAllPasswordFileList(full)) {
    // The root's own entry is the share password, not a folder lock.
    std::string a = locked, b = documentRoot;
    while (a.size() > 1 && a.back() == '/') a.pop_back();
    while (b.size() > 1 && b.back() == '/') b.pop_back();
    if (a != b) return true;
  }
  return false;
}

bool writeFileAtomically(const std::string& path, std::string_view data) {
  std::string temp = extraction::temporaryBeside(path);
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  bool ok = true;
  while (ok && !data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) data.remove_prefix(static_cast<std::size_t>(n));
  }
  ok = ::close(fd) == 0 && ok;
  if (!ok || ::rename(temp.c_str(), path.c_str()) != 0) {
    ::unlink(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace harbor::davpath

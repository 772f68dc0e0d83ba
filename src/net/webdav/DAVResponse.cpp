#include "net/webdav/DAVResponse.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

#include "net/http/HTTPUtil.h"
#include "net/webdav/DAVPaths.h"
#include "net/webdav/DAVXml.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

constexpr const char* kXmlType = "application/xml; charset=\"utf-8\"";
constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string lower(std::string_view s) {
  std::string out(s);
  for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

void twoDigits(std::string& out, int v) {
  out += static_cast<char>('0' + v / 10 % 10);
  out += static_cast<char>('0' + v % 10);
}

void clockText(std::string& out, const std::tm& tm) {
  twoDigits(out, tm.tm_hour);
  out += ':';
  twoDigits(out, tm.tm_min);
  out += ':';
  twoDigits(out, tm.tm_sec);
}

// "2023-11-05T09:08:07+00:00"; written by hand, as listings format thousands.
void appendCreationText(std::string& out, std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  out += std::to_string(tm.tm_year + 1900);
  out += '-';
  twoDigits(out, tm.tm_mon + 1);
  out += '-';
  twoDigits(out, tm.tm_mday);
  out += 'T';
  clockText(out, tm);
  out += "+00:00";
}

// "Sun, 5 Nov 2023 09:08:07 GMT": English names, the day not padded.
void appendModifiedText(std::string& out, std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  out += kDays[tm.tm_wday % 7];
  out += ", ";
  out += std::to_string(tm.tm_mday);
  out += ' ';
  out += kMonths[tm.tm_mon % 12];
  out += ' ';
  out += std::to_string(tm.tm_year + 1900);
  out += ' ';
  clockText(out, tm);
  out += " GMT";
}

std::string joinPath(const std::string& root, const std::string& relative) {
  return relative.empty() ? root : root + "/" + relative;
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool lexists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

// Copies `from` onto `to`, writing over the files it meets. A link is copied
// as a link; a link met at the destination is replaced, never followed.
bool copyTree(const std::string& from, const std::string& to) {
  struct stat src, dst;
  if (::lstat(from.c_str(), &src) != 0) return false;
  bool dstExists = ::lstat(to.c_str(), &dst) == 0;
  std::error_code ec;
  if (dstExists && S_ISLNK(dst.st_mode)) {
    if (::unlink(to.c_str()) != 0) return false;
    dstExists = false;
  }
  if (S_ISLNK(src.st_mode)) {
    if (dstExists && (S_ISDIR(dst.st_mode) || ::unlink(to.c_str()) != 0)) return false;
    fs::copy_symlink(from, to, ec);
    return !ec;
  }
  if (S_ISREG(src.st_mode)) {
    if (dstExists && !S_ISREG(dst.st_mode)) return false;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
    return !ec;
  }
  if (!S_ISDIR(src.st_mode)) return true;  // devices, pipes and sockets stay behind
  if (dstExists && !S_ISDIR(dst.st_mode)) return false;
  if (!dstExists && ::mkdir(to.c_str(), src.st_mode & 07777) != 0) return false;
  DIR* dir = ::opendir(from.c_str());
  if (!dir) return false;
  bool ok = true;
  std::vector<std::string> names;
  while (dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  ::closedir(dir);
  for (const auto& name : names) ok = copyTree(from + "/" + name, to + "/" + name) && ok;
  return ok;
}

}  // namespace

// ---- Headers ----------------------------------------------------------------

DAVHeaders::DAVHeaders(const HTTPMessage::Fields& fields) {
  for (const auto& [k, v] : fields) fields_[lower(k)] = v;
}

void DAVHeaders::set(std::string_view name, std::string value) {
  fields_[lower(name)] = std::move(value);
}

std::optional<std::string> DAVHeaders::get(std::string_view name) const {
  auto it = fields_.find(lower(name));
  if (it == fields_.end()) return std::nullopt;
  return it->second;
}

// ---- Multistatus entries ----------------------------------------------------

bool appendDavResponseEntry(std::string& out, const std::string& href, int dirFD, const char* name,
                            unsigned mask) {
  struct statx stx {};
  if (::statx(dirFD, name, 0, STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME, &stx) != 0) {
    return false;
  }
  bool dir = S_ISDIR(stx.stx_mode);
  out += "<D:response><D:href>";
  out += href;
  out += "</D:href><D:propstat><D:prop>";
  if (mask & davxml::kResourceType) {
    out += dir ? "<D:resourcetype><D:collection/></D:resourcetype>" : "<D:resourcetype/>";
  }
  if ((mask & davxml::kCreationDate) && (stx.stx_mask & STATX_BTIME)) {
    out += "<D:creationdate>";
    appendCreationText(out, static_cast<std::time_t>(stx.stx_btime.tv_sec));
    out += "</D:creationdate>";
  }
  if ((mask & davxml::kLastModified) && (stx.stx_mask & STATX_MTIME)) {
    out += "<D:getlastmodified>";
    appendModifiedText(out, static_cast<std::time_t>(stx.stx_mtime.tv_sec));
    out += "</D:getlastmodified>";
  }
  if ((mask & davxml::kContentLength) && !dir && (stx.stx_mask & STATX_SIZE)) {
    out += "<D:getcontentlength>";
    out += std::to_string(stx.stx_size);
    out += "</D:getcontentlength>";
  }
  out += "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>\n";
  return true;
}

// ---- The response -----------------------------------------------------------

std::shared_ptr<DAVResponse> DAVResponse::initWithMethod(
    const std::string& method, const DAVHeaders& headers, std::string_view bodyData,
    const std::string& resourcePath, const std::string& rootPath, const Guards& guards) {
  std::shared_ptr<DAVResponse> r(new DAVResponse());
  bool ok = false;
  if (method == "OPTIONS") {
    ok = r->options(headers);
  } else if (method == "PROPFIND") {
    ok = r->propfind(headers, bodyData, resourcePath, rootPath);
  } else if (method == "MKCOL") {
    ok = r->mkcol(resourcePath, rootPath);
  } else if (method == "MOVE" || method == "COPY") {
    ok = r->moveOrCopy(method == "MOVE", headers, resourcePath, rootPath, guards);
  } else if (method == "LOCK") {
    ok = r->lock(headers, bodyData, resourcePath, rootPath);
  } else if (method == "UNLOCK") {
    ok = r->unlock(headers, resourcePath, rootPath);
  }
  return ok ? r : nullptr;
}

void DAVResponse::setOffset(std::uint64_t offset) {
  _offset = _data ? std::min<std::uint64_t>(offset, _data->size()) : 0;
}

std::string DAVResponse::readDataOfLength(std::size_t length) {
  if (!_data || _offset >= _data->size()) return {};
  std::size_t n = std::min<std::uint64_t>(length, _data->size() - _offset);
  std::string out = _data->substr(static_cast<std::size_t>(_offset), n);
  _offset += n;
  return out;
}

bool DAVResponse::options(const DAVHeaders& headers) {
  auto agent = headers.get("user-agent");
  // Only the desktop client that needs class 2 to mount read-write is told of it.
  _headers["DAV"] = agent && agent->rfind("WebDAVFS/", 0) == 0 ? "1, 2" : "1";
  return true;
}

bool DAVResponse::propfind(const DAVHeaders& headers, std::string_view body,
                           const std::string& resource, const std::string& root) {
  auto depthHeader = headers.get("depth");
  if (!depthHeader || (*depthHeader != "0" && *depthHeader != "1")) {
    HB_LOG("DAVResponse", "unsupported PROPFIND depth: " + depthHeader.value_or("(none)"));
    return false;
  }
  bool depth1 = *depthHeader == "1";
  unsigned mask = davxml::propertyMask(body);
  std::string path = joinPath(root, resource);
  if (!lexists(path)) return false;

  std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\" ?><D:multistatus xmlns:D=\"DAV:\">\n";
  std::string href = "/" + resource;
  if (depth1 && href.back() != '/') href += '/';
  appendDavResponseEntry(out, davpath::escapeHref(href), AT_FDCWD, path.c_str(), mask);
  if (depth1 && isDirectory(path)) {
    int dirFD = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = dirFD >= 0 ? ::fdopendir(dirFD) : nullptr;
    if (!dir && dirFD >= 0) ::close(dirFD);
    std::vector<std::string> names;
    while (dir) {
      dirent* e = ::readdir(dir);
      if (!e) break;
      std::string name = e->d_name;
      if (name == "." || name == "..") continue;
      if (e->d_type == DT_LNK || e->d_type == DT_UNKNOWN) {
        // A child leading out of the root is not ours to describe.
        std::error_code ec;
        fs::path target = fs::weakly_canonical(path + "/" + name, ec);
        if (ec || !davpath::isBelow(target.string(), root, true)) continue;
      }
      names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    std::string base = resource.empty() ? "/" : "/" + resource + "/";
    out.reserve(out.size() + names.size() * 320);
    for (const auto& name : names) {
      // Relative to the open folder: no path walk per entry.
      appendDavResponseEntry(out, davpath::escapeHref(base + name), dirfd(dir), name.c_str(), mask);
    }
    if (dir) ::closedir(dir);
  }
  out += "</D:multistatus>";
  _headers["Content-Type"] = kXmlType;
  _data = std::move(out);
  _status = 207;
  return true;
}

bool DAVResponse::mkcol(const std::string& resource, const std::string& root) {
  std::string path = joinPath(root, resource);
  if (!isDirectory(fs::path(path).parent_path().string())) {
    HB_LOG("DAVResponse", "MKCOL without a parent folder: " + resource);
    _status = 409;
    return true;
  }
  if (resource.empty() || ::mkdir(path.c_str(), 0777) != 0) {
    HB_LOG("DAVResponse", "cannot create folder: " + resource);
    _status = 405;
  }
  return true;
}

bool DAVResponse::moveOrCopy(bool isMove, const DAVHeaders& headers, const std::string& resource,
                             const std::string& root, const Guards& guards) {
  const char* what = isMove ? "MOVE" : "COPY";
  if (!isMove) {
    auto depth = headers.get("depth");
    if (depth && *depth != "infinity") {
      HB_LOG("DAVResponse", "unsupported COPY depth: " + *depth);
      return false;
    }
  }
  std::string source = joinPath(root, resource);
  if (!lexists(source)) return false;
  auto destination = headers.get("destination");
  auto host = headers.get("host");
  auto target =
      destination && host ? davpath::destinationPath(*destination, *host, root) : std::nullopt;
  if (!target) {
    HB_LOG("DAVResponse",
           std::string(what) + " to an unusable destination: " + destination.value_or("(none)"));
    return false;
  }
  std::string targetResource = davpath::resourcePath(*target, root);
  if (guards.hidden && guards.hidden(targetResource)) return false;
  // The root stays, and nothing goes into its own subtree.
  if (resource.empty() || targetResource.empty() || davpath::isBelow(*target, source, true)) {
    HB_LOG("DAVResponse", std::string(what) + " refused: " + resource + " to " + targetResource);
    _status = 403;
    return true;
  }
  if (!isDirectory(fs::path(*target).parent_path().string())) {
    HB_LOG("DAVResponse", std::string(what) + " without a destination folder: " + targetResource);
    _status = 409;
    return true;
  }
  bool existed = lexists(*target);
  auto overwrite = headers.get("overwrite");
  if (existed && overwrite && (*overwrite == "F" || *overwrite == "f")) {
    HB_LOG("DAVResponse", std::string(what) + " would overwrite: " + targetResource);
    _status = 412;
    return true;
  }
  if (guards.holdsLocked &&
      (guards.holdsLocked(resource) || (existed && guards.holdsLocked(targetResource)))) {
    HB_LOG("DAVResponse", std::string(what) + " of a locked tree: " + resource);
    _status = 403;
    return true;
  }
  // Nothing is removed first: one rename replaces a file or an empty folder.
  bool ok = isMove ? ::rename(source.c_str(), target->c_str()) == 0 : copyTree(source, *target);
  if (!ok) {
    HB_LOG("DAVResponse", std::string(what) + " failed: " + resource + " to " + targetResource);
    _status = 403;
    return true;
  }
  _status = existed ? 204 : 201;
  return true;
}

bool DAVResponse::lock(const DAVHeaders& headers, std::string_view body,
                       const std::string& resource, const std::string& root) {
  std::string path = joinPath(root, resource);
  std::optional<std::string> scope, type, depth, owner, token;
  davxml::LockInfo info = davxml::lockInfo(body);
  if (info.parsed) {
    depth = headers.get("depth");
    scope = info.scope;
    type = info.type;
    owner = info.owner;
  } else if (auto ifHeader = headers.get("if")) {
    // A refresh names its lock in "If": (<token>).
    std::size_t b = ifHeader->find_first_not_of("(<>)");
    std::size_t e = ifHeader->find_last_not_of("(<>)");
    token = b == std::string::npos ? std::string() : ifHeader->substr(b, e - b + 1);
    scope = "exclusive";
    type = "write";
    depth = "0";
  }
  if (scope != "exclusive" || type != "write" || depth != "0") {
    HB_LOG("DAVResponse", "unsupported lock: scope " + scope.value_or("(none)") + ", type " +
                              type.value_or("(none)") + ", depth " + depth.value_or("(none)"));
    _status = 403;
    return true;
  }
  if (!lexists(path)) {
    if (!davpath::writeFileAtomically(path, {})) {
      HB_LOG("DAVResponse", "cannot create the locked file: " + resource);
      _status = 403;
      return true;
    }
  }
  auto timeout = headers.get("timeout");
  if (!token) token = "urn:uuid:" + HTTPUtil::uuidString();
  std::string lockRoot =
      "http://" + headers.get("host").value_or("") + "/" + davpath::escapeHref(resource);
  std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\" ?><D:prop xmlns:D=\"DAV:\">\n";
  out += "<D:lockdiscovery>\n<D:activelock>\n";
  out += "<D:locktype><D:" + *type + "/></D:locktype>\n";
  out += "<D:lockscope><D:" + *scope + "/></D:lockscope>\n";
  out += "<D:depth>" + *depth + "</D:depth>\n";
  if (owner) out += "<D:owner><D:href>" + davxml::escapeText(*owner) + "</D:href></D:owner>\n";
  if (timeout) out += "<D:timeout>" + davxml::escapeText(*timeout) + "</D:timeout>\n";
  out += "<D:locktoken><D:href>" + davxml::escapeText(*token) + "</D:href></D:locktoken>\n";
  out += "<D:lockroot><D:href>" + davxml::escapeText(lockRoot) + "</D:href></D:lockroot>\n";
  out += "</D:activelock>\n</D:lockdiscovery>\n</D:prop>";
  _headers["Content-Type"] = kXmlType;
  _data = std::move(out);
  _status = 200;
  return true;
}

bool DAVResponse::unlock(const DAVHeaders& headers, const std::string& resource,
                         const std::string& root) {
  if (!lexists(joinPath(root, resource))) return false;
  _status = headers.get("lock-token") ? 204 : 400;
  return true;
}

}  // namespace harbor

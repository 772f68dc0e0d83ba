#include "net/http/HTTPAsyncFileResponse.h"
#include "net/webdav/DAVConnection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <filesystem>

#include "archive/SafeExtraction.h"
#include "filemanager/FileUtil.h"
#include "net/webdav/DAVPaths.h"
#include "net/webdav/DELETEResponse.h"
#include "net/webdav/PUTResponse.h"
#include "platform/Log.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

bool isXmlBodyMethod(const std::string& method) {
  return method == "PROPFIND" || method == "LOCK";
}

}  // namespace

DAVConnection::DAVConnection(std::shared_ptr<AsyncSocket> socket,
                             std::shared_ptr<const HTTPConfig> config)
    : HTTPConnection(std::move(socket), std::move(config)) {}

DAVConnection::~DAVConnection() {
  dropBody();
}

bool DAVConnection::supportsMethod(const std::string& method, const std::string& path) {
  // UNLOCK is left to the superclass on purpose: it is refused with 405.
  static const char* const kMethods[] = {"GET",      "HEAD",  "PUT",  "DELETE", "OPTIONS",
                                         "PROPFIND", "MKCOL", "MOVE", "COPY",   "LOCK"};
  for (const char* m : kMethods) {
    if (method == m) return true;
  }
  return HTTPConnection::supportsMethod(method, path);
}

bool DAVConnection::expectsRequestBodyFromMethod(const std::string& method,
                                                 const std::string& path) {
  if (method == "PUT" || method == "LOCK") return true;
  if (method == "PROPFIND" || method == "MKCOL") {
    return request() && request()->headerField("Content-Length").has_value();
  }
  return HTTPConnection::expectsRequestBodyFromMethod(method, path);
}

bool DAVConnection::isPasswordProtected(const std::string&) {
  return !LoginPasswordUtil::getWifiPassword().empty();
}

std::optional<std::string> DAVConnection::passwordForUser(const std::string&) {
  std::string password = LoginPasswordUtil::getWifiPassword();
  if (password.empty()) return std::nullopt;
  return password;
}

int DAVConnection::checkRequestHead() {
  if (!isXmlBodyMethod(request()->method())) return 0;
  auto length = request()->headerField("Content-Length");
  if (!length) return 0;
  std::uint64_t value = 0;
  for (char c : *length) {
    value = value * 10 + static_cast<std::uint64_t>(c - '0');  // digits: checked by the head
    if (value > kMaxXmlBodySize) return 400;
  }
  return 0;
}

// ---- Body -------------------------------------------------------------------

void DAVConnection::prepareForBodyWithSize(std::uint64_t contentLength) {
  assert(requestContentStream < 0 && "requestContentStream should be nil");
  assert(!requestContentBody && "requestContentBody should be nil");
  bodyBytes_ = 0;
  bodyFailed_ = false;
  if (contentLength <= kMemoryBodyLimit) {
    requestContentBody = ContentBody{false, {}};
    return;
  }
  std::string path = (fs::path(FileUtil::tempDirectory()) / extraction::uniqueName()).string();
  requestContentStream = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (requestContentStream < 0) {
    HB_LOG("DAVConnection", "cannot create a body file: " + path);
    bodyFailed_ = true;
  }
  requestContentBody = ContentBody{true, path};
}

void DAVConnection::processBodyData(std::string_view data) {
  assert(requestContentBody && "requestContentBody should not be nil");
  bodyBytes_ += data.size();
  if (!requestContentBody || bodyFailed_) return;
  if (isXmlBodyMethod(request()->method()) && bodyBytes_ > kMaxXmlBodySize) {
    bodyFailed_ = true;  // a chunked body that grew too large; refused at the end
    return;
  }
  if (!requestContentBody->isFile) {
    // A chunked body of unknown size may outgrow memory: move it to a file.
    if (requestContentBody->value.size() + data.size() <= kMemoryBodyLimit) {
      requestContentBody->value.append(data);
      return;
    }
    std::string held = std::move(requestContentBody->value);
    requestContentBody.reset();
    prepareForBodyWithSize(UINT64_MAX);
    bodyBytes_ = held.size() + data.size();
    if (bodyFailed_) return;
    processBodyData(held);
    bodyBytes_ -= held.size();
  }
  const char* p = data.data();
  std::size_t left = data.size();
  while (left > 0) {
    ssize_t n = ::write(requestContentStream, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      HB_LOG("DAVConnection", "cannot write the body file");
      bodyFailed_ = true;
      return;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

void DAVConnection::finishBody() {
  if (requestContentStream >= 0) {
    ::close(requestContentStream);
    requestContentStream = -1;
  }
}

void DAVConnection::dropBody() {
  finishBody();
  if (requestContentBody && requestContentBody->isFile) {
    ::unlink(requestContentBody->value.c_str());  // gone already when a PUT took it
  }
  requestContentBody.reset();
}

void DAVConnection::finishResponse() {
  dropBody();
  HTTPConnection::finishResponse();
}

void DAVConnection::die() {
  dropBody();
  HTTPConnection::die();
}

std::optional<std::string> DAVConnection::bodyFilePath() const {
  if (requestContentBody && requestContentBody->isFile) return requestContentBody->value;
  return std::nullopt;
}

std::optional<std::string> DAVConnection::readBody() {
  if (!requestContentBody) return std::string();
  if (!requestContentBody->isFile) return requestContentBody->value;
  std::error_code ec;
  auto size = fs::file_size(requestContentBody->value, ec);
  if (ec || size > kMaxXmlBodySize) return std::nullopt;
  std::string out(static_cast<std::size_t>(size), '\0');
  int fd = ::open(requestContentBody->value.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::size_t got = 0;
  while (got < out.size()) {
    ssize_t n = ::read(fd, out.data() + got, out.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<std::size_t>(n);
  }
  ::close(fd);
  out.resize(got);
  return out;
}

// ---- Responses --------------------------------------------------------------

std::shared_ptr<HTTPResponse> DAVConnection::fileResponseFor(const std::string& path,
                                                             std::uint64_t size) {
  // Large files are read off the connection queue, so one big download
  // does not hold up the other connections.
  if (size > kSyncFileLimit) return HTTPAsyncFileResponse::create(path, weak_from_this());
  return HTTPFileResponse::create(path, weak_from_this());
}

std::shared_ptr<HTTPResponse> DAVConnection::httpResponseForMethod(const std::string& method,
                                                                   const std::string& uri) {
  auto root = davpath::realRoot(config().documentRoot);
  if (!root) {
    HB_LOG("DAVConnection", "no document root");
    return nullptr;
  }
  auto path = davpath::pathForURI(uri, *root);
  if (!path) {
    HB_LOG("DAVConnection", "refused the path of " + uri);
    return nullptr;
  }
  std::string resource = davpath::resourcePath(*path, *root);
  const std::string& docRoot = config().documentRoot;
  // Folders locked in the file manager: their contents do not exist here.
  if (davpath::isLocked(docRoot, resource)) return nullptr;
  DAVHeaders headers(request()->allHeaderFields());
  bool treeChange = method == "DELETE" || method == "MOVE" || method == "PUT";
  if (resource.empty() && treeChange) {
    HB_LOG("DAVConnection", method + " of the root refused");
    return std::make_shared<HTTPErrorResponse>(403);
  }
  if (bodyFailed_) {
    // The body is too large to read back, or it could not be kept.
    return std::make_shared<HTTPErrorResponse>(isXmlBodyMethod(method) ? 400 : 403);
  }

  if (method == "GET" || method == "HEAD") {
    std::string file = *path;
    struct stat st;
    if (::stat(file.c_str(), &st) != 0) return nullptr;
    if (S_ISDIR(st.st_mode)) {
      file += "/index.html";
      auto inside = davpath::resolve("/" + davpath::resourcePath(file, *root), *root);
      if (!inside || ::stat(inside->c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
      file = *inside;
    }
    if (!S_ISREG(st.st_mode)) return nullptr;
    return fileResponseFor(file, static_cast<std::uint64_t>(st.st_size));
  }
  if (method == "PUT") {
    if (!requestContentBody) {
      HB_LOG("DAVConnection", "PUT without a body: " + uri);
      return nullptr;
    }
    if (requestContentBody->isFile) {
      return PUTResponse::initWithFilePath(*path, headers, requestContentBody->value);
    }
    return PUTResponse::initWithFilePathData(*path, headers, requestContentBody->value);
  }
  if (method == "DELETE") {
    if (davpath::treeHoldsLocked(docRoot, resource)) {
      HB_LOG("DAVConnection", "DELETE of a locked tree refused: " + resource);
      return std::make_shared<HTTPErrorResponse>(403);
    }
    return DELETEResponse::initWithFilePath(*path);
  }
  std::string body;
  if (isXmlBodyMethod(method)) {
    auto read = readBody();
    if (!read) return std::make_shared<HTTPErrorResponse>(400);
    body = std::move(*read);
  }
  DAVResponse::Guards guards;
  guards.hidden = [docRoot](const std::string& r) { return davpath::isLocked(docRoot, r); };
  guards.holdsLocked = [docRoot](const std::string& r) {
    return davpath::treeHoldsLocked(docRoot, r);
  };
  return DAVResponse::initWithMethod(method, headers, body, resource, *root, guards);
}

}  // namespace harbor

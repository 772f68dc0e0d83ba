#include "net/http/HTTPConnection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "net/http/HTTPServer.h"
#include "net/http/WebSocket.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

constexpr std::uint64_t kChunkedLength = UINT64_MAX;

std::optional<std::uint64_t> parseContentLength(const std::string& s) {
  if (s.empty() || s.size() > 20) return std::nullopt;
  std::uint64_t v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return std::nullopt;
    std::uint64_t d = static_cast<std::uint64_t>(c - '0');
    if (v > (UINT64_MAX - 1 - d) / 10) return std::nullopt;  // all ones means chunked
    v = v * 10 + d;
  }
  return v;
}

}  // namespace

HTTPConnection::HTTPConnection(std::shared_ptr<AsyncSocket> socket,
                               std::shared_ptr<const HTTPConfig> config)
    : asyncSocket_(std::move(socket)), config_(std::move(config)) {
  if (!config_->nonces) {
    auto c = std::make_shared<HTTPConfig>(*config_);
    c->nonces = NonceRegistry::shared();
    config_ = c;
  }
}

HTTPConnection::~HTTPConnection() = default;

void HTTPConnection::start() {
  if (started_) return;
  started_ = true;
  asyncSocket_->setDelegate(weak_from_this());
  auto self = shared_from_this();
  asyncSocket_->post([self] {
    self->request_ = HTTPMessage::initEmptyRequest();
    self->startReadingRequest();
  });
}

void HTTPConnection::stop() {
  std::shared_ptr<AsyncSocket> socket;
  {
    std::lock_guard lock(socketMutex_);
    socket = asyncSocket_;
  }
  if (socket) socket->disconnect();
}

void HTTPConnection::startReadingRequest() {
  asyncSocket_->readDataToData("\r\n", kReadHeadTimeout, kMaxHeadLineLength, HTTP_REQUEST_HEADER);
}

// ---- Defaults subclasses override -------------------------------------------

bool HTTPConnection::supportsMethod(const std::string& method, const std::string&) {
  return method == "GET" || method == "HEAD";
}

bool HTTPConnection::expectsRequestBodyFromMethod(const std::string& method, const std::string&) {
  return method == "POST" || method == "PUT";
}

bool HTTPConnection::isPasswordProtected(const std::string&) {
  return false;
}

std::optional<std::string> HTTPConnection::passwordForUser(const std::string&) {
  return std::nullopt;
}

std::shared_ptr<HTTPResponse> HTTPConnection::httpResponseForMethod(const std::string&,
                                                                    const std::string& uri) {
  auto path = filePathForURI(uri, false);
  if (!path) return nullptr;
  std::error_code ec;
  if (!fs::is_regular_file(*path, ec)) return nullptr;
  return HTTPFileResponse::create(*path, weak_from_this());
}

std::shared_ptr<WebSocket> HTTPConnection::webSocketForURI(const std::string&) {
  return nullptr;
}

void HTTPConnection::prepareForBodyWithSize(std::uint64_t) {}
void HTTPConnection::processBodyData(std::string_view) {}
void HTTPConnection::finishBody() {}

std::vector<std::string> HTTPConnection::directoryIndexFileNames() {
  return {"index.html"};
}

std::string HTTPConnection::preprocessResponse(HTTPMessage& response) {
  response.setHeaderField("Date", HTTPUtil::dateAsString(std::chrono::system_clock::now()));
  response.setHeaderField("Accept-Ranges", "bytes");
  if (httpResponse_) {
    for (auto& [k, v] : httpResponse_->httpHeaders()) response.setHeaderField(k, v);
  }
  return response.messageData();
}

std::string HTTPConnection::preprocessErrorResponse(HTTPMessage& response) {
  response.setHeaderField("Date", HTTPUtil::dateAsString(std::chrono::system_clock::now()));
  response.setHeaderField("Accept-Ranges", "bytes");
  return response.messageData();
}

void HTTPConnection::finishResponse() {
  request_.reset();
  httpResponse_.reset();
  ranges_.reset();
  ranges_headers_.clear();
  ranges_boundry_.clear();
}

bool HTTPConnection::shouldDie() {
  if (!request_) return true;
  auto connection = request_->headerField("Connection");
  const std::string& version = request_->version();
  if (version == "HTTP/1.1") return connection && equalsIgnoreCase(*connection, "close");
  if (version == "HTTP/1.0") return !(connection && equalsIgnoreCase(*connection, "Keep-Alive"));
  return true;
}

void HTTPConnection::die() {
  if (dead_) return;
  dead_ = true;
  if (httpResponse_) httpResponse_->connectionDidClose();
  httpResponse_.reset();
  if (dieHandler_) {
    auto handler = std::move(dieHandler_);
    dieHandler_ = nullptr;
    handler(this);
  }
}

// ---- Paths ------------------------------------------------------------------

std::optional<std::string> HTTPConnection::decodedPathOfURI(std::string_view uri) {
  // An absolute target ("http://host/x") keeps only its path.
  if (uri.size() > 7 && (uri.substr(0, 7) == "http://" || uri.substr(0, 8) == "https://")) {
    std::size_t slash = uri.find('/', uri.find("//") + 2);
    uri = slash == std::string_view::npos ? std::string_view("/") : uri.substr(slash);
  }
  std::size_t cut = uri.find_first_of("?#");
  if (cut != std::string_view::npos) uri = uri.substr(0, cut);
  if (uri.empty() || uri.front() != '/') return std::nullopt;
  auto decoded = HTTPUtil::percentDecode(uri);
  if (!decoded || decoded->find('\0') != std::string::npos) return std::nullopt;
  return decoded;
}

std::string_view HTTPConnection::queryOfURI(std::string_view uri) {
  std::size_t q = uri.find('?');
  if (q == std::string_view::npos) return {};
  std::string_view query = uri.substr(q + 1);
  std::size_t hash = query.find('#');
  return hash == std::string_view::npos ? query : query.substr(0, hash);
}

std::optional<std::string> HTTPConnection::filePathForURI(const std::string& uri,
                                                          bool allowDirectory) {
  return filePathForURI(uri, config_->documentRoot, allowDirectory, directoryIndexFileNames());
}

std::optional<std::string> HTTPConnection::filePathForURI(
    const std::string& uri, const std::string& documentRoot, bool allowDirectory,
    const std::vector<std::string>& indexNames) {
  if (documentRoot.empty()) {
    HB_LOG("HTTPConnection", "no document root");
    return std::nullopt;
  }
  auto relative = decodedPathOfURI(uri);
  if (!relative) return std::nullopt;
  std::string joined = documentRoot + "/" + *relative;
  auto resolved = HTTPUtil::resolveInsideRoot(joined, documentRoot);
  if (!resolved) {
    HB_LOG("HTTPConnection", "refused a path outside the root: " + uri);
    return std::nullopt;
  }
  std::error_code ec;
  if (!allowDirectory && fs::is_directory(*resolved, ec)) {
    for (const auto& name : indexNames) {
      std::string candidate = (fs::path(*resolved) / name).string();
      auto inside = HTTPUtil::resolveInsideRoot(candidate, documentRoot);
      if (inside && fs::exists(*inside, ec) && !fs::is_directory(*inside, ec)) return inside;
    }
    return std::nullopt;
  }
  return resolved;
}

std::map<std::string, std::optional<std::string>> HTTPConnection::parseGetParams() const {
  if (!request_ || !request_->isHeaderComplete() || request_->url().empty()) return {};
  return HTTPUtil::parseParams(queryOfURI(request_->url()));
}

// ---- Authentication ---------------------------------------------------------

bool HTTPConnection::isAuthenticated() {
  auto header = request_ ? request_->headerField("Authorization") : std::nullopt;
  if (!header) return false;
  HTTPAuthenticationRequest auth(*header);
  if (useDigestAccessAuthentication()) {
    if (!auth.isDigest() || auth.username().empty()) return false;
    auto password = passwordForUser(auth.username());
    if (!password) return false;
    if (auth.uri() != requestURI_) return false;
    // Every nonce is checked against the registry, the connection's own too:
    // it expires, and its counts are shared by every connection.
    if (!config_->nonces->hasRecentNonce(auth.nonce())) return false;
    if (auth.nonce() != nonce_) {
      nonce_ = auth.nonce();
      lastNC_ = 0;
    }
    errno = 0;
    char* end = nullptr;
    long long nc = std::strtoll(auth.nc().c_str(), &end, 16);
    if (errno == ERANGE || auth.nc().empty() || *end != '\0' || nc <= 0) return false;
    std::string ha1 = HTTPUtil::md5Hex(auth.username() + ":" + auth.realm() + ":" + *password);
    std::string ha2 = HTTPUtil::md5Hex(request_->method() + ":" + auth.uri());
    std::string expected = HTTPUtil::md5Hex(ha1 + ":" + auth.nonce() + ":" + auth.nc() + ":" +
                                            auth.cnonce() + ":" + auth.qop() + ":" + ha2);
    if (expected != auth.response()) return false;
    // Counted only once the response is right, so a guess cannot burn a count.
    if (!config_->nonces->acceptNonceCount(auth.nonce(), static_cast<std::uint64_t>(nc))) {
      return false;
    }
    lastNC_ = static_cast<std::uint64_t>(nc);
    return true;
  }
  if (!auth.isBasic()) return false;
  auto decoded = HTTPUtil::base64Decode(auth.base64Credentials());
  if (!decoded) return false;
  std::size_t colon = decoded->find(':');
  if (colon == std::string::npos) return false;
  auto password = passwordForUser(decoded->substr(0, colon));
  return password && *password == decoded->substr(colon + 1);
}

void HTTPConnection::addDigestAuthChallenge(HTTPMessage& response) {
  std::string nonce = config_->nonces->generateNonce();
  response.setHeaderField("WWW-Authenticate", "Digest realm=\"" + realm() +
                                                  "\", qop=\"auth\", nonce=\"" + nonce + "\"");
}

void HTTPConnection::addBasicAuthChallenge(HTTPMessage& response) {
  response.setHeaderField("WWW-Authenticate", "Basic realm=\"" + realm() + "\"");
}

// ---- Reading ----------------------------------------------------------------

void HTTPConnection::socketDidReadData(std::string_view data, long tag) {
  if (dead_) return;
  switch (tag) {
    case HTTP_REQUEST_HEADER:
      onHeadLine(data);
      return;
    case HTTP_REQUEST_BODY:
      requestContentLengthReceived_ += data.size();
      processBodyData(data);
      if (requestContentLengthReceived_ < requestContentLength_) {
        readNextBodyPiece();
      } else {
        finishBody();
        replyToHTTPRequest();
      }
      return;
    case HTTP_REQUEST_CHUNK_SIZE: {
      std::string line(data.substr(0, data.size() - 2));
      // Chunk extensions after ";" are allowed and ignored.
      std::size_t semi = line.find(';');
      if (semi != std::string::npos) line.resize(semi);
      while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
      bool hex = !line.empty() && line.size() <= 16 &&
                 std::all_of(line.begin(), line.end(),
                             [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
      if (!hex) {
        HB_LOG("HTTPConnection", "bad chunk size line");
        handleInvalidRequest();
        return;
      }
      errno = 0;
      unsigned long long size = std::strtoull(line.c_str(), nullptr, 16);
      if (errno == ERANGE) {
        handleInvalidRequest();
        return;
      }
      requestChunkSize_ = size;
      requestChunkSizeReceived_ = 0;
      if (size > 0) {
        asyncSocket_->readDataToLength(
            static_cast<std::size_t>(std::min<std::uint64_t>(size, kPieceSize)), -1,
            HTTP_REQUEST_CHUNK_DATA);
      } else {
        asyncSocket_->readDataToData("\r\n", -1, kMaxHeadLineLength, HTTP_REQUEST_CHUNK_FOOTER);
      }
      return;
    }
    case HTTP_REQUEST_CHUNK_DATA:
      requestContentLengthReceived_ += data.size();
      requestChunkSizeReceived_ += data.size();
      processBodyData(data);
      if (requestChunkSizeReceived_ < requestChunkSize_) {
        asyncSocket_->readDataToLength(
            static_cast<std::size_t>(
                std::min<std::uint64_t>(requestChunkSize_ - requestChunkSizeReceived_, kPieceSize)),
            -1, HTTP_REQUEST_CHUNK_DATA);
      } else {
        asyncSocket_->readDataToLength(2, -1, HTTP_REQUEST_CHUNK_TRAILER);
      }
      return;
    case HTTP_REQUEST_CHUNK_TRAILER:
      if (data != "\r\n") {
        HB_LOG("HTTPConnection", "bad chunk trailer");
        handleInvalidRequest();
        return;
      }
      readChunkSizeLine();
      return;
    case HTTP_REQUEST_CHUNK_FOOTER:
      if (++numHeaderLines_ > kMaxHeadLines) {
        asyncSocket_->disconnect();
        return;
      }
      if (data.size() < 3) {
        finishBody();
        replyToHTTPRequest();
      } else {
        asyncSocket_->readDataToData("\r\n", -1, kMaxHeadLineLength, HTTP_REQUEST_CHUNK_FOOTER);
      }
      return;
    default:
      return;
  }
}

void HTTPConnection::readChunkSizeLine() {
  asyncSocket_->readDataToData("\r\n", -1, kMaxChunkLineLength, HTTP_REQUEST_CHUNK_SIZE);
}

void HTTPConnection::readNextBodyPiece() {
  std::uint64_t remaining = requestContentLength_ - requestContentLengthReceived_;
  asyncSocket_->readDataToLength(
      static_cast<std::size_t>(std::min<std::uint64_t>(remaining, kPieceSize)), -1,
      HTTP_REQUEST_BODY);
}

void HTTPConnection::onHeadLine(std::string_view line) {
  if (!request_) request_ = HTTPMessage::initEmptyRequest();
  if (!request_->appendData(line)) {
    HB_LOG("HTTPConnection", "malformed request head");
    handleInvalidRequest();
    return;
  }
  if (!request_->isHeaderComplete()) {
    if (++numHeaderLines_ > kMaxHeadLines) {
      // Too many lines: drop without a reply.
      asyncSocket_->disconnect();
      return;
    }
    startReadingRequest();
    return;
  }
  onHeadComplete();
}

void HTTPConnection::onHeadComplete() {
  const std::string method = request_->method();
  const std::string uri = request_->url();
  isHeadRequest_ = method == "HEAD";
  requestURI_ = uri;
  auto transferEncoding = request_->headerField("Transfer-Encoding");
  auto contentLength = request_->headerField("Content-Length");
  bool expectsBody = expectsRequestBodyFromMethod(method, uri);
  if (expectsBody) {
    if (transferEncoding && equalsIgnoreCase(*transferEncoding, "chunked")) {
      if (contentLength) {
        // Both framings at once: one party would read it wrongly.
        handleInvalidRequest();
        return;
      }
      requestContentLength_ = kChunkedLength;
    } else if (transferEncoding) {
      handleInvalidRequest();
      return;
    } else {
      auto length = contentLength ? parseContentLength(*contentLength) : std::nullopt;
      if (!length) {
        handleInvalidRequest();
        return;
      }
      requestContentLength_ = *length;
    }
  } else {
    if (transferEncoding) {
      handleInvalidRequest();
      return;
    }
    if (contentLength) {
      auto length = parseContentLength(*contentLength);
      if (!length || *length > 0) {
        handleInvalidRequest();
        return;
      }
    }
    requestContentLength_ = 0;
  }
  requestContentLengthReceived_ = 0;
  if (!supportsMethod(method, uri)) {
    handleUnknownMethod();
    return;
  }
  // Who may send is settled before anything is read or promised.
  if (isPasswordProtected(uri) && !isAuthenticated()) {
    sendErrorResponse(401, true);
    return;
  }
  if (int status = checkRequestHead()) {
    sendErrorResponse(status, true);
    return;
  }
  if (!expectsBody) {
    replyToHTTPRequest();
    return;
  }
  auto expect = request_->headerField("Expect");
  if (expect && equalsIgnoreCase(*expect, "100-continue") && requestContentLength_ > 0 &&
      request_->version() == "HTTP/1.1") {
    asyncSocket_->writeData("HTTP/1.1 100 Continue\r\n\r\n", kWriteHeadTimeout, HTTP_CONTINUE);
  }
  startBody();
}

void HTTPConnection::startBody() {
  prepareForBodyWithSize(requestContentLength_);
  if (requestContentLength_ == 0) {
    finishBody();
    replyToHTTPRequest();
  } else if (requestContentLength_ == kChunkedLength) {
    requestContentLengthReceived_ = 0;
    readChunkSizeLine();
  } else {
    readNextBodyPiece();
  }
}

// ---- Replying ---------------------------------------------------------------

void HTTPConnection::replyToHTTPRequest() {
  const std::string& version = request_->version();
  if (version != "HTTP/1.1" && version != "HTTP/1.0") {
    handleVersionNotSupported();
    return;
  }
  requestURI_ = request_->url();
  if (WebSocket::isWebSocketRequest(*request_)) {
    auto ws = webSocketForURI(requestURI_);
    if (!ws) {
      handleResourceNotFound();
      return;
    }
    if (!WebSocket::isValidHandshake(*request_)) {
      handleInvalidRequest();
      return;
    }
    // The socket is the web socket's from here; this connection ends.
    if (config_->server) config_->server->addWebSocket(ws);
    ws->start();
    {
      std::lock_guard lock(socketMutex_);
      asyncSocket_.reset();
    }
    die();
    return;
  }
  // Authentication was settled on the head (a nonce count is good once).
  httpResponse_ = httpResponseForMethod(request_->method(), requestURI_);
  if (!httpResponse_) {
    handleResourceNotFound();
    return;
  }
  sendResponseHeadersAndBody();
}

std::string HTTPConnection::rangeHead(const ByteRange& r, std::uint64_t total) const {
  return "bytes " + std::to_string(r.location) + "-" + std::to_string(r.location + r.length - 1) +
         "/" + std::to_string(total);
}

void HTTPConnection::sendResponseHeadersAndBody() {
  if (!httpResponse_ || sentResponseHeaders_) return;
  if (httpResponse_->delayResponseHeaders()) return;
  chunkedResponse_ = httpResponse_->isChunked();
  std::uint64_t contentLength = chunkedResponse_ ? 0 : httpResponse_->contentLength();
  auto rangeHeader = request_->headerField("Range");
  if (rangeHeader && !chunkedResponse_) {
    ranges_ = HTTPUtil::parseRangeRequest(*rangeHeader, contentLength);
  }
  std::unique_ptr<HTTPMessage> head;
  if (ranges_ && ranges_->size() == 1) {
    head = HTTPMessage::initResponseWithStatusCode(206, "", "HTTP/1.1");
    const ByteRange& r = ranges_->front();
    head->setHeaderField("Content-Length", std::to_string(r.length));
    head->setHeaderField("Content-Range", rangeHead(r, contentLength));
  } else if (ranges_) {
    head = HTTPMessage::initResponseWithStatusCode(206, "", "HTTP/1.1");
    ranges_boundry_ = HTTPUtil::uuidString();
    std::uint64_t total = 0;
    for (const auto& r : *ranges_) {
      std::string part = "\r\n--" + ranges_boundry_ +
                         "\r\nContent-Range: " + rangeHead(r, contentLength) + "\r\n\r\n";
      total += part.size() + r.length;
      ranges_headers_.push_back(std::move(part));
    }
    std::string closing = "\r\n--" + ranges_boundry_ + "--\r\n";
    total += closing.size();
    head->setHeaderField("Content-Length", std::to_string(total));
    head->setHeaderField("Content-Type", "multipart/byteranges; boundary=" + ranges_boundry_);
  } else {
    head = HTTPMessage::initResponseWithStatusCode(httpResponse_->status(), "", "HTTP/1.1");
    if (chunkedResponse_) {
      head->setHeaderField("Transfer-Encoding", "chunked");
    } else {
      head->setHeaderField("Content-Length", std::to_string(contentLength));
    }
  }
  std::string headData = preprocessResponse(*head);
  sentResponseHeaders_ = true;
  if (isHeadRequest_ || (!chunkedResponse_ && contentLength == 0)) {
    asyncSocket_->writeData(std::move(headData), kWriteHeadTimeout, HTTP_RESPONSE);
    return;
  }
  // A plain file (or one range of it) goes from the file to the socket by the
  // kernel: no copies, and a slow reader holds no buffers.
  if (!chunkedResponse_ && (!ranges_ || ranges_->size() == 1)) {
    if (auto* file = dynamic_cast<HTTPFileResponse*>(httpResponse_.get())) {
      int fd = file->fileDescriptor();
      std::uint64_t from = ranges_ ? ranges_->front().location : 0;
      std::uint64_t length = ranges_ ? ranges_->front().length : contentLength;
      if (fd >= 0 && length > 0) {
        asyncSocket_->writeData(headData, kWriteHeadTimeout, HTTP_PARTIAL_RESPONSE);
        if (asyncSocket_->writeFile(fd, from, length, HTTP_RESPONSE, httpResponse_)) {
          file->setOffset(from);
          file->skip(length);
          return;
        }
        // Not this socket: the head is queued, the body goes the usual way.
        if (!ranges_) {
          continueSendingStandardResponseBody();
        } else {
          httpResponse_->setOffset(from);
          continueSendingSingleRangeResponseBody();
        }
        return;
      }
    }
  }
  if (!ranges_ && !chunkedResponse_) {
    // The head goes out with the first piece: one write, one packet for a
    // small reply.
    std::string data = httpResponse_->readDataOfLength(kPieceSize);
    if (data.empty()) {
      asyncSocket_->writeData(std::move(headData), kWriteHeadTimeout, HTTP_PARTIAL_RESPONSE);
      return;
    }
    bool done = httpResponse_->isDone();
    responseDataSizes_.push_back(data.size());
    headData += data;
    asyncSocket_->writeData(std::move(headData), -1,
                            done ? HTTP_RESPONSE : HTTP_PARTIAL_RESPONSE_BODY);
    return;
  }
  asyncSocket_->writeData(std::move(headData), kWriteHeadTimeout, HTTP_PARTIAL_RESPONSE);
  if (!ranges_) {
    continueSendingStandardResponseBody();
  } else if (ranges_->size() == 1) {
    httpResponse_->setOffset(ranges_->front().location);
    continueSendingSingleRangeResponseBody();
  } else {
    rangeIndex_ = 0;
    asyncSocket_->writeData(ranges_headers_[0], kWriteHeadTimeout, HTTP_PARTIAL_RESPONSE);
    httpResponse_->setOffset((*ranges_)[0].location);
    continueSendingMultiRangeResponseBody();
  }
}

std::uint64_t HTTPConnection::writeQueueSize() const {
  std::uint64_t sum = 0;
  for (auto s : responseDataSizes_) sum += s;
  return sum;
}

void HTTPConnection::writeBodyPiece(std::string data, long tag) {
  responseDataSizes_.push_back(data.size());
  asyncSocket_->writeData(std::move(data), -1, tag);
}

void HTTPConnection::writeChunk(std::string data, bool done) {
  char sizeLine[32];
  std::snprintf(sizeLine, sizeof sizeLine, "%zx\r\n", data.size());
  asyncSocket_->writeData(sizeLine, kWriteHeadTimeout, HTTP_CHUNKED_RESPONSE_HEADER);
  writeBodyPiece(std::move(data), HTTP_CHUNKED_RESPONSE_BODY);
  if (done) {
    asyncSocket_->writeData("\r\n0\r\n\r\n", kWriteHeadTimeout, HTTP_RESPONSE);
  } else {
    asyncSocket_->writeData("\r\n", kWriteHeadTimeout, HTTP_CHUNKED_RESPONSE_FOOTER);
  }
}

void HTTPConnection::continueSendingStandardResponseBody() {
  if (!httpResponse_) return;
  std::uint64_t backlog = writeQueueSize();
  if (backlog >= kWriteBacklog) return;
  std::string data = httpResponse_->readDataOfLength(kPieceSize - backlog);
  bool done = httpResponse_->isDone();
  if (chunkedResponse_) {
    if (data.empty()) {
      if (done) asyncSocket_->writeData("0\r\n\r\n", kWriteHeadTimeout, HTTP_RESPONSE);
      return;
    }
    writeChunk(std::move(data), done);
    return;
  }
  if (data.empty()) return;  // the response reports when it has more
  writeBodyPiece(std::move(data), done ? HTTP_RESPONSE : HTTP_PARTIAL_RESPONSE_BODY);
}

void HTTPConnection::continueSendingSingleRangeResponseBody() {
  if (!httpResponse_ || !ranges_) return;
  std::uint64_t backlog = writeQueueSize();
  if (backlog >= kWriteBacklog) return;
  const ByteRange& r = ranges_->front();
  std::uint64_t end = r.location + r.length;
  std::uint64_t offset = httpResponse_->offset();
  if (offset >= end) return;
  std::uint64_t want = std::min<std::uint64_t>(end - offset, kPieceSize - backlog);
  std::string data = httpResponse_->readDataOfLength(static_cast<std::size_t>(want));
  if (data.empty()) return;
  bool last = httpResponse_->offset() >= end;
  writeBodyPiece(std::move(data), last ? HTTP_RESPONSE : HTTP_PARTIAL_RANGE_RESPONSE_BODY);
}

void HTTPConnection::continueSendingMultiRangeResponseBody() {
  if (!httpResponse_ || !ranges_) return;
  std::uint64_t backlog = writeQueueSize();
  if (backlog >= kWriteBacklog) return;
  const ByteRange& r = (*ranges_)[rangeIndex_];
  std::uint64_t end = r.location + r.length;
  std::uint64_t offset = httpResponse_->offset();
  if (offset < end) {
    std::uint64_t want = std::min<std::uint64_t>(end - offset, kPieceSize - backlog);
    std::string data = httpResponse_->readDataOfLength(static_cast<std::size_t>(want));
    if (data.empty()) return;
    writeBodyPiece(std::move(data), HTTP_PARTIAL_RANGES_RESPONSE_BODY);
    return;
  }
  if (rangeIndex_ + 1 < ranges_->size()) {
    ++rangeIndex_;
    asyncSocket_->writeData(ranges_headers_[rangeIndex_], kWriteHeadTimeout, HTTP_PARTIAL_RESPONSE);
    httpResponse_->setOffset((*ranges_)[rangeIndex_].location);
    continueSendingMultiRangeResponseBody();
    return;
  }
  asyncSocket_->writeData("\r\n--" + ranges_boundry_ + "--\r\n", kWriteHeadTimeout, HTTP_RESPONSE);
}

void HTTPConnection::socketDidWriteData(long tag) {
  if (dead_) return;
  auto dropOldest = [this] {
    if (!responseDataSizes_.empty()) responseDataSizes_.pop_front();
  };
  switch (tag) {
    case HTTP_PARTIAL_RESPONSE_BODY:
      dropOldest();
      continueSendingStandardResponseBody();
      return;
    case HTTP_CHUNKED_RESPONSE_BODY:
      dropOldest();
      return;
    case HTTP_CHUNKED_RESPONSE_FOOTER:
      continueSendingStandardResponseBody();
      return;
    case HTTP_PARTIAL_RANGE_RESPONSE_BODY:
      dropOldest();
      continueSendingSingleRangeResponseBody();
      return;
    case HTTP_PARTIAL_RANGES_RESPONSE_BODY:
      dropOldest();
      continueSendingMultiRangeResponseBody();
      return;
    case HTTP_RESPONSE:
    case HTTP_FINAL_RESPONSE: {
      responseDataSizes_.clear();
      if (httpResponse_) httpResponse_->connectionDidClose();
      if (tag == HTTP_FINAL_RESPONSE) {
        finishResponse();
        asyncSocket_->disconnect();
        return;
      }
      bool die = shouldDie();
      finishResponse();
      if (die) {
        asyncSocket_->disconnectAfterWriting();
        return;
      }
      request_ = HTTPMessage::initEmptyRequest();
      numHeaderLines_ = 0;
      sentResponseHeaders_ = false;
      isHeadRequest_ = false;
      chunkedResponse_ = false;
      startReadingRequest();
      return;
    }
    default:
      return;
  }
}

void HTTPConnection::socketDidDisconnect() {
  die();
  std::lock_guard lock(socketMutex_);
  asyncSocket_.reset();
}

void HTTPConnection::responseHasAvailableData(HTTPResponse* sender) {
  auto weak = weak_from_this();
  auto socket = asyncSocket_;
  if (!socket) return;
  socket->post([weak, sender] {
    auto self = weak.lock();
    if (!self || self->dead_) return;
    if (self->httpResponse_.get() != sender) {
      HB_LOG("HTTPConnection", "data from a response that is not the current one");
      return;
    }
    if (!self->sentResponseHeaders_) {
      self->sendResponseHeadersAndBody();
    } else if (!self->ranges_) {
      self->continueSendingStandardResponseBody();
    } else if (self->ranges_->size() == 1) {
      self->continueSendingSingleRangeResponseBody();
    } else {
      self->continueSendingMultiRangeResponseBody();
    }
  });
}

void HTTPConnection::responseDidAbort(HTTPResponse* sender) {
  auto weak = weak_from_this();
  auto socket = asyncSocket_;
  if (!socket) return;
  socket->post([weak, sender] {
    auto self = weak.lock();
    if (!self || self->dead_ || self->httpResponse_.get() != sender) return;
    if (self->asyncSocket_) self->asyncSocket_->disconnectAfterWriting();
  });
}

// ---- Error replies ----------------------------------------------------------

void HTTPConnection::sendErrorResponse(int status, bool close) {
  auto response = HTTPMessage::initResponseWithStatusCode(status, "", "HTTP/1.1");
  response->setHeaderField("Content-Length", "0");
  if (status == 401) {
    if (useDigestAccessAuthentication()) {
      addDigestAuthChallenge(*response);
    } else {
      addBasicAuthChallenge(*response);
    }
  }
  if (close) response->setHeaderField("Connection", "close");
  std::string data = preprocessErrorResponse(*response);
  sentResponseHeaders_ = true;
  asyncSocket_->writeData(std::move(data), kWriteHeadTimeout,
                          close ? HTTP_FINAL_RESPONSE : HTTP_RESPONSE);
}

void HTTPConnection::handleVersionNotSupported() {
  sendErrorResponse(505, false);
}
void HTTPConnection::handleAuthenticationFailed() {
  sendErrorResponse(401, false);
}
void HTTPConnection::handleInvalidRequest() {
  sendErrorResponse(400, true);
}
void HTTPConnection::handleUnknownMethod() {
  sendErrorResponse(405, true);
}
void HTTPConnection::handleResourceNotFound() {
  sendErrorResponse(404, false);
}

void HTTPConnection::handleReadError() {
  asyncSocket_->disconnect();
}

}  // namespace harbor

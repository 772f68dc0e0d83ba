#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/http/AsyncSocket.h"
#include "net/http/HTTPAuthentication.h"
#include "net/http/HTTPMessage.h"
#include "net/http/HTTPResponse.h"
#include "net/http/HTTPUtil.h"

namespace harbor {

class HTTPServer;
class WebSocket;

// What every connection of one server shares.
struct HTTPConfig {
  HTTPServer* server = nullptr;  // unowned
  std::string documentRoot;      // standardised, ends with "/"
  std::shared_ptr<NonceRegistry> nonces;
};

// One accepted socket: reads a request, asks the subclass for a response,
// streams it, then reads the next request or closes.
class HTTPConnection : public AsyncSocketDelegate,
                       public std::enable_shared_from_this<HTTPConnection> {
 public:
  // Limits of what a client may send and how long it may take.
  static constexpr double kReadHeadTimeout = 30;
  static constexpr double kWriteHeadTimeout = 30;
  static constexpr std::size_t kMaxHeadLineLength = 8190;
  static constexpr unsigned kMaxHeadLines = 100;
  static constexpr std::size_t kMaxChunkLineLength = 200;
  static constexpr std::size_t kPieceSize = 262144;
  static constexpr std::size_t kWriteBacklog = 262144;

  // Read tags.
  enum : long {
    HTTP_REQUEST_HEADER = 10,
    HTTP_REQUEST_BODY = 11,
    HTTP_REQUEST_CHUNK_SIZE = 12,
    HTTP_REQUEST_CHUNK_DATA = 13,
    HTTP_REQUEST_CHUNK_TRAILER = 14,
    HTTP_REQUEST_CHUNK_FOOTER = 15,
  };
  // Write tags.
  enum : long {
    HTTP_CONTINUE = 20,
    HTTP_PARTIAL_RESPONSE = 21,
    HTTP_PARTIAL_RESPONSE_BODY = 22,
    HTTP_CHUNKED_RESPONSE_HEADER = 30,
    HTTP_CHUNKED_RESPONSE_BODY = 31,
    HTTP_CHUNKED_RESPONSE_FOOTER = 32,
    HTTP_PARTIAL_RANGE_RESPONSE_BODY = 40,
    HTTP_PARTIAL_RANGES_RESPONSE_BODY = 50,
    HTTP_RESPONSE = 90,
    HTTP_FINAL_RESPONSE = 91,
  };

  HTTPConnection(std::shared_ptr<AsyncSocket> socket, std::shared_ptr<const HTTPConfig> config);
  ~HTTPConnection() override;

  void start();
  void stop();
  // Called once when the connection has ended (the server drops it then).
  void setDieHandler(std::function<void(HTTPConnection*)> handler) {
    dieHandler_ = std::move(handler);
  }

  // ---- What subclasses shape ------------------------------------------------
  virtual bool supportsMethod(const std::string& method, const std::string& path);
  virtual bool expectsRequestBodyFromMethod(const std::string& method, const std::string& path);
  virtual bool isSecureServer() { return false; }
  virtual bool isPasswordProtected(const std::string& path);
  virtual bool useDigestAccessAuthentication() { return true; }
  virtual std::string realm() { return "harbor"; }
  virtual std::optional<std::string> passwordForUser(const std::string& username);
  virtual std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string& method,
                                                              const std::string& uri);
  // The web socket that takes over an upgrade request for `uri`; null: 404.
  virtual std::shared_ptr<WebSocket> webSocketForURI(const std::string& uri);
  // A status to refuse the request with once its head is read, before any
  // body is taken (0: go on).
  virtual int checkRequestHead() { return 0; }
  virtual void prepareForBodyWithSize(std::uint64_t contentLength);
  virtual void processBodyData(std::string_view data);
  virtual void finishBody();
  virtual std::vector<std::string> directoryIndexFileNames();
  virtual std::string preprocessResponse(HTTPMessage& response);
  virtual std::string preprocessErrorResponse(HTTPMessage& response);
  virtual void finishResponse();
  virtual bool shouldDie();
  virtual void die();

  // ---- Helpers for subclasses -----------------------------------------------
  // The file a request path names below the document root; nullopt when it
  // would leave the root or, without `allowDirectory`, names a folder with
  // no index file.
  std::optional<std::string> filePathForURI(const std::string& uri, bool allowDirectory);
  static std::optional<std::string> filePathForURI(const std::string& uri,
                                                   const std::string& documentRoot,
                                                   bool allowDirectory,
                                                   const std::vector<std::string>& indexNames);
  // The decoded path of a request target ("/a b" for "/a%20b?x"); nullopt
  // when it does not decode.
  static std::optional<std::string> decodedPathOfURI(std::string_view uri);
  static std::string_view queryOfURI(std::string_view uri);
  std::map<std::string, std::optional<std::string>> parseGetParams() const;
  bool isAuthenticated();
  const std::string& requestURI() const { return requestURI_; }
  HTTPMessage* request() const { return request_.get(); }
  const HTTPConfig& config() const { return *config_; }
  const std::shared_ptr<AsyncSocket>& asyncSocket() const { return asyncSocket_; }

  // From responses, on any thread.
  void responseHasAvailableData(HTTPResponse* sender);
  void responseDidAbort(HTTPResponse* sender);

  // AsyncSocketDelegate
  void socketDidReadData(std::string_view data, long tag) override;
  void socketDidWriteData(long tag) override;
  void socketDidDisconnect() override;

 protected:
  void replyToHTTPRequest();
  void sendResponseHeadersAndBody();
  void handleVersionNotSupported();
  void handleAuthenticationFailed();
  void handleInvalidRequest();
  void handleUnknownMethod();
  void handleResourceNotFound();
  // An empty reply with `status`; `close` ends the connection after it.
  void sendErrorResponse(int status, bool close);
  void addDigestAuthChallenge(HTTPMessage& response);
  void addBasicAuthChallenge(HTTPMessage& response);

  std::shared_ptr<AsyncSocket> asyncSocket_;
  // The socket is let go on its strand while the server's stop() may be
  // reading it from another thread.
  std::mutex socketMutex_;
  std::shared_ptr<const HTTPConfig> config_;
  std::unique_ptr<HTTPMessage> request_;
  std::shared_ptr<HTTPResponse> httpResponse_;
  bool isHeadRequest_ = false;

 private:
  void startReadingRequest();
  void onHeadLine(std::string_view line);
  void onHeadComplete();
  void startBody();
  void readNextBodyPiece();
  void readChunkSizeLine();
  void continueSendingStandardResponseBody();
  void continueSendingSingleRangeResponseBody();
  void continueSendingMultiRangeResponseBody();
  void writeBodyPiece(std::string data, long tag);
  void writeChunk(std::string data, bool done);
  std::uint64_t writeQueueSize() const;
  std::string rangeHead(const ByteRange& range, std::uint64_t total) const;
  void handleReadError();

  bool started_ = false;
  bool dead_ = false;
  unsigned numHeaderLines_ = 0;
  bool sentResponseHeaders_ = false;
  std::string requestURI_;
  std::string nonce_;
  std::uint64_t lastNC_ = 0;
  std::optional<std::vector<ByteRange>> ranges_;
  std::vector<std::string> ranges_headers_;
  std::string ranges_boundry_;
  std::size_t rangeIndex_ = 0;
  bool chunkedResponse_ = false;
  std::uint64_t requestContentLength_ = 0;
  std::uint64_t requestContentLengthReceived_ = 0;
  std::uint64_t requestChunkSize_ = 0;
  std::uint64_t requestChunkSizeReceived_ = 0;
  std::deque<std::size_t> responseDataSizes_;
  std::function<void(HTTPConnection*)> dieHandler_;
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "net/http/HTTPConnection.h"
#include "net/webdav/DAVResponse.h"

namespace harbor {

// A WebDAV class 1 and 2 view of the document root. With a Wi-Fi password
// set, every request needs Digest before any body is read.
class DAVConnection : public HTTPConnection {
 public:
  // Bodies up to this size stay in memory; larger ones go to a file.
  static constexpr std::uint64_t kMemoryBodyLimit = 256;
  // PROPFIND and LOCK bodies are read back whole; more than this is refused.
  static constexpr std::uint64_t kMaxXmlBodySize = 1 << 20;
  // Files above this size are served by the asynchronous file response.
  static constexpr std::uint64_t kSyncFileLimit = 16777216;

  // The request body: a temporary file's path or the bytes themselves.
  struct ContentBody {
    bool isFile = false;
    std::string value;
  };

  DAVConnection(std::shared_ptr<AsyncSocket> socket, std::shared_ptr<const HTTPConfig> config);
  ~DAVConnection() override;

  bool supportsMethod(const std::string& method, const std::string& path) override;
  bool expectsRequestBodyFromMethod(const std::string& method, const std::string& path) override;
  bool isPasswordProtected(const std::string& path) override;
  bool useDigestAccessAuthentication() override { return true; }
  std::optional<std::string> passwordForUser(const std::string& username) override;
  int checkRequestHead() override;
  std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string& method,
                                                      const std::string& uri) override;
  void prepareForBodyWithSize(std::uint64_t contentLength) override;
  void processBodyData(std::string_view data) override;
  void finishBody() override;
  void finishResponse() override;
  void die() override;

  // The file response for a readable file of `size` bytes.
  std::shared_ptr<HTTPResponse> fileResponseFor(const std::string& path, std::uint64_t size);

  // For tests: the body file of the request under way, if any.
  std::optional<std::string> bodyFilePath() const;

 private:
  void dropBody();
  std::optional<std::string> readBody();

  std::optional<ContentBody> requestContentBody;
  int requestContentStream = -1;  // open while a body goes to a file
  std::uint64_t bodyBytes_ = 0;
  bool bodyFailed_ = false;
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "net/http/HTTPResponse.h"

namespace harbor {

class HTTPConnection;

// The replacement itself, apart from files: feed pieces, get text out.
class SeparatorReplacer {
 public:
  SeparatorReplacer(std::string separator, const std::map<std::string, std::string>* values);
  // What can be given out after `piece`; the rest waits for more, unless
  // `atEnd`.
  std::string feed(std::string_view piece, bool atEnd);

 private:
  std::string separator_;
  const std::map<std::string, std::string>* values_;
  std::size_t longestKey_ = 0;
  std::string pending_;
};

// A file read off the connection's queue: a read asked for and not ready
// answers empty, the bytes are read on the "HTTPAsyncFileResponse" queue, and
// the connection is told when they are there. A slow disk then holds up only
// its own reply.
class HTTPAsyncFileResponse : public HTTPResponse,
                              public std::enable_shared_from_this<HTTPAsyncFileResponse> {
 public:
  // Null when the file's attributes cannot be read (the connection answers 404).
  static std::shared_ptr<HTTPAsyncFileResponse> create(const std::string& filePath,
                                                       std::weak_ptr<HTTPConnection> connection);
  ~HTTPAsyncFileResponse() override;

  std::uint64_t contentLength() override { return fileLength_; }
  std::uint64_t offset() override;
  void setOffset(std::uint64_t offset) override;
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() override;
  void connectionDidClose() override;
  std::map<std::string, std::string> httpHeaders() override { return headers_; }
  void setHeaders(std::map<std::string, std::string> headers) { headers_ = std::move(headers); }

  bool isAsynchronous() const { return true; }
  const std::string& filePath() const { return filePath_; }

 protected:
  HTTPAsyncFileResponse() = default;
  bool init(const std::string& filePath, std::weak_ptr<HTTPConnection> connection);
  // Turns the bytes just read into what goes out; `atEnd` when the file has
  // no more. Runs on the read queue.
  virtual std::string processReadBuffer(std::string raw, bool atEnd) {
    (void)atEnd;
    return raw;
  }
  std::uint64_t fileLength_ = 0;
  mutable std::mutex mutex_;
  std::uint64_t fileOffset_ = 0;  // bytes handed out
  std::uint64_t readOffset_ = 0;  // bytes read from the file
  std::string data_;              // read, not yet handed out

 private:
  bool openFileIfNeeded();  // under mutex_
  void startRead(std::size_t length);
  void doRead(std::uint64_t generation, std::uint64_t from, std::size_t length);
  void abort();

  std::weak_ptr<HTTPConnection> connection_;
  std::string filePath_;
  std::map<std::string, std::string> headers_;
  int fileFD_ = -1;
  bool aborted_ = false;
  bool reading_ = false;
  // Moves on with every seek, so a read started before it is dropped.
  std::uint64_t generation_ = 0;
};

// A text file with "<separator>key<separator>" replaced by the key's value,
// sent chunked as its length is not known ahead.
class HTTPDynamicFileResponse : public HTTPAsyncFileResponse {
 public:
  static std::shared_ptr<HTTPDynamicFileResponse> create(
      const std::string& filePath, std::weak_ptr<HTTPConnection> connection, std::string separator,
      std::map<std::string, std::string> replacementDict);

  std::uint64_t contentLength() override { return 0; }
  bool isChunked() override { return true; }
  void setOffset(std::uint64_t) override {}

 protected:
  std::string processReadBuffer(std::string raw, bool atEnd) override;

 private:
  HTTPDynamicFileResponse() = default;
  std::map<std::string, std::string> replacementDict_;
  std::unique_ptr<SeparatorReplacer> replacer_;
};

}  // namespace harbor

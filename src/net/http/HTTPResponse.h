#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace harbor {

class HTTPConnection;

// What a connection streams to the client. The optional members of the
// protocol have defaults here that mean "not offered".
class HTTPResponse {
 public:
  virtual ~HTTPResponse() = default;

  virtual std::uint64_t contentLength() = 0;
  virtual std::uint64_t offset() = 0;
  virtual void setOffset(std::uint64_t offset) = 0;
  // Up to `length` bytes; empty when nothing is ready yet (or at the end).
  virtual std::string readDataOfLength(std::size_t length) = 0;
  virtual bool isDone() = 0;

  virtual bool delayResponseHeaders() { return false; }
  virtual int status() { return 200; }
  virtual std::map<std::string, std::string> httpHeaders() { return {}; }
  virtual bool isChunked() { return false; }
  virtual void connectionDidClose() {}
};

// A byte buffer served from memory.
class HTTPDataResponse : public HTTPResponse {
 public:
  explicit HTTPDataResponse(std::string data) : data_(std::move(data)) {}
  std::uint64_t contentLength() override { return data_.size(); }
  std::uint64_t offset() override { return offset_; }
  void setOffset(std::uint64_t offset) override;
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() override { return offset_ == data_.size(); }
  const std::string& data() const { return data_; }

 protected:
  std::uint64_t offset_ = 0;
  std::string data_;
};

// A file read with blocking reads at the connection's pace.
class HTTPFileResponse : public HTTPResponse {
 public:
  // Null when the file's attributes cannot be read (the connection answers 404).
  static std::shared_ptr<HTTPFileResponse> create(const std::string& filePath,
                                                  std::weak_ptr<HTTPConnection> connection);
  ~HTTPFileResponse() override;

  std::uint64_t contentLength() override { return fileLength_; }
  std::uint64_t offset() override { return fileOffset_; }
  void setOffset(std::uint64_t offset) override;
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() override { return fileOffset_ == fileLength_; }
  const std::string& filePath() const { return filePath_; }
  std::map<std::string, std::string> httpHeaders() override { return headers_; }
  // For sending straight from the file: its descriptor (-1 when it cannot be
  // opened), after which the caller accounts the bytes with `skip`.
  int fileDescriptor();
  void skip(std::uint64_t length);
  void setHeaders(std::map<std::string, std::string> headers) { headers_ = std::move(headers); }

 protected:
  HTTPFileResponse() = default;
  bool openFileIfNeeded();
  void abort();

  std::weak_ptr<HTTPConnection> connection_;
  std::string filePath_;
  std::uint64_t fileLength_ = 0;
  std::uint64_t fileOffset_ = 0;
  bool aborted_ = false;
  int fileFD_ = -1;
  std::map<std::string, std::string> headers_;
};

// An empty body with a status.
class HTTPErrorResponse : public HTTPResponse {
 public:
  explicit HTTPErrorResponse(int status) : _status(status) {}
  std::uint64_t contentLength() override { return 0; }
  std::uint64_t offset() override { return 0; }
  void setOffset(std::uint64_t) override {}
  std::string readDataOfLength(std::size_t) override { return {}; }
  bool isDone() override { return true; }
  int status() override { return _status; }

 private:
  int _status;
};

class HTTPRedirectResponse : public HTTPErrorResponse {
 public:
  explicit HTTPRedirectResponse(std::string path)
      : HTTPErrorResponse(302), redirectPath_(std::move(path)) {}
  std::map<std::string, std::string> httpHeaders() override {
    return {{"Location", redirectPath_}};
  }

 private:
  std::string redirectPath_;
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/http/HTTPMessage.h"
#include "net/http/HTTPResponse.h"

namespace harbor {

// Request headers for the DAV responses, looked up by lower-case name.
class DAVHeaders {
 public:
  DAVHeaders() = default;
  explicit DAVHeaders(const HTTPMessage::Fields& fields);
  void set(std::string_view name, std::string value);
  std::optional<std::string> get(std::string_view name) const;

 private:
  std::map<std::string, std::string> fields_;
};

// The WebDAV methods that answer from the file system alone: OPTIONS,
// PROPFIND, MKCOL, MOVE, COPY, LOCK and UNLOCK. Nothing is stored between
// requests; locks are granted without being recorded.
class DAVResponse : public HTTPResponse {
 public:
  std::uint64_t contentLength() override { return _data ? _data->size() : 0; }
  std::uint64_t offset() override { return _offset; }
  void setOffset(std::uint64_t offset) override;
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() override { return !_data || _offset >= _data->size(); }
  int status() override { return _status; }
  std::map<std::string, std::string> httpHeaders() override { return _headers; }

  const std::optional<std::string>& data() const { return _data; }

  // Folder locks of the file manager, asked about resource paths; unset
  // means nothing is locked.
  struct Guards {
    std::function<bool(const std::string& relative)> hidden;       // 404
    std::function<bool(const std::string& relative)> holdsLocked;  // 403 for tree changes
  };
  // Null when the request names nothing usable (the connection answers 404).
  // `resourcePath` is below the root without a leading "/", "" for the root;
  // `rootPath` is the real document root.
  static std::shared_ptr<DAVResponse> initWithMethod(
      const std::string& method, const DAVHeaders& headers, std::string_view bodyData,
      const std::string& resourcePath, const std::string& rootPath, const Guards& guards = {});

 private:
  DAVResponse() = default;
  bool options(const DAVHeaders& headers);
  bool propfind(const DAVHeaders& headers, std::string_view body, const std::string& resource,
                const std::string& root);
  bool mkcol(const std::string& resource, const std::string& root);
  bool moveOrCopy(bool isMove, const DAVHeaders& headers, const std::string& resource,
                  const std::string& root, const Guards& guards);
  bool lock(const DAVHeaders& headers, std::string_view body, const std::string& resource,
            const std::string& root);
  bool unlock(const DAVHeaders& headers, const std::string& resource, const std::string& root);

  std::uint64_t _offset = 0;
  std::map<std::string, std::string> _headers;
  std::optional<std::string> _data;
  int _status = 200;
};

// Appends the multistatus entry of `name` in the folder open as `dirFD` (or
// a path with AT_FDCWD) for `mask` properties; false when it cannot be read.
bool appendDavResponseEntry(std::string& out, const std::string& href, int dirFD, const char* name,
                            unsigned mask);

}  // namespace harbor

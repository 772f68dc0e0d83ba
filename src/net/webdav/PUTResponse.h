#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "net/http/HTTPResponse.h"
#include "net/webdav/DAVResponse.h"

namespace harbor {

// A PUT done in the initialiser: 200 replaced, 201 new, 400 for a partial
// body ("Content-Range"), 403 when it cannot be written. A folder is never
// replaced.
class PUTResponse : public HTTPResponse {
 public:
  // The body waits in `bodyFile`, which is moved into place.
  static std::shared_ptr<PUTResponse> initWithFilePath(const std::string& path,
                                                       const DAVHeaders& headers,
                                                       const std::string& bodyFile);
  // The body is in memory.
  static std::shared_ptr<PUTResponse> initWithFilePathData(const std::string& path,
                                                           const DAVHeaders& headers,
                                                           std::string_view bodyData);

  std::uint64_t contentLength() override { return 0; }
  std::uint64_t offset() override { return 0; }
  void setOffset(std::uint64_t) override {}
  std::string readDataOfLength(std::size_t) override { return {}; }
  bool isDone() override { return true; }
  int status() override { return _status; }

 private:
  explicit PUTResponse(int status) : _status(status) {}
  int _status;
};

}  // namespace harbor

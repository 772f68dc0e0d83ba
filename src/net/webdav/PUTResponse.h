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
class PUTResponse : public HTTPErrorResponse {
 public:
  // The body waits in `bodyFile`, which is moved into place.
  static std::shared_ptr<PUTResponse> initWithFilePath(const std::string& path,
                                                       const DAVHeaders& headers,
                                                       const std::string& bodyFile);
  // The body is in memory.
  static std::shared_ptr<PUTResponse> initWithFilePathData(const std::string& path,
                                                           const DAVHeaders& headers,
                                                           std::string_view bodyData);

 private:
  explicit PUTResponse(int status) : HTTPErrorResponse(status) {}
};

}  // namespace harbor

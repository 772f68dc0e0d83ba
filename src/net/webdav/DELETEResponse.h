#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "net/http/HTTPResponse.h"

namespace harbor {

// A DELETE done in the initialiser: 200, 204 when nothing was there, 404 when
// it cannot be removed.
class DELETEResponse : public HTTPErrorResponse {
 public:
  static std::shared_ptr<DELETEResponse> initWithFilePath(const std::string& path);

 private:
  explicit DELETEResponse(int status) : HTTPErrorResponse(status) {}
};

}  // namespace harbor

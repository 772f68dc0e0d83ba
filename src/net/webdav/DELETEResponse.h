#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "net/http/HTTPResponse.h"

namespace harbor {

// A DELETE done in the initialiser: 200, 204 when nothing was there, 404 when
// it cannot be removed.
class DELETEResponse : public HTTPResponse {
 public:
  static std::shared_ptr<DELETEResponse> initWithFilePath(const std::string& path);

  std::uint64_t contentLength() override { return 0; }
  std::uint64_t offset() override { return 0; }
  void setOffset(std::uint64_t) override {}
  std::string readDataOfLength(std::size_t) override { return {}; }
  bool isDone() override { return true; }
  int status() override { return _status; }

 private:
  explicit DELETEResponse(int status) : _status(status) {}
  int _status;
};

}  // namespace harbor

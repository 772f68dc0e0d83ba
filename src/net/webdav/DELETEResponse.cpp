#include "net/webdav/DELETEResponse.h"

#include <sys/stat.h>

#include <filesystem>

#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;

std::shared_ptr<DELETEResponse> DELETEResponse::initWithFilePath(const std::string& path) {
  struct stat st;
  bool existed = ::lstat(path.c_str(), &st) == 0;
  std::error_code ec;
  fs::remove_all(path, ec);  // a link goes, not what it points to
  if (ec) {
    HB_LOG("DELETEResponse", "cannot remove " + path + ": " + ec.message());
    return std::shared_ptr<DELETEResponse>(new DELETEResponse(404));
  }
  return std::shared_ptr<DELETEResponse>(new DELETEResponse(existed ? 200 : 204));
}

}  // namespace harbor

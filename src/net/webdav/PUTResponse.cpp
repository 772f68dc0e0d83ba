#include "net/webdav/PUTResponse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "archive/SafeExtraction.h"
#include "net/webdav/DAVPaths.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

// 0: nothing there; 1: a file or link; 2: a folder.
int kindOf(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return 0;
  return S_ISDIR(st.st_mode) ? 2 : 1;
}

std::optional<int> refusal(const std::string& path, const DAVHeaders& headers) {
  if (headers.get("content-range")) {
    // A partial body would leave a file that is neither old nor new.
    HB_LOG("PUTResponse", "Content-Range is not supported: " + path);
    return 400;
  }
  if (kindOf(path) == 2) {
    HB_LOG("PUTResponse", "a folder is not replaced by a file: " + path);
    return 403;
  }
  return std::nullopt;
}

bool moveAcross(const std::string& from, const std::string& to) {
  // Another file system: copy beside the target, then rename into place.
  std::string temporary = extraction::temporaryBeside(to);
  std::error_code ec;
  fs::copy_file(from, temporary, fs::copy_options::overwrite_existing, ec);
  if (ec || ::rename(temporary.c_str(), to.c_str()) != 0) {
    fs::remove(temporary, ec);
    return false;
  }
  fs::remove(from, ec);
  return true;
}

}  // namespace

std::shared_ptr<PUTResponse> PUTResponse::initWithFilePath(const std::string& path,
                                                           const DAVHeaders& headers,
                                                           const std::string& bodyFile) {
  if (auto status = refusal(path, headers))
    return std::shared_ptr<PUTResponse>(new PUTResponse(*status));
  bool existed = kindOf(path) != 0;
  // rename(2) replaces the old file in one step: a reader sees old or new.
  bool ok = ::rename(bodyFile.c_str(), path.c_str()) == 0;
  if (!ok && errno == EXDEV) ok = moveAcross(bodyFile, path);
  if (!ok) {
    HB_LOG("PUTResponse", "cannot write " + path);
    return std::shared_ptr<PUTResponse>(new PUTResponse(403));
  }
  return std::shared_ptr<PUTResponse>(new PUTResponse(existed ? 200 : 201));
}

std::shared_ptr<PUTResponse> PUTResponse::initWithFilePathData(const std::string& path,
                                                               const DAVHeaders& headers,
                                                               std::string_view bodyData) {
  if (auto status = refusal(path, headers))
    return std::shared_ptr<PUTResponse>(new PUTResponse(*status));
  bool existed = kindOf(path) != 0;
  if (!davpath::writeFileAtomically(path, bodyData)) {
    HB_LOG("PUTResponse", "cannot write " + path);
    return std::shared_ptr<PUTResponse>(new PUTResponse(403));
  }
  return std::shared_ptr<PUTResponse>(new PUTResponse(existed ? 200 : 201));
}

}  // namespace harbor

#include "net/http/HTTPResponse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "net/http/HTTPConnection.h"
#include "platform/Log.h"

namespace harbor {

void HTTPDataResponse::setOffset(std::uint64_t offset) {
  offset_ = std::min<std::uint64_t>(offset, data_.size());
}

std::string HTTPDataResponse::readDataOfLength(std::size_t length) {
  std::size_t n = std::min<std::uint64_t>(length, data_.size() - offset_);
  std::string out = data_.substr(offset_, n);
  offset_ += n;
  return out;
}

std::shared_ptr<HTTPFileResponse> HTTPFileResponse::create(
    const std::string& filePath, std::weak_ptr<HTTPConnection> connection) {
  if (filePath.empty()) return nullptr;
  std::error_code ec;
  std::string resolved = std::filesystem::canonical(filePath, ec).string();
  if (ec) return nullptr;
  struct stat st {};
  if (::stat(resolved.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
  auto r = std::shared_ptr<HTTPFileResponse>(new HTTPFileResponse());
  r->connection_ = std::move(connection);
  r->filePath_ = resolved;
  r->fileLength_ = static_cast<std::uint64_t>(st.st_size);
  return r;
}

HTTPFileResponse::~HTTPFileResponse() {
  if (fileFD_ >= 0) ::close(fileFD_);
}

bool HTTPFileResponse::openFileIfNeeded() {
  if (aborted_) return false;
  if (fileFD_ >= 0) return true;
  fileFD_ = ::open(filePath_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fileFD_ < 0) {
    HB_LOG("HTTPFileResponse", "cannot open " + filePath_ + ": " + std::strerror(errno));
    abort();
    return false;
  }
  return true;
}

void HTTPFileResponse::abort() {
  if (aborted_) return;
  aborted_ = true;
  if (auto c = connection_.lock()) c->responseDidAbort(this);
}

int HTTPFileResponse::fileDescriptor() {
  return openFileIfNeeded() ? fileFD_ : -1;
}

void HTTPFileResponse::skip(std::uint64_t length) {
  fileOffset_ = std::min(fileLength_, fileOffset_ + length);
}

void HTTPFileResponse::setOffset(std::uint64_t offset) {
  if (!openFileIfNeeded()) return;
  fileOffset_ = std::min(offset, fileLength_);
}

std::string HTTPFileResponse::readDataOfLength(std::size_t length) {
  if (!openFileIfNeeded()) return {};
  std::uint64_t remaining = fileLength_ - fileOffset_;
  std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(length, remaining));
  if (n == 0) return {};
  std::string buffer(n, '\0');
  std::size_t got = 0;
  while (got < n) {
    ssize_t r =
        ::pread(fileFD_, buffer.data() + got, n - got, static_cast<off_t>(fileOffset_ + got));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      // A file that shrank or failed under us: the reply ends short.
      HB_LOG("HTTPFileResponse", "read failed on " + filePath_);
      abort();
      buffer.resize(got);
      fileOffset_ += got;
      return buffer;
    }
    got += static_cast<std::size_t>(r);
  }
  fileOffset_ += n;
  return buffer;
}

}  // namespace harbor

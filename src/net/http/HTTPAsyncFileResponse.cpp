#include "net/http/HTTPAsyncFileResponse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "net/http/HTTPConnection.h"
#include "platform/Log.h"

namespace harbor {
namespace {

// Reads of every async response; each has at most one read in flight.
asio::thread_pool& readQueue() {
  static asio::thread_pool queue(2);
  return queue;
}

}  // namespace

// ---- SeparatorReplacer ------------------------------------------------------

SeparatorReplacer::SeparatorReplacer(std::string separator,
                                     const std::map<std::string, std::string>* values)
    : separator_(std::move(separator)), values_(values) {
  for (const auto& [key, value] : *values_) longestKey_ = std::max(longestKey_, key.size());
}

std::string SeparatorReplacer::feed(std::string_view piece, bool atEnd) {
  pending_.append(piece);
  std::string out;
  if (separator_.empty()) {
    out.swap(pending_);
    return out;
  }
  const std::size_t sep = separator_.size();
  std::size_t i = 0;
  while (true) {
    std::size_t p = pending_.find(separator_, i);
    if (p == std::string::npos) {
      // Keep a tail that may be the start of a separator.
      std::size_t keep = atEnd ? 0 : std::min(sep - 1, pending_.size() - i);
      out.append(pending_, i, pending_.size() - i - keep);
      i = pending_.size() - keep;
      break;
    }
    std::size_t q = pending_.find(separator_, p + sep);
    if (q == std::string::npos) {
      // No closing separator yet: wait while a key could still fit.
      if (!atEnd && pending_.size() - p < 2 * sep + longestKey_) {
        out.append(pending_, i, p - i);
        i = p;
        break;
      }
      out.append(pending_, i, p + sep - i);
      i = p + sep;
      continue;
    }
    auto it = values_->find(pending_.substr(p + sep, q - p - sep));
    if (it != values_->end()) {
      out.append(pending_, i, p - i);
      out += it->second;
      i = q + sep;
    } else {
      // The closing separator may open the next key.
      out.append(pending_, i, q - i);
      i = q;
    }
  }
  pending_.erase(0, i);
  return out;
}

// ---- HTTPAsyncFileResponse --------------------------------------------------

std::shared_ptr<HTTPAsyncFileResponse> HTTPAsyncFileResponse::create(
    const std::string& filePath, std::weak_ptr<HTTPConnection> connection) {
  auto r = std::shared_ptr<HTTPAsyncFileResponse>(new HTTPAsyncFileResponse());
  if (!r->init(filePath, std::move(connection))) return nullptr;
  return r;
}

bool HTTPAsyncFileResponse::init(const std::string& filePath,
                                 std::weak_ptr<HTTPConnection> connection) {
  if (filePath.empty()) return false;
  std::error_code ec;
  std::string resolved = std::filesystem::canonical(filePath, ec).string();
  if (ec) return false;
  struct stat st {};
  if (::stat(resolved.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  connection_ = std::move(connection);
  filePath_ = resolved;
  fileLength_ = static_cast<std::uint64_t>(st.st_size);
  return true;
}

HTTPAsyncFileResponse::~HTTPAsyncFileResponse() {
  if (fileFD_ >= 0) ::close(fileFD_);
}

bool HTTPAsyncFileResponse::openFileIfNeeded() {
  if (aborted_) return false;
  if (fileFD_ >= 0) return true;
  fileFD_ = ::open(filePath_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fileFD_ < 0) {
    HB_LOG("HTTPAsyncFileResponse", "cannot open " + filePath_ + ": " + std::strerror(errno));
    return false;
  }
  return true;
}

std::uint64_t HTTPAsyncFileResponse::offset() {
  std::lock_guard lock(mutex_);
  return fileOffset_;
}

void HTTPAsyncFileResponse::setOffset(std::uint64_t offset) {
  std::lock_guard lock(mutex_);
  fileOffset_ = readOffset_ = std::min(offset, fileLength_);
  data_.clear();
  reading_ = false;
  ++generation_;
}

bool HTTPAsyncFileResponse::isDone() {
  std::lock_guard lock(mutex_);
  return data_.empty() && readOffset_ == fileLength_ && !reading_;
}

std::string HTTPAsyncFileResponse::readDataOfLength(std::size_t length) {
  std::unique_lock lock(mutex_);
  if (length == 0 || aborted_) return {};
  if (!data_.empty()) {
    std::string out;
    if (data_.size() <= length) {
      out.swap(data_);
    } else {
      out = data_.substr(0, length);
      data_.erase(0, length);
    }
    fileOffset_ += out.size();
    return out;
  }
  if (reading_ || readOffset_ == fileLength_) return {};
  bool failed = !openFileIfNeeded();
  if (!failed) {
    reading_ = true;
    std::uint64_t generation = generation_;
    std::uint64_t from = readOffset_;
    std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(length, fileLength_ - from));
    lock.unlock();
    auto self = shared_from_this();
    asio::post(readQueue(), [self, generation, from, n] { self->doRead(generation, from, n); });
    return {};
  }
  lock.unlock();
  abort();
  return {};
}

void HTTPAsyncFileResponse::doRead(std::uint64_t generation, std::uint64_t from,
                                   std::size_t length) {
  int fd;
  {
    std::lock_guard lock(mutex_);
    if (generation != generation_ || aborted_) return;
    fd = fileFD_;
  }
  std::string buffer(length, '\0');
  std::size_t got = 0;
  bool failed = false;
  while (got < length) {
    ssize_t r = ::pread(fd, buffer.data() + got, length - got, static_cast<off_t>(from + got));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      failed = true;
      break;
    }
    got += static_cast<std::size_t>(r);
  }
  if (failed) {
    // A file that shrank or failed under us: the reply ends short.
    HB_LOG("HTTPAsyncFileResponse", "read failed on " + filePath_);
    abort();
    return;
  }
  bool atEnd = from + length == fileLength_;
  std::string out = processReadBuffer(std::move(buffer), atEnd);
  bool more = false;
  {
    std::lock_guard lock(mutex_);
    if (generation != generation_) return;
    readOffset_ = from + length;
    data_ += out;
    reading_ = false;
    // Nothing to give out yet (held back by a subclass): read on by itself,
    // as the connection will not ask again until told.
    more = data_.empty() && !atEnd;
    if (more) {
      reading_ = true;
      length = static_cast<std::size_t>(std::min<std::uint64_t>(length, fileLength_ - readOffset_));
      from = readOffset_;
    }
  }
  if (more) {
    doRead(generation, from, length);
    return;
  }
  if (auto c = connection_.lock()) c->responseHasAvailableData(this);
}

void HTTPAsyncFileResponse::abort() {
  {
    std::lock_guard lock(mutex_);
    if (aborted_) return;
    aborted_ = true;
    reading_ = false;
  }
  if (auto c = connection_.lock()) c->responseDidAbort(this);
}

void HTTPAsyncFileResponse::connectionDidClose() {
  std::lock_guard lock(mutex_);
  connection_.reset();
  ++generation_;  // a read in flight is dropped
  reading_ = false;
}

// ---- HTTPDynamicFileResponse ------------------------------------------------

std::shared_ptr<HTTPDynamicFileResponse> HTTPDynamicFileResponse::create(
    const std::string& filePath, std::weak_ptr<HTTPConnection> connection, std::string separator,
    std::map<std::string, std::string> replacementDict) {
  auto r = std::shared_ptr<HTTPDynamicFileResponse>(new HTTPDynamicFileResponse());
  if (!r->init(filePath, std::move(connection))) return nullptr;
  r->replacementDict_ = std::move(replacementDict);
  r->replacer_ = std::make_unique<SeparatorReplacer>(std::move(separator), &r->replacementDict_);
  return r;
}

std::string HTTPDynamicFileResponse::processReadBuffer(std::string raw, bool atEnd) {
  return replacer_->feed(raw, atEnd);
}

}  // namespace harbor

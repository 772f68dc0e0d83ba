#include "net/http/AsyncSocket.h"

#include <sys/sendfile.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace harbor {
namespace {
// Reads from the kernel go in pieces of this size; a request for more
// gathers several.
constexpr std::size_t kReceiveSize = 256 * 1024;
}  // namespace

AsioSocket::AsioSocket(asio::ip::tcp::socket socket, Strand strand)
    : socket_(std::move(socket)), strand_(strand), readTimer_(strand_), writeTimer_(strand_) {
  std::error_code ec;
  auto ep = socket_.remote_endpoint(ec);
  if (!ec) host_ = ep.address().to_string();
  socket_.set_option(asio::ip::tcp::no_delay(true), ec);
}

AsioSocket::~AsioSocket() {
  std::error_code ec;
  socket_.close(ec);
}

void AsioSocket::post(std::function<void()> work) {
  asio::post(strand_, std::move(work));
}

void AsioSocket::armTimer(asio::steady_timer& timer, double timeout) {
  timer.cancel();
  if (timeout < 0) return;
  timer.expires_after(std::chrono::milliseconds(static_cast<long long>(timeout * 1000)));
  auto self = weak_from_this();
  timer.async_wait([self](std::error_code ec) {
    if (ec) return;
    if (auto s = self.lock()) s->closeNow();
  });
}

void AsioSocket::readDataToData(std::string terminator, double timeout, std::size_t maxLength,
                                long tag) {
  Read r;
  r.toData = true;
  r.terminator = std::move(terminator);
  r.length = maxLength;
  r.timeout = timeout;
  r.tag = tag;
  startRead(std::move(r));
}

void AsioSocket::readDataToLength(std::size_t length, double timeout, long tag) {
  Read r;
  r.length = length;
  r.timeout = timeout;
  r.tag = tag;
  startRead(std::move(r));
}

void AsioSocket::startRead(Read read) {
  if (closed_) return;
  read_ = std::move(read);
  reading_ = true;
  searched_ = 0;
  armTimer(readTimer_, read_.timeout);
  // Asked from inside a delivery: the delivering loop serves it next, so
  // buffered lines go out one after another without a trip through the
  // executor and without recursion.
  if (delivering_) return;
  // Otherwise completing from what is buffered still goes through the
  // executor, so a delegate never sees a callback inside its own call.
  auto self = shared_from_this();
  asio::post(strand_, [self] { self->continueRead(); });
}

void AsioSocket::ensureSpace(std::size_t n) {
  if (cap_ - end_ >= n) return;
  if (begin_ > 0) {
    std::memmove(buf_.get(), buf_.get() + begin_, buffered());
    end_ -= begin_;
    begin_ = 0;
    if (cap_ - end_ >= n) return;
  }
  std::size_t cap = std::max(cap_ * 2, end_ + n);
  std::unique_ptr<char[]> grown(new char[cap]);
  if (end_) std::memcpy(grown.get(), buf_.get(), end_);
  buf_ = std::move(grown);
  cap_ = cap;
}

bool AsioSocket::tryCompleteRead() {
  std::string_view view(buf_.get() + begin_, buffered());
  std::size_t take = 0;
  if (read_.toData) {
    std::size_t from =
        searched_ >= read_.terminator.size() ? searched_ - read_.terminator.size() + 1 : 0;
    std::size_t pos = view.find(read_.terminator, from);
    if (pos == std::string_view::npos) {
      searched_ = view.size();
      if (view.size() >= read_.length) {
        closeNow();  // a line longer than allowed
        return true;
      }
      return false;
    }
    take = pos + read_.terminator.size();
    if (take > read_.length) {
      closeNow();
      return true;
    }
  } else {
    if (view.size() < read_.length) return false;
    take = read_.length;
  }
  reading_ = false;
  readTimer_.cancel();
  delivering_ = true;
  if (auto d = delegate_.lock()) d->socketDidReadData(view.substr(0, take), read_.tag);
  delivering_ = false;
  begin_ += take;
  if (begin_ == end_) {
    begin_ = end_ = 0;
    // A body's big buffer is not kept for an idle connection.
    if (cap_ > 64 * 1024) {
      buf_.reset();
      cap_ = 0;
    }
  }
  return true;
}

void AsioSocket::continueRead() {
  if (closed_ || !reading_ || receiving_) return;
  while (tryCompleteRead()) {
    if (closed_ || !reading_) return;  // no further read was asked for
  }
  std::size_t want;
  if (!read_.toData) {
    want = std::max<std::size_t>(std::min(kReceiveSize, read_.length - buffered()), 1);
  } else {
    want = std::min<std::size_t>(8192, read_.length + 1 - std::min(read_.length, buffered()));
  }
  ensureSpace(want);
  receiving_ = true;
  auto self = shared_from_this();
  socket_.async_read_some(asio::buffer(buf_.get() + end_, want),
                          asio::bind_executor(strand_, [self](std::error_code ec, std::size_t n) {
                            self->receiving_ = false;
                            self->end_ += n;
                            if (ec) {
                              self->closeNow();
                              return;
                            }
                            self->continueRead();
                          }));
}

void AsioSocket::writeData(std::string data, double timeout, long tag) {
  if (closed_) return;
  Write w;
  w.data = std::move(data);
  w.timeout = timeout;
  w.tag = tag;
  writes_.push_back(std::move(w));
  if (!writing_) startNextWrite();
}

void AsioSocket::startNextWrite() {
  if (closed_) return;
  if (writes_.empty()) {
    writing_ = false;
    if (closeAfterWriting_) closeNow();
    return;
  }
  writing_ = true;
  if (writes_.front().fd >= 0) {
    continueFileWrite();
    return;
  }
  armTimer(writeTimer_, writes_.front().timeout);
  auto self = shared_from_this();
  asio::async_write(socket_, asio::buffer(writes_.front().data),
                    asio::bind_executor(strand_, [self](std::error_code ec, std::size_t) {
                      self->writeTimer_.cancel();
                      if (ec || self->closed_) {
                        self->closeNow();
                        return;
                      }
                      self->finishWrite();
                    }));
}

void AsioSocket::finishWrite() {
  long tag = writes_.front().tag;
  writes_.pop_front();
  if (auto d = delegate_.lock()) d->socketDidWriteData(tag);
  startNextWrite();
}

bool AsioSocket::writeFile(int fd, std::uint64_t offset, std::uint64_t length, long tag,
                           std::shared_ptr<void> keep) {
  if (closed_) return true;
  Write w;
  w.timeout = -1;
  w.tag = tag;
  w.fd = fd;
  w.offset = offset;
  w.length = length;
  w.keep = std::move(keep);
  writes_.push_back(std::move(w));
  if (!writing_) startNextWrite();
  return true;
}

void AsioSocket::continueFileWrite() {
  if (closed_) return;
  Write& w = writes_.front();
  if (!socket_.native_non_blocking()) {
    std::error_code ec;
    socket_.native_non_blocking(true, ec);
  }
  while (w.length > 0) {
    off_t off = static_cast<off_t>(w.offset);
    std::size_t chunk = static_cast<std::size_t>(std::min<std::uint64_t>(w.length, 1 << 30));
    ssize_t n = ::sendfile(socket_.native_handle(), w.fd, &off, chunk);
    if (n > 0) {
      w.offset += static_cast<std::uint64_t>(n);
      w.length -= static_cast<std::uint64_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      auto self = shared_from_this();
      socket_.async_wait(asio::ip::tcp::socket::wait_write,
                         asio::bind_executor(strand_, [self](std::error_code ec) {
                           if (ec || self->closed_) {
                             self->closeNow();
                             return;
                           }
                           self->continueFileWrite();
                         }));
      return;
    }
    // The file ended early or the peer went: the reply stays short.
    closeNow();
    return;
  }
  finishWrite();
}

void AsioSocket::disconnect() {
  auto self = shared_from_this();
  asio::post(strand_, [self] { self->closeNow(); });
}

void AsioSocket::disconnectAfterWriting() {
  auto self = shared_from_this();
  asio::post(strand_, [self] {
    self->closeAfterWriting_ = true;
    if (!self->writing_) self->closeNow();
  });
}

void AsioSocket::closeNow() {
  if (closed_) return;
  closed_ = true;
  reading_ = false;
  readTimer_.cancel();
  writeTimer_.cancel();
  std::error_code ec;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ec);
  socket_.close(ec);
  auto d = delegate_.lock();
  delegate_.reset();
  if (d) d->socketDidDisconnect();
}

}  // namespace harbor

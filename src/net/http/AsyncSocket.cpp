#include "net/http/AsyncSocket.h"

#include <algorithm>
#include <chrono>

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
  // Completing from what is buffered still goes through the executor, so a
  // delegate never sees a callback inside its own call.
  auto self = shared_from_this();
  asio::post(strand_, [self] { self->continueRead(); });
}

bool AsioSocket::tryCompleteRead() {
  std::size_t take = 0;
  if (read_.toData) {
    std::size_t from =
        searched_ >= read_.terminator.size() ? searched_ - read_.terminator.size() + 1 : 0;
    std::size_t pos = buffer_.find(read_.terminator, from);
    if (pos == std::string::npos) {
      searched_ = buffer_.size();
      if (buffer_.size() >= read_.length) {
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
    if (buffer_.size() < read_.length) return false;
    take = read_.length;
  }
  std::string data;
  if (take == buffer_.size()) {
    data.swap(buffer_);
  } else {
    data = buffer_.substr(0, take);
    buffer_.erase(0, take);
  }
  reading_ = false;
  readTimer_.cancel();
  if (auto d = delegate_.lock()) d->socketDidReadData(std::move(data), read_.tag);
  return true;
}

void AsioSocket::continueRead() {
  if (closed_ || !reading_ || receiving_) return;
  if (tryCompleteRead()) return;
  std::size_t want = kReceiveSize;
  if (!read_.toData)
    want = std::max<std::size_t>(std::min(kReceiveSize, read_.length - buffer_.size()), 1);
  else
    want = std::min<std::size_t>(8192, read_.length + 1 - std::min(read_.length, buffer_.size()));
  std::size_t old = buffer_.size();
  buffer_.resize(old + want);
  receiving_ = true;
  auto self = shared_from_this();
  socket_.async_read_some(
      asio::buffer(buffer_.data() + old, want),
      asio::bind_executor(strand_, [self, old](std::error_code ec, std::size_t n) {
        self->receiving_ = false;
        self->buffer_.resize(old + n);
        if (ec) {
          self->closeNow();
          return;
        }
        self->continueRead();
      }));
}

void AsioSocket::writeData(std::string data, double timeout, long tag) {
  if (closed_) return;
  writes_.push_back({std::move(data), timeout, tag});
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
  armTimer(writeTimer_, writes_.front().timeout);
  auto self = shared_from_this();
  asio::async_write(socket_, asio::buffer(writes_.front().data),
                    asio::bind_executor(strand_, [self](std::error_code ec, std::size_t) {
                      self->writeTimer_.cancel();
                      if (ec || self->closed_) {
                        self->closeNow();
                        return;
                      }
                      long tag = self->writes_.front().tag;
                      self->writes_.pop_front();
                      if (auto d = self->delegate_.lock()) d->socketDidWriteData(tag);
                      self->startNextWrite();
                    }));
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

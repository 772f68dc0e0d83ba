#include "net/http/MemorySocket.h"

namespace harbor {

void MemorySocket::readDataToData(std::string terminator, double, std::size_t maxLength, long tag) {
  post([this, terminator, maxLength, tag] {
    if (closed_) return;
    std::size_t pos = input_.find(terminator, position_);
    if (pos == std::string::npos || pos + terminator.size() - position_ > maxLength) {
      disconnect();
      return;
    }
    std::string data = input_.substr(position_, pos + terminator.size() - position_);
    position_ = pos + terminator.size();
    if (auto d = delegate_.lock()) d->socketDidReadData(std::move(data), tag);
  });
}

void MemorySocket::readDataToLength(std::size_t length, double, long tag) {
  post([this, length, tag] {
    if (closed_) return;
    if (input_.size() - position_ < length) {
      disconnect();
      return;
    }
    std::string data = input_.substr(position_, length);
    position_ += length;
    if (auto d = delegate_.lock()) d->socketDidReadData(std::move(data), tag);
  });
}

void MemorySocket::writeData(std::string data, double, long tag) {
  if (closed_) return;
  output_ += data;
  post([this, tag] {
    if (closed_) return;
    if (auto d = delegate_.lock()) d->socketDidWriteData(tag);
  });
}

void MemorySocket::disconnect() {
  if (closed_) return;
  closed_ = true;
  post([this] {
    auto d = delegate_.lock();
    delegate_.reset();
    if (d) d->socketDidDisconnect();
  });
}

void MemorySocket::run(std::size_t maxEvents) {
  auto keep = shared_from_this();
  for (std::size_t i = 0; i < maxEvents && !events_.empty(); ++i) {
    auto work = std::move(events_.front());
    events_.pop_front();
    work();
  }
}

}  // namespace harbor

#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "net/http/AsyncSocket.h"

namespace harbor {

// A socket over a fixed input, for driving a connection without a network:
// reads are served from `input`, writes collect in `output`, and running out
// of input is the client closing. Callbacks run from `run`.
class MemorySocket : public AsyncSocket, public std::enable_shared_from_this<MemorySocket> {
 public:
  explicit MemorySocket(std::string input) : input_(std::move(input)) {}

  void setDelegate(std::weak_ptr<AsyncSocketDelegate> delegate) override { delegate_ = delegate; }
  void readDataToData(std::string terminator, double timeout, std::size_t maxLength,
                      long tag) override;
  void readDataToLength(std::size_t length, double timeout, long tag) override;
  void writeData(std::string data, double timeout, long tag) override;
  void disconnect() override;
  void disconnectAfterWriting() override { disconnect(); }
  void post(std::function<void()> work) override { events_.push_back(std::move(work)); }

  // Delivers queued callbacks until none is left or `maxEvents` ran.
  void run(std::size_t maxEvents = 1000000);
  const std::string& output() const { return output_; }
  bool isDisconnected() const { return closed_; }

 private:
  std::string input_;
  std::size_t position_ = 0;
  std::string output_;
  std::deque<std::function<void()>> events_;
  std::weak_ptr<AsyncSocketDelegate> delegate_;
  bool closed_ = false;
};

}  // namespace harbor

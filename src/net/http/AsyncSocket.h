#pragma once

#include <asio.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace harbor {

// The connection's side of a socket: what it reads and writes, tagged.
class AsyncSocketDelegate {
 public:
  virtual ~AsyncSocketDelegate() = default;
  // `data` is valid only during the call.
  virtual void socketDidReadData(std::string_view data, long tag) = 0;
  virtual void socketDidWriteData(long tag) = 0;
  virtual void socketDidDisconnect() = 0;
};

// A non-blocking stream socket with tagged reads and writes. One read is
// outstanding at a time; writes queue and complete in order. Callbacks
// arrive on the socket's executor, never inside the call that asked.
// A negative timeout means none.
class AsyncSocket {
 public:
  virtual ~AsyncSocket() = default;
  virtual void setDelegate(std::weak_ptr<AsyncSocketDelegate> delegate) = 0;
  // Bytes up to and including `terminator`; more than `maxLength` without
  // it disconnects.
  virtual void readDataToData(std::string terminator, double timeout, std::size_t maxLength,
                              long tag) = 0;
  virtual void readDataToLength(std::size_t length, double timeout, long tag) = 0;
  virtual void writeData(std::string data, double timeout, long tag) = 0;
  // Queues `length` bytes of the file `fd` from `offset`, sent by the kernel
  // without passing through here; `keep` holds the file open meanwhile.
  // False when this socket cannot.
  virtual bool writeFile(int fd, std::uint64_t offset, std::uint64_t length, long tag,
                         std::shared_ptr<void> keep) {
    (void)fd;
    (void)offset;
    (void)length;
    (void)tag;
    (void)keep;
    return false;
  }
  virtual void disconnect() = 0;
  virtual void disconnectAfterWriting() = 0;
  // Runs `work` where the socket's callbacks run.
  virtual void post(std::function<void()> work) = 0;
  virtual std::string connectedHost() const { return {}; }
};

// The socket over Asio; its callbacks run on `strand`.
class AsioSocket : public AsyncSocket, public std::enable_shared_from_this<AsioSocket> {
 public:
  using Strand = asio::strand<asio::io_context::executor_type>;
  AsioSocket(asio::ip::tcp::socket socket, Strand strand);
  ~AsioSocket() override;

  void setDelegate(std::weak_ptr<AsyncSocketDelegate> delegate) override { delegate_ = delegate; }
  void readDataToData(std::string terminator, double timeout, std::size_t maxLength,
                      long tag) override;
  void readDataToLength(std::size_t length, double timeout, long tag) override;
  void writeData(std::string data, double timeout, long tag) override;
  bool writeFile(int fd, std::uint64_t offset, std::uint64_t length, long tag,
                 std::shared_ptr<void> keep) override;
  void disconnect() override;
  void disconnectAfterWriting() override;
  void post(std::function<void()> work) override;
  std::string connectedHost() const override { return host_; }

 private:
  struct Read {
    bool toData = false;
    std::string terminator;
    std::size_t length = 0;  // exact count, or the most for a terminated read
    double timeout = -1;
    long tag = 0;
  };
  struct Write {
    std::string data;
    double timeout;
    long tag;
    int fd = -1;  // a file part instead of data
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    std::shared_ptr<void> keep;
  };
  void continueFileWrite();
  void finishWrite();

  void startRead(Read read);
  void continueRead();
  bool tryCompleteRead();
  void startNextWrite();
  void closeNow();
  void armTimer(asio::steady_timer& timer, double timeout);

  asio::ip::tcp::socket socket_;
  Strand strand_;
  asio::steady_timer readTimer_;
  asio::steady_timer writeTimer_;
  std::weak_ptr<AsyncSocketDelegate> delegate_;
  // Bytes read ahead of the current request live in [begin_, end_) of an
  // uninitialised buffer, so big reads are neither zero-filled nor copied.
  void ensureSpace(std::size_t n);
  std::size_t buffered() const { return end_ - begin_; }
  std::unique_ptr<char[]> buf_;
  std::size_t cap_ = 0, begin_ = 0, end_ = 0;
  std::size_t searched_ = 0;
  bool reading_ = false;     // a read request is pending
  bool receiving_ = false;   // an Asio read is in flight
  bool delivering_ = false;  // inside the delegate's read callback
  Read read_;
  std::deque<Write> writes_;
  bool writing_ = false;
  bool closeAfterWriting_ = false;
  bool closed_ = false;
  std::string host_;
};

}  // namespace harbor

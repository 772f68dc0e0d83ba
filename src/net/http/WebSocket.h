#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "net/http/AsyncSocket.h"
#include "net/http/HTTPMessage.h"

namespace harbor {

// The frames a client sends, turned into messages: fragments joined,
// control frames passed on, anything against the protocol reported with the
// close code to end the connection with. Bytes may come in any pieces.
class WebSocketFrameParser {
 public:
  struct Event {
    enum Kind { Text, Binary, Ping, Pong, Close, Fail } kind = Fail;
    std::string data;        // message, ping or pong payload, close reason
    std::uint16_t code = 0;  // Close: the peer's code (1005 when none); Fail: ours
  };
  static constexpr std::uint64_t kDefaultMaxMessage = 16 * 1024 * 1024;

  explicit WebSocketFrameParser(std::uint64_t maxMessage = kDefaultMaxMessage)
      : maxMessage_(maxMessage) {}

  void feed(std::string_view data);
  // The next event, if the bytes so far complete one. After Close or Fail
  // nothing more comes.
  bool nextEvent(Event& event);
  // How many more bytes the frame being read needs at least (1 or more).
  std::size_t bytesWanted() const;

  // A frame as the server sends it: final, unmasked.
  static std::string encodeFrame(int opcode, std::string_view payload);
  static std::string encodeClose(std::uint16_t code, std::string_view reason = {});

 private:
  bool fail(Event& event, std::uint16_t code);

  std::uint64_t maxMessage_;
  std::string buffer_;
  std::size_t consumed_ = 0;
  bool finished_ = false;
  int messageOpcode_ = 0;  // of the fragmented message under way, 0 for none
  std::string message_;
};

// One upgraded connection: the handshake reply, then frames both ways on
// the socket the HTTP connection handed over. Subclasses (or the callbacks)
// decide what a message does.
class WebSocket : public AsyncSocketDelegate, public std::enable_shared_from_this<WebSocket> {
 public:
  static constexpr long kReadTag = 100;
  static constexpr long kWriteTag = 101;
  static constexpr long kCloseTag = 102;

  WebSocket(const HTTPMessage& request, std::shared_ptr<AsyncSocket> socket);
  ~WebSocket() override;

  // "Upgrade: websocket" with "Connection: ... Upgrade ...".
  static bool isWebSocketRequest(const HTTPMessage& request);
  // A usable key and version 13.
  static bool isValidHandshake(const HTTPMessage& request);
  // The "Sec-WebSocket-Accept" value for a key.
  static std::string acceptValue(std::string_view key);

  // Takes over the socket: sends the handshake reply and starts reading.
  void start();
  // Ends it now; callable from any thread.
  void stop();
  // Queue a text or binary message; callable from any thread.
  void sendMessage(std::string text);
  void sendData(std::string data);

  void setDieHandler(std::function<void(WebSocket*)> handler) { dieHandler_ = std::move(handler); }
  std::function<void(WebSocket&)> onOpen;
  std::function<void(WebSocket&, const std::string&)> onMessage;
  std::function<void(WebSocket&, const std::string&)> onData;
  std::function<void(WebSocket&)> onClose;

  // AsyncSocketDelegate
  void socketDidReadData(std::string_view data, long tag) override;
  void socketDidWriteData(long tag) override;
  void socketDidDisconnect() override;

 protected:
  virtual void didOpen();
  virtual void didReceiveMessage(const std::string& text);
  virtual void didReceiveData(const std::string& data);
  virtual void didClose();

  const HTTPMessage& request() const { return *request_; }

 private:
  void readNext();
  void send(int opcode, std::string payload);
  void closeWith(std::uint16_t code, std::string_view reason = {});

  std::unique_ptr<HTTPMessage> request_;
  std::shared_ptr<AsyncSocket> socket_;
  WebSocketFrameParser parser_;
  bool started_ = false;
  bool closing_ = false;
  bool dead_ = false;
  std::function<void(WebSocket*)> dieHandler_;
};

}  // namespace harbor

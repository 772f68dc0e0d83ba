#include "net/http/WebSocket.h"

#include <openssl/evp.h>

#include <algorithm>

#include "net/http/HTTPUtil.h"
#include "platform/Log.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

enum : int { kContinuation = 0, kText = 1, kBinary = 2, kClose = 8, kPing = 9, kPong = 10 };
// Codes we end a connection with.
constexpr std::uint16_t kNormal = 1000, kProtocolError = 1002, kInvalidData = 1007, kTooBig = 1009,
                        kNoStatus = 1005;
// Reads of a payload go in pieces no bigger than this.
constexpr std::size_t kReadPiece = 256 * 1024;

bool validCloseCode(std::uint16_t c) {
  if (c >= 3000 && c <= 4999) return true;
  return c >= 1000 && c <= 1014 && c != 1004 && c != 1005 && c != 1006;
}

}  // namespace

// ---- Frames -----------------------------------------------------------------

void WebSocketFrameParser::feed(std::string_view data) {
  if (finished_) return;
  if (consumed_ > 0 && consumed_ == buffer_.size()) {
    buffer_.clear();
    consumed_ = 0;
  }
  buffer_.append(data);
}

std::size_t WebSocketFrameParser::bytesWanted() const {
  std::size_t have = buffer_.size() - consumed_;
  const auto* p = reinterpret_cast<const unsigned char*>(buffer_.data() + consumed_);
  if (have < 2) return 2 - have;
  std::size_t head = 2 + ((p[1] & 0x80) ? 4 : 0);
  std::uint8_t len7 = p[1] & 0x7F;
  if (len7 == 126) head += 2;
  if (len7 == 127) head += 8;
  if (have < head) return head - have;
  std::uint64_t length = len7;
  if (len7 == 126) length = (std::uint64_t(p[2]) << 8) | p[3];
  if (len7 == 127) {
    length = 0;
    for (int k = 0; k < 8; ++k) length = (length << 8) | p[2 + k];
  }
  if (have >= head + length) return 1;  // a whole frame waits to be taken
  std::uint64_t missing = head + length - have;
  return static_cast<std::size_t>(std::clamp<std::uint64_t>(missing, 1, kReadPiece));
}

bool WebSocketFrameParser::fail(Event& event, std::uint16_t code) {
  finished_ = true;
  event = Event{Event::Fail, {}, code};
  buffer_.clear();
  consumed_ = 0;
  message_.clear();
  return true;
}

bool WebSocketFrameParser::nextEvent(Event& event) {
  while (!finished_) {
    std::size_t have = buffer_.size() - consumed_;
    if (have < 2) return false;
    const auto* p = reinterpret_cast<const unsigned char*>(buffer_.data() + consumed_);
    bool fin = p[0] & 0x80;
    int opcode = p[0] & 0x0F;
    if (p[0] & 0x70) return fail(event, kProtocolError);     // no extensions agreed
    if (!(p[1] & 0x80)) return fail(event, kProtocolError);  // clients must mask
    std::uint8_t len7 = p[1] & 0x7F;
    std::size_t head = 2;
    std::uint64_t length = len7;
    if (len7 == 126) {
      if (have < 4) return false;
      length = (std::uint64_t(p[2]) << 8) | p[3];
      head = 4;
    } else if (len7 == 127) {
      if (have < 10) return false;
      length = 0;
      for (int k = 0; k < 8; ++k) length = (length << 8) | p[2 + k];
      if (length >> 63) return fail(event, kProtocolError);
      head = 10;
    }
    bool control = opcode >= 8;
    if (control && (!fin || length > 125)) return fail(event, kProtocolError);
    if (opcode != kContinuation && opcode != kText && opcode != kBinary && !control) {
      return fail(event, kProtocolError);
    }
    if (control && opcode != kClose && opcode != kPing && opcode != kPong) {
      return fail(event, kProtocolError);
    }
    // Checked before the payload arrives, so a huge length is refused at once.
    if (!control && length > maxMessage_ - std::min<std::uint64_t>(maxMessage_, message_.size())) {
      return fail(event, kTooBig);
    }
    if (have < head + 4 + length) return false;
    const unsigned char* mask = p + head;
    std::string payload(reinterpret_cast<const char*>(p + head + 4),
                        static_cast<std::size_t>(length));
    for (std::size_t k = 0; k < payload.size(); ++k) payload[k] ^= static_cast<char>(mask[k & 3]);
    consumed_ += head + 4 + static_cast<std::size_t>(length);
    if (consumed_ == buffer_.size()) {
      buffer_.clear();
      consumed_ = 0;
    }

    if (control) {
      if (opcode == kPing) {
        event = Event{Event::Ping, std::move(payload), 0};
        return true;
      }
      if (opcode == kPong) {
        event = Event{Event::Pong, std::move(payload), 0};
        return true;
      }
      finished_ = true;
      if (payload.empty()) {
        event = Event{Event::Close, {}, kNoStatus};
        return true;
      }
      if (payload.size() < 2) return fail(event, kProtocolError);
      auto code = static_cast<std::uint16_t>((static_cast<unsigned char>(payload[0]) << 8) |
                                             static_cast<unsigned char>(payload[1]));
      std::string reason = payload.substr(2);
      if (!validCloseCode(code)) return fail(event, kProtocolError);
      if (!harbor::isValidUtf8(reason)) return fail(event, kInvalidData);
      event = Event{Event::Close, std::move(reason), code};
      return true;
    }
    if (opcode == kContinuation) {
      if (messageOpcode_ == 0) return fail(event, kProtocolError);
    } else {
      if (messageOpcode_ != 0) return fail(event, kProtocolError);
      messageOpcode_ = opcode;
    }
    message_ += payload;
    if (!fin) continue;
    int kind = messageOpcode_;
    messageOpcode_ = 0;
    std::string message;
    message.swap(message_);
    if (kind == kText) {
      if (!harbor::isValidUtf8(message)) return fail(event, kInvalidData);
      event = Event{Event::Text, std::move(message), 0};
    } else {
      event = Event{Event::Binary, std::move(message), 0};
    }
    return true;
  }
  return false;
}

std::string WebSocketFrameParser::encodeFrame(int opcode, std::string_view payload) {
  std::string out;
  out.reserve(payload.size() + 10);
  out += static_cast<char>(0x80 | (opcode & 0x0F));
  std::uint64_t n = payload.size();
  if (n < 126) {
    out += static_cast<char>(n);
  } else if (n <= 0xFFFF) {
    out += static_cast<char>(126);
    out += static_cast<char>(n >> 8);
    out += static_cast<char>(n & 0xFF);
  } else {
    out += static_cast<char>(127);
    for (int k = 7; k >= 0; --k) out += static_cast<char>((n >> (8 * k)) & 0xFF);
  }
  out.append(payload);
  return out;
}

std::string WebSocketFrameParser::encodeClose(std::uint16_t code, std::string_view reason) {
  std::string payload;
  payload += static_cast<char>(code >> 8);
  payload += static_cast<char>(code & 0xFF);
  payload.append(reason.substr(0, 123));
  return encodeFrame(kClose, payload);
}

// ---- The socket side --------------------------------------------------------

WebSocket::WebSocket(const HTTPMessage& request, std::shared_ptr<AsyncSocket> socket)
    : request_(std::make_unique<HTTPMessage>(request)), socket_(std::move(socket)) {}

WebSocket::~WebSocket() = default;

bool WebSocket::isWebSocketRequest(const HTTPMessage& request) {
  auto upgrade = request.headerField("Upgrade");
  auto connection = request.headerField("Connection");
  return upgrade && equalsIgnoreCase(*upgrade, "websocket") && connection &&
         toLower(*connection).find("upgrade") != std::string::npos;
}

bool WebSocket::isValidHandshake(const HTTPMessage& request) {
  auto key = request.headerField("Sec-WebSocket-Key");
  auto version = request.headerField("Sec-WebSocket-Version");
  if (!key || !version || *version != "13" || request.method() != "GET") return false;
  auto raw = HTTPUtil::base64Decode(*key);
  return raw && raw->size() == 16;
}

std::string WebSocket::acceptValue(std::string_view key) {
  std::string text(key);
  text += "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(text.data(), text.size(), digest, &n, EVP_sha1(), nullptr);
  return HTTPUtil::base64Encode(std::string_view(reinterpret_cast<const char*>(digest), n));
}

void WebSocket::start() {
  if (started_ || !socket_) return;
  started_ = true;
  socket_->setDelegate(weak_from_this());
  auto reply = HTTPMessage::initResponseWithStatusCode(101, "Switching Protocols", "HTTP/1.1");
  reply->setHeaderField("Upgrade", "websocket");
  reply->setHeaderField("Connection", "Upgrade");
  reply->setHeaderField("Sec-WebSocket-Accept",
                        acceptValue(request_->headerField("Sec-WebSocket-Key").value_or("")));
  socket_->writeData(reply->messageData(), 30, kWriteTag);
  didOpen();
  readNext();
}

void WebSocket::readNext() {
  if (socket_ && !closing_) socket_->readDataToLength(parser_.bytesWanted(), -1, kReadTag);
}

void WebSocket::stop() {
  if (socket_) socket_->disconnect();
}

void WebSocket::send(int opcode, std::string payload) {
  auto socket = socket_;
  if (!socket) return;
  auto weak = weak_from_this();
  socket->post([weak, opcode, payload = std::move(payload)] {
    auto self = weak.lock();
    if (!self || self->dead_ || self->closing_ || !self->socket_) return;
    self->socket_->writeData(WebSocketFrameParser::encodeFrame(opcode, payload), -1, kWriteTag);
  });
}

void WebSocket::sendMessage(std::string text) {
  send(kText, std::move(text));
}

void WebSocket::sendData(std::string data) {
  send(kBinary, std::move(data));
}

void WebSocket::closeWith(std::uint16_t code, std::string_view reason) {
  if (closing_ || !socket_) return;
  closing_ = true;
  socket_->writeData(WebSocketFrameParser::encodeClose(code, reason), 30, kCloseTag);
  socket_->disconnectAfterWriting();
}

void WebSocket::socketDidReadData(std::string_view data, long tag) {
  if (tag != kReadTag || dead_ || closing_) return;
  parser_.feed(data);
  WebSocketFrameParser::Event e;
  while (!closing_ && parser_.nextEvent(e)) {
    switch (e.kind) {
      case WebSocketFrameParser::Event::Text:
        didReceiveMessage(e.data);
        break;
      case WebSocketFrameParser::Event::Binary:
        didReceiveData(e.data);
        break;
      case WebSocketFrameParser::Event::Ping:
        socket_->writeData(WebSocketFrameParser::encodeFrame(kPong, e.data), 30, kWriteTag);
        break;
      case WebSocketFrameParser::Event::Pong:
        break;
      case WebSocketFrameParser::Event::Close:
        // Echo the peer's code, or a plain one when it gave none.
        closeWith(e.code == kNoStatus ? kNormal : e.code);
        break;
      case WebSocketFrameParser::Event::Fail:
        HB_LOG("WebSocket", "closing on a bad frame, code " + std::to_string(e.code));
        closeWith(e.code);
        break;
    }
  }
  readNext();
}

void WebSocket::socketDidWriteData(long) {}

void WebSocket::socketDidDisconnect() {
  if (dead_) return;
  dead_ = true;
  didClose();
  socket_.reset();
  if (dieHandler_) {
    auto handler = std::move(dieHandler_);
    dieHandler_ = nullptr;
    handler(this);
  }
}

void WebSocket::didOpen() {
  if (onOpen) onOpen(*this);
}
void WebSocket::didReceiveMessage(const std::string& text) {
  if (onMessage) onMessage(*this, text);
}
void WebSocket::didReceiveData(const std::string& data) {
  if (onData) onData(*this, data);
}
void WebSocket::didClose() {
  if (onClose) onClose(*this);
}

}  // namespace harbor

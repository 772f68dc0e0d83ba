#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "NetTestClient.h"
#include "net/http/HTTPServer.h"
#include "net/http/WebSocket.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
using test::headerOf;
using test::RawClient;
using test::statusLine;
using Event = WebSocketFrameParser::Event;

// A frame as a client sends it: masked.
std::string clientFrame(int firstByte, std::string_view payload,
                        std::string_view mask = "\x11\x22\x33\x44") {
  std::string out(1, static_cast<char>(firstByte));
  std::uint64_t n = payload.size();
  if (n < 126) {
    out += static_cast<char>(0x80 | n);
  } else if (n <= 0xFFFF) {
    out += static_cast<char>(0x80 | 126);
    out += static_cast<char>(n >> 8);
    out += static_cast<char>(n & 0xFF);
  } else {
    out += static_cast<char>(0x80 | 127);
    for (int k = 7; k >= 0; --k) out += static_cast<char>((n >> (8 * k)) & 0xFF);
  }
  out += mask;
  for (std::size_t i = 0; i < payload.size(); ++i)
    out += static_cast<char>(payload[i] ^ mask[i & 3]);
  return out;
}

std::vector<Event> parseAll(const std::string& bytes, std::uint64_t max = 1 << 20) {
  WebSocketFrameParser p(max);
  p.feed(bytes);
  std::vector<Event> out;
  Event e;
  while (p.nextEvent(e)) out.push_back(e);
  return out;
}

TEST(WebSocketFrameTest, JoinsFragmentsAndPassesControlFramesBetweenThem) {
  std::string big(70000, 'x');
  std::string bytes = clientFrame(0x01, "hel") + clientFrame(0x89, "p!") + clientFrame(0x80, "lo") +
                      clientFrame(0x82, big) +
                      clientFrame(0x88, std::string("\x03\xe8"
                                                    "bye",
                                                    5));
  // Whole, and a byte at a time asking only for what the parser wants.
  for (bool trickle : {false, true}) {
    std::vector<Event> events;
    if (!trickle) {
      events = parseAll(bytes);
    } else {
      WebSocketFrameParser p;
      std::size_t at = 0;
      Event e;
      while (at < bytes.size()) {
        std::size_t n = std::min(p.bytesWanted(), bytes.size() - at);
        ASSERT_GE(n, 1u);
        p.feed(std::string_view(bytes).substr(at, n));
        at += n;
        while (p.nextEvent(e)) events.push_back(e);
      }
    }
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, Event::Ping);
    EXPECT_EQ(events[0].data, "p!");
    EXPECT_EQ(events[1].kind, Event::Text);
    EXPECT_EQ(events[1].data, "hello");
    EXPECT_EQ(events[2].kind, Event::Binary);
    EXPECT_TRUE(events[2].data == big);
    EXPECT_EQ(events[3].kind, Event::Close);
    EXPECT_EQ(events[3].code, 1000);
    EXPECT_EQ(events[3].data, "bye");
  }
}

TEST(WebSocketFrameTest, ProtocolBreachesEndWithTheirCloseCode) {
  struct Case {
    std::string bytes;
    std::uint16_t code;
  } cases[] = {
      {std::string("\x81\x02hi", 4), 1002},                     // unmasked
      {clientFrame(0xC1, "x"), 1002},                           // reserved bit
      {clientFrame(0x83, "x"), 1002},                           // unknown opcode
      {clientFrame(0x80, "x"), 1002},                           // continuation of nothing
      {clientFrame(0x01, "a") + clientFrame(0x81, "b"), 1002},  // new message mid-message
      {clientFrame(0x09, "p"), 1002},                           // fragmented ping
      {clientFrame(0x89, std::string(126, 'p')), 1002},         // long ping
      {clientFrame(0x81, "\xC0\xAF"), 1007},                    // overlong UTF-8
      {clientFrame(0x81, "\xED\xA0\x80"), 1007},                // surrogate
      {clientFrame(0x88, "\x03"), 1002},                        // one-byte close
      {clientFrame(0x88, "\x03\xed"), 1002},                    // reserved close code 1005
      {clientFrame(0x82, std::string(2000, 'b')), 1009},        // over the limit
      {std::string("\x82\xFF\x80\0\0\0\0\0\0\0", 10), 1002},    // 64-bit length, top bit
  };
  for (const auto& c : cases) {
    auto events = parseAll(c.bytes, 1000);
    ASSERT_FALSE(events.empty()) << testing::PrintToString(c.bytes);
    EXPECT_EQ(events.back().kind, Event::Fail) << testing::PrintToString(c.bytes);
    EXPECT_EQ(events.back().code, c.code) << testing::PrintToString(c.bytes);
  }
  // A huge declared length is refused from its head alone.
  EXPECT_EQ(parseAll(std::string("\x82\xFF\0\0\0\x01\0\0\0\0", 10), 1000).back().code, 1009);
}

TEST(WebSocketFrameTest, HandshakeKeyAndServerFrames) {
  // The worked example of the protocol's own description.
  EXPECT_EQ(WebSocket::acceptValue("dGhlIHNhbXBsZSBub25jZQ=="), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
  EXPECT_EQ(WebSocketFrameParser::encodeFrame(1, "Hi"), std::string("\x81\x02Hi", 4));
  EXPECT_EQ(WebSocketFrameParser::encodeFrame(2, std::string(300, 'a')).substr(0, 4),
            std::string("\x82\x7e\x01\x2c", 4));
}

// Echoes text upper-cased and data reversed, on /echo only.
class EchoSocketConnection : public HTTPConnection {
 public:
  using HTTPConnection::HTTPConnection;
  std::shared_ptr<WebSocket> webSocketForURI(const std::string& uri) override {
    if (uri != "/echo") return nullptr;
    auto ws = std::make_shared<WebSocket>(*request(), asyncSocket());
    ws->onMessage = [](WebSocket& w, const std::string& text) {
      std::string up = text;
      for (char& c : up) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      w.sendMessage(up);
    };
    ws->onData = [](WebSocket& w, const std::string& data) {
      w.sendData(std::string(data.rbegin(), data.rend()));
    };
    return ws;
  }
};

class WebSocketServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.setDocumentRoot(std::filesystem::canonical(dir_.path()).string());
    server_.setPort(0);
    server_.setInterface("127.0.0.1");
    server_.setConnectionClass([](auto s, auto c) -> std::shared_ptr<HTTPConnection> {
      return std::make_shared<EchoSocketConnection>(std::move(s), std::move(c));
    });
    Error e;
    ASSERT_TRUE(server_.start(&e)) << e.message;
    port_ = server_.listeningPort();
  }
  void TearDown() override { server_.stop(); }
  static std::string upgrade(const std::string& path, const std::string& extra = "") {
    return "GET " + path +
           " HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: keep-alive, Upgrade\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
           extra + "\r\n";
  }
  // Reads until `n` bytes after the head have come.
  static std::string readFrames(RawClient& c, std::string& pending, std::size_t n) {
    for (int i = 0; i < 50 && pending.size() < n; ++i) pending += c.readAll(100);
    std::string out = pending.substr(0, n);
    pending.erase(0, n);
    return out;
  }
  bool waitFor(std::size_t sockets) {
    for (int i = 0; i < 200; ++i) {
      if (server_.numberOfWebSocketConnections() == sockets) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  test::ScratchDir dir_;
  HTTPServer server_;
  std::uint16_t port_ = 0;
};

TEST_F(WebSocketServerTest, UpgradesEchoesAnswersPingsAndCloses) {
  RawClient c(port_);
  // The first frame comes in the same packet as the head.
  c.send(upgrade("/echo", "Sec-WebSocket-Version: 13\r\n") + clientFrame(0x81, "hello"));
  std::string got;
  for (int i = 0; i < 50 && got.find("\r\n\r\n") == std::string::npos; ++i) got += c.readAll(100);
  std::size_t end = got.find("\r\n\r\n");
  ASSERT_NE(end, std::string::npos);
  EXPECT_EQ(statusLine(got), "HTTP/1.1 101 Switching Protocols");
  EXPECT_EQ(headerOf(got, "Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
  std::string pending = got.substr(end + 4);
  EXPECT_EQ(readFrames(c, pending, 7), std::string("\x81\x05HELLO", 7));
  EXPECT_TRUE(waitFor(1));
  EXPECT_EQ(server_.numberOfHTTPConnections(), 0u);

  std::string big(100000, 'z');
  big[0] = 'a';
  c.send(clientFrame(0x82, big));
  std::string frame = readFrames(c, pending, 10 + big.size());
  EXPECT_EQ(frame.substr(0, 2), "\x82\x7f");
  EXPECT_TRUE(frame.substr(10) == std::string(big.rbegin(), big.rend()));

  c.send(clientFrame(0x89, "are you there"));
  EXPECT_EQ(readFrames(c, pending, 15),
            "\x8a\x0d"
            "are you there");
  c.send(clientFrame(0x88, "\x03\xe9"));
  EXPECT_EQ(readFrames(c, pending, 4), "\x88\x02\x03\xe9");
  EXPECT_TRUE(c.peerClosed());
  EXPECT_TRUE(waitFor(0));
}

TEST_F(WebSocketServerTest, RefusedUpgradesAndBadFrames) {
  {
    RawClient c(port_);
    c.send(upgrade("/elsewhere", "Sec-WebSocket-Version: 13\r\n"));
    EXPECT_EQ(statusLine(c.readResponse()), "HTTP/1.1 404 Not Found");
  }
  {
    RawClient c(port_);
    c.send(upgrade("/echo", "Sec-WebSocket-Version: 8\r\n"));
    EXPECT_EQ(statusLine(c.readAll()), "HTTP/1.1 400 Bad Request");
  }
  {
    RawClient c(port_);
    c.send(upgrade("/echo", "Sec-WebSocket-Version: 13\r\n") + std::string("\x81\x02hi", 4));
    std::string got = c.readAll(1000);
    // Unmasked: a protocol error closes it with 1002.
    EXPECT_NE(got.find(std::string("\x88\x02\x03\xea", 4)), std::string::npos);
    EXPECT_TRUE(c.peerClosed());
  }
  EXPECT_TRUE(waitFor(0));
}

TEST_F(WebSocketServerTest, StoppingTheServerEndsItsSockets) {
  RawClient c(port_);
  c.send(upgrade("/echo", "Sec-WebSocket-Version: 13\r\n"));
  EXPECT_EQ(statusLine(c.readAll(300)), "HTTP/1.1 101 Switching Protocols");
  ASSERT_TRUE(waitFor(1));
  server_.stop();
  EXPECT_TRUE(c.peerClosed());
  EXPECT_EQ(server_.numberOfWebSocketConnections(), 0u);
}

}  // namespace
}  // namespace harbor

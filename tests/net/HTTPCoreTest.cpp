#include <gtest/gtest.h>

#include "platform/Paths.h"

#include <filesystem>
#include <thread>

#include "NetTestClient.h"
#include "net/http/HTTPAuthentication.h"
#include "net/http/HTTPMessage.h"
#include "net/http/HTTPServer.h"
#include "net/http/HTTPUtil.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::bodyOf;
using test::headerOf;
using test::RawClient;
using test::statusLine;

TEST(HTTPMessageTest, ReadsAHeadLineByLineAndRefusesBadFraming) {
  auto m = HTTPMessage::initEmptyRequest();
  EXPECT_TRUE(m->appendData("GET /a%20b?x=1 HTTP/1.1\r\n"));
  EXPECT_TRUE(m->appendData("Host: x\r\n"));
  EXPECT_TRUE(m->appendData("X-Two: a\r\n"));
  EXPECT_FALSE(m->isHeaderComplete());
  EXPECT_TRUE(m->appendData("x-two: b\r\n\r\n"));
  EXPECT_TRUE(m->isHeaderComplete());
  EXPECT_EQ(m->method(), "GET");
  EXPECT_EQ(m->url(), "/a%20b?x=1");
  EXPECT_EQ(m->headerField("HOST"), "x");
  EXPECT_EQ(m->headerField("X-Two"), "a, b");

  for (const char* bad :
       {"Content-Length: -1\r\n", "Content-Length: +5\r\n", "Content-Length: 5 5\r\n",
        "Content-Length:\r\n", "No colon\r\n", "Bad Name: v\r\n", "X: a\nY: b\r\n"}) {
    auto r = HTTPMessage::initEmptyRequest();
    ASSERT_TRUE(r->appendData("POST / HTTP/1.1\r\n"));
    EXPECT_FALSE(r->appendData(bad)) << bad;
  }
  auto twice = HTTPMessage::initEmptyRequest();
  ASSERT_TRUE(twice->appendData("POST / HTTP/1.1\r\nContent-Length: 5\r\n"));
  EXPECT_FALSE(twice->appendData("content-length: 5\r\n"));

  using namespace std::string_literals;
  for (const std::string& bad : {"GET\r\n"s, "GET / HTTP/1.1 x\r\n"s, "GET / FTP/1.0\r\n"s,
                                 "G(T / HTTP/1.1\r\n"s, "GET /a\0b HTTP/1.1\r\n"s}) {
    auto r = HTTPMessage::initEmptyRequest();
    EXPECT_FALSE(r->appendData(bad)) << bad;
  }
}

TEST(HTTPMessageTest, WritesWhatItReads) {
  auto m = HTTPMessage::initResponseWithStatusCode(206, "", "HTTP/1.1");
  m->setHeaderField("Content-Length", "3");
  m->setBody("abc");
  auto back = HTTPMessage::initEmptyResponse();
  std::string data = m->messageData();
  EXPECT_EQ(data, "HTTP/1.1 206 Partial Content\r\nContent-Length: 3\r\n\r\nabc");
  ASSERT_TRUE(back->appendData(data.substr(0, data.size() - 3)));
  EXPECT_EQ(back->statusCode(), 206);
  EXPECT_EQ(back->headerField("content-length"), "3");
}

TEST(HTTPUtilTest, RangesAreParsedAsClientsExpect) {
  using R = std::vector<ByteRange>;
  EXPECT_EQ(HTTPUtil::parseRangeRequest("bytes=5", 10), (R{{5, 1}}));
  EXPECT_EQ(HTTPUtil::parseRangeRequest("bytes=-10", 10), (R{{0, 10}}));
  EXPECT_EQ(HTTPUtil::parseRangeRequest(" Bytes = 7-", 10), (R{{7, 3}}));
  EXPECT_EQ(HTTPUtil::parseRangeRequest("bytes=6-8, 0-1", 10), (R{{0, 2}, {6, 3}}));
  EXPECT_EQ(HTTPUtil::parseRangeRequest("bytes=0-4,5-9", 10), (R{{0, 5}, {5, 5}}));
  for (const char* bad : {"bytes=0-4,3-8", "bytes=-20", "bytes=10", "bytes=3-2", "bytes=0-10",
                          "bytes=-", "bytes=", "items=0-1", "bytes 0-1", "bytes=a-b",
                          "bytes=18446744073709551616-", "bytes=-0"}) {
    EXPECT_FALSE(HTTPUtil::parseRangeRequest(bad, 10)) << bad;
  }
}

TEST(HTTPUtilTest, ParamsDecodeKeysAndValuesSeparately) {
  auto p = HTTPUtil::parseParams("a=1&=x&noeq&b=%41+B&c=%zz&d=%e4%b8%ad&%ff=1&a=2");
  EXPECT_EQ(p.size(), 4u);
  EXPECT_EQ(p["a"], "2");
  EXPECT_EQ(p["b"], "A+B");
  EXPECT_EQ(p["c"], std::nullopt);
  EXPECT_EQ(p["d"], "\xe4\xb8\xad");
}

TEST(HTTPUtilTest, PathsStayInsideTheirRoot) {
  EXPECT_TRUE(isPathAtOrBelow("/r/a/b", "/r"));
  EXPECT_TRUE(isPathAtOrBelow("/r", "/r/"));
  EXPECT_FALSE(isPathAtOrBelow("/rx", "/r"));
  EXPECT_FALSE(isPathAtOrBelow("/r/../x", "/r"));
  EXPECT_FALSE(isPathAtOrBelow("/x", "/r"));
}

// A server over a scratch folder with a connection class of the test's choice.
class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = fs::canonical(dir_.path()).string();
    fs::create_directories(root_ + "/docs");
    test::writeFile(root_ + "/ten.txt", "0123456789");
    test::writeFile(root_ + "/empty.txt", "");
    test::writeFile(root_ + "/docs/index.html", "<p>index</p>");
    outside_ = fs::canonical(outsideDir_.path()).string();
    test::writeFile(outside_ + "/secret.txt", "secret");
    fs::create_symlink(outside_ + "/secret.txt", root_ + "/link-out.txt");
  }
  void TearDown() override { server_.stop(); }
  std::uint16_t startServer(HTTPServer::ConnectionClass cls = nullptr) {
    server_.setDocumentRoot(root_);
    server_.setPort(0);
    server_.setInterface("127.0.0.1");
    if (cls) server_.setConnectionClass(std::move(cls));
    Error e;
    EXPECT_TRUE(server_.start(&e)) << e.message;
    return server_.listeningPort();
  }
  std::string roundTrip(const std::string& request) {
    RawClient c(port_);
    c.send(request);
    return c.readAll(2000);
  }

  test::ScratchDir dir_, outsideDir_;
  std::string root_, outside_;
  HTTPServer server_;
  std::uint16_t port_ = 0;
};

TEST_F(ServerTest, ServesFilesWithRangesAndTheStandardHeads) {
  port_ = startServer();
  std::string r = roundTrip("GET /ten.txt HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 200 OK");
  EXPECT_EQ(bodyOf(r), "0123456789");
  EXPECT_FALSE(headerOf(r, "Date").empty());
  EXPECT_EQ(headerOf(r, "Accept-Ranges"), "bytes");

  r = roundTrip("GET /ten.txt HTTP/1.1\r\nRange: bytes=5\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  EXPECT_EQ(headerOf(r, "Content-Range"), "bytes 5-5/10");
  EXPECT_EQ(bodyOf(r), "5");

  r = roundTrip("GET /ten.txt HTTP/1.1\r\nRange: bytes=0-4,3-8\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 200 OK");
  EXPECT_EQ(bodyOf(r), "0123456789");

  r = roundTrip("GET /ten.txt HTTP/1.1\r\nRange: bytes=-20\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 200 OK");

  r = roundTrip("GET /ten.txt HTTP/1.1\r\nRange: bytes=8-,0-1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  std::string type = headerOf(r, "Content-Type");
  ASSERT_EQ(type.rfind("multipart/byteranges; boundary=", 0), 0u);
  std::string boundary = type.substr(31);
  std::string expected = "\r\n--" + boundary + "\r\nContent-Range: bytes 0-1/10\r\n\r\n01" +
                         "\r\n--" + boundary + "\r\nContent-Range: bytes 8-9/10\r\n\r\n89" +
                         "\r\n--" + boundary + "--\r\n";
  EXPECT_EQ(bodyOf(r), expected);
  EXPECT_EQ(headerOf(r, "Content-Length"), std::to_string(expected.size()));

  r = roundTrip("HEAD /ten.txt HTTP/1.1\r\nRange: bytes=2-3\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  EXPECT_EQ(headerOf(r, "Content-Length"), "2");
  EXPECT_EQ(bodyOf(r), "");

  r = roundTrip("GET /empty.txt HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(headerOf(r, "Content-Length"), "0");
  EXPECT_EQ(bodyOf(r), "");

  r = roundTrip("GET /docs/ HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(bodyOf(r), "<p>index</p>");
}

TEST_F(ServerTest, ErrorRepliesAndWhenTheConnectionCloses) {
  port_ = startServer();
  struct Case {
    std::string request;
    std::string status;
    bool closes;
  };
  const Case cases[] = {
      {"DELETE /ten.txt HTTP/1.1\r\n\r\n", "HTTP/1.1 405 Method Not Allowed", true},
      {"GET /ten.txt HTTP/1.1\r\nContent-Length: 1\r\n\r\nx", "HTTP/1.1 400 Bad Request", true},
      {"GET /ten.txt HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "HTTP/1.1 400 Bad Request", true},
      {"GET / HTTP/1.1\r\nContent-Length: 18446744073709551616\r\n\r\n", "HTTP/1.1 400 Bad Request",
       true},
      {"GARBAGE\r\n\r\n", "HTTP/1.1 400 Bad Request", true},
      {"GET /nope HTTP/1.1\r\n\r\n", "HTTP/1.1 404 Not Found", false},
      {"GET /ten.txt HTTP/2.0\r\n\r\n", "HTTP/1.1 505 HTTP Version Not Supported", true},
      {"GET /ten.txt HTTP/1.1\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 200 OK", false},
      {"GET /ten.txt HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK", true},
      {"GET /ten.txt HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", "HTTP/1.1 200 OK", false},
  };
  for (const auto& c : cases) {
    RawClient client(port_);
    client.send(c.request);
    std::string r = client.readResponse();
    EXPECT_EQ(statusLine(r), c.status) << c.request;
    EXPECT_FALSE(headerOf(r, "Date").empty()) << c.request;
    EXPECT_EQ(client.peerClosed(c.closes ? 2000 : 300), c.closes) << c.request;
  }
}

TEST_F(ServerTest, KeepAliveServesSeveralRequestsOnOneSocket) {
  port_ = startServer();
  RawClient c(port_);
  c.send("GET /ten.txt HTTP/1.1\r\n\r\nGET /ten.txt HTTP/1.1\r\nRange: bytes=1-2\r\n\r\n");
  std::string first = c.readResponse();
  EXPECT_EQ(statusLine(first), "HTTP/1.1 200 OK");
  std::string rest = first.substr(first.find("0123456789") + 10);
  rest += c.readResponse();
  EXPECT_EQ(statusLine(rest), "HTTP/1.1 206 Partial Content");
  EXPECT_EQ(bodyOf(rest), "12");
  EXPECT_FALSE(c.peerClosed(200));
}

TEST_F(ServerTest, HeadLimitsDropWithoutReply) {
  port_ = startServer();
  std::string head = "GET /ten.txt HTTP/1.1\r\n";
  for (int i = 0; i < 98; ++i) head += "X-" + std::to_string(i) + ": y\r\n";
  // 100 lines and the blank line: served; a 101st line is one too many.
  EXPECT_EQ(statusLine(roundTrip(head + "Connection: close\r\n\r\n").substr(0)), "HTTP/1.1 200 OK");
  {
    RawClient c(port_);
    c.send(head + "X-99: y\r\nX-100: y\r\n\r\n");
    EXPECT_EQ(c.readAll(2000), "");
  }
  std::string longLine = "X-Long: " + std::string(8190 - 8 - 2, 'a') + "\r\n";
  ASSERT_EQ(longLine.size(), 8190u);
  EXPECT_EQ(
      statusLine(roundTrip("GET /ten.txt HTTP/1.1\r\n" + longLine + "Connection: close\r\n\r\n")),
      "HTTP/1.1 200 OK");
  std::string tooLong = "X-Long: " + std::string(8191 - 8 - 2, 'a') + "\r\n";
  EXPECT_EQ(roundTrip("GET /ten.txt HTTP/1.1\r\n" + tooLong + "\r\n"), "");
}

TEST_F(ServerTest, NothingOutsideTheRootIsServed) {
  port_ = startServer();
  for (const char* target :
       {"/../secret.txt", "/%2e%2e/secret.txt", "/..%2fsecret.txt", "/docs/../../secret.txt",
        "/link-out.txt", "/%00ten.txt", "/%252e%252e%252fsecret.txt", "/..\\secret.txt"}) {
    std::string r =
        roundTrip(std::string("GET ") + target + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(statusLine(r), "HTTP/1.1 404 Not Found") << target;
    EXPECT_EQ(r.find("secret\r"), std::string::npos);
  }
}

TEST_F(ServerTest, SlowClientsDoNotHoldOthersUp) {
  port_ = startServer();
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 200; ++i) {
    idle.push_back(std::make_unique<RawClient>(port_));
    idle.back()->send("GET /ten.txt HTTP/1.1\r\nX-Slow: ");
  }
  std::string r = roundTrip("GET /ten.txt HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(bodyOf(r), "0123456789");
}

// Echoes the body it received, chunked, under a Digest or Basic lock.
class EchoConnection : public HTTPConnection {
 public:
  EchoConnection(std::shared_ptr<AsyncSocket> s, std::shared_ptr<const HTTPConfig> c, bool digest,
                 bool locked)
      : HTTPConnection(std::move(s), std::move(c)), digest_(digest), locked_(locked) {}
  bool supportsMethod(const std::string& m, const std::string& p) override {
    return m == "POST" || HTTPConnection::supportsMethod(m, p);
  }
  bool isPasswordProtected(const std::string&) override { return locked_; }
  bool useDigestAccessAuthentication() override { return digest_; }
  std::optional<std::string> passwordForUser(const std::string& user) override {
    if (user == "user") return std::string("pass");
    return std::nullopt;
  }
  void processBodyData(std::string_view d) override { body_.append(d); }
  std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string& m,
                                                      const std::string& uri) override {
    if (m != "POST") return HTTPConnection::httpResponseForMethod(m, uri);
    struct Chunked : HTTPDataResponse {
      using HTTPDataResponse::HTTPDataResponse;
      bool isChunked() override { return true; }
      std::string readDataOfLength(std::size_t) override {
        return HTTPDataResponse::readDataOfLength(3);
      }
    };
    auto r = std::make_shared<Chunked>(body_);
    body_.clear();
    return r;
  }

 private:
  bool digest_, locked_;
  std::string body_;
};

TEST_F(ServerTest, ChunkedBodiesBothWaysAndExpectContinue) {
  port_ = startServer([](auto s, auto c) {
    return std::make_shared<EchoConnection>(std::move(s), std::move(c), true, false);
  });
  RawClient c(port_);
  c.send(
      "POST /x HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n4;ext=1\r\nabcd\r\n3\r\nefg\r\n0\r\n"
      "X-Trailer: 1\r\n\r\n");
  std::string r = c.readResponse();
  EXPECT_EQ(headerOf(r, "Transfer-Encoding"), "chunked");
  EXPECT_EQ(bodyOf(r), "3\r\nabc\r\n3\r\ndef\r\n1\r\ng\r\n0\r\n\r\n");

  RawClient bad(port_);
  bad.send("POST /x HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n");
  EXPECT_EQ(statusLine(bad.readAll()), "HTTP/1.1 400 Bad Request");
  RawClient badTrailer(port_);
  badTrailer.send("POST /x HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1\r\naXY");
  EXPECT_EQ(statusLine(badTrailer.readAll()), "HTTP/1.1 400 Bad Request");

  RawClient expect(port_);
  expect.send("POST /x HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n");
  EXPECT_EQ(expect.readAll(500), "HTTP/1.1 100 Continue\r\n\r\n");
  expect.send("hi");
  EXPECT_EQ(bodyOf(expect.readResponse()), "2\r\nhi\r\n0\r\n\r\n");

  // A body that never completes gets no reply.
  RawClient truncated(port_);
  truncated.send("POST /x HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc");
  EXPECT_EQ(truncated.readAll(300), "");
}

struct DigestChallenge {
  std::string nonce;
};

std::string digestHeader(const std::string& nonce, const std::string& uri, const std::string& nc,
                         const std::string& password = "pass") {
  std::string ha1 = HTTPUtil::md5Hex("user:harbor:" + password);
  std::string ha2 = HTTPUtil::md5Hex("GET:" + uri);
  std::string resp = HTTPUtil::md5Hex(ha1 + ":" + nonce + ":" + nc + ":cn:auth:" + ha2);
  return "Authorization: Digest username=\"user\", realm=\"harbor\", nonce=\"" + nonce +
         "\", uri=\"" + uri + "\", qop=auth, nc=" + nc + ", cnonce=\"cn\", response=\"" + resp +
         "\"\r\n";
}

TEST_F(ServerTest, DigestRefusesReplayExpiryAndAnotherUri) {
  auto clockNow =
      std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
  auto nonces = std::make_shared<NonceRegistry>();
  nonces->setClock([clockNow] { return *clockNow; });
  server_.setNonceRegistry(nonces);
  port_ = startServer([](auto s, auto c) {
    return std::make_shared<EchoConnection>(std::move(s), std::move(c), true, true);
  });
  std::string r = roundTrip("GET /ten.txt HTTP/1.1\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 401 Unauthorized");
  std::string challenge = headerOf(r, "WWW-Authenticate");
  std::size_t n = challenge.find("nonce=\"");
  ASSERT_NE(n, std::string::npos);
  std::string nonce = challenge.substr(n + 7, challenge.find('"', n + 7) - n - 7);

  auto get = [&](const std::string& auth) {
    return statusLine(roundTrip("GET /ten.txt HTTP/1.1\r\n" + auth + "Connection: close\r\n\r\n"));
  };
  EXPECT_EQ(get(digestHeader(nonce, "/ten.txt", "00000001")), "HTTP/1.1 200 OK");
  EXPECT_EQ(get(digestHeader(nonce, "/ten.txt", "00000001")), "HTTP/1.1 401 Unauthorized");
  EXPECT_EQ(get(digestHeader(nonce, "/ten.txt", "00000002")), "HTTP/1.1 200 OK");
  EXPECT_EQ(get(digestHeader(nonce, "/other", "00000003")), "HTTP/1.1 401 Unauthorized");
  EXPECT_EQ(get(digestHeader(nonce, "/ten.txt", "00000004", "wrong")), "HTTP/1.1 401 Unauthorized");
  EXPECT_EQ(get(digestHeader("made-up", "/ten.txt", "00000005")), "HTTP/1.1 401 Unauthorized");
  *clockNow += std::chrono::seconds(301);
  EXPECT_EQ(get(digestHeader(nonce, "/ten.txt", "00000006")), "HTTP/1.1 401 Unauthorized");
  // A refused body is never read: the 401 comes on the head.
  RawClient post(port_);
  post.send("POST /x HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 5\r\n\r\n");
  EXPECT_EQ(statusLine(post.readAll()), "HTTP/1.1 401 Unauthorized");
}

TEST_F(ServerTest, BasicAndCurlInterop) {
  port_ = startServer([](auto s, auto c) {
    return std::make_shared<EchoConnection>(std::move(s), std::move(c), false, true);
  });
  EXPECT_EQ(headerOf(roundTrip("GET /ten.txt HTTP/1.1\r\n\r\n"), "WWW-Authenticate"),
            "Basic realm=\"harbor\"");
  std::string url = "http://127.0.0.1:" + std::to_string(port_) + "/ten.txt";
  int status = 0;
  EXPECT_EQ(test::shell("curl -sf -u user:pass -r 2-4 " + url, &status), "234");
  EXPECT_EQ(status, 0);
  test::shell("curl -sf -u user:nope " + url, &status);
  EXPECT_NE(status, 0);
}

TEST_F(ServerTest, CurlDigestLogsIn) {
  port_ = startServer([](auto s, auto c) {
    return std::make_shared<EchoConnection>(std::move(s), std::move(c), true, true);
  });
  std::string url = "http://127.0.0.1:" + std::to_string(port_) + "/ten.txt";
  int status = 0;
  EXPECT_EQ(test::shell("curl -sf --digest -u user:pass " + url, &status), "0123456789");
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

TEST_F(ServerTest, ClientsLeavingMidReplyEndOnlyTheirReply) {
  std::string big(8 * 1024 * 1024, 'b');
  test::writeFile(root_ + "/big.bin", big);
  port_ = startServer();
  for (int i = 0; i < 20; ++i) {
    RawClient c(port_);
    c.send("GET /big.bin HTTP/1.1\r\n\r\n");
  }  // each closes before reading
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  std::string r =
      roundTrip("GET /big.bin HTTP/1.1\r\nRange: bytes=100-\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  EXPECT_EQ(bodyOf(r).size(), big.size() - 100);
}

}  // namespace
}  // namespace harbor

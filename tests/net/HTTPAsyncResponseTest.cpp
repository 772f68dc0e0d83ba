#include <gtest/gtest.h>

#include <filesystem>

#include "NetTestClient.h"
#include "net/http/HTTPAsyncFileResponse.h"
#include "net/http/HTTPServer.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::bodyOf;
using test::headerOf;
using test::RawClient;
using test::statusLine;

TEST(SeparatorReplacerTest, ReplacesKeysWhereverThePiecesSplitThem) {
  std::map<std::string, std::string> values{{"name", "Harbor"}, {"n", "1"}, {"empty", ""}};
  const std::string in = "a %%name%% b %%n%%%%n%% %%nope%%n%% %%empty%%% 100%% %%name";
  const std::string want = "a Harbor b 11 %%nope1 % 100%% %%name";
  // Every split into two pieces, and byte by byte.
  for (std::size_t cut = 0; cut <= in.size(); ++cut) {
    SeparatorReplacer r("%%", &values);
    std::string out = r.feed(std::string_view(in).substr(0, cut), false);
    out += r.feed(std::string_view(in).substr(cut), true);
    EXPECT_EQ(out, want) << "cut at " << cut;
  }
  SeparatorReplacer r("%%", &values);
  std::string out;
  for (char c : in) out += r.feed(std::string_view(&c, 1), false);
  out += r.feed({}, true);
  EXPECT_EQ(out, want);
}

// Serves /async/<name> and /dynamic/<name> from the document root.
class AsyncConnection : public HTTPConnection {
 public:
  using HTTPConnection::HTTPConnection;
  std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string& method,
                                                      const std::string& uri) override {
    std::string root = config().documentRoot;
    if (uri.rfind("/async/", 0) == 0)
      return HTTPAsyncFileResponse::create(root + uri.substr(7), weak_from_this());
    if (uri.rfind("/dynamic/", 0) == 0) {
      return HTTPDynamicFileResponse::create(root + uri.substr(9), weak_from_this(), "%%",
                                             {{"who", "world"}});
    }
    return HTTPConnection::httpResponseForMethod(method, uri);
  }
};

class AsyncResponseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = fs::canonical(dir_.path()).string();
    big_.resize(3 * 1024 * 1024 + 17);
    for (std::size_t i = 0; i < big_.size(); ++i) big_[i] = static_cast<char>('a' + i % 23);
    test::writeFile(root_ + "/big.bin", big_);
    test::writeFile(root_ + "/empty.txt", "");
    server_.setDocumentRoot(root_);
    server_.setPort(0);
    server_.setInterface("127.0.0.1");
    server_.setConnectionClass([](auto s, auto c) -> std::shared_ptr<HTTPConnection> {
      return std::make_shared<AsyncConnection>(std::move(s), std::move(c));
    });
    Error e;
    ASSERT_TRUE(server_.start(&e)) << e.message;
    port_ = server_.listeningPort();
  }
  void TearDown() override { server_.stop(); }
  std::string get(const std::string& path, const std::string& extra = "") {
    RawClient c(port_);
    c.send("GET " + path + " HTTP/1.1\r\n" + extra + "Connection: close\r\n\r\n");
    return c.readAll(3000);
  }

  test::ScratchDir dir_;
  std::string root_, big_;
  HTTPServer server_;
  std::uint16_t port_ = 0;
};

TEST_F(AsyncResponseTest, ServesWholeFilesRangesAndHeads) {
  std::string r = get("/async/big.bin");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 200 OK");
  EXPECT_EQ(headerOf(r, "Content-Length"), std::to_string(big_.size()));
  EXPECT_TRUE(bodyOf(r) == big_);

  r = get("/async/big.bin", "Range: bytes=1000000-1999999\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  EXPECT_TRUE(bodyOf(r) == big_.substr(1000000, 1000000));

  r = get("/async/big.bin", "Range: bytes=0-2,-3\r\n");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 206 Partial Content");
  std::string body = bodyOf(r);
  EXPECT_NE(body.find("\r\n\r\nabc\r\n--"), std::string::npos);
  EXPECT_NE(body.find("\r\n\r\n" + big_.substr(big_.size() - 3) + "\r\n--"), std::string::npos);

  r = get("/async/empty.txt");
  EXPECT_EQ(headerOf(r, "Content-Length"), "0");
  EXPECT_EQ(bodyOf(r), "");
  EXPECT_EQ(statusLine(get("/async/missing.bin")), "HTTP/1.1 404 Not Found");

  // Keep-alive: two replies on one socket.
  RawClient c(port_);
  c.send("GET /async/big.bin HTTP/1.1\r\nRange: bytes=5-9\r\n\r\n");
  EXPECT_EQ(bodyOf(c.readResponse()), big_.substr(5, 5));
  c.send("HEAD /async/big.bin HTTP/1.1\r\n\r\n");
  r = c.readResponse();
  EXPECT_EQ(headerOf(r, "Content-Length"), std::to_string(big_.size()));
  EXPECT_EQ(bodyOf(r), "");
}

TEST_F(AsyncResponseTest, DynamicFilesAreChunkedWithTheirKeysReplaced) {
  std::string text;
  for (int i = 0; i < 40000; ++i) text += "hello %%who%%, ";  // keys across read pieces
  test::writeFile(root_ + "/page.txt", text);
  std::string r = get("/dynamic/page.txt");
  EXPECT_EQ(statusLine(r), "HTTP/1.1 200 OK");
  EXPECT_EQ(headerOf(r, "Transfer-Encoding"), "chunked");
  // Undo the chunking.
  std::string body = bodyOf(r), plain;
  std::size_t at = 0;
  while (true) {
    std::size_t eol = body.find("\r\n", at);
    ASSERT_NE(eol, std::string::npos);
    std::size_t n = std::stoul(body.substr(at, eol - at), nullptr, 16);
    if (n == 0) break;
    plain += body.substr(eol + 2, n);
    at = eol + 2 + n + 2;
  }
  std::string want;
  for (int i = 0; i < 40000; ++i) want += "hello world, ";
  EXPECT_TRUE(plain == want);
  EXPECT_EQ(bodyOf(get("/dynamic/empty.txt")), "0\r\n\r\n");
}

}  // namespace
}  // namespace harbor

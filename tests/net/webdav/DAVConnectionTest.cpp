#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <thread>

#include "DAVTestServer.h"
#include "filemanager/FileManagerUtil.h"
#include "net/webdav/DAVPaths.h"
#include "net/webdav/DAVResponse.h"
#include "net/webdav/DAVXml.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::bodyOf;
using test::headerOf;
using test::RawClient;

class DAVConnectionTest : public test::DAVServerTest {
 protected:
  void file(const std::string& relative, const std::string& content = "x") {
    fs::create_directories(fs::path(doc(relative)).parent_path());
    test::writeFile(doc(relative), content);
  }
  std::string read(const std::string& relative) { return test::readFile(doc(relative)); }
};

constexpr const char* kXmlHead = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";

TEST_F(DAVConnectionTest, PropfindTextDepthsAndHrefs) {
  file("dir/a b.txt", "12345");
  file("dir/<&>?+#%.txt");
  fs::create_directory(doc("dir/sub"));
  fs::create_directory_symlink("/etc", doc("dir/out"));
  fs::create_symlink(doc("dir/a b.txt"), doc("dir/in"));
  // 2023-11-05 09:08:07 UTC, a Sunday: the day is not padded.
  FileUtil::setFileModifiedDate(std::chrono::system_clock::from_time_t(1699175287),
                                doc("dir/a b.txt"));

  EXPECT_EQ(status(request("PROPFIND", "/dir")), 404);  // no Depth
  EXPECT_EQ(status(request("PROPFIND", "/dir", "Depth: infinity\r\n")), 404);
  EXPECT_EQ(status(request("PROPFIND", "/missing", "Depth: 0\r\n")), 404);

  std::string body =
      "<?xml version=\"1.0\"?><D:propfind xmlns:D=\"DAV:\"><D:prop><D:getlastmodified/>"
      "<D:getcontentlength/><D:displayname/></D:prop></D:propfind>";
  std::string r = request("PROPFIND", "/dir/a%20b.txt", "Depth: 0\r\n", body);
  EXPECT_EQ(status(r), 207);
  EXPECT_EQ(headerOf(r, "Content-Type"), "application/xml; charset=\"utf-8\"");
  EXPECT_EQ(bodyOf(r), std::string(kXmlHead) +
                           "<D:multistatus xmlns:D=\"DAV:\">\n"
                           "<D:response><D:href>/dir/a%20b.txt</D:href><D:propstat><D:prop>"
                           "<D:getlastmodified>Sun, 5 Nov 2023 09:08:07 GMT</D:getlastmodified>"
                           "<D:getcontentlength>5</D:getcontentlength></D:prop>"
                           "<D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>\n"
                           "</D:multistatus>");

  r = bodyOf(request("PROPFIND", "/dir", "Depth: 1\r\n"));
  std::regex href("<D:href>([^<]*)</D:href>");
  std::vector<std::string> hrefs;
  for (std::sregex_iterator it(r.begin(), r.end(), href), end; it != end; ++it) {
    hrefs.push_back((*it)[1]);
  }
  // The folder itself with "/", children without, the link out left out.
  EXPECT_EQ(hrefs, (std::vector<std::string>{"/dir/", "/dir/%3C%26%3E%3F%2B%23%25.txt",
                                             "/dir/a%20b.txt", "/dir/in", "/dir/sub"}));
  // No body means every property; folders have no length.
  EXPECT_NE(r.find("<D:href>/dir/sub</D:href><D:propstat><D:prop><D:resourcetype>"
                   "<D:collection/></D:resourcetype>"),
            std::string::npos);
  std::size_t sub = r.find("/dir/sub<");
  EXPECT_EQ(r.find("getcontentlength", sub), std::string::npos);
  EXPECT_TRUE(std::regex_search(
      r, std::regex("<D:creationdate>\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\+00:00<")));

  // The root at depth 1 is "/", its children "/name".
  r = bodyOf(request("PROPFIND", "/", "Depth: 1\r\n"));
  EXPECT_NE(r.find("<D:href>/</D:href>"), std::string::npos);
  EXPECT_NE(r.find("<D:href>/dir</D:href>"), std::string::npos);
}

TEST_F(DAVConnectionTest, PropfindBodiesThatAreNotWhatTheyShouldBe) {
  file("f", "abc");
  auto propsFor = [&](const std::string& body) {
    std::string r = bodyOf(request("PROPFIND", "/f", "Depth: 0\r\n", body));
    std::string got;
    for (const char* p : {"resourcetype", "creationdate", "getlastmodified", "getcontentlength"}) {
      if (r.find(std::string("<D:") + p) != std::string::npos) got += p[0];
    }
    return got;
  };
  EXPECT_EQ(propsFor("<propfind xmlns=\"DAV:\"><prop><resourcetype/></prop></propfind>"), "r");
  // Matched by local name, whatever the namespace.
  EXPECT_EQ(propsFor("<x:propfind xmlns:x=\"urn:other\"><x:prop><x:getcontentlength/>"
                     "</x:prop></x:propfind>"),
            "g");
  // Only unknown names, an empty prop, junk, truncation: all four.
  for (std::string body : {"<propfind xmlns=\"DAV:\"><prop><foo/></prop></propfind>",
                           "<propfind xmlns=\"DAV:\"><prop/></propfind>", "<<<not xml",
                           "<propfind xmlns=\"DAV:\"><prop><getcontentle"}) {
    EXPECT_EQ(propsFor(body), "rcgg") << body;
  }
  std::string deep = "<propfind xmlns=\"DAV:\"><prop>";
  for (int i = 0; i < 10000; ++i) deep += "<x>";
  EXPECT_EQ(status(request("PROPFIND", "/f", "Depth: 0\r\n", deep)), 207);
  // An external entity is not loaded: the request still succeeds, nothing leaks.
  std::string r = request("PROPFIND", "/f", "Depth: 0\r\n",
                          "<?xml version=\"1.0\"?><!DOCTYPE p [<!ENTITY x SYSTEM "
                          "\"file:///etc/passwd\">]><propfind xmlns=\"DAV:\"><prop>"
                          "<getcontentlength>&x;</getcontentlength></prop></propfind>");
  EXPECT_EQ(status(r), 207);
  EXPECT_EQ(r.find("root:"), std::string::npos);
  // Over 1 MiB: refused before the body is read.
  RawClient big(port_);
  big.send("PROPFIND /f HTTP/1.1\r\nHost: " + host_ +
           "\r\nDepth: 0\r\nContent-Length: " + std::to_string((1 << 20) + 1) + "\r\n\r\n");
  EXPECT_EQ(status(big.readResponse()), 400);
}

TEST_F(DAVConnectionTest, PutWritesWholeFilesOnly) {
  std::string large(300000, 'q');
  EXPECT_EQ(status(request("PUT", "/new.txt", "", "hello")), 201);
  EXPECT_EQ(read("new.txt"), "hello");
  EXPECT_EQ(status(request("PUT", "/new.txt", "", large)), 200);
  EXPECT_EQ(read("new.txt"), large);
  EXPECT_EQ(status(request("PUT", "/new.txt", "Content-Range: bytes 0-1/2\r\n", "zz")), 400);
  EXPECT_EQ(read("new.txt"), large);
  EXPECT_EQ(status(request("PUT", "/empty", "", "")), 201);
  EXPECT_TRUE(fs::exists(doc("empty")));
  EXPECT_EQ(fs::file_size(doc("empty")), 0u);
  // A folder is never replaced, the root least of all; a missing folder is no place.
  fs::create_directories(doc("folder/inside"));
  EXPECT_EQ(status(request("PUT", "/folder", "", "x")), 403);
  EXPECT_TRUE(fs::exists(doc("folder/inside")));
  EXPECT_EQ(status(request("PUT", "/", "", "x")), 403);
  EXPECT_EQ(status(request("PUT", "/nowhere/x", "", large)), 403);
  // Chunked bodies grow out of memory into a file.
  RawClient c(port_);
  c.send("PUT /chunked HTTP/1.1\r\nHost: " + host_ +
         "\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n100\r\n" +
         std::string(256, 'a') + "\r\n3\r\nbcd\r\n0\r\n\r\n");
  EXPECT_EQ(status(c.readAll()), 201);
  EXPECT_EQ(read("chunked"), std::string(256, 'a') + "bcd");
  EXPECT_TRUE(tempEmpty());
}

TEST_F(DAVConnectionTest, DeleteAndMkcol) {
  file("d/x/y");
  EXPECT_EQ(status(request("DELETE", "/d")), 200);
  EXPECT_FALSE(fs::exists(doc("d")));
  EXPECT_EQ(status(request("DELETE", "/d")), 204);
  EXPECT_EQ(status(request("DELETE", "/")), 403);
  fs::create_directory_symlink("/etc", doc("link"));
  EXPECT_EQ(status(request("DELETE", "/link")), 404);  // leads out: not ours
  EXPECT_TRUE(fs::exists("/etc/passwd"));

  EXPECT_EQ(status(request("MKCOL", "/m")), 200);
  EXPECT_TRUE(fs::is_directory(doc("m")));
  EXPECT_EQ(status(request("MKCOL", "/m")), 405);
  EXPECT_EQ(status(request("MKCOL", "/no/such")), 409);
  // A body is taken and ignored.
  EXPECT_EQ(status(request("MKCOL", "/withbody", "", "<x/>")), 200);
  EXPECT_EQ(status(request("UNLOCK", "/m", "Lock-Token: <t>\r\n")), 405);
  EXPECT_EQ(status(request("PROPPATCH", "/m", "", "<x/>")), 400);
  EXPECT_EQ(status(request("PROPPATCH", "/m")), 405);
}

TEST_F(DAVConnectionTest, MoveAndCopy) {
  file("a.txt", "A");
  file("b.txt", "B");
  auto dest = [&](const std::string& path) { return "Destination: " + url(path) + "\r\n"; };
  EXPECT_EQ(status(request("MOVE", "/a.txt", dest("/b.txt") + "Overwrite: F\r\n")), 412);
  EXPECT_EQ(status(request("COPY", "/a.txt", dest("/c.txt") + "Depth: 0\r\n")), 404);
  EXPECT_EQ(status(request("COPY", "/a.txt", "Destination: http://elsewhere/c.txt\r\n")), 404);
  EXPECT_EQ(status(request("COPY", "/a.txt", "Destination: /c.txt\r\n")), 404);
  EXPECT_EQ(status(request("COPY", "/a.txt", dest("/no/c.txt"))), 409);
  EXPECT_EQ(status(request("COPY", "/a.txt", dest("/c%20d.txt"))), 201);
  EXPECT_EQ(read("c d.txt"), "A");
  EXPECT_EQ(status(request("MOVE", "/a.txt", dest("/b.txt"))), 204);
  EXPECT_EQ(read("b.txt"), "A");
  EXPECT_FALSE(fs::exists(doc("a.txt")));

  // A folder: copied whole, links as links; written over file by file.
  file("t/one", "1");
  file("t/s/two", "2");
  fs::create_symlink("one", doc("t/ln"));
  file("u/one", "old");
  file("u/keep", "k");
  EXPECT_EQ(status(request("COPY", "/t", dest("/u"))), 204);
  EXPECT_EQ(read("u/one"), "1");
  EXPECT_EQ(read("u/s/two"), "2");
  EXPECT_EQ(read("u/keep"), "k");
  EXPECT_TRUE(fs::is_symlink(doc("u/ln")));
  // Not into its own subtree, not over or from the root.
  EXPECT_EQ(status(request("COPY", "/t", dest("/t/s/t"))), 403);
  EXPECT_EQ(status(request("MOVE", "/t", dest("/t/x"))), 403);
  EXPECT_EQ(status(request("MOVE", "/", dest("/x"))), 403);
  EXPECT_EQ(status(request("MOVE", "/t", dest("/"))), 403);
  // One rename: a non-empty folder is not replaced.
  EXPECT_EQ(status(request("MOVE", "/t", dest("/u"))), 403);
  EXPECT_TRUE(fs::exists(doc("t/one")));
  fs::create_directory(doc("v"));
  EXPECT_EQ(status(request("MOVE", "/t", dest("/v"))), 204);
  EXPECT_EQ(read("v/s/two"), "2");
  // A destination link met in the tree is replaced, not written through.
  test::ScratchDir outside;
  test::writeFile(outside / "victim", "safe");
  file("w/one", "1");
  fs::create_directory(doc("x"));
  fs::create_symlink((outside / "victim").string(), doc("x/one"));
  EXPECT_EQ(status(request("COPY", "/w", dest("/x"))), 204);
  EXPECT_EQ(test::readFile(outside / "victim"), "safe");
  EXPECT_FALSE(fs::is_symlink(doc("x/one")));
}

TEST_F(DAVConnectionTest, LocksAreGrantedNotKept) {
  const std::string info =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?><D:lockinfo xmlns:D=\"DAV:\"><D:lockscope>"
      "<D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype><D:owner>"
      "<D:href>me &amp; you</D:href></D:owner></D:lockinfo>";
  std::string r = request("LOCK", "/new%20name", "Depth: 0\r\nTimeout: Second-600\r\n", info);
  EXPECT_EQ(status(r), 200);
  EXPECT_TRUE(fs::is_regular_file(doc("new name")));
  EXPECT_EQ(fs::file_size(doc("new name")), 0u);
  std::string body = bodyOf(r);
  std::string shape = std::regex_replace(body, std::regex("urn:uuid:[0-9A-F-]{36}"), "TOKEN");
  std::string want =
      std::string(kXmlHead) +
      "<D:prop xmlns:D=\"DAV:\">\n<D:lockdiscovery>\n<D:activelock>\n"
      "<D:locktype><D:write/></D:locktype>\n<D:lockscope><D:exclusive/></D:lockscope>\n"
      "<D:depth>0</D:depth>\n<D:owner><D:href>me &amp; you</D:href></D:owner>\n"
      "<D:timeout>Second-600</D:timeout>\n<D:locktoken><D:href>TOKEN</D:href></D:locktoken>\n"
      "<D:lockroot><D:href>http://" +
      host_ +
      "/new%20name</D:href></D:lockroot>\n</D:activelock>\n</D:lockdiscovery>\n"
      "</D:prop>";
  EXPECT_EQ(shape, want);

  // Nothing is recorded, so a second exclusive lock is granted too.
  EXPECT_EQ(status(request("LOCK", "/new%20name", "Depth: 0\r\n", info)), 200);
  // A refresh names its token in "If".
  r = request("LOCK", "/new%20name", "If: (<opaquelocktoken:abc>)\r\n", "");
  EXPECT_EQ(status(r), 200);
  EXPECT_NE(bodyOf(r).find("<D:locktoken><D:href>opaquelocktoken:abc</D:href>"), std::string::npos);
  // Only exclusive write locks of depth 0.
  EXPECT_EQ(status(request("LOCK", "/new%20name", "Depth: infinity\r\n", info)), 403);
  std::string shared = std::regex_replace(info, std::regex("exclusive"), "shared");
  EXPECT_EQ(status(request("LOCK", "/new%20name", "Depth: 0\r\n", shared)), 403);
  EXPECT_EQ(status(request("LOCK", "/new%20name", "Depth: 0\r\n", "")), 403);  // no If
  EXPECT_EQ(status(request("LOCK", "/new%20name", "Depth: 0\r\n", "", false)), 400);
  EXPECT_EQ(status(request("LOCK", "/no/dir/f", "Depth: 0\r\n", info)), 403);
}

TEST(DAVResponseTest, UnlockAndOptionsDirectly) {
  test::ScratchDir root;
  test::writeFile(root / "f", "x");
  std::string real = *davpath::realRoot(root.path().string());
  DAVHeaders h;
  auto r = DAVResponse::initWithMethod("UNLOCK", h, "", "f", real);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status(), 400);
  h.set("Lock-Token", "<urn:uuid:1>");
  EXPECT_EQ(DAVResponse::initWithMethod("UNLOCK", h, "", "f", real)->status(), 204);
  EXPECT_FALSE(DAVResponse::initWithMethod("UNLOCK", h, "", "gone", real));
  EXPECT_EQ(DAVResponse::initWithMethod("OPTIONS", h, "", "", real)->httpHeaders()["DAV"], "1");
  h.set("user-agent", "WebDAVFS/3.0.0 (03008000) Darwin/22.1.0");
  auto o = DAVResponse::initWithMethod("OPTIONS", h, "", "", real);
  EXPECT_EQ(o->httpHeaders()["DAV"], "1, 2");
  EXPECT_EQ(o->status(), 200);
  EXPECT_EQ(o->contentLength(), 0u);
  EXPECT_TRUE(o->isDone());
}

TEST_F(DAVConnectionTest, TraversalCorpusNeverEscapes) {
  test::ScratchDir outside;
  test::writeFile(outside / "secret", "secret");
  fs::create_directory(doc("in"));
  fs::create_directory_symlink(outside.path(), doc("out"));
  fs::create_symlink((outside / "secret").string(), doc("leak"));
  std::string o = outside.path().filename().string();
  const std::vector<std::string> targets = {"/../" + o + "/secret",
                                            "/in/../../" + o + "/secret",
                                            "/%2e%2e/" + o + "/secret",
                                            "/in/%2E%2E/%2e%2e/" + o,
                                            "/..%2f" + o + "%2fsecret",
                                            "/%252e%252e/" + o,
                                            "/in%2f..%2f..%2f" + o,
                                            "/secret%00.txt",
                                            "/out/secret",
                                            "/out",
                                            "/leak",
                                            "/in/..\\..\\" + o,
                                            "/./in/../../" + o + "/secret"};
  int escapes = 0;
  for (const auto& t : targets) {
    for (std::string method : {"GET", "PUT", "DELETE", "PROPFIND", "MKCOL", "LOCK"}) {
      std::string extra = method == "PROPFIND" ? "Depth: 1\r\n" : "Depth: 0\r\n";
      std::string r = request(method, t, extra, method == "PUT" ? "pwned" : "");
      if (status(r) != 404 || r.find("secret") != std::string::npos) {
        ++escapes;
        ADD_FAILURE() << method << " " << t << " -> " << test::statusLine(r);
      }
    }
    // As a destination, and as a source.
    file("src", "pwned");
    for (std::string method : {"COPY", "MOVE"}) {
      std::string r = request(method, "/src", "Destination: " + url(t) + "\r\n");
      if (status(r) != 404) ++escapes, ADD_FAILURE() << method << " to " << t;
      r = request(method, t, "Destination: " + url("/got") + "\r\n");
      if (status(r) != 404) ++escapes, ADD_FAILURE() << method << " from " << t;
    }
  }
  EXPECT_EQ(escapes, 0);
  EXPECT_EQ(test::readFile(outside / "secret"), "secret");
  EXPECT_EQ(std::distance(fs::directory_iterator(outside.path()), fs::directory_iterator()), 1);
  EXPECT_FALSE(fs::exists(doc("got")));
  // The depth-1 listing leaves out what leads out.
  std::string list = bodyOf(request("PROPFIND", "/", "Depth: 1\r\n"));
  EXPECT_EQ(list.find("/out<"), std::string::npos);
  EXPECT_EQ(list.find("/leak<"), std::string::npos);
}

TEST_F(DAVConnectionTest, PasswordsComeBeforeBodiesAndLockedFoldersStayHidden) {
  LoginPasswordUtil::saveWifiPassword("pw");
  RawClient c(port_);
  c.send("PUT /x HTTP/1.1\r\nHost: " + host_ + "\r\nContent-Length: 100000\r\n\r\n" +
         std::string(1000, 'a'));
  std::string r = c.readResponse();
  EXPECT_EQ(status(r), 401);
  EXPECT_NE(headerOf(r, "WWW-Authenticate").find("Digest"), std::string::npos);
  EXPECT_FALSE(fs::exists(doc("x")));
  EXPECT_TRUE(tempEmpty());
  int rc = 0;
  test::shell("curl -s -o /dev/null --digest -u any:pw -T /etc/hostname " + url("/y"), &rc);
  EXPECT_EQ(rc, 0);
  EXPECT_TRUE(fs::exists(doc("y")));
  LoginPasswordUtil::saveWifiPassword("");

  file("box/locked/inner.txt", "hidden");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(doc("box/locked"), "pw2"));
  EXPECT_EQ(status(request("GET", "/box/locked/inner.txt")), 404);
  EXPECT_EQ(status(request("PROPFIND", "/box/locked", "Depth: 1\r\n")), 404);
  EXPECT_EQ(status(request("PUT", "/box/locked/new", "", "x")), 404);
  EXPECT_EQ(status(request("DELETE", "/box")), 403);
  EXPECT_EQ(status(request("MOVE", "/box", "Destination: " + url("/box2") + "\r\n")), 403);
  EXPECT_EQ(status(request("COPY", "/box", "Destination: " + url("/box2") + "\r\n")), 403);
  file("plain", "p");
  EXPECT_EQ(status(request("COPY", "/plain", "Destination: " + url("/box/locked/p") + "\r\n")),
            404);
  EXPECT_TRUE(fs::exists(doc("box/locked/inner.txt")));
  EXPECT_FALSE(fs::exists(doc("box2")));
}

TEST_F(DAVConnectionTest, NoBodyFileOutlivesItsRequest) {
  std::string big(5000, 'b');
  // Refused: not found, unsupported, or cut off half way.
  EXPECT_EQ(status(request("PUT", "/no/such/dir/f", "", big)), 403);
  EXPECT_EQ(status(request("LOCK", "/f", "Depth: 0\r\n", big)), 403);
  {
    RawClient c(port_);
    c.send("PUT /dropped HTTP/1.1\r\nHost: " + host_ + "\r\nContent-Length: 100000\r\n\r\n" + big);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  for (int i = 0; i < 50 && !tempEmpty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(tempEmpty());
  EXPECT_FALSE(fs::exists(doc("dropped")));
}

TEST_F(DAVConnectionTest, GetServesFilesAndFolderIndexes) {
  file("site/index.html", "<p>hi</p>");
  file("plain/a.txt", "a");
  EXPECT_EQ(bodyOf(request("GET", "/site/")), "<p>hi</p>");
  EXPECT_EQ(status(request("GET", "/plain")), 404);
  std::string r = request("HEAD", "/plain/a.txt");
  EXPECT_EQ(status(r), 200);
  EXPECT_EQ(headerOf(r, "Content-Length"), "1");
  EXPECT_EQ(bodyOf(r), "");
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

class ServeWarningTest : public test::TempHome {};

TEST_F(ServeWarningTest, WebDavOpenBeyondLoopbackWithoutPasswordWarns) {
  auto serve = [](const std::string& args) {
    return test::shell("timeout -s INT 2 " + std::string(HARBOR_BINARY_DIR) +
                       "/harbor serve --port 0 --webdav-port 0 " + args + " 2>&1 >/dev/null");
  };
  EXPECT_NE(serve("--bind 0.0.0.0").find("WebDAV is open to the network without a password"),
            std::string::npos);
  EXPECT_EQ(serve("--bind 127.0.0.1").find("WebDAV is open"), std::string::npos);
  EXPECT_EQ(serve("--bind 0.0.0.0 --no-webdav").find("WebDAV is open"), std::string::npos);
}

}  // namespace
}  // namespace harbor

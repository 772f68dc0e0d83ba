#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "NetTestClient.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "net/http/HTTPUtil.h"
#include "net/share/UHTTPConnection.h"
#include "net/share/UploadLineScanner.h"
#include "net/share/WiFiShare.h"
#include "platform/Resources.h"
#include "prefs/LoginPasswordUtil.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::bodyOf;
using test::headerOf;
using test::RawClient;
using test::statusLine;

class WebFileManagerTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    setenv("TZ", "UTC", 1);
    tzset();
    docs_ = FileUtil::documentDirectory();
    share_ = std::make_unique<WiFiShare>();
    share_->initHttpServer();
    share_->webServer()->setPort(0);
    share_->webServer()->setInterface("127.0.0.1");
    ASSERT_TRUE(share_->startHttpServer());
    port_ = share_->webServer()->listeningPort();
  }
  void TearDown() override {
    share_.reset();
    WiFiShareBase::removeAllLoginGuid();
    TempHome::TearDown();
  }
  std::string url(const std::string& target) const {
    return "http://127.0.0.1:" + std::to_string(port_) + target;
  }
  std::string request(const std::string& method, const std::string& target,
                      const std::string& body = "", const std::string& extra = "") {
    RawClient c(port_);
    std::string head = method + " " + target +
                       " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) +
                       "\r\nConnection: close\r\n" + extra;
    if (method == "POST") head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    c.send(head + "\r\n" + body);
    return c.readAll(3000);
  }
  std::string get(const std::string& target) { return bodyOf(request("GET", target)); }
  std::string post(const std::string& target, const std::string& body) {
    return bodyOf(
        request("POST", target, body, "Content-Type: application/x-www-form-urlencoded\r\n"));
  }
  void touch(const std::string& relative, const std::string& content = "x") {
    fs::create_directories(fs::path(docs_ + relative).parent_path());
    test::writeFile(docs_ + relative, content);
    FileUtil::setFileModifiedDate(std::chrono::system_clock::from_time_t(1700000000),
                                  docs_ + relative);
  }
  std::string multipart(const std::string& name, const std::string& content,
                        const std::string& type = "application/octet-stream") {
    return "--BND\r\nContent-Disposition: form-data; name=\"Filename\"\r\n\r\n" + name +
           "\r\n--BND\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + name +
           "\"\r\nContent-Type: " + type + "\r\n\r\n" + content + "\r\n--BND--\r\n";
  }
  std::string uploadMultipart(const std::string& folder, const std::string& name,
                              const std::string& content,
                              const std::string& type = "application/octet-stream") {
    return request("POST", folder + "?guid=g", multipart(name, content, type),
                   "Content-Type: multipart/form-data; boundary=BND\r\n");
  }
  std::string uploadAjax(const std::string& folder, const std::string& name,
                         const std::string& content) {
    return request("POST", folder + "?guid=g", content,
                   "Ajaxupload: 1\r\nX-File-Name: " + name + "\r\n");
  }
  bool tempUploadsEmpty() {
    std::error_code ec;
    return fs::is_empty(TempDirectoryUtil::httpServerDirectory(), ec);
  }

  std::string docs_;
  std::unique_ptr<WiFiShare> share_;
  std::uint16_t port_ = 0;
};

TEST_F(WebFileManagerTest, ListRepliesByteForByte) {
  touch("/b'q.txt", "abc");
  touch("/A/inner.txt");
  touch("/Inbox/hidden.txt");
  touch("/.DS_Store");
  FileUtil::setFileModifiedDate(std::chrono::system_clock::from_time_t(1700000000), docs_ + "/A");
  std::string expected =
      "{'isSecret':0,'isSame':1,'isDelete':0,'guid':'g1','detail':'Please input password',"
      "'root':0,'accesstype':15,'itemtext':'items','deletetext':'Delete',"
      "'ConfirmDelete':'Delete the selected items?','title':'Harbor','items':["
      "{'name':'A','url':'/A?type=child&guid=g1','downloadurl':'','iconurl':'','isdir':1,"
      "'id':0,'filesize':" +
      std::to_string(FileUtil::getFileSize(docs_ + "/A")) +
      ",'modDate':'2023-11-14 22:13:20','ispass':0,'count':1},"
      "{'name':'b\\'q.txt','url':'/b\\'q.txt?type=file&guid=g1',"
      "'downloadurl':'/b\\'q.txt?type=downloadtemp&guid=g1','iconurl':'','isdir':0,'id':1,"
      "'filesize':3,'modDate':'2023-11-14 22:13:20','ispass':0,'count':0}],'dir':'/'}";
  std::string r = request("GET", "/?type=list&guid=g1");
  EXPECT_EQ(headerOf(r, "Content-Type"), "text/plain");
  EXPECT_EQ(bodyOf(r), expected);
  // "Inbox" is hidden at the root only.
  touch("/A/Inbox/x");
  EXPECT_NE(get("/A?type=list&guid=g1").find("'name':'Inbox'"), std::string::npos);
  EXPECT_EQ(get("/?type=list&isFinished=0&guid=g1"), "{}");
  // A session without a guid is given one.
  EXPECT_EQ(get("/?type=list").find("'guid':''"), std::string::npos);
  std::string status = get("/?type=status&guid=none");
  EXPECT_NE(status.find(",'dir':'/','currentSize':0,'totalSize':0,'status':' ','path':'',"
                        "'isCancel':0,'isFinished':0}"),
            std::string::npos)
      << status;
}

TEST_F(WebFileManagerTest, FilesDownloadsAndTheIndexPage) {
  touch("/dir/a b.txt", "hello");
  touch("/dir/noext", "raw");
  std::string r = request("GET", "/dir/a%20b.txt?type=file&guid=g");
  EXPECT_EQ(bodyOf(r), "hello");
  EXPECT_EQ(headerOf(r, "Content-Security-Policy"), "sandbox");
  r = request("GET", "/dir/a%20b.txt?type=file&guid=g", "", "Range: bytes=1-2\r\n");
  EXPECT_EQ(bodyOf(r), "el");
  r = request("GET", "/dir/a%20b.txt?type=downloadtemp&guid=g");
  EXPECT_EQ(headerOf(r, "Content-Disposition"), "attachment; filename=\"a%20b.txt\"");
  EXPECT_EQ(headerOf(r, "Content-Type"), "application/octet-stream");
  r = request("GET", "/dir/noext?type=downloadtemp&guid=g");
  EXPECT_EQ(headerOf(r, "Content-Disposition"), "");
  EXPECT_EQ(bodyOf(r), "raw");
  EXPECT_EQ(statusLine(request("GET", "/dir/missing?type=file")), "HTTP/1.1 404 Not Found");
  std::string page = test::readFile(resourceDirectory() / "web" / "index.html");
  EXPECT_EQ(get("/dir?type=child&guid=g"), page);
  EXPECT_EQ(get("/anything/else"), page);
}

TEST_F(WebFileManagerTest, UploadsLandUnderFreeNamesAndLeaveNothingBehind) {
  fs::create_directories(docs_ + "/up");
  EXPECT_EQ(statusLine(uploadMultipart("/up", "a.txt", "one")), "HTTP/1.1 200 OK");
  uploadMultipart("/up", "a.txt", "two");
  EXPECT_EQ(test::readFile(docs_ + "/up/a.txt"), "one");
  EXPECT_EQ(test::readFile(docs_ + "/up/a 2.txt"), "two");
  uploadAjax("/up", "sp%20ace%E4%B8%AD.bin", std::string("\0\1\2", 3));
  EXPECT_EQ(test::readFile(docs_ + "/up/sp ace\xe4\xb8\xad.bin"), std::string("\0\1\2", 3));
  uploadAjax("/up", "empty.txt", "");
  EXPECT_TRUE(fs::exists(docs_ + "/up/empty.txt"));
  // Names keep only their leaf; nothing lands outside the folder.
  uploadAjax("/up", "..%2F..%2Fevil.txt", "e");
  uploadMultipart("/up", "C:\\\\dir\\\\win.txt", "w");
  uploadAjax("/up", "..", "dots");
  EXPECT_TRUE(fs::exists(docs_ + "/up/evil.txt"));
  EXPECT_FALSE(fs::exists(docs_ + "/evil.txt"));
  EXPECT_TRUE(fs::exists(docs_ + "/up/untitle"));
  uploadAjax("/up", "bad%00name.txt", "n");
  // A part that is not an octet stream is no upload.
  uploadMultipart("/up", "pic.png", "png", "image/png");
  EXPECT_FALSE(fs::exists(docs_ + "/up/pic.png"));
  // A form with too few head lines is dropped.
  request("POST", "/up?guid=g",
          "--BND\r\nContent-Type: application/octet-stream\r\n\r\ndata\r\n--BND--\r\n",
          "Content-Type: multipart/form-data; boundary=BND\r\n");
  auto names = FileUtil::getCurrentFilesAndFoldersFullPath(docs_ + "/up");
  EXPECT_EQ(names.size(), 7u);
  EXPECT_TRUE(fs::exists(docs_ + "/up/win.txt"));
  // An upload into a folder that does not exist, or outside the root: dropped.
  uploadAjax("/nope", "x.txt", "x");
  uploadAjax("/..%2F..", "x.txt", "x");
  EXPECT_FALSE(fs::exists(docs_ + "/nope"));
  EXPECT_TRUE(tempUploadsEmpty());
  // A body cut short leaves no file and no temporary.
  {
    RawClient c(port_);
    c.send(
        "POST /up?guid=g HTTP/1.1\r\nAjaxupload: 1\r\nX-File-Name: cut.txt\r\n"
        "Content-Length: 100\r\n\r\nonly-some");
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(fs::exists(docs_ + "/up/cut.txt"));
  EXPECT_TRUE(tempUploadsEmpty());
}

TEST_F(WebFileManagerTest, SimultaneousUploadsOfOneNameStayIntact) {
  fs::create_directories(docs_ + "/up");
  const int kUploads = 6;
  std::vector<std::thread> threads;
  for (int i = 0; i < kUploads; ++i) {
    threads.emplace_back([this, i] {
      uploadAjax("/up", "same.txt", std::string(200000, static_cast<char>('a' + i)));
    });
  }
  for (auto& t : threads) t.join();
  auto files = FileUtil::getCurrentFilesFullPath(docs_ + "/up");
  ASSERT_EQ(files.size(), static_cast<std::size_t>(kUploads));
  std::set<char> seen;
  for (const auto& f : files) {
    std::string content = test::readFile(f);
    ASSERT_EQ(content.size(), 200000u);
    EXPECT_EQ(content.find_first_not_of(content[0]), std::string::npos);
    seen.insert(content[0]);
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kUploads));
}

TEST_F(WebFileManagerTest, PathsFromUrlsAndFormsNeverLeaveTheRoot) {
  touch("/in/keep.txt");
  test::ScratchDir outside;
  test::writeFile(outside / "victim.txt", "v");
  fs::create_symlink(outside.path(), docs_ + "/in/out-link");
  const char* targets[] = {"/..",
                           "/%2e%2e",
                           "/..%2f",
                           "/%252e%252e%252f",
                           "/in/..%5c..",
                           "/in/out-link",
                           "/in/out-link/victim.txt",
                           "/in/%00keep.txt"};
  for (const char* t : targets) {
    for (const char* type : {"list", "file", "downloadtemp"}) {
      std::string r = request("GET", std::string(t) + "?type=" + type + "&guid=g");
      if (std::string(t).find("%25") != std::string::npos && std::string(type) == "list") {
        // Decoded once this is a strange but harmless name inside the root.
        continue;
      }
      EXPECT_TRUE(statusLine(r) == "HTTP/1.1 404 Not Found" ||
                  bodyOf(r).find("victim") == std::string::npos)
          << t << " " << type;
      EXPECT_EQ(bodyOf(r).find("'name':'victim.txt'"), std::string::npos) << t;
      EXPECT_NE(bodyOf(r), "v") << t << " " << type;
    }
  }
  // Only the folder's own children can be named.
  for (const char* name : {"..", "%252e%252e", "..%252fin", "out-link%252fvictim.txt",
                           "%2500keep.txt", "out-link", ".", "keep.txt%252f..%252f..%252fin"}) {
    request("POST", "/in?type=delete&guid=g", std::string("a=") + name);
    request("POST", "/in?type=zip&guid=g", std::string("a=") + name);
  }
  EXPECT_TRUE(fs::exists(outside / "victim.txt"));
  EXPECT_TRUE(fs::exists(docs_ + "/in/keep.txt"));
  request("POST", "/in?type=createdir&guid=g", "a=..%2F..%2Fmade");
  EXPECT_TRUE(fs::is_directory(docs_ + "/in/made"));
  EXPECT_FALSE(fs::exists(docs_ + "/made"));
}

TEST_F(WebFileManagerTest, FormsDeleteAndCreateFolders) {
  touch("/f/one.txt");
  touch("/f/two%.txt");
  touch("/f/three.txt");
  std::string r = post("/f?type=delete&guid=g", "b=one.txt&a=two%2525.txt");
  EXPECT_NE(r.find("'name':'three.txt'"), std::string::npos);
  EXPECT_FALSE(fs::exists(docs_ + "/f/one.txt"));
  EXPECT_FALSE(fs::exists(docs_ + "/f/two%.txt"));
  post("/f?type=createdir&guid=g", "n=new");
  r = post("/f?type=createdir&guid=g", "n=new");
  EXPECT_TRUE(fs::is_directory(docs_ + "/f/new"));
  EXPECT_TRUE(fs::is_directory(docs_ + "/f/new 2"));
  EXPECT_NE(r.find("'name':'new 2'"), std::string::npos);
  // Bodies too large, or posted by another site, are refused before reading.
  EXPECT_EQ(statusLine(request("POST", "/f?type=createdir", "", "Content-Length: 2000000\r\n")),
            "HTTP/1.1 400 Bad Request");
  EXPECT_EQ(
      statusLine(request("POST", "/f?type=createdir", "n=evil", "Origin: http://evil.example\r\n")),
      "HTTP/1.1 403 Forbidden");
  EXPECT_FALSE(fs::exists(docs_ + "/f/evil"));
  EXPECT_EQ(statusLine(request("POST", "/f?type=createdir", "n=ok",
                               "Origin: http://127.0.0.1:" + std::to_string(port_) + "\r\n")),
            "HTTP/1.1 200 OK");
}

TEST_F(WebFileManagerTest, PasswordsGuardEverythingBelowThem) {
  touch("/lock/inner/f.txt", "secret");
  touch("/open/g.txt", "g");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs_ + "/lock", "pw"));
  std::string r = get("/lock/inner?type=list&guid=s1");
  EXPECT_NE(r.find("'isSecret':1,'isSame':0"), std::string::npos) << r;
  EXPECT_NE(r.find("'root':1"), std::string::npos);
  EXPECT_EQ(r.find("'items':["), std::string::npos);
  EXPECT_EQ(statusLine(request("GET", "/lock/inner/f.txt?type=file&guid=s1")),
            "HTTP/1.1 404 Not Found");
  uploadAjax("/lock/inner", "dropped.txt", "d");
  EXPECT_FALSE(fs::exists(docs_ + "/lock/inner/dropped.txt"));
  EXPECT_EQ(post("/lock/inner?type=createdir&guid=s1", "n=x"),
            "{'isSecret':1,'isSame':0,'guid':'s1','detail':'','dir':'/lock/inner'}");
  // Deleting the locked folder itself from its parent needs its password.
  EXPECT_EQ(post("/?type=delete&guid=s1", "a=lock"),
            "{'isSecret':1,'isSame':0,'guid':'s1','detail':'','dir':'lock'}");
  EXPECT_TRUE(fs::exists(docs_ + "/lock"));
  // Wrong, then right.
  EXPECT_NE(get("/lock?type=list&guid=s1&password=no").find("'isSame':0"), std::string::npos);
  EXPECT_NE(get("/lock?type=list&guid=s1&password=pw").find("'isSame':1"), std::string::npos);
  EXPECT_NE(get("/lock/inner?type=list&guid=s1").find("'name':'f.txt'"), std::string::npos);
  EXPECT_EQ(get("/lock/inner/f.txt?type=file&guid=s1"), "secret");
  // Another session is still locked out.
  EXPECT_EQ(statusLine(request("GET", "/lock/inner/f.txt?type=file&guid=s2")),
            "HTTP/1.1 404 Not Found");
  // Two locked items at once cannot be handled in one go.
  touch("/lock2/h.txt");
  ASSERT_TRUE(FileManagerUtil::saveFilePassword(docs_ + "/lock2", "pw2"));
  std::string both = post("/?type=zip&guid=s3", "a=lock&b=lock2");
  EXPECT_NE(both.find("'detail':'More than one folder that contains the password, unable to do "
                      "directly!'"),
            std::string::npos);
}

TEST_F(WebFileManagerTest, WifiPasswordLocksTheWholeShare) {
  touch("/a.txt", "a");
  LoginPasswordUtil::saveWifiPassword("wifi");
  EXPECT_NE(get("/?type=list&guid=w").find("'isSecret':1,'isSame':0"), std::string::npos);
  EXPECT_EQ(statusLine(request("GET", "/a.txt?type=file&guid=w")), "HTTP/1.1 404 Not Found");
  EXPECT_NE(get("/?type=list&guid=w&password=wifi").find("'name':'a.txt'"), std::string::npos);
  EXPECT_EQ(get("/a.txt?type=file&guid=w"), "a");
}

TEST_F(WebFileManagerTest, ZipDownloadThroughStatusPolling) {
  touch("/z/one.txt", "1111");
  touch("/z/sub/two.txt", "22");
  std::string r = post("/z?type=zip&guid=zz", "a=one.txt&b=sub");
  EXPECT_EQ(r, "{'isSecret':1,'isSame':1,'guid':'zz','detail':'','dir':'/z'}");
  std::string status;
  for (int i = 0; i < 100; ++i) {
    status = get("/z?type=status&guid=zz");
    if (status.find("'isFinished':1") != std::string::npos) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_NE(status.find("'isCancel':0,'isFinished':1"), std::string::npos) << status;
  std::size_t p = status.find("'path':'") + 8;
  std::string path = status.substr(p, status.find('\'', p) - p);
  ASSERT_EQ(path.rfind("/WifiShareZip/", 0), 0u) << path;
  std::string zip = get(HTTPUtil::percentEscape(path) + "?type=supportfile&guid=zz");
  test::ScratchDir out;
  test::writeFile(out / "got.zip", zip);
  std::string listing = test::shell("unzip -l '" + (out / "got.zip").string() + "'");
  EXPECT_NE(listing.find("one.txt"), std::string::npos) << listing;
  EXPECT_NE(listing.find("sub/two.txt"), std::string::npos) << listing;
  // supportfile serves nothing else of Application Support.
  test::writeFile(fs::path(FileUtil::appliationSupportDirectory()) / "private.txt", "p");
  EXPECT_EQ(statusLine(request("GET", "/private.txt?type=supportfile")), "HTTP/1.1 404 Not Found");
  EXPECT_EQ(statusLine(request("GET", "/WifiShareZip/..%2Fprivate.txt?type=supportfile")),
            "HTTP/1.1 404 Not Found");
}

TEST(UploadLineScannerTest, FindsTheFileOnlyInTheExpectedForm) {
  UploadLineScanner s("B");
  std::string body =
      "--B\r\nContent-Disposition: form-data; name=\"Filename\"\r\n\r\nx.txt\r\n--B\r\n"
      "Content-Disposition: form-data; name=\"f\"; filename=\"C:\\dir\\x.txt\"\r\n"
      "Content-Type: application/octet-stream\r\n\r\nDATA\r\n--B--\r\n";
  auto start = s.scanHead(body);
  ASSERT_TRUE(start.found);
  EXPECT_EQ(UploadLineScanner::uploadLeafName(start.name), "x.txt");
  EXPECT_EQ(start.data, "DATA");
  EXPECT_TRUE(s.fileEnded());
  EXPECT_EQ(s.fileData("more"), "");

  UploadLineScanner open("B");
  const std::string cut = body.substr(0, body.find("DATA") + 2);  // the data is a view into it
  auto first = open.scanHead(cut);
  EXPECT_EQ(first.data, "DA");
  EXPECT_EQ(open.fileData("TA\r\n--B--\r\n"), "TA");
  EXPECT_EQ(UploadLineScanner::uploadLeafName("a/b"), "b");
  EXPECT_EQ(UploadLineScanner::uploadLeafName("a/"), "untitle");
  EXPECT_EQ(UploadLineScanner::uploadLeafName(std::string("a\0b", 3)), "");
}

}  // namespace
}  // namespace harbor

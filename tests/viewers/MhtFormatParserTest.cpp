#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "filemanager/FileUtil.h"
#include "platform/Unicode.h"
#include "support/TestSupport.h"
#include "viewers/mht/MhtFormatParser.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

// One part of a hand-written archive.
struct Part {
  std::string head;  // header lines joined by "\n"
  std::string body;  // lines joined by "\n"
};

// An archive with the line end `nl` throughout.
std::string archive(const std::vector<Part>& parts, const std::string& nl,
                    const std::string& extraTopHead = "") {
  auto lines = [&](const std::string& s) {
    std::string out;
    for (char c : s) {
      if (c == '\n')
        out += nl;
      else
        out += c;
    }
    return out;
  };
  std::string a = lines(
      "From: <Saved by a browser>\nSubject: =?UTF-8?B?w6l0w6k=?=\nMIME-Version: 1.0\n"
      "Content-Type: multipart/related;\n\ttype=\"text/html\";\n\tboundary=\"----B0\"" +
      extraTopHead + "\n\nThis is a preamble.\n");
  for (const auto& p : parts) a += lines("------B0\n" + p.head + "\n\n" + p.body + "\n");
  a += lines("------B0--\n");
  return a;
}

const char* kPage =
    "<html><head><base href=3D\"http://h.test/\">\n"
    "<link rel=3D\"stylesheet\" href=3D\"http://h.test/css/site.css\"></head>\n"
    "<body><img src=3D\"http://h.test/img/a.png?v=3D1\"><img src=3D'http://h.test/img/a.png?v=\n"
    "=3D2'>\n"
    "<p>see http://h.test/img/a.png?v=3D1 and src=3Dhttp://h.test/img/a.png?v=3D1</p>\n"
    "<iframe src=3D\"cid:frame-1@test\"></iframe></body></html>";

std::vector<Part> samplePage() {
  return {
      {"Content-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n"
       "Content-Location: http://h.test/index.php",
       kPage},
      {"Content-Type: text/css\nContent-Transfer-Encoding: quoted-printable\n"
       "Content-Location: http://h.test/css/site.css",
       "body { background: url(\"http://h.test/img/a.png?v=3D1\") }"},
      // "\x89PNG" and a few bytes.
      {"Content-Type: image/png\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/img/a.png?v=1",
       "iVBORw0K\nGgo="},
      {"Content-Type: image/png\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/img/a.png?v=2",
       "iVBORw0KGgoB"},
      {"Content-Type: application/octet-stream\nContent-Transfer-Encoding: quoted-printable\n"
       "Content-ID: <frame-1@test>\nContent-Location: http://h.test/frame",
       "<html><body>frame</body>\n</html>"},
  };
}

class MhtTest : public TempHome {
 protected:
  std::shared_ptr<MhtFormatParser> parse(const std::string& data) {
    auto p = MhtFormatParser::instanceWithData(data);
    rootPath = p->parser();
    return p;
  }
  // Relative path to content, for every file under the unpacked folder.
  static std::map<std::string, std::string> tree(const std::string& folder) {
    std::map<std::string, std::string> out;
    for (const auto& e : fs::recursive_directory_iterator(folder)) {
      if (e.is_regular_file()) out[fs::relative(e.path(), folder).string()] = readFile(e.path());
    }
    return out;
  }
  std::string rootPath;
};

TEST_F(MhtTest, UnpacksAndRewritesOnlyAttributeValues) {
  auto p = parse(archive(samplePage(), "\r\n"));
  ASSERT_FALSE(rootPath.empty());
  EXPECT_EQ(p->subject(), "\xC3\xA9t\xC3\xA9");
  const auto files = tree(p->tempRootPath());
  ASSERT_EQ(files.size(), 5u) << ::testing::PrintToString(files);
  ASSERT_TRUE(files.count("index.html"));
  // Same name in the same folder: the second gets a number.
  EXPECT_TRUE(files.count("img/a.png"));
  EXPECT_TRUE(files.count("img/a 2.png"));
  EXPECT_EQ(files.at("img/a.png"), "\x89PNG\r\n\x1A\n");
  EXPECT_TRUE(files.count("css/site.css"));
  // The octet-stream part that is markup became a page.
  ASSERT_TRUE(files.count("frame.html"));
  EXPECT_EQ(p->files().back()->_filetype, "text/html");

  const std::string& page = files.at("index.html");
  EXPECT_EQ(page.find("<base"), std::string::npos) << page;
  EXPECT_NE(page.find("<img src=\"img/a.png\">"), std::string::npos) << page;
  EXPECT_NE(page.find("<img src='img/a%202.png'>"), std::string::npos) << page;
  EXPECT_NE(page.find("href=\"css/site.css\""), std::string::npos) << page;
  EXPECT_NE(page.find("<iframe src=\"frame.html\">"), std::string::npos) << page;
  // Body text that only looks like a reference stays.
  EXPECT_NE(page.find("<p>see http://h.test/img/a.png?v=1 and src=http://h.test/img/a.png?v=1</p>"),
            std::string::npos)
      << page;
  // Style sheets are rewritten as text, relative to their own folder.
  EXPECT_EQ(files.at("css/site.css"), "body { background: url(\"../img/a.png\") }");
  EXPECT_EQ(rootPath, p->tempRootPath() + "/index.html");
}

TEST_F(MhtTest, LineFeedsAndCrLfGiveTheSameFiles) {
  auto crlf = parse(archive(samplePage(), "\r\n"));
  const auto a = tree(crlf->tempRootPath());
  auto lf = parse(archive(samplePage(), "\n"));
  const auto b = tree(lf->tempRootPath());
  ASSERT_EQ(a.size(), b.size());
  for (const auto& [path, content] : a) {
    ASSERT_TRUE(b.count(path)) << path;
    std::string x = content, y = b.at(path);
    // Text parts keep the archive's own line ends inside them.
    std::erase(x, '\r');
    std::erase(y, '\r');
    EXPECT_EQ(x, y) << path;
  }
  EXPECT_EQ(a.at("img/a.png"), b.at("img/a.png"));
}

TEST_F(MhtTest, StartNamesTheRootAndCharsetsAreKept) {
  std::vector<Part> parts = {
      {"Content-Type: text/css\nContent-Location: http://h.test/a.css", "p{}"},
      {"Content-Type: text/html; charset=windows-1251\nContent-Transfer-Encoding: "
       "quoted-printable\nContent-ID: <main>\nContent-Location: http://h.test/ru/page.html",
       "<html><head><link href=3D\"http://h.test/a.css\"></head><body>=CF=F0=E8=E2=E5=F2</body>"
       "</html>"},
  };
  auto p = parse(archive(parts, "\r\n", ";\n\tstart=\"<main>\""));
  ASSERT_FALSE(rootPath.empty());
  ASSERT_EQ(p->rootFile()->_cid, "cid:main");
  EXPECT_EQ(p->files().front(), p->rootFile());
  EXPECT_EQ(p->rootFile()->_charset, "windows-1251");
  const auto files = tree(p->tempRootPath());
  // Written back in its own charset, with the style sheet above it.
  EXPECT_EQ(files.at("index.html"),
            "<html><head><link href=\"_/a.css\"></head><body>\xCF\xF0\xE8\xE2\xE5\xF2</body>"
            "</html>");
  EXPECT_TRUE(files.count("_/a.css"));

  // A start naming no part leaves the first part as root.
  auto q = parse(archive(parts, "\r\n", ";\n\tstart=\"<nothing>\""));
  ASSERT_TRUE(q->rootFile());
  EXPECT_EQ(q->rootFile()->_location, "http://h.test/a.css");
}

TEST_F(MhtTest, EveryFileLandsInsideTheArchiveFolder) {
  const std::string longName(300, 'n');
  std::vector<Part> parts = {
      {"Content-Type: text/html\nContent-Location: http://h.test/a/b/", "<html></html>"}};
  for (const std::string& loc :
       {std::string("../../x.png"), std::string("file:///etc/x.png"), std::string("C:\\x.png"),
        std::string("http://h.test/../../../../etc/y.png"), std::string("/etc/z.png"),
        std::string("http://h.test/") + longName + ".png",
        std::string("http://h.test/") + longName + ".png?again", std::string("..\\..\\w.png"),
        std::string("http://h.test/%2e%2e/v.png"), std::string("http://h.test/a/.."),
        std::string("http://h.test/nul\0name/a\0b.png", 30)}) {
    parts.push_back(
        {"Content-Type: image/png\nContent-Transfer-Encoding: base64\n"
         "Content-Location: " +
             loc,
         "iVBORw0KGgo="});
  }
  parts.push_back(
      {"Content-Type: image/png\nContent-Transfer-Encoding: base64\n"
       "Content-Disposition: inline; filename=\"nul\x01.png\"",
       "iVBORw0KGgo="});
  auto p = parse(archive(parts, "\r\n"));
  ASSERT_FALSE(rootPath.empty());
  const fs::path base = fs::canonical(p->tempRootPath());
  ASSERT_EQ(p->files().size(), parts.size());
  for (const auto& f : p->files()) {
    const fs::path full = fs::canonical(f->fullPath());
    EXPECT_EQ(full.string().rfind(base.string() + "/", 0), 0u) << f->_location;
    EXPECT_LE(f->_fileName.size(), 255u);
    EXPECT_EQ(f->_fileName.find('\0'), std::string::npos);
    EXPECT_TRUE(fs::exists(full)) << f->_location;
  }
  EXPECT_EQ(tree(p->tempRootPath()).size(), parts.size());
}

TEST_F(MhtTest, DamagedArchivesEndQuietly) {
  // Nesting deeper than anyone writes.
  std::string deep = "Content-Type: multipart/related; boundary=\"b0\"\r\n\r\n";
  std::string tail;
  for (int i = 1; i < 60; ++i) {
    deep += "--b" + std::to_string(i - 1) + "\r\nContent-Type: multipart/mixed; boundary=\"b" +
            std::to_string(i) + "\"\r\n\r\n";
  }
  deep += "--b59\r\nContent-Type: text/html\r\n\r\n<p>deep</p>\r\n--b59--\r\n";
  parse(deep);
  EXPECT_TRUE(rootPath.empty());

  const std::vector<std::string> damaged = {
      "",
      "no line end at all",
      "Content-Type: text/html\r\n",
      // Unclosed and empty boundaries.
      "Content-Type: multipart/related; boundary=x\r\n\r\n--x\r\nContent-Type: text/html\r\n\r\n"
      "<p>open",
      "Content-Type: multipart/related; boundary=\"\"\r\n\r\n--\r\n\r\n--\r\n--\r\n",
      "Content-Type: multipart/related\r\n\r\n--\r\nContent-Type: text/html\r\n\r\nx\r\n",
      // Truncated base64 and a final "=".
      "Content-Type: image/png\r\nContent-Transfer-Encoding: base64\r\n\r\niVBORw0KG",
      "Content-Type: text/html\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\nabc=",
      "Content-Type: text/html\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n=4",
      "Content-Type: text/html\r\n\r\n<base href=\"x\"",
      "Content-Type: multipart/related; boundary=a; start=\"<>\"\r\n\r\n--a--\r\n",
  };
  for (const auto& d : damaged) {
    auto p = parse(d);
    (void)p;
  }
  // Unclosed: the last part still counts.
  auto p = parse(damaged[3]);
  ASSERT_FALSE(rootPath.empty());
  EXPECT_EQ(readFile(rootPath), "<p>open");
  // Bytes no charset decodes whole (a binary part) still leave the page.
  std::string binary;
  for (int i = 0; i < 256; ++i) binary += static_cast<char>(i);
  auto bin =
      parse(archive({{"Content-Type: text/html\nContent-Location: http://h.test/", "<p>page</p>"},
                     {"Content-Type: image/png\nContent-Transfer-Encoding: binary\n"
                      "Content-Location: http://h.test/b.png",
                      binary}},
                    "\r\n"));
  ASSERT_FALSE(rootPath.empty());
  EXPECT_EQ(readFile(rootPath), "<p>page</p>");
  EXPECT_EQ(bin->encodingName(), "ISO-8859-1");
  auto qp = parse(damaged[7]);
  ASSERT_FALSE(rootPath.empty());
  EXPECT_EQ(readFile(rootPath), "abc=");
}

// Large base64 bodies read from a file go to disk as they are read; the
// files must come out exactly as when the archive is parsed in memory.
TEST_F(MhtTest, ArchiveFromDiskMatchesTheInMemoryParse) {
  std::string noise;
  std::uint32_t x = 12345;
  for (int i = 0; i < 300000; ++i) {
    x = x * 1664525u + 1013904223u;
    noise += static_cast<char>(x >> 24);
  }
  auto wrapped = [](const std::string& b64) {
    std::string out;
    for (std::size_t i = 0; i < b64.size(); i += 76) out += b64.substr(i, 76) + "\n";
    return out;
  };
  const std::string big = MhtFormatParser::btoa(noise);
  std::vector<Part> parts = samplePage();
  parts.push_back(
      {"Content-Type: image/png\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/img/big.png",
       wrapped(big)});
  // A truncated last group, a "=" inside, blank lines: decoded as atob does.
  parts.push_back(
      {"Content-Type: image/jpeg\nContent-Transfer-Encoding: BASE64\n"
       "Content-Location: http://h.test/img/odd.jpg",
       wrapped(big.substr(0, 100000)) + "QQ==QUJD\n\n" + big.substr(0, 99999)});
  // A stray line that is no base64 ends the run early; it still belongs to
  // the body.
  parts.push_back(
      {"Content-Type: font/woff\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/f.woff",
       wrapped(big.substr(0, 90000)) + "not base64!\n" + big.substr(0, 4000)});
  // The same where the stray line cuts a group of four letters in two.
  parts.push_back(
      {"Content-Type: font/woff2\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/g.woff2",
       wrapped(big.substr(0, 90001)) + "\x01\n" + big.substr(1, 4003)});
  // Too small to go to disk, and a page, which never does.
  parts.push_back(
      {"Content-Type: image/gif\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/small.gif",
       "R0lGODlh"});
  parts.push_back(
      {"Content-Type: text/html\nContent-Transfer-Encoding: base64\n"
       "Content-Location: http://h.test/other.html",
       wrapped(MhtFormatParser::btoa(std::string(100000, 'p')))});
  for (const std::string nl : {"\r\n", "\n"}) {
    const std::string data = archive(parts, nl);
    const std::string path = (home() / "big.mht").string();
    writeFile(path, data);
    auto fromData = parse(data);
    ASSERT_FALSE(rootPath.empty());
    const auto expected = tree(fromData->tempRootPath());
    auto fromFile = MhtFormatParser::instanceWithFileURL(path);
    ASSERT_FALSE(fromFile->parser().empty());
    const auto got = tree(fromFile->tempRootPath());
    ASSERT_EQ(got.size(), expected.size());
    for (const auto& [name, content] : expected) {
      ASSERT_TRUE(got.count(name)) << name;
      EXPECT_TRUE(got.at(name) == content) << name;
    }
    EXPECT_EQ(got.at("img/big.png"), noise);
    // Nothing is left beside the unpacked folders.
    for (const auto& e : fs::directory_iterator(MhtFormatParser::mhtTempDirectory())) {
      EXPECT_EQ(e.path().filename().string().find(".spool"), std::string::npos);
    }
  }
}

TEST(MhtCodecs, Base64AndQuotedPrintable) {
  for (const std::string& s :
       {std::string(), std::string("a"), std::string("ab"), std::string("abc"), std::string("abcd"),
        std::string("\x00\xff\x10\x80\x7f", 5)}) {
    EXPECT_EQ(MhtFormatParser::atob(std::string_view(MhtFormatParser::btoa(s))), s);
  }
  EXPECT_EQ(MhtFormatParser::btoa("ab"), "YWI=");
  // Line ends inside the text and a missing last group.
  EXPECT_EQ(MhtFormatParser::atob(std::string_view("YW\r\nJj\nZA")), "abcd");
  EXPECT_EQ(MhtFormatParser::atob(std::string_view("YWJjZA==")), "abcd");
  // Decoding in pieces gives the same bytes wherever the text is cut.
  const std::string text = "YW\r\nJjZA==QUJD\nRA";
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    MhtFormatParser::Base64Stream stream;
    std::string out;
    stream.feed(std::string_view(text).substr(0, cut), out);
    stream.feed(std::string_view(text).substr(cut), out);
    stream.finish(out);
    EXPECT_EQ(out, MhtFormatParser::atob(std::string_view(text))) << cut;
    // Stopped there instead, the unfinished group decodes with the rest.
    MhtFormatParser::Base64Stream head;
    std::string first;
    head.feed(std::string_view(text).substr(0, cut), first);
    EXPECT_EQ(first + MhtFormatParser::atob(head.unfinished() + "\n" + text.substr(cut)),
              MhtFormatParser::atob(std::string_view(text)))
        << cut;
  }
  EXPECT_EQ(MhtFormatParser::decodeQuotedPrintable("a=3d=3Db=e9c=\n=4"),
            "a==b\xE9"
            "c=\n=4");
  EXPECT_EQ(MhtFormatParser::decodeQuotedPrintable("=4x=4"), "=4x=4");
  EXPECT_EQ(MhtFormatParser::unescape("%41%zz%4"), "A%zz%4");
}

TEST(MhtCodecs, EncodedWordsAndParameters) {
  EXPECT_EQ(toUtf8(MhtFormatParser::decodeEW(u"=?UTF-8?B?w6l0w6k=?=")), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(toUtf8(MhtFormatParser::decodeEW(u"=?ISO-8859-1?Q?caf=E9_au?= =?ISO-8859-1?Q?_lait?=")),
            "caf\xC3\xA9 au lait");
  EXPECT_EQ(MhtFormatParser::decodeEW(u"plain =?UTF-8?B?w6k=?="), u"plain =?UTF-8?B?w6k=?=");
  EXPECT_EQ(MhtFormatParser::decodeEW(u"=?no-such-charset?B?YQ==?="), u"");
  EXPECT_EQ(MhtFormatParser::decodeEW(u"=?UTF-8?X?abc?="), u"=?UTF-8?X?abc?=");

  auto v = MhtFormatParser::parseValue(
      u"text/html; charset=\"windows-1251\"; name='a b.html'; boundary=x", true);
  EXPECT_EQ(v["_"], u"text/html");
  EXPECT_EQ(v["charset"], u"windows-1251");
  EXPECT_EQ(v["name"], u"a b.html");
  EXPECT_EQ(v["boundary"], u"x");
  // A first token without "/" is no type.
  EXPECT_EQ(MhtFormatParser::parseValue(u"html; charset=x", true).count("_"), 0u);
  EXPECT_EQ(MhtFormatParser::parseValue(u"inline; filename=a.png", false)["_"], u"inline");

  // RFC 2231: pieces in order, the first with charset and language.
  auto d = MhtFormatParser::parseValue(
      u"attachment; filename*1=\".png\"; filename*0*=UTF-8''%E4%BD%A0", false);
  EXPECT_EQ(toUtf8(d["filename"]), "\xE4\xBD\xA0.png");
  auto e = MhtFormatParser::parseValue(u"inline; filename*=iso-8859-1'fr'%E9t%E9.txt", false);
  EXPECT_EQ(toUtf8(e["filename"]), "\xC3\xA9t\xC3\xA9.txt");
}

TEST_F(MhtTest, FreeNamesAgainstTakenPaths) {
  const std::unordered_set<std::string> taken = {"img/a.png", "img/a 2.png", "b"};
  EXPECT_EQ(FileUtil::getCreateFileName("img", "A", "png", taken), "img/A 3.png");
  EXPECT_EQ(FileUtil::getCreateFileName("", "b", "", taken), "b 2");
  EXPECT_EQ(FileUtil::getCreateFileName("", "c", "png", taken), "c.png");
}

TEST_F(MhtTest, ExtractCommand) {
  const fs::path file = root() / "saved page.mht";
  writeFile(file, archive(samplePage(), "\r\n"));
  const fs::path dest = root() / "out";
  auto r = runHarbor({"mht", "extract", file.string(), dest.string(), "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["root"], "saved page/index.html");
  EXPECT_EQ(j["subject"], "\xC3\xA9t\xC3\xA9");
  ASSERT_EQ(j["files"].size(), 5u);
  EXPECT_EQ(j["files"][0]["location"], "http://h.test/index.php");
  EXPECT_EQ(j["files"][2]["path"], "saved page/img/a.png");
  EXPECT_EQ(j["files"][4]["cid"], "cid:frame-1@test");
  EXPECT_EQ(j["files"][1]["type"], "text/css");
  for (const auto& f : j["files"]) EXPECT_TRUE(fs::exists(dest / f["path"].get<std::string>()));

  // A taken name gets a free one; text output is the root's path.
  r = runHarbor({"mht", "extract", file.string(), dest.string()});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, (dest / "saved page 2/index.html").string() + "\n");
  // Nothing is left behind in the temporary folder.
  const fs::path temp = MhtFormatParser::mhtTempDirectory();
  EXPECT_TRUE(!fs::exists(temp) || fs::is_empty(temp));

  writeFile(root() / "empty.mht", "Subject: nothing\r\n\r\n");
  r = runHarbor({"mht", "extract", (root() / "empty.mht").string(), dest.string()});
  EXPECT_EQ(r.code, 1);
  r = runHarbor({"mht", "extract", file.string()});
  EXPECT_EQ(r.code, 2);
}

}  // namespace
}  // namespace harbor::test

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "BookBuilder.h"
#include "support/TestSupport.h"
#include "viewers/epub/EpubReader.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

std::string package(const std::string& metadata, const std::string& manifest,
                    const std::string& spine, const std::string& extra = "") {
  return "<?xml version=\"1.0\"?>\n<package xmlns=\"http://www.idpf.org/2007/opf\" "
         "version=\"3.0\">\n<metadata xmlns:dc=\"http://purl.org/dc/elements/1.1/\">" +
         metadata + "</metadata>\n<manifest>" + manifest + "</manifest>\n<spine>" + spine +
         "</spine>" + extra + "</package>\n";
}

class EpubReaderTest : public ::testing::Test {
 protected:
  // Unpacks `files` and reads them both ways.
  void read(const BookFiles& files) {
    writeFolder(dir.path(), files);
    tree = std::make_unique<EpubReader>(dir.path().string());
    tree->parser();
    streaming = std::make_unique<EpubReader>(dir.path().string());
    streaming->parserStreaming();
  }
  void expectEmpty(const EpubReader& r) {
    EXPECT_TRUE(r.metadataInfo().empty());
    EXPECT_TRUE(r.manifestItemDict().empty());
    EXPECT_TRUE(r.spalItemList().empty());
    EXPECT_TRUE(r.guideList().empty());
    EXPECT_TRUE(r.chapters().empty());
  }
  ScratchDir dir;
  std::unique_ptr<EpubReader> tree, streaming;
};

TEST_F(EpubReaderTest, Epub3BookReadsAlikeBothWaysWithSpineOrderAsWritten) {
  read(epub3Book());
  EXPECT_EQ(tree->containFullPath(), "OEBPS/content.opf");
  EXPECT_EQ(tree->containMediaType(), "application/oebps-package+xml");
  EXPECT_EQ(tree->metadataInfo().at("dc:title"), "Les Misérables — 第一巻");
  EXPECT_EQ(tree->metadataInfo().at("dc:creator"), "Victor Hugo");
  EXPECT_EQ(tree->metadataInfo().count("dc:publisher"), 0u);
  EXPECT_EQ(tree->spalItemList(), (std::vector<std::string>{"c3", "c1", "nav", "c2"}));
  // Hrefs are URLs: escapes are undone and they resolve against the package's folder.
  EXPECT_EQ(tree->chapters(),
            (std::vector<std::string>{"OEBPS/Text/chapter3.xhtml", "OEBPS/Text/chapter 1.xhtml",
                                      "OEBPS/nav.xhtml", "OEBPS/Text/chapter2.xhtml"}));
  EXPECT_EQ(tree->manifestItemDict().at("c1"),
            (EpubReader::Record{{"href", "Text/chapter%201.xhtml"},
                                {"id", "c1"},
                                {"media-type", "application/xhtml+xml"}}));

  EXPECT_EQ(streaming->metadataInfo(), tree->metadataInfo());
  EXPECT_EQ(streaming->spalItemList(), tree->spalItemList());
  EXPECT_EQ(streaming->chapters(), tree->chapters());
  // Streaming keeps every attribute as written, the tree only the three.
  EXPECT_EQ(streaming->manifestItemDict().at("nav").at("properties"), "nav");
  EXPECT_EQ(tree->manifestItemDict().at("nav").count("properties"), 0u);
}

TEST_F(EpubReaderTest, Epub2GuideOnlyOnTheTreePath) {
  read(epub2Book());
  ASSERT_EQ(tree->guideList().size(), 2u);
  EXPECT_EQ(
      tree->guideList()[1],
      (EpubReader::Record{{"href", "ch1.xhtml#start"}, {"type", "text"}, {"title", "Start"}}));
  EXPECT_TRUE(streaming->guideList().empty());
  EXPECT_EQ(tree->metadataInfo().at("dc:creator"), "Jörg Müller");
  EXPECT_EQ(tree->metadataInfo(), streaming->metadataInfo());
  EXPECT_EQ(tree->chapters(), (std::vector<std::string>{"cover.xhtml", "ch1.xhtml"}));
}

TEST_F(EpubReaderTest, BrokenItemsAndDanglingIdrefs) {
  BookFiles f;
  f["META-INF/container.xml"] = container(rootfile("p.opf"));
  f["p.opf"] = package("<dc:title>T</dc:title><dc:title>Second</dc:title>",
                       "<item href=\"noid.xhtml\" media-type=\"application/xhtml+xml\"/>"
                       "<item id=\"\" href=\"emptyid.xhtml\"/>"
                       "<item id=\"a\" href=\"a.xhtml\"/>"
                       "<item id=\"b\" href=\"old.xhtml\" media-type=\"x\"/>"
                       "<item id=\"b\" href=\"b.xhtml\" media-type=\"application/xhtml+xml\"/>",
                       "<itemref idref=\"ghost\"/><itemref idref=\"b\"/><itemref/>"
                       "<itemref idref=\"a\"/>",
                       "<guide><reference href=\"a.xhtml\"/></guide>");
  read(f);
  // No id: dropped. No media-type: kept, empty. A repeated id: the later wins.
  EXPECT_EQ(tree->manifestItemDict().size(), 2u);
  EXPECT_EQ(tree->manifestItemDict().at("a").at("media-type"), "");
  EXPECT_EQ(tree->manifestItemDict().at("b").at("href"), "b.xhtml");
  EXPECT_EQ(streaming->manifestItemDict().at("b").at("href"), "b.xhtml");
  EXPECT_EQ(tree->spalItemList(), (std::vector<std::string>{"ghost", "b", "a"}));
  EXPECT_EQ(tree->chapters(), (std::vector<std::string>{"b.xhtml", "a.xhtml"}));
  EXPECT_EQ(tree->metadataInfo().at("dc:title"), "T");  // the first one
  EXPECT_EQ(tree->guideList()[0],
            (EpubReader::Record{{"href", "a.xhtml"}, {"type", ""}, {"title", ""}}));
}

TEST_F(EpubReaderTest, OnlyTheFirstRootfileAndOnlyTheDcPrefixCount) {
  BookFiles f;
  f["META-INF/container.xml"] = container(rootfile("one.opf") + rootfile("two.opf"));
  f["one.opf"] =
      "<package xmlns=\"http://www.idpf.org/2007/opf\"><metadata "
      "xmlns:purl=\"http://purl.org/dc/elements/1.1/\"><purl:title>Hidden</purl:title>"
      "</metadata><manifest/><spine/></package>";
  f["two.opf"] = package("<dc:title>Two</dc:title>", "", "");
  read(f);
  EXPECT_EQ(tree->containFullPath(), "one.opf");
  EXPECT_TRUE(tree->metadataInfo().empty());
  EXPECT_TRUE(streaming->metadataInfo().empty());
}

TEST_F(EpubReaderTest, PathsLeavingTheFolderAreIgnored) {
  ScratchDir outside;
  writeFile(outside / "secret.opf", package("<dc:title>Stolen</dc:title>", "", ""));
  writeFile(outside / "secret.xhtml", "x");
  BookFiles f;
  f["META-INF/container.xml"] =
      container(rootfile("../" + outside.path().filename().string() + "/secret.opf"));
  read(f);
  EXPECT_TRUE(tree->containFullPath().empty());
  expectEmpty(*tree);

  ScratchDir book;
  BookFiles g;
  g["META-INF/container.xml"] = container(rootfile("OPS/p.opf"));
  g["OPS/p.opf"] = package("",
                           "<item id=\"up\" href=\"../../x.xhtml\"/>"
                           "<item id=\"abs\" href=\"/etc/passwd\"/>"
                           "<item id=\"web\" href=\"http://example.com/a.xhtml\"/>"
                           "<item id=\"lnk\" href=\"out/secret.xhtml\"/>"
                           "<item id=\"ok\" href=\"../top.xhtml\"/>",
                           "<itemref idref=\"up\"/><itemref idref=\"abs\"/><itemref idref=\"web\"/>"
                           "<itemref idref=\"lnk\"/><itemref idref=\"ok\"/>");
  writeFolder(book.path(), g);
  fs::create_directory_symlink(outside.path(), book / "OPS/out");
  EpubReader r(book.path().string());
  r.parser();
  EXPECT_EQ(r.manifestItemDict().size(), 5u);
  EXPECT_EQ(r.chapters(), (std::vector<std::string>{"top.xhtml"}));
}

TEST_F(EpubReaderTest, EntitiesAreNeverExpandedOrFetched) {
  ScratchDir secret;
  writeFile(secret / "passwd", "root:SECRET");
  const std::string xxe =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE package [<!ENTITY x SYSTEM \"file://" +
      (secret / "passwd").string() + "\">]>\n" +
      package("<dc:title>&x;</dc:title>", "<item id=\"a\" href=\"a\"/>", "");
  std::string lol = "<?xml version=\"1.0\"?>\n<!DOCTYPE package [<!ENTITY l0 \"lollollollol\">";
  for (int i = 1; i < 10; ++i)
    lol += "<!ENTITY l" + std::to_string(i) + " \"" + [&] {
      std::string s;
      for (int k = 0; k < 10; ++k) s += "&l" + std::to_string(i - 1) + ";";
      return s;
    }() + "\">";
  lol += "]>\n" + package("<dc:title>&l9;</dc:title>", "", "");
  for (const std::string& body : {xxe, lol}) {
    BookFiles f;
    f["META-INF/container.xml"] = container(rootfile("p.opf"));
    f["p.opf"] = body;
    ScratchDir d;
    writeFolder(d.path(), f);
    const auto start = std::chrono::steady_clock::now();
    EpubReader a(d.path().string()), b(d.path().string());
    a.parser();
    b.parserStreaming();
    for (const EpubReader* r : {&a, &b}) {
      for (const auto& [k, v] : r->metadataInfo()) {
        EXPECT_EQ(v.find("SECRET"), std::string::npos);
        EXPECT_LT(v.size(), 1000u);
      }
    }
    EXPECT_TRUE(a.metadataInfo().empty());
    // Not a timing assertion on speed, only a guard against exponential work.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  }
  // The container goes through the same lock-down.
  BookFiles c;
  c["META-INF/container.xml"] = "<?xml version=\"1.0\"?><!DOCTYPE c [<!ENTITY x SYSTEM \"file://" +
                                (secret / "passwd").string() +
                                "\">]><container><rootfiles><rootfile full-path=\"&x;\"/>"
                                "</rootfiles></container>";
  ScratchDir d;
  writeFolder(d.path(), c);
  EXPECT_TRUE(EpubReader(d.path().string()).containFullPath().empty());
}

TEST_F(EpubReaderTest, BrokenContainerOrPackageLeavesEmptyCollections) {
  for (const auto& [containerXml, packageXml] : std::vector<std::pair<std::string, std::string>>{
           {"not xml at all <<<", package("<dc:title>T</dc:title>", "", "")},
           {container("<rootfile media-type=\"x\"/>"), package("<dc:title>T</dc:title>", "", "")},
           {container("<rootfile full-path=\"p.opf\"/>"), "<package><metadata><dc:title>unclosed"},
           {container("<rootfile full-path=\"missing.opf\"/>"), ""},
           {"<container/>", ""}}) {
    ScratchDir d;
    writeFolder(d.path(), {{"META-INF/container.xml", containerXml}, {"p.opf", packageXml}});
    EpubReader a(d.path().string()), b(d.path().string());
    a.parser();
    b.parserStreaming();
    expectEmpty(a);
    expectEmpty(b);
  }
  EpubReader none((dir / "no-such-folder").string());
  none.parser();
  EXPECT_TRUE(none.containFullPath().empty());
  expectEmpty(none);
}

}  // namespace
}  // namespace harbor::test

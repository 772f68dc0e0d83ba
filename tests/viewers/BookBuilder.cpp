#include "BookBuilder.h"

#include <minizip/zip.h>

#include "support/TestSupport.h"

namespace harbor::test {

namespace {

bool addEntry(zipFile z, const std::string& name, const std::string& data, bool store) {
  zip_fileinfo info{};
  if (zipOpenNewFileInZip(z, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                          store ? 0 : Z_DEFLATED, store ? 0 : Z_DEFAULT_COMPRESSION) != ZIP_OK)
    return false;
  bool ok = zipWriteInFileInZip(z, data.data(), static_cast<unsigned>(data.size())) == ZIP_OK;
  return zipCloseFileInZip(z) == ZIP_OK && ok;
}

std::string xhtml(const std::string& title, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>" +
         title + "</title></head><body>" + body + "</body></html>\n";
}

}  // namespace

bool writeBook(const std::filesystem::path& out, const BookFiles& files, bool store) {
  zipFile z = zipOpen64(out.string().c_str(), APPEND_STATUS_CREATE);
  if (!z) return false;
  bool ok = addEntry(z, "mimetype", "application/epub+zip", true);
  for (const auto& [name, data] : files)
    if (name != "mimetype") ok = addEntry(z, name, data, store) && ok;
  return zipClose(z, nullptr) == ZIP_OK && ok;
}

void writeFolder(const std::filesystem::path& dir, const BookFiles& files) {
  for (const auto& [name, data] : files) {
    std::filesystem::create_directories((dir / name).parent_path());
    writeFile(dir / name, data);
  }
}

std::string rootfile(const std::string& fullPath, const std::string& mediaType) {
  return "<rootfile full-path=\"" + fullPath + "\" media-type=\"" + mediaType + "\"/>";
}

std::string container(const std::string& rootfiles) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<container version=\"1.0\" xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\">\n"
         "  <rootfiles>" +
         rootfiles + "</rootfiles>\n</container>\n";
}

BookFiles epub3Book() {
  BookFiles f;
  f["META-INF/container.xml"] = container(rootfile("OEBPS/content.opf"));
  f["OEBPS/content.opf"] = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="uid" xml:lang="fr">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="uid">urn:uuid:7f1c6d2e-3b4a-4c5d-9e8f-0a1b2c3d4e5f</dc:identifier>
    <dc:title>Les Misérables — 第一巻</dc:title>
    <dc:creator>Victor Hugo</dc:creator>
    <dc:language>fr</dc:language>
    <dc:date>1862-04-03</dc:date>
    <dc:subject>Roman</dc:subject>
    <meta property="dcterms:modified">2024-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>
    <item id="c1" href="Text/chapter%201.xhtml" media-type="application/xhtml+xml"/>
    <item id="c2" href="Text/chapter2.xhtml" media-type="application/xhtml+xml"/>
    <item id="c3" href="Text/chapter3.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine>
    <itemref idref="c3"/>
    <itemref idref="c1"/>
    <itemref idref="nav" linear="no"/>
    <itemref idref="c2"/>
  </spine>
</package>
)";
  f["OEBPS/nav.xhtml"] =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<html xmlns=\"http://www.w3.org/1999/xhtml\" xmlns:epub=\"http://www.idpf.org/2007/ops\">"
      "<head><title>Contents</title></head><body><nav epub:type=\"toc\"><ol>"
      "<li><a href=\"Text/chapter3.xhtml\">Three</a></li>"
      "<li><a href=\"Text/chapter%201.xhtml\">One</a></li>"
      "<li><a href=\"Text/chapter2.xhtml\">Two</a></li>"
      "</ol></nav></body></html>\n";
  f["OEBPS/Text/chapter 1.xhtml"] = xhtml("One", "<p>Premier.</p>");
  f["OEBPS/Text/chapter2.xhtml"] = xhtml("Two", "<p>Deuxième.</p>");
  f["OEBPS/Text/chapter3.xhtml"] = xhtml("Three", "<p>Troisième.</p>");
  return f;
}

BookFiles epub2Book() {
  BookFiles f;
  f["META-INF/container.xml"] = container(rootfile("content.opf"));
  f["content.opf"] = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="2.0" unique-identifier="bookid">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:opf="http://www.idpf.org/2007/opf">
    <dc:title>Über Straßen</dc:title>
    <dc:creator opf:role="aut">Jörg Müller</dc:creator>
    <dc:language>de</dc:language>
    <dc:identifier id="bookid">urn:isbn:9780000000002</dc:identifier>
    <dc:publisher>Harbor Press</dc:publisher>
    <dc:description>Zwei Kapitel.</dc:description>
  </metadata>
  <manifest>
    <item id="ncx" href="toc.ncx" media-type="application/x-dtbncx+xml"/>
    <item id="cover" href="cover.xhtml" media-type="application/xhtml+xml"/>
    <item id="ch1" href="ch1.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine toc="ncx">
    <itemref idref="cover"/>
    <itemref idref="ch1"/>
  </spine>
  <guide>
    <reference type="cover" title="Cover" href="cover.xhtml"/>
    <reference type="text" title="Start" href="ch1.xhtml#start"/>
  </guide>
</package>
)";
  f["toc.ncx"] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ncx xmlns="http://www.daisy.org/z3986/2005/ncx/" version="2005-1">
  <head><meta name="dtb:uid" content="urn:isbn:9780000000002"/><meta name="dtb:depth" content="1"/>
    <meta name="dtb:totalPageCount" content="0"/><meta name="dtb:maxPageNumber" content="0"/></head>
  <docTitle><text>Über Straßen</text></docTitle>
  <navMap>
    <navPoint id="np1" playOrder="1"><navLabel><text>Cover</text></navLabel><content src="cover.xhtml"/></navPoint>
    <navPoint id="np2" playOrder="2"><navLabel><text>Eins</text></navLabel><content src="ch1.xhtml"/></navPoint>
  </navMap>
</ncx>
)";
  f["cover.xhtml"] =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
      "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\">\n"
      "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Cover</title></head>"
      "<body><p>Cover</p></body></html>\n";
  f["ch1.xhtml"] =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
      "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\">\n"
      "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Eins</title></head>"
      "<body><p id=\"start\">Eins</p></body></html>\n";
  return f;
}

}  // namespace harbor::test

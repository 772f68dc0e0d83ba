// Opening generated books: our unpack and package read beside unzip -q plus
// xmllint --xpath on the container and the package, and a cached open in
// process.
//
//   epub_bench [--books N] [--dir PATH]

#include <minizip/zip.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/UserDefaults.h"
#include "viewers/epub/EpubReader.h"
#include "viewers/epub/EpubUtil.h"

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

void add(zipFile z, const std::string& name, const std::string& data, bool store) {
  zip_fileinfo info{};
  zipOpenNewFileInZip(z, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                      store ? 0 : Z_DEFLATED, store ? 0 : Z_DEFAULT_COMPRESSION);
  zipWriteInFileInZip(z, data.data(), static_cast<unsigned>(data.size()));
  zipCloseFileInZip(z);
}

// A book of 20 chapters of a few kilobytes each.
void makeBook(const fs::path& path, int n) {
  zipFile z = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  add(z, "mimetype", "application/epub+zip", true);
  add(z, "META-INF/container.xml",
      "<?xml version=\"1.0\"?><container version=\"1.0\" "
      "xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\"><rootfiles><rootfile "
      "full-path=\"OEBPS/content.opf\" media-type=\"application/oebps-package+xml\"/>"
      "</rootfiles></container>",
      false);
  std::string manifest, spine;
  for (int c = 0; c < 20; ++c) {
    const std::string id = "c" + std::to_string(c);
    manifest +=
        "<item id=\"" + id + "\" href=\"" + id + ".xhtml\" media-type=\"application/xhtml+xml\"/>";
    spine += "<itemref idref=\"" + id + "\"/>";
    std::string body;
    for (int p = 0; p < 40; ++p)
      body += "<p>Paragraph " + std::to_string(p) + " of chapter " + id + ".</p>";
    add(z, "OEBPS/" + id + ".xhtml",
        "<?xml version=\"1.0\"?><html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>" + id +
            "</title></head><body>" + body + "</body></html>",
        false);
  }
  add(z, "OEBPS/content.opf",
      "<?xml version=\"1.0\"?><package xmlns=\"http://www.idpf.org/2007/opf\" version=\"3.0\">"
      "<metadata xmlns:dc=\"http://purl.org/dc/elements/1.1/\"><dc:title>Book " +
          std::to_string(n) + "</dc:title><dc:language>en</dc:language></metadata><manifest>" +
          manifest + "</manifest><spine>" + spine + "</spine></package>",
      false);
  zipClose(z, nullptr);
}

double seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  int books = 200;
  fs::path base = fs::temp_directory_path();
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--books")) books = std::atoi(argv[i + 1]);
    if (!std::strcmp(argv[i], "--dir")) base = argv[i + 1];
  }
  const fs::path dir = base / ("epub_bench_" + std::to_string(::getpid()));
  const fs::path root = dir / "Documents";
  fs::create_directories(root);
  setenv("HARBOR_ROOT", root.c_str(), 1);
  setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
  harbor::UserDefaults::setStandard(std::make_shared<harbor::UserDefaults>());
  for (int i = 0; i < books; ++i) makeBook(root / ("b" + std::to_string(i) + ".epub"), i);

  std::size_t chapters = 0;
  auto start = Clock::now();
  for (int i = 0; i < books; ++i) {
    auto opened =
        harbor::EpubUtil::openBook((root / ("b" + std::to_string(i) + ".epub")).string(), nullptr);
    if (!opened) return 1;
    harbor::EpubReader reader(opened->folder);
    reader.parser();
    chapters += reader.chapters().size();
  }
  const double ours = seconds(start);

  start = Clock::now();
  for (int i = 0; i < books; ++i) {
    const std::string out = (dir / ("u" + std::to_string(i))).string();
    const std::string cmd =
        "unzip -q '" + (root / ("b" + std::to_string(i) + ".epub")).string() + "' -d '" + out +
        "' && xmllint --xpath 'string(//*[local-name()=\"rootfile\"]/@full-path)' '" + out +
        "/META-INF/container.xml' >/dev/null && xmllint --xpath "
        "'//*[local-name()=\"itemref\"]/@idref' '" +
        out + "/OEBPS/content.opf' >/dev/null";
    if (std::system(cmd.c_str()) != 0) return 1;
  }
  const double peer = seconds(start);

  start = Clock::now();
  for (int i = 0; i < books; ++i) {
    auto opened =
        harbor::EpubUtil::openBook((root / ("b" + std::to_string(i) + ".epub")).string(), nullptr);
    if (!opened || !opened->cached) return 1;
    harbor::EpubReader reader(opened->folder);
    reader.parser();
  }
  const double cached = seconds(start) / books;

  std::printf("%d books (%zu chapters): harbor %.3f s, unzip -q + xmllint %.3f s (x%.2f)\n", books,
              chapters, ours, peer, ours / peer);
  std::printf("cached open in process: %.3f ms per book (target under 5 ms)\n", cached * 1000);
  fs::remove_all(dir);
  return 0;
}

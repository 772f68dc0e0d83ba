#include "ViewerSamples.h"

#include <QBuffer>
#include <QFont>
#include <QImage>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <algorithm>
#include <fstream>

#include "archive/ZipBase.h"

namespace harbor::gui::samples {

namespace {
void write(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}
}  // namespace

std::string png(int w, int h, unsigned rgb) {
  QImage image(w, h, QImage::Format_RGB32);
  image.fill(QColor::fromRgb(rgb));
  QPainter p(&image);
  p.setPen(QPen(Qt::white, std::max(2, w / 20)));
  p.drawLine(0, h, w, 0);
  p.end();
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return bytes.toStdString();
}

void writePng(const fs::path& path, int w, int h, unsigned rgb) {
  write(path, png(w, h, rgb));
}

void writeEpub(const fs::path& path, int chapters) {
  const fs::path dir = path.parent_path() / (path.stem().string() + ".parts");
  write(dir / "mimetype", "application/epub+zip");
  write(dir / "META-INF/container.xml",
        "<?xml version=\"1.0\"?>\n<container version=\"1.0\" "
        "xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\"><rootfiles>"
        "<rootfile full-path=\"OEBPS/content.opf\" "
        "media-type=\"application/oebps-package+xml\"/></rootfiles></container>\n");
  std::string manifest, spine;
  for (int i = 1; i <= chapters; ++i) {
    const std::string n = std::to_string(i);
    manifest = "<item id=\"c" + n + "\" href=\"text/ch" + n +
               ".xhtml\" media-type=\"application/xhtml+xml\"/>" + manifest;
    // The spine, not the manifest, gives the order: the manifest lists
    // them backwards.
    spine += "<itemref idref=\"c" + n + "\"/>";
    std::string body = "<h1>Chapter " + n + "</h1><p>The harbour at dawn, page " + n +
                       ". Boats come in one by one and the gulls follow.</p>";
    if (i == 1) body += "<p><img src=\"http://127.0.0.1:9/remote.png\" alt=\"remote\"/></p>";
    write(dir / ("OEBPS/text/ch" + n + ".xhtml"),
          "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<html "
          "xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Chapter " +
              n + "</title><link rel=\"stylesheet\" href=\"../style.css\"/></head><body>" + body +
              "</body></html>\n");
  }
  write(dir / "OEBPS/style.css",
        "body{font-family:serif;margin:2em;line-height:1.5}h1{color:#246}");
  write(dir / "OEBPS/content.opf",
        "<?xml version=\"1.0\"?>\n<package xmlns=\"http://www.idpf.org/2007/opf\" version=\"2.0\" "
        "xmlns:dc=\"http://purl.org/dc/elements/1.1/\"><metadata><dc:title>Harbour "
        "Tales</dc:title><dc:creator>A. Writer</dc:creator></metadata><manifest>" +
            manifest + "</manifest><spine>" + spine + "</spine></package>\n");
  std::vector<std::string> sources;
  for (const char* top : {"mimetype", "META-INF", "OEBPS"}) sources.push_back((dir / top).string());
  // The writer goes by the extension: a book is a zip under another name.
  const fs::path zip = path.string() + ".zip";
  ArchiveFactory::createZipFactory(sources, nullptr, zip.string(), ZipPropertyOptions{});
  fs::rename(zip, path);
  fs::remove_all(dir);
}

void writeMht(const fs::path& path) {
  const std::string picture =
      QByteArray::fromStdString(png(120, 80, 0x2a7ab0)).toBase64().toStdString();
  std::string wrapped;
  for (std::size_t i = 0; i < picture.size(); i += 76) wrapped += picture.substr(i, 76) + "\r\n";
  const std::string mht =
      "From: <Saved by Harbor tests>\r\n"
      "Subject: Harbour page\r\n"
      "MIME-Version: 1.0\r\n"
      "Content-Type: multipart/related;\r\n\ttype=\"text/html\";\r\n\tboundary=\"----part\"\r\n"
      "\r\n"
      "------part\r\n"
      "Content-Type: text/html; charset=\"utf-8\"\r\n"
      "Content-Transfer-Encoding: 8bit\r\n"
      "Content-Location: http://harbour.example/index.html\r\n"
      "\r\n"
      "<html><head><title>Harbour page</title></head><body style=\"font-family:sans-serif\">"
      "<h1>Tide table</h1><p>High water at noon; the boat picture comes from the archive.</p>"
      "<img id=\"boat\" src=\"http://harbour.example/img/boat.png\"></body></html>\r\n"
      "\r\n"
      "------part\r\n"
      "Content-Type: image/png\r\n"
      "Content-Transfer-Encoding: base64\r\n"
      "Content-Location: http://harbour.example/img/boat.png\r\n"
      "\r\n" +
      wrapped +
      "\r\n"
      "------part--\r\n";
  write(path, mht);
}

void writePdf(const fs::path& path, int pages) {
  fs::create_directories(path.parent_path());
  QPdfWriter writer(QString::fromStdString(path.string()));
  writer.setPageSize(QPageSize(QPageSize::A5));
  writer.setResolution(72);
  QPainter p(&writer);
  QFont font = p.font();
  font.setPointSize(28);
  p.setFont(font);
  for (int i = 1; i <= pages; ++i) {
    if (i > 1) writer.newPage();
    p.setFont(font);
    p.drawText(QRect(40, 40, writer.width() - 80, 60), Qt::AlignLeft,
               QStringLiteral("Page %1").arg(i));
    QFont small = font;
    small.setPointSize(12);
    p.setFont(small);
    for (int line = 0; line < 12; ++line)
      p.drawText(QRect(40, 120 + line * 24, writer.width() - 80, 24), Qt::AlignLeft,
                 QStringLiteral("Line %1 of the harbour log, page %2.").arg(line + 1).arg(i));
  }
}

void writeWav(const fs::path& path, int seconds) {
  const std::uint32_t rate = 8000, samples = rate * static_cast<std::uint32_t>(seconds);
  std::ofstream out(path, std::ios::binary);
  auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out << "RIFF";
  u32(36 + samples * 2);
  out << "WAVEfmt ";
  u32(16);
  u16(1);  // PCM
  u16(1);  // mono
  u32(rate);
  u32(rate * 2);
  u16(2);
  u16(16);
  out << "data";
  u32(samples * 2);
  for (std::uint32_t i = 0; i < samples; ++i) u16(static_cast<std::uint16_t>((i % 40) * 200));
}

void writeZip(const fs::path& path, const std::vector<std::pair<std::string, std::string>>& files,
              const std::string& password) {
  const fs::path dir = path.parent_path() / (path.stem().string() + ".parts");
  std::vector<std::string> sources;
  for (const auto& [name, content] : files) {
    write(dir / name, content);
    const std::string top = (dir / fs::path(name).begin()->string()).string();
    if (std::find(sources.begin(), sources.end(), top) == sources.end()) sources.push_back(top);
  }
  ZipPropertyOptions options;
  options.password = password;
  ArchiveFactory::createZipFactory(sources, nullptr, path.string(), options);
  fs::remove_all(dir);
}

}  // namespace harbor::gui::samples

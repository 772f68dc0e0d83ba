#include "archive/ArchiveSignature.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "filemanager/FileUtil.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

bool startsWith(const std::vector<unsigned char>& b, const char* sig, std::size_t n) {
  return b.size() >= n && std::memcmp(b.data(), sig, n) == 0;
}

// A tar header block: the sum of its bytes with the checksum field read as
// spaces equals the octal number in that field (some writers summed signed
// bytes).
bool isTarHeader(const std::vector<unsigned char>& b) {
  if (b.size() < 512) return false;
  if (std::memcmp(b.data() + 257, "ustar", 5) == 0) return true;
  unsigned long stored = 0;
  bool digits = false;
  for (int i = 148; i < 156; ++i) {
    const unsigned char c = b[i];
    if (c >= '0' && c <= '7') {
      stored = stored * 8 + (c - '0');
      digits = true;
    } else if (c == ' ' || c == 0) {
      if (digits) break;
    } else {
      return false;
    }
  }
  if (!digits) return false;
  unsigned long sum = 0;
  long signedSum = 0;
  for (int i = 0; i < 512; ++i) {
    const unsigned char c = (i >= 148 && i < 156) ? ' ' : b[i];
    sum += c;
    signedSum += static_cast<signed char>(c);
  }
  // An all-zero block sums to 256 with the blank field; it is no header.
  return sum != 256 && (stored == sum || static_cast<long>(stored) == signedSum);
}

bool hasZipEndRecord(std::FILE* f) {
  // The end record sits in the last 22 bytes plus a comment of up to 64 KiB.
  if (fseeko(f, 0, SEEK_END) != 0) return false;
  const off_t size = ftello(f);
  if (size < 22) return false;
  const off_t span = std::min<off_t>(size, 22 + 65535);
  std::vector<unsigned char> tail(static_cast<std::size_t>(span));
  if (fseeko(f, size - span, SEEK_SET) != 0 ||
      std::fread(tail.data(), 1, tail.size(), f) != tail.size())
    return false;
  for (std::size_t i = tail.size() - 22 + 1; i-- > 0;) {
    if (tail[i] == 'P' && tail[i + 1] == 'K' && tail[i + 2] == 5 && tail[i + 3] == 6) return true;
  }
  return false;
}

}  // namespace

ArchiveKind archiveKindByExtension(const std::string& extension) {
  const std::string ext = toLower(extension);
  if (ext == "zip" || ext == "cbz" || ext == "jar" || ext == "ear" || ext == "war")
    return ArchiveKind::Zip;
  if (ext == "rar" || ext == "cbr") return ArchiveKind::Rar;
  if (ext == "7z") return ArchiveKind::SevenZip;
  if (ext == "tar") return ArchiveKind::Tar;
  if (ext == "gz" || ext == "tgz" || ext == "gzip") return ArchiveKind::Gzip;
  if (ext == "bz" || ext == "bz2" || ext == "tbz" || ext == "tbz2") return ArchiveKind::Bzip2;
  return ArchiveKind::None;
}

ArchiveKind archiveKindBySignature(const std::string& path) {
  std::unique_ptr<std::FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
  if (!f) return ArchiveKind::None;
  std::vector<unsigned char> head(512);
  head.resize(std::fread(head.data(), 1, head.size(), f.get()));
  if (startsWith(head, "PK\x03\x04", 4) || startsWith(head, "PK\x05\x06", 4) ||
      startsWith(head, "PK\x07\x08", 4))
    return ArchiveKind::Zip;
  if (startsWith(head, "Rar!\x1a\x07", 6)) return ArchiveKind::Rar;
  if (startsWith(head, "7z\xbc\xaf\x27\x1c", 6)) return ArchiveKind::SevenZip;
  if (startsWith(head, "\x1f\x8b", 2)) return ArchiveKind::Gzip;
  if (startsWith(head, "BZh", 3) && head.size() > 3 && head[3] >= '1' && head[3] <= '9')
    return ArchiveKind::Bzip2;
  if (isTarHeader(head)) return ArchiveKind::Tar;
  if (hasZipEndRecord(f.get())) return ArchiveKind::Zip;  // a program with a zip behind it
  return ArchiveKind::None;
}

ArchiveKind archiveKindOf(const std::string& path) {
  const ArchiveKind byName = archiveKindByExtension(FileUtil::getFileExtension(path));
  const ArchiveKind byContent = archiveKindBySignature(path);
  if (byContent != ArchiveKind::None) return byContent;
  return byName;
}

}  // namespace harbor

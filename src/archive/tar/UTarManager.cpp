#include "archive/tar/UTarManager.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "filemanager/FileUtil.h"

namespace harbor {
namespace {

constexpr std::size_t kBlock = 512;
constexpr std::size_t kCopyBlock = 64 * 1024;
constexpr std::uint64_t kMaxLongName = 64 * 1024;

struct FileCloser {
  void operator()(FILE* f) const {
    if (f) std::fclose(f);
  }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

std::uint64_t padded(std::uint64_t size) {
  return (size + kBlock - 1) / kBlock * kBlock;
}

template <std::size_t N>
std::string textField(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

template <std::size_t N>
std::uint64_t numberField(const char (&field)[N]) {
  return UTarManager::charToUnsignedLongLong(field, N);
}

Error damagedHeader() {
  return {kArchiveErrorDomain, kArchiveErrorArchive, "Archive issues: a damaged header"};
}

bool allZero(const char* p, std::size_t n) {
  return std::all_of(p, p + n, [](char c) { return c == 0; });
}

std::uint64_t fileSizeOf(FILE* f) {
  struct stat st;
  return fstat(fileno(f), &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
}

// The records of a pax or long-name header, kept up to a bound whatever size
// the header declares; false when the archive ends first.
bool readPayload(FILE* f, std::uint64_t size, std::string& raw) {
  char piece[kBlock];
  for (std::uint64_t left = size; left > 0;) {
    if (std::fread(piece, 1, kBlock, f) != kBlock) return false;
    const auto take = static_cast<std::size_t>(std::min<std::uint64_t>(left, kBlock));
    if (raw.size() < kMaxLongName) raw.append(piece, take);
    left -= take;
  }
  return true;
}

}  // namespace

UTarManager::UTarManager(std::string path, ZipEntry::Ptr rootEntry, IActionProgress* action,
                         std::string password, std::uint64_t fileEncoding)
    : ArchiveBase(std::move(path), std::move(rootEntry), action, std::move(password),
                  fileEncoding) {
  relativeDate_ = dateFor1970();
}

std::uint64_t UTarManager::charToUnsignedLongLong(const char* p, std::size_t n) {
  if (n && (static_cast<unsigned char>(p[0]) & 0x80)) {
    std::uint64_t v = static_cast<unsigned char>(p[0]) & 0x3f;
    for (std::size_t i = 1; i < n; ++i) {
      if (v >> 56) return ~std::uint64_t{0};
      v = (v << 8) | static_cast<unsigned char>(p[i]);
    }
    return v;
  }
  std::uint64_t v = 0;
  std::size_t i = 0;
  while (i < n && (p[i] == ' ' || p[i] == 0)) {
    if (p[i] == 0) return 0;
    ++i;
  }
  for (; i < n && p[i] >= '0' && p[i] <= '7'; ++i) {
    if (v >> 60) return ~std::uint64_t{0};
    v = v * 8 + static_cast<std::uint64_t>(p[i] - '0');
  }
  return v;
}

std::string UTarManager::fullName(const TarHeader& header) {
  std::string name;
  if (!longName_.empty()) {
    name = longName_;
  } else {
    name = charToString(header.name, strnlen(header.name, sizeof header.name));
    if (header.isUstar() && header.prefix[0]) {
      name = charToString(header.prefix, strnlen(header.prefix, sizeof header.prefix)) + "/" + name;
    }
  }
  for (char& c : name)
    if (c == '\\') c = '/';
  return name;
}

bool UTarManager::listFiles() {
  rootEntry_->clear();
  return extractFile(true);
}

bool UTarManager::createFile(const std::string& name, const TarHeader& header, std::uint64_t size,
                             FILE* file, const std::string& relativeBase) {
  const std::string relative = name.substr(std::min(relativeBase.size(), name.size()));
  const unsigned mode = static_cast<unsigned>(numberField(header.mode));
  const auto date = getDateWithInterval(static_cast<std::int64_t>(numberField(header.mtime)));
  auto target = safeTarget(destination_, relative);
  if (header.typeflag == '2') {
    if (!target) return true;
    return makeLink(destination_, *target,
                    longLink_.empty() ? textField(header.linkname) : longLink_, name);
  }
  if (!target) {
    return std::fseek(file, static_cast<long>(size), SEEK_CUR) == 0;
  }
  std::uint64_t left = size;
  bool ok = writeFileAtomically(*target, [&](const Sink& sink) {
    std::vector<char> buf(kCopyBlock);
    while (left > 0) {
      if (checkCancelled()) return false;
      std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(left, buf.size()));
      std::size_t n = std::fread(buf.data(), 1, want, file);
      if (n != want) {
        setError(errorArchive());
        return false;
      }
      if (!sink(buf.data(), n)) return false;
      left -= n;
      addProgress(n);
    }
    return true;
  });
  if (!ok) return false;
  applyAttributes(*target, mode, date);
  return true;
}

bool UTarManager::extractFile(bool list) {
  error_.reset();
  longName_.clear();
  longLink_.clear();
  FilePtr file(std::fopen(filePath_.c_str(), "rb"));
  if (!file) {
    setError(errorFailedOpenFile());
    return false;
  }
  FILE* f = file.get();
  const std::uint64_t total = fileSizeOf(f);
  TarHeader header;
  std::uint64_t pos = 0;
  while (pos < total) {
    if (checkCancelled()) return false;
    if (std::fread(&header, 1, kBlock, f) != kBlock) break;
    pos += kBlock;
    // End-of-archive blocks carry no checksum; anything else must.
    if (header.isZeroBlock()) continue;
    const std::uint64_t size = numberField(header.size);
    const std::uint64_t dataStart = pos;
    if (!header.checksumMatches() || size > total) {
      setError(damagedHeader());
      return false;
    }
    const char type = header.typeflag;
    bool dataConsumed = false;
    switch (type) {
      case '0':
      case '\0':
      case '2':
      case '7': {
        if (allZero(header.name, sizeof header.name) && longName_.empty()) break;
        const std::string name = fullName(header);
        longName_.clear();
        if (isIgnore(name)) {
          longLink_.clear();
          break;
        }
        const bool link = type == '2';
        if (list) {
          auto date = getDateWithInterval(static_cast<std::int64_t>(numberField(header.mtime)));
          std::optional<std::string> alias;
          if (link) alias = longLink_.empty() ? textField(header.linkname) : longLink_;
          rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(name, FilePos{dataStart, 0}, 0,
                                                                link ? 0 : size, link ? 0 : size, 0,
                                                                alias, date, true));
        } else {
          if (!createFile(name, header, link ? 0 : size, f, "")) return false;
          dataConsumed = !link;
        }
        longLink_.clear();
        break;
      }
      case '5': {
        std::string name = fullName(header);
        longName_.clear();
        if (isIgnore(name)) break;
        if (name.empty()) break;
        if (name.back() != '/') name += '/';
        auto date = getDateWithInterval(static_cast<std::int64_t>(numberField(header.mtime)));
        if (list) {
          rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(name, FilePos{dataStart, 0}, 0, 0,
                                                                0, 0, std::nullopt, date, false));
        } else if (auto target = safeTarget(destination_, name)) {
          FileUtil::createFolder(*target);
          if (isArchiveFileTime_ && date) FileUtil::setFileModifiedDate(*date, *target);
        }
        break;
      }
      case 'x': {
        // pax: only the long path and link target matter here.
        std::string raw;
        const bool whole = readPayload(f, size, raw);
        if (!whole) {
          setError(errorArchive());
          return false;
        }
        for (std::size_t at = 0; at < raw.size();) {
          std::size_t space = raw.find(' ', at);
          if (space == std::string::npos) break;
          std::size_t length = std::strtoul(raw.c_str() + at, nullptr, 10);
          if (length == 0 || at + length > raw.size()) break;
          std::string record = raw.substr(space + 1, at + length - space - 2);
          if (record.starts_with("path=")) longName_ = record.substr(5);
          if (record.starts_with("linkpath=")) longLink_ = record.substr(9);
          at += length;
        }
        pos += padded(size);
        continue;
      }
      case 'L': {
        // The next header's name, never trusted for its declared size.
        std::string raw;
        const bool whole = readPayload(f, size, raw);
        dataConsumed = true;
        longName_ = charToString(raw.data(), strnlen(raw.data(), raw.size()));
        if (!whole) {
          setError(errorArchive());
          return false;
        }
        pos += padded(size);
        continue;
      }
      default:
        if (type == '1' || type == '3' || type == '4' || type == '6' || type == 'g' ||
            type == 'x' || (type >= 'A' && type <= 'Z' && type != 'L')) {
          break;  // data skipped below
        }
        setError(errorArchive());
        return false;
    }
    const std::uint64_t next = dataStart + padded(size);
    if (next > total) {
      setError(
          {kArchiveErrorDomain, kArchiveErrorArchive, "Archive issues: the archive is cut short"});
      return false;
    }
    if (dataConsumed ? std::fseek(f, static_cast<long>(next - dataStart - size), SEEK_CUR) != 0
                     : std::fseek(f, static_cast<long>(next), SEEK_SET) != 0) {
      setError(errorArchive());
      return false;
    }
    pos = next;
    if (static_cast<std::uint64_t>(std::ftell(f)) != pos) {
      setError(errorArchive());
      return false;
    }
  }
  return true;
}

bool UTarManager::unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& base,
                                            FILE* file) {
  if (checkCancelled()) return false;
  if (!entry.isLeaf()) {
    const std::string relative = entry.path().substr(std::min(base.size(), entry.path().size()));
    if (auto target = safeTarget(destination_, relative)) {
      FileUtil::createFolder(*target);
      if (isArchiveFileTime_ && entry.date()) FileUtil::setFileModifiedDate(*entry.date(), *target);
    }
    for (const auto& child : entry.children())
      if (!unArchiveAssignDetailPath(*child, base, file)) return false;
    return true;
  }
  TarHeader header;
  const auto dataStart = entry.getFilePos().pos_in_zip_directory;
  if (dataStart < kBlock ||
      std::fseek(file, static_cast<long>(dataStart - kBlock), SEEK_SET) != 0 ||
      std::fread(&header, 1, kBlock, file) != kBlock) {
    setError(errorArchive());
    return false;
  }
  // The archive may have changed since it was listed.
  if (!header.checksumMatches()) {
    setError(damagedHeader());
    return false;
  }
  const std::uint64_t size = header.typeflag == '2' ? 0 : numberField(header.size);
  return createFile(entry.path(), header, size, file, base);
}

bool UTarManager::unArchivePath(const ZipEntry* entry, const std::string& destination) {
  refused_.clear();
  destination_ = destination;
  if (!entry || entry->isRootEntry()) return extractFile(false);
  error_.reset();
  FilePtr file(std::fopen(filePath_.c_str(), "rb"));
  if (!file) {
    setError(errorFailedOpenFile());
    return false;
  }
  return unArchiveAssignDetailPath(*entry, entry->leadingPath(), file.get());
}

}  // namespace harbor

#include "archive/tar/UTarManager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "archive/SafeExtraction.h"
#include "filemanager/FileUtil.h"

namespace harbor {
namespace fs = std::filesystem;
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

std::string memberKindNotExtracted(char type) {
  switch (type) {
    case '3':
      return "a character device is not extracted";
    case '4':
      return "a block device is not extracted";
    case '6':
      return "a named pipe is not extracted";
    case 'S':
      return "a sparse file is not extracted";
    case 'V':
      return "a volume label is not extracted";
    case 'M':
      return "a file continued from another volume is not extracted";
    default:
      return std::string("a member of type '") + (type >= 32 && type < 127 ? type : '?') +
             "' is not extracted";
  }
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

void UTarManager::readPaxRecords(const std::string& raw, bool global) {
  Pax& into = global ? globalPax_ : pax_;
  for (std::size_t at = 0; at < raw.size();) {
    const std::size_t space = raw.find(' ', at);
    if (space == std::string::npos) break;
    const std::size_t length = std::strtoul(raw.c_str() + at, nullptr, 10);
    if (length == 0 || at + length > raw.size() || space >= at + length) break;
    // "LENGTH key=value\n"
    const std::string record = raw.substr(space + 1, at + length - space - 2);
    const std::size_t eq = record.find('=');
    if (eq != std::string::npos) {
      const std::string key = record.substr(0, eq);
      const std::string value = record.substr(eq + 1);
      if (key == "path" && !global) longName_ = value;
      if (key == "linkpath" && !global) longLink_ = value;
      if (key == "size" && !value.empty() &&
          value.find_first_not_of("0123456789") == std::string::npos)
        into.size = std::strtoull(value.c_str(), nullptr, 10);
      if (key == "mtime" && !value.empty()) into.mtime = std::strtoll(value.c_str(), nullptr, 10);
      if (key.rfind("GNU.sparse.", 0) == 0) into.sparse = true;
      if (key == "GNU.sparse.name") into.sparseName = value;
      if (key == "GNU.sparse.major") into.sparseMajor = std::atoi(value.c_str());
      if (key == "GNU.sparse.realsize" || key == "GNU.sparse.size")
        into.sparseRealSize = std::strtoull(value.c_str(), nullptr, 10);
      if (key == "GNU.sparse.map") into.sparseMap = value;
      if (key == "GNU.sparse.offset")
        into.sparseOffsets.push_back(std::strtoull(value.c_str(), nullptr, 10));
      if (key == "GNU.sparse.numbytes")
        into.sparseLengths.push_back(std::strtoull(value.c_str(), nullptr, 10));
    }
    at += length;
  }
}

std::optional<std::chrono::system_clock::time_point> UTarManager::memberDate(
    const TarHeader& header) const {
  if (pax_.mtime) return getDateWithInterval(*pax_.mtime);
  if (globalPax_.mtime) return getDateWithInterval(*globalPax_.mtime);
  return getDateWithInterval(static_cast<std::int64_t>(numberField(header.mtime)));
}

bool UTarManager::makeHardLink(const std::string& name, const std::string& targetName) {
  auto target = safeTarget(destination_, name);
  if (!target) return true;  // refused and recorded
  std::string reason;
  auto source = extraction::safeTarget(destination_, targetName, reason);
  std::error_code ec;
  if (!source || !fs::is_regular_file(fs::symlink_status(*source, ec))) {
    refuse(name, "hard link to " + targetName + ", which was not extracted");
    return true;
  }
  fs::create_directories(fs::path(*target).parent_path(), ec);
  const std::string temp = extraction::temporaryBeside(*target);
  // A hard link where the file system allows it, else a copy.
  bool made = ::link(source->c_str(), temp.c_str()) == 0;
  if (!made) made = FileUtil::copyFile(*source, temp, true, false, nullptr);
  if (!made || std::rename(temp.c_str(), target->c_str()) != 0) {
    ::unlink(temp.c_str());
    setError(errorFailedToCreateFile(name));
    return false;
  }
  return true;
}

namespace {

// Pieces in order, inside the file, adding up to the data there is.
bool sparseMapHolds(const std::vector<UTarManager::SparsePiece>& map, std::uint64_t realSize,
                    std::uint64_t dataBytes) {
  std::uint64_t end = 0;
  std::uint64_t sum = 0;
  for (const auto& p : map) {
    if (p.offset < end || p.length > realSize || p.offset > realSize - p.length) return false;
    end = p.offset + p.length;
    sum += p.length;
  }
  return sum == dataBytes;
}

}  // namespace

bool UTarManager::paxSparseMap(FILE* f, std::uint64_t dataSize, std::vector<SparsePiece>& map,
                               std::uint64_t& realSize, std::uint64_t& mapBytes) {
  const Pax& p = pax_.sparse ? pax_ : globalPax_;
  map.clear();
  mapBytes = 0;
  if (!p.sparseRealSize) return false;
  realSize = *p.sparseRealSize;
  if (p.sparseMajor == 1) {
    // Version 1: decimal lines at the start of the data, padded to a block.
    std::string text;
    std::vector<std::uint64_t> numbers;
    std::uint64_t count = 0;
    std::size_t at = 0;
    char block[kBlock];
    for (;;) {
      while (at < text.size()) {
        const std::size_t nl = text.find('\n', at);
        if (nl == std::string::npos) break;
        numbers.push_back(std::strtoull(text.c_str() + at, nullptr, 10));
        at = nl + 1;
      }
      if (!numbers.empty()) {
        count = numbers[0];
        if (count > (dataSize / 2) + 1) return false;  // more pieces than bytes to describe them
        if (numbers.size() >= 1 + 2 * count) break;
      }
      if (mapBytes + kBlock > dataSize || std::fread(block, 1, kBlock, f) != kBlock) return false;
      mapBytes += kBlock;
      text.append(block, kBlock);
    }
    for (std::uint64_t i = 0; i < count; ++i)
      map.push_back({numbers[1 + 2 * i], numbers[2 + 2 * i]});
  } else if (!p.sparseMap.empty()) {
    std::vector<std::uint64_t> numbers;
    for (std::size_t at = 0; at <= p.sparseMap.size();) {
      std::size_t comma = p.sparseMap.find(',', at);
      if (comma == std::string::npos) comma = p.sparseMap.size();
      numbers.push_back(std::strtoull(p.sparseMap.c_str() + at, nullptr, 10));
      at = comma + 1;
    }
    if (numbers.size() % 2) return false;
    for (std::size_t i = 0; i < numbers.size(); i += 2) map.push_back({numbers[i], numbers[i + 1]});
  } else {
    if (p.sparseOffsets.size() != p.sparseLengths.size()) return false;
    for (std::size_t i = 0; i < p.sparseOffsets.size(); ++i)
      map.push_back({p.sparseOffsets[i], p.sparseLengths[i]});
  }
  return sparseMapHolds(map, realSize, dataSize - mapBytes);
}

bool UTarManager::writeSparse(const std::string& name, const TarHeader& header, FILE* f,
                              const std::vector<SparsePiece>& map, std::uint64_t realSize) {
  auto target = safeTarget(destination_, name);
  if (!target) return true;
  std::error_code ec;
  fs::create_directories(fs::path(*target).parent_path(), ec);
  const std::string temp = extraction::temporaryBeside(*target);
  FILE* out = std::fopen(temp.c_str(), "wb");
  if (!out) {
    setError(errorFailedToCreateFile(name));
    return false;
  }
  bool ok = true;
  std::vector<char> buf(kCopyBlock);
  for (const auto& piece : map) {
    // Seeking past the end leaves a hole; nothing is written for it.
    if (!ok || fseeko(out, static_cast<off_t>(piece.offset), SEEK_SET) != 0) {
      ok = false;
      break;
    }
    for (std::uint64_t left = piece.length; left > 0 && ok;) {
      if (checkCancelled()) {
        ok = false;
        break;
      }
      const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(left, buf.size()));
      if (std::fread(buf.data(), 1, want, f) != want) {
        setError(errorArchive());
        ok = false;
        break;
      }
      ok = std::fwrite(buf.data(), 1, want, out) == want;
      left -= want;
      addProgress(want);
    }
  }
  if (ok) ok = std::fflush(out) == 0 && ::ftruncate(fileno(out), static_cast<off_t>(realSize)) == 0;
  ok = std::fclose(out) == 0 && ok;
  if (!ok || std::rename(temp.c_str(), target->c_str()) != 0) {
    ::unlink(temp.c_str());
    if (!error_) setError(errorFailedToCreateFile(name));
    return false;
  }
  applyAttributes(*target, static_cast<unsigned>(numberField(header.mode)), memberDate(header));
  return true;
}

bool UTarManager::listFiles() {
  rootEntry_->clear();
  return extractFile(true);
}

bool UTarManager::createFile(const std::string& name, const TarHeader& header, std::uint64_t size,
                             FILE* file, const std::string& relativeBase) {
  const std::string relative = name.substr(std::min(relativeBase.size(), name.size()));
  const unsigned mode = static_cast<unsigned>(numberField(header.mode));
  const auto date = memberDate(header);
  if (header.typeflag == '1') {
    const std::string to = longLink_.empty() ? textField(header.linkname) : longLink_;
    return makeHardLink(relative, to.substr(std::min(relativeBase.size(), to.size())));
  }
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
  pax_ = {};
  globalPax_ = {};
  listedSizes_.clear();
  TarHeader header;
  std::uint64_t pos = 0;
  while (pos < total) {
    if (checkCancelled()) return false;
    if (std::fread(&header, 1, kBlock, f) != kBlock) break;
    pos += kBlock;
    // End-of-archive blocks carry no checksum; anything else must.
    if (header.isZeroBlock()) continue;
    const char type = header.typeflag;
    const bool paxHeader = type == 'x' || type == 'g' || type == 'X';
    // A pax size record gives the real size when the header cannot hold it.
    std::uint64_t size = numberField(header.size);
    if (!paxHeader && pax_.size)
      size = *pax_.size;
    else if (!paxHeader && globalPax_.size)
      size = *globalPax_.size;
    std::uint64_t dataStart = pos;
    if (!header.checksumMatches() || size > total) {
      setError(damagedHeader());
      return false;
    }
    bool dataConsumed = false;
    switch (type) {
      case '0':
      case '\0':
      case '1':
      case '2':
      case '7': {
        if (allZero(header.name, sizeof header.name) && longName_.empty()) break;
        const std::string name =
            pax_.sparse && !pax_.sparseName.empty() ? pax_.sparseName : fullName(header);
        longName_.clear();
        if (isIgnore(name)) {
          longLink_.clear();
          pax_ = {};
          break;
        }
        if (pax_.sparse || globalPax_.sparse) {
          // Its data is the pieces of a file with holes (for version 1,
          // after a map of them): expanded to the full size, holes kept.
          std::vector<SparsePiece> map;
          std::uint64_t realSize = 0;
          std::uint64_t mapBytes = 0;
          if (!paxSparseMap(f, size, map, realSize, mapBytes)) {
            setError({kArchiveErrorDomain, kArchiveErrorArchive,
                      "Archive issues: the sparse map of " + name + " does not fit its data"});
            return false;
          }
          if (list) {
            rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(name, FilePos{dataStart, 0}, 0,
                                                                  size, realSize, 0, std::nullopt,
                                                                  memberDate(header), true));
          } else if (!isIgnore(name) && !writeSparse(name, header, f, map, realSize)) {
            return false;
          }
          longLink_.clear();
          pax_ = {};
          break;
        }
        const bool link = type == '2';
        const bool hardLink = type == '1';
        if (list) {
          auto date = memberDate(header);
          std::optional<std::string> alias;
          if (link) alias = longLink_.empty() ? textField(header.linkname) : longLink_;
          // A hard link lists as a file of its target's size.
          std::uint64_t shown = link ? 0 : size;
          if (hardLink) {
            const std::string to = longLink_.empty() ? textField(header.linkname) : longLink_;
            const auto it = listedSizes_.find(to);
            shown = it == listedSizes_.end() ? 0 : it->second;
          } else if (!link) {
            listedSizes_[name] = size;
          }
          rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(
              name, FilePos{dataStart, 0}, 0, shown, shown, 0, alias, date, true));
        } else {
          if (!createFile(name, header, link || hardLink ? 0 : size, f, "")) return false;
          dataConsumed = !link && !hardLink;
        }
        longLink_.clear();
        pax_ = {};
        break;
      }
      case 'S': {
        // GNU's own sparse member: up to four pieces in the header, more in
        // extension blocks, the full size after them.
        const std::string name = fullName(header);
        longName_.clear();
        const auto* raw = reinterpret_cast<const char*>(&header);
        std::vector<SparsePiece> map;
        auto addPieces = [&](const char* at, int n) {
          for (int i = 0; i < n; ++i) {
            const char* e = at + i * 24;
            if (e[0] == 0) return;
            map.push_back({charToUnsignedLongLong(e, 12), charToUnsignedLongLong(e + 12, 12)});
          }
        };
        addPieces(raw + 386, 4);
        bool extended = raw[482] != 0;
        const std::uint64_t realSize = charToUnsignedLongLong(raw + 483, 12);
        char ext[kBlock];
        while (extended) {
          if (std::fread(ext, 1, kBlock, f) != kBlock || map.size() > (1u << 20)) {
            setError(errorArchive());
            return false;
          }
          dataStart += kBlock;
          pos += kBlock;
          addPieces(ext, 21);
          extended = ext[504] != 0;
        }
        if (!sparseMapHolds(map, realSize, size)) {
          setError({kArchiveErrorDomain, kArchiveErrorArchive,
                    "Archive issues: the sparse map of " + name + " does not fit its data"});
          return false;
        }
        if (isIgnore(name)) break;
        if (list) {
          rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(name, FilePos{dataStart, 0}, 0,
                                                                size, realSize, 0, std::nullopt,
                                                                memberDate(header), true));
        } else if (!writeSparse(name, header, f, map, realSize)) {
          return false;
        }
        pax_ = {};
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
      case 'x':
      case 'X':
      case 'g': {
        std::string raw;
        const bool whole = readPayload(f, size, raw);
        if (!whole) {
          setError(errorArchive());
          return false;
        }
        readPaxRecords(raw, type == 'g');
        pos += padded(size);
        continue;
      }
      case 'K': {
        // GNU: the next header's link target.
        std::string raw;
        const bool whole = readPayload(f, size, raw);
        longLink_ = charToString(raw.data(), strnlen(raw.data(), raw.size()));
        if (!whole) {
          setError(errorArchive());
          return false;
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
      default: {
        // Devices, fifos, sparse files, volume labels and kinds unknown here:
        // skipped, but never silently.
        const std::string name = fullName(header);
        longName_.clear();
        longLink_.clear();
        pax_ = {};
        if (!list && !name.empty() && !isIgnore(name)) refuse(name, memberKindNotExtracted(type));
        break;
      }
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
  if (entry.compressedSize() != entry.size()) {
    // Only sparse members pack smaller than they are.
    refuse(entry.path(), "a sparse file is extracted only with its whole archive");
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
  // The listed size, which a pax record may have given.
  const std::uint64_t size = header.typeflag == '2' || header.typeflag == '1' ? 0 : entry.size();
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

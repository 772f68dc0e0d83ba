#include "archive/7z/SevenZipFormat.h"

#include <zlib.h>

#include <cstring>
#include <limits>
#include <stdexcept>

namespace harbor::sevenzip {
namespace {

// Parse failures unwind to the entry points, which turn them into `why`.
struct Malformed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(const char* what) {
  throw Malformed(what);
}

constexpr std::uint64_t kMaxRecords = 1u << 24;

// Reads the header encoding; every read is bounded by the blob.
class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::size_t left() const { return size_ - pos_; }
  bool atEnd() const { return pos_ >= size_; }

  std::uint8_t byte() {
    if (pos_ >= size_) fail("header ends early");
    return data_[pos_++];
  }
  const std::uint8_t* bytes(std::uint64_t n) {
    if (n > left()) fail("header ends early");
    const std::uint8_t* p = data_ + pos_;
    pos_ += static_cast<std::size_t>(n);
    return p;
  }
  std::uint32_t uint32() {
    const std::uint8_t* p = bytes(4);
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
  }
  std::uint64_t uint64() {
    const std::uint8_t* p = bytes(8);
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = v << 8 | p[i];
    return v;
  }
  // The variable-length number: leading one bits of the first byte count the
  // extra bytes, the rest of it holds the high part.
  std::uint64_t number() {
    const std::uint8_t first = byte();
    std::uint8_t mask = 0x80;
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) {
      if ((first & mask) == 0) {
        const std::uint64_t high = first & (mask - 1u);
        return value | (high << (8 * i));
      }
      value |= std::uint64_t(byte()) << (8 * i);
      mask >>= 1;
    }
    return value;
  }
  // A count of records each taking at least `minBytes`: never more than the
  // bytes left can hold, so a claimed count cannot drive an allocation.
  std::size_t count(std::size_t minBytes = 1) {
    const std::uint64_t n = number();
    if (minBytes == 0) minBytes = 1;
    if (n > left() / minBytes) fail("count larger than the header");
    // Even a header of the largest size we read cannot list more than this.
    if (n > kMaxRecords) fail("too many records");
    return static_cast<std::size_t>(n);
  }
  std::vector<bool> bits(std::size_t n) {
    std::vector<bool> out(n);
    std::uint8_t cur = 0;
    for (std::size_t i = 0; i < n; ++i) {
      if (i % 8 == 0) cur = byte();
      out[i] = (cur & (0x80 >> (i % 8))) != 0;
    }
    return out;
  }
  // AllAreDefined, or a bit per item.
  std::vector<bool> defined(std::size_t n) {
    if (byte() != 0) return std::vector<bool>(n, true);
    return bits(n);
  }
  void expect(std::uint8_t id) {
    if (byte() != id) fail("unexpected property");
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

std::vector<std::optional<std::uint32_t>> digests(ByteReader& r, std::size_t n) {
  const auto def = r.defined(n);
  std::vector<std::optional<std::uint32_t>> out(n);
  for (std::size_t i = 0; i < n; ++i)
    if (def[i]) out[i] = r.uint32();
  return out;
}

void readPackInfo(ByteReader& r, StreamsInfo& si) {
  si.packPos = r.number();
  const std::size_t n = r.count();
  si.packSizes.assign(n, 0);
  for (;;) {
    const std::uint8_t id = r.byte();
    if (id == kEnd) break;
    if (id == kSize) {
      for (auto& s : si.packSizes) s = r.number();
    } else if (id == kCRC) {
      digests(r, n);  // the folders' and files' checks cover the data
    } else {
      fail("unknown pack info property");
    }
  }
}

constexpr std::uint32_t kMaxStreamsPerFolder = 64;

Folder readFolder(ByteReader& r) {
  Folder f;
  const std::size_t numCoders = r.count(2);
  if (numCoders == 0 || numCoders > kMaxStreamsPerFolder) fail("bad number of coders");
  std::uint32_t totalIn = 0;
  std::uint32_t totalOut = 0;
  for (std::size_t i = 0; i < numCoders; ++i) {
    const std::uint8_t flags = r.byte();
    if (flags & 0x80) fail("alternative methods are not supported");
    const std::size_t idSize = flags & 0x0F;
    if (idSize > 8) fail("method id too long");
    Coder c;
    const std::uint8_t* id = r.bytes(idSize);
    for (std::size_t k = 0; k < idSize; ++k) c.id = c.id << 8 | id[k];
    if (flags & 0x10) {
      const std::uint64_t in = r.number();
      const std::uint64_t out = r.number();
      if (in == 0 || out == 0 || in > kMaxStreamsPerFolder || out > kMaxStreamsPerFolder)
        fail("bad number of coder streams");
      c.numInStreams = static_cast<std::uint32_t>(in);
      c.numOutStreams = static_cast<std::uint32_t>(out);
    }
    if (flags & 0x20) {
      const std::size_t n = r.count();
      const std::uint8_t* p = r.bytes(n);
      c.props.assign(p, p + n);
    }
    totalIn += c.numInStreams;
    totalOut += c.numOutStreams;
    if (totalIn > kMaxStreamsPerFolder || totalOut > kMaxStreamsPerFolder)
      fail("too many coder streams");
    f.coders.push_back(std::move(c));
  }
  const std::uint32_t numBindPairs = totalOut - 1;
  if (numBindPairs >= totalIn) fail("coder streams do not connect");
  for (std::uint32_t i = 0; i < numBindPairs; ++i) {
    BindPair bp;
    const std::uint64_t in = r.number();
    const std::uint64_t out = r.number();
    if (in >= totalIn || out >= totalOut) fail("bind pair out of range");
    bp.inIndex = static_cast<std::uint32_t>(in);
    bp.outIndex = static_cast<std::uint32_t>(out);
    for (const auto& other : f.bindPairs)
      if (other.inIndex == bp.inIndex || other.outIndex == bp.outIndex) fail("stream bound twice");
    f.bindPairs.push_back(bp);
  }
  const std::uint32_t numPacked = totalIn - numBindPairs;
  if (numPacked == 1) {
    for (std::uint32_t i = 0; i < totalIn; ++i) {
      bool bound = false;
      for (const auto& bp : f.bindPairs) bound |= bp.inIndex == i;
      if (!bound) {
        f.packedStreams.push_back(i);
        break;
      }
    }
    if (f.packedStreams.empty()) fail("no packed stream");
  } else {
    for (std::uint32_t i = 0; i < numPacked; ++i) {
      const std::uint64_t idx = r.number();
      if (idx >= totalIn) fail("packed stream out of range");
      f.packedStreams.push_back(static_cast<std::uint32_t>(idx));
    }
  }
  if (!f.mainOutStream()) fail("folder has no single output");
  return f;
}

void readUnpackInfo(ByteReader& r, StreamsInfo& si) {
  r.expect(kFolder);
  const std::size_t numFolders = r.count(4);  // coder count, flags, id, unpack size
  if (r.byte() != 0) fail("external folders are not supported");
  si.folders.clear();
  std::uint64_t packIndex = 0;
  for (std::size_t i = 0; i < numFolders; ++i) {
    Folder f = readFolder(r);
    f.firstPackStream = packIndex;
    packIndex += f.packedStreams.size();
    si.folders.push_back(std::move(f));
  }
  r.expect(kCodersUnPackSize);
  for (auto& f : si.folders) {
    f.unpackSizes.resize(f.totalOutStreams());
    for (auto& s : f.unpackSizes) s = r.number();
  }
  for (;;) {
    const std::uint8_t id = r.byte();
    if (id == kEnd) break;
    if (id == kCRC) {
      auto crcs = digests(r, si.folders.size());
      for (std::size_t i = 0; i < crcs.size(); ++i) si.folders[i].crc = crcs[i];
    } else {
      fail("unknown unpack info property");
    }
  }
}

void readSubStreamsInfo(ByteReader& r, StreamsInfo& si) {
  std::uint8_t id = r.byte();
  if (id == kNumUnPackStream) {
    std::uint64_t total = 0;
    for (auto& f : si.folders) {
      f.numUnpackStreams = r.number();
      total += f.numUnpackStreams;
      // Each substream but a folder's last needs a size byte.
      if (f.numUnpackStreams > r.left() + 1 || total > r.left() + si.folders.size())
        fail("too many substreams");
    }
    id = r.byte();
  }
  si.subSizes.clear();
  const bool haveSizes = id == kSize;
  for (const auto& f : si.folders) {
    if (f.numUnpackStreams == 0) continue;
    const std::uint64_t folderSize = f.unpackSize();
    std::uint64_t sum = 0;
    for (std::uint64_t k = 1; k < f.numUnpackStreams; ++k) {
      if (!haveSizes) fail("substream sizes missing");
      const std::uint64_t s = r.number();
      if (s > folderSize - sum) fail("substreams larger than their folder");
      sum += s;
      si.subSizes.push_back(s);
    }
    si.subSizes.push_back(folderSize - sum);
  }
  if (haveSizes) id = r.byte();

  // Streams alone in a folder with a known check take the folder's.
  std::size_t unknown = 0;
  for (const auto& f : si.folders)
    if (!(f.numUnpackStreams == 1 && f.crc)) unknown += f.numUnpackStreams;
  si.subCrcs.assign(si.subSizes.size(), std::nullopt);
  std::vector<std::optional<std::uint32_t>> read;
  for (;;) {
    if (id == kEnd) break;
    if (id == kCRC) {
      read = digests(r, unknown);
    } else {
      fail("unknown substream property");
    }
    id = r.byte();
  }
  std::size_t s = 0;
  std::size_t k = 0;
  for (const auto& f : si.folders) {
    if (f.numUnpackStreams == 1 && f.crc) {
      si.subCrcs[s++] = f.crc;
      continue;
    }
    for (std::uint64_t i = 0; i < f.numUnpackStreams; ++i, ++s, ++k)
      if (k < read.size()) si.subCrcs[s] = read[k];
  }
}

void readStreamsInfo(ByteReader& r, StreamsInfo& si) {
  bool sawSubStreams = false;
  for (;;) {
    const std::uint8_t id = r.byte();
    if (id == kEnd) break;
    if (id == kPackInfo) {
      readPackInfo(r, si);
    } else if (id == kUnPackInfo) {
      readUnpackInfo(r, si);
    } else if (id == kSubStreamsInfo) {
      readSubStreamsInfo(r, si);
      sawSubStreams = true;
    } else {
      fail("unknown streams property");
    }
  }
  std::uint64_t packNeeded = 0;
  for (const auto& f : si.folders) packNeeded += f.packedStreams.size();
  if (packNeeded > si.packSizes.size()) fail("folders need more pack streams than stored");
  if (!sawSubStreams) {
    si.subSizes.clear();
    si.subCrcs.clear();
    for (const auto& f : si.folders) {
      si.subSizes.push_back(f.unpackSize());
      si.subCrcs.push_back(f.crc);
    }
  }
}

std::vector<std::uint8_t> subBytes(ByteReader& r, std::uint64_t size) {
  const std::uint8_t* p = r.bytes(size);
  return {p, p + size};
}

void readFilesInfo(ByteReader& r, Database& db) {
  const std::size_t numFiles = r.count(2);  // each needs at least its name's end
  db.files.assign(numFiles, FileRecord{});
  std::vector<bool> emptyStream(numFiles, false);
  std::vector<bool> emptyFile;
  std::vector<bool> anti;
  std::size_t numEmpty = 0;
  bool haveNames = false;
  for (;;) {
    const std::uint8_t type = r.byte();
    if (type == kEnd) break;
    const std::uint64_t size = r.number();
    const auto blob = subBytes(r, size);
    ByteReader p(blob.data(), blob.size());
    switch (type) {
      case kEmptyStream:
        emptyStream = p.bits(numFiles);
        numEmpty = 0;
        for (bool b : emptyStream) numEmpty += b;
        break;
      case kEmptyFile:
        emptyFile = p.bits(numEmpty);
        break;
      case kAnti:
        anti = p.bits(numEmpty);
        break;
      case kName: {
        if (p.byte() != 0) fail("external names are not supported");
        if (p.left() % 2 != 0) fail("names are not UTF-16");
        const std::uint8_t* start = blob.data() + 1;
        std::size_t units = p.left() / 2;
        std::size_t begin = 0;
        std::size_t file = 0;
        for (std::size_t u = 0; u < units; ++u) {
          if (start[2 * u] != 0 || start[2 * u + 1] != 0) continue;
          if (file >= numFiles) fail("more names than files");
          auto name = utf16leToUtf8(start + 2 * begin, u - begin);
          if (!name) fail("a name is not valid UTF-16");
          db.files[file++].name = std::move(*name);
          begin = u + 1;
        }
        if (file != numFiles || begin != units) fail("names do not match the files");
        haveNames = true;
        break;
      }
      case kLastWriteTime: {
        const auto def = p.defined(numFiles);
        if (p.byte() != 0) fail("external times are not supported");
        for (std::size_t i = 0; i < numFiles; ++i)
          if (def[i]) db.files[i].mtime = p.uint64();
        break;
      }
      case kWinAttributes: {
        const auto def = p.defined(numFiles);
        if (p.byte() != 0) fail("external attributes are not supported");
        for (std::size_t i = 0; i < numFiles; ++i)
          if (def[i]) db.files[i].attributes = p.uint32();
        break;
      }
      default:
        break;  // other times, start positions, padding: not needed
    }
  }
  if (numFiles > 0 && !haveNames) fail("files without names");
  std::size_t emptyIndex = 0;
  for (std::size_t i = 0; i < numFiles; ++i) {
    auto& f = db.files[i];
    f.hasStream = !emptyStream[i];
    if (!f.hasStream) {
      const bool isEmptyFile = emptyIndex < emptyFile.size() && emptyFile[emptyIndex];
      f.isAnti = emptyIndex < anti.size() && anti[emptyIndex];
      f.isDir = !isEmptyFile;
      ++emptyIndex;
    }
    if (f.attributes && (*f.attributes & 0x10)) f.isDir = true;
    if (f.hasStream) f.isDir = false;
  }
}

void assignStreams(Database& db) {
  const auto& si = db.streams;
  std::size_t sub = 0;
  std::size_t folder = 0;
  std::uint64_t inFolder = 0;
  std::uint64_t offset = 0;
  for (auto& f : db.files) {
    if (!f.hasStream) continue;
    while (folder < si.folders.size() && inFolder >= si.folders[folder].numUnpackStreams) {
      ++folder;
      inFolder = 0;
      offset = 0;
    }
    if (folder >= si.folders.size() || sub >= si.subSizes.size())
      fail("more files with data than streams");
    f.folder = static_cast<std::int64_t>(folder);
    f.offsetInFolder = offset;
    f.size = si.subSizes[sub];
    f.crc = si.subCrcs[sub];
    offset += f.size;
    ++inFolder;
    ++sub;
  }
}

std::vector<std::uint8_t> skipArchiveProperties(ByteReader& r) {
  for (;;) {
    if (r.byte() == 0) break;
    r.bytes(r.number());
  }
  return {};
}

}  // namespace

std::uint32_t crc32(const void* data, std::size_t size, std::uint32_t crc) {
  const auto* p = static_cast<const Bytef*>(data);
  uLong c = crc;
  while (size > 0) {
    const uInt n = size > (1u << 30) ? (1u << 30) : static_cast<uInt>(size);
    c = ::crc32(c, p, n);
    p += n;
    size -= n;
  }
  return static_cast<std::uint32_t>(c);
}

std::string methodName(std::uint64_t id) {
  switch (id) {
    case kCopy:
      return "Copy";
    case kDelta:
      return "Delta";
    case kX86:
    case kBcjX86:
      return "BCJ";
    case kPpc:
    case kBcjPpc:
      return "PPC";
    case kIa64:
    case kBcjIa64:
      return "IA64";
    case kArm:
    case kBcjArm:
      return "ARM";
    case kArmt:
    case kBcjArmt:
      return "ARMT";
    case kSparc:
    case kBcjSparc:
      return "SPARC";
    case kArm64:
      return "ARM64";
    case kRiscv:
      return "RISCV";
    case kLzma2:
      return "LZMA2";
    case kLzma:
      return "LZMA";
    case kBcj2:
      return "BCJ2";
    case kPpmd:
      return "PPMD";
    case kDeflate:
      return "Deflate";
    case kDeflate64:
      return "Deflate64";
    case kBzip2:
      return "BZip2";
    case kAes:
      return "7zAES";
    default:
      break;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "method %llX", static_cast<unsigned long long>(id));
  return buf;
}

std::uint32_t Folder::totalOutStreams() const {
  std::uint32_t n = 0;
  for (const auto& c : coders) n += c.numOutStreams;
  return n;
}

std::optional<std::uint32_t> Folder::mainOutStream() const {
  const std::uint32_t total = totalOutStreams();
  std::optional<std::uint32_t> found;
  for (std::uint32_t i = 0; i < total; ++i) {
    bool bound = false;
    for (const auto& bp : bindPairs) bound |= bp.outIndex == i;
    if (!bound) {
      if (found) return std::nullopt;
      found = i;
    }
  }
  return found;
}

std::uint64_t Folder::unpackSize() const {
  const auto main = mainOutStream();
  if (!main || *main >= unpackSizes.size()) return 0;
  return unpackSizes[*main];
}

bool Folder::usesMethod(std::uint64_t id) const {
  for (const auto& c : coders)
    if (c.id == id) return true;
  return false;
}

std::optional<std::string> utf16leToUtf8(const std::uint8_t* data, std::size_t units) {
  std::string out;
  out.reserve(units);
  for (std::size_t i = 0; i < units; ++i) {
    std::uint32_t cp = data[2 * i] | std::uint32_t(data[2 * i + 1]) << 8;
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      if (i + 1 >= units) return std::nullopt;
      const std::uint32_t lo = data[2 * i + 2] | std::uint32_t(data[2 * i + 3]) << 8;
      if (lo < 0xDC00 || lo > 0xDFFF) return std::nullopt;
      cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
      ++i;
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
      return std::nullopt;
    }
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | cp >> 6);
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | cp >> 12);
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | cp >> 18);
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

std::optional<StartHeader> parseStartHeader(const std::uint8_t* data, std::size_t size,
                                            std::string& why) {
  if (size < kStartHeaderSize || std::memcmp(data, kSignature, 6) != 0) {
    why = "not a 7z archive";
    return std::nullopt;
  }
  if (data[6] != 0) {
    why = "unsupported 7z version";
    return std::nullopt;
  }
  ByteReader r(data + 8, 24);
  const std::uint32_t startCrc = r.uint32();
  if (crc32(data + 12, 20) != startCrc) {
    why = "start header CRC mismatch";
    return std::nullopt;
  }
  StartHeader h;
  h.nextHeaderOffset = r.uint64();
  h.nextHeaderSize = r.uint64();
  h.nextHeaderCrc = r.uint32();
  return h;
}

bool parseHeader(const std::uint8_t* data, std::size_t size, Database& db, StreamsInfo& encoded,
                 bool& isEncoded, std::string& why) {
  isEncoded = false;
  try {
    ByteReader r(data, size);
    const std::uint8_t id = r.byte();
    if (id == kEncodedHeader) {
      encoded = StreamsInfo{};
      readStreamsInfo(r, encoded);
      if (encoded.folders.empty()) fail("encoded header without data");
      isEncoded = true;
      return true;
    }
    if (id != kHeader) fail("not a header");
    db = Database{};
    std::uint8_t nid = r.byte();
    if (nid == kArchiveProperties) {
      skipArchiveProperties(r);
      nid = r.byte();
    }
    if (nid == kAdditionalStreamsInfo) {
      StreamsInfo extra;
      readStreamsInfo(r, extra);
      nid = r.byte();
    }
    if (nid == kMainStreamsInfo) {
      readStreamsInfo(r, db.streams);
      nid = r.byte();
    }
    if (nid == kFilesInfo) {
      readFilesInfo(r, db);
      nid = r.byte();
    }
    if (nid != kEnd) fail("header does not end");
    if (db.files.empty() && !db.streams.subSizes.empty()) fail("data without files");
    assignStreams(db);
    return true;
  } catch (const Malformed& e) {
    why = e.what();
  } catch (const std::bad_alloc&) {
    why = "header too large";
  }
  return false;
}

std::vector<std::uint64_t> packStreamOffsets(const StreamsInfo& si) {
  std::vector<std::uint64_t> out;
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  // Positions past the end saturate; the reader checks them against the file.
  std::uint64_t pos = si.packPos > kMax - kStartHeaderSize ? kMax : kStartHeaderSize + si.packPos;
  for (auto s : si.packSizes) {
    out.push_back(pos);
    pos = s > std::numeric_limits<std::uint64_t>::max() - pos
              ? std::numeric_limits<std::uint64_t>::max()
              : pos + s;
  }
  return out;
}

}  // namespace harbor::sevenzip

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The 7z container: the records of its headers and the parser that reads
// them from bytes. Nothing here touches a file or decodes data.
namespace harbor::sevenzip {

inline constexpr std::uint8_t kSignature[6] = {'7', 'z', 0xBC, 0xAF, 0x27, 0x1C};
inline constexpr std::size_t kStartHeaderSize = 32;

// Property ids of the headers.
enum Nid : std::uint8_t {
  kEnd = 0x00,
  kHeader = 0x01,
  kArchiveProperties = 0x02,
  kAdditionalStreamsInfo = 0x03,
  kMainStreamsInfo = 0x04,
  kFilesInfo = 0x05,
  kPackInfo = 0x06,
  kUnPackInfo = 0x07,
  kSubStreamsInfo = 0x08,
  kSize = 0x09,
  kCRC = 0x0A,
  kFolder = 0x0B,
  kCodersUnPackSize = 0x0C,
  kNumUnPackStream = 0x0D,
  kEmptyStream = 0x0E,
  kEmptyFile = 0x0F,
  kAnti = 0x10,
  kName = 0x11,
  kCreationTime = 0x12,
  kLastAccessTime = 0x13,
  kLastWriteTime = 0x14,
  kWinAttributes = 0x15,
  kComment = 0x16,
  kEncodedHeader = 0x17,
  kStartPos = 0x18,
  kDummy = 0x19,
};

// Method ids as numbers (the id bytes read big-endian).
enum MethodId : std::uint64_t {
  kCopy = 0x00,
  kDelta = 0x03,
  kX86 = 0x04,
  kPpc = 0x05,
  kIa64 = 0x06,
  kArm = 0x07,
  kArmt = 0x08,
  kSparc = 0x09,
  kArm64 = 0x0A,
  kRiscv = 0x0B,
  kLzma2 = 0x21,
  kLzma = 0x030101,
  kBcjX86 = 0x03030103,
  kBcj2 = 0x0303011B,
  kBcjPpc = 0x03030205,
  kBcjIa64 = 0x03030401,
  kBcjArm = 0x03030501,
  kBcjArmt = 0x03030701,
  kBcjSparc = 0x03030805,
  kPpmd = 0x030401,
  kDeflate = 0x040108,
  kDeflate64 = 0x040109,
  kBzip2 = 0x040202,
  kAes = 0x06F10701,
};

// A readable name of a method id, for lists and errors.
std::string methodName(std::uint64_t id);

struct Coder {
  std::uint64_t id = 0;
  std::uint32_t numInStreams = 1;   // packed side
  std::uint32_t numOutStreams = 1;  // unpacked side
  std::vector<std::uint8_t> props;
};

struct BindPair {
  std::uint32_t inIndex = 0;
  std::uint32_t outIndex = 0;
};

struct Folder {
  std::vector<Coder> coders;
  std::vector<BindPair> bindPairs;
  std::vector<std::uint32_t> packedStreams;  // in-stream indices fed by pack streams
  std::vector<std::uint64_t> unpackSizes;    // one per out stream
  std::optional<std::uint32_t> crc;
  std::uint64_t firstPackStream = 0;  // index into StreamsInfo::packSizes
  std::uint64_t numUnpackStreams = 1;

  std::uint32_t totalOutStreams() const;
  // The out stream no bind pair consumes: the folder's output.
  std::optional<std::uint32_t> mainOutStream() const;
  std::uint64_t unpackSize() const;
  bool usesMethod(std::uint64_t id) const;
};

struct StreamsInfo {
  std::uint64_t packPos = 0;
  std::vector<std::uint64_t> packSizes;
  std::vector<Folder> folders;
  // One per substream, folder by folder.
  std::vector<std::uint64_t> subSizes;
  std::vector<std::optional<std::uint32_t>> subCrcs;
};

struct FileRecord {
  std::string name;  // UTF-8, as stored ("\\" untouched)
  bool hasStream = true;
  bool isDir = false;
  bool isAnti = false;
  std::optional<std::uint64_t> mtime;  // FILETIME
  std::optional<std::uint32_t> attributes;
  std::uint64_t size = 0;
  std::optional<std::uint32_t> crc;
  // Where the data lies: folder index (-1 without data) and offset in it.
  std::int64_t folder = -1;
  std::uint64_t offsetInFolder = 0;
};

struct StartHeader {
  std::uint64_t nextHeaderOffset = 0;  // from the end of the start header
  std::uint64_t nextHeaderSize = 0;
  std::uint32_t nextHeaderCrc = 0;
};

struct Database {
  StreamsInfo streams;
  std::vector<FileRecord> files;
};

// The start header from the archive's first 32 bytes, both checks made.
std::optional<StartHeader> parseStartHeader(const std::uint8_t* data, std::size_t size,
                                            std::string& why);

// A header blob: a plain header fills `db`; an encoded one fills `encoded`
// with the streams that hold the real header and sets `isEncoded`.
bool parseHeader(const std::uint8_t* data, std::size_t size, Database& db, StreamsInfo& encoded,
                 bool& isEncoded, std::string& why);

// Absolute file offset of each pack stream.
std::vector<std::uint64_t> packStreamOffsets(const StreamsInfo& si);

// UTF-16LE to UTF-8; none for lone surrogates.
std::optional<std::string> utf16leToUtf8(const std::uint8_t* data, std::size_t units);

std::uint32_t crc32(const void* data, std::size_t size, std::uint32_t crc = 0);

}  // namespace harbor::sevenzip

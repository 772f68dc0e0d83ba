// Any bytes as 7z headers: a whole archive (start header, then the header it
// points at) or a bare header blob. Parsing must neither crash nor allocate
// by what the bytes claim, and what it accepts must hang together.
#include <cstdint>
#include <cstring>

#include "archive/7z/SevenZipFormat.h"

#define CHECK(cond)                \
  do {                             \
    if (!(cond)) __builtin_trap(); \
  } while (0)

namespace {

void parseBlob(const std::uint8_t* data, std::size_t size) {
  using namespace harbor::sevenzip;
  Database db;
  StreamsInfo encoded;
  bool isEncoded = false;
  std::string why;
  if (!parseHeader(data, size, db, encoded, isEncoded, why)) return;
  const StreamsInfo& si = isEncoded ? encoded : db.streams;
  CHECK(si.subSizes.size() == si.subCrcs.size());
  for (const auto& f : si.folders) {
    CHECK(f.mainOutStream().has_value());
    CHECK(f.unpackSizes.size() == f.totalOutStreams());
  }
  for (const auto& file : db.files) {
    CHECK(file.folder < static_cast<std::int64_t>(si.folders.size()));
    CHECK(file.name.find('\0') == std::string::npos);
  }
  packStreamOffsets(si);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace harbor::sevenzip;
  std::string why;
  if (size >= kStartHeaderSize && std::memcmp(data, kSignature, 6) == 0) {
    // Archives: follow the start header when it points inside the input,
    // ignoring its checks so that mutations reach the header parser.
    auto h = parseStartHeader(data, size, why);
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    if (h) {
      offset = h->nextHeaderOffset;
      length = h->nextHeaderSize;
    } else {
      for (int i = 7; i >= 0; --i) offset = offset << 8 | data[12 + i];
      for (int i = 7; i >= 0; --i) length = length << 8 | data[20 + i];
    }
    const std::uint64_t room = size - kStartHeaderSize;
    if (offset <= room && length <= room - offset)
      parseBlob(data + kStartHeaderSize + offset, static_cast<std::size_t>(length));
    return 0;
  }
  parseBlob(data, size);
  return 0;
}

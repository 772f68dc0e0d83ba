// Any bytes as a zip archive: listing and extracting, with the tree reader and
// the one-call extractor, must neither crash nor write anything outside the
// destination.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "archive/zip/SSZipArchive.h"
#include "archive/zip/UZipArchive.h"

namespace {

void check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fs = std::filesystem;
  char base[] = "/tmp/harbor-fuzz-zip-XXXXXX";
  if (!mkdtemp(base)) return 0;
  const fs::path root(base);
  const fs::path archive = root / "input.zip";
  const fs::path destination = root / "d/out";
  fs::create_directories(destination);
  if (FILE* f = std::fopen(archive.c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    harbor::UZipArchive reader(archive.string(), nullptr, nullptr, "password");
    reader.listFiles();
    reader.unArchivePath(destination.string());
    std::optional<harbor::Error> error;
    harbor::SSZipArchive::unzipFileAtPath(archive.string(), (destination / "ss").string(), false,
                                          "password", &error, nullptr);
    std::error_code ec;
    std::size_t outside = 0;
    for (const auto& e : fs::directory_iterator(root, ec))
      outside += e.path() != archive && e.path() != root / "d";
    for (const auto& e : fs::directory_iterator(root / "d", ec)) outside += e.path() != destination;
    check(outside == 0);
  }
  std::error_code ec;
  fs::remove_all(root, ec);
  return 0;
}

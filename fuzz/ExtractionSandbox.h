#pragma once

// Runs an extractor on fuzz input in a private folder and traps when anything
// appears outside the destination. The destination sits one level down so an
// escape with a single ".." is seen too.
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace harbor::fuzz {

template <class Extract>
void extractInSandbox(const std::uint8_t* data, std::size_t size, const std::string& fileName,
                      Extract extract) {
  namespace fs = std::filesystem;
  char base[] = "/tmp/harbor-fuzz-archive-XXXXXX";
  if (!mkdtemp(base)) return;
  const fs::path root(base);
  const fs::path archive = root / fileName;
  const fs::path destination = root / "d/out";
  fs::create_directories(destination);
  if (FILE* f = std::fopen(archive.c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    extract(archive.string(), destination);
    std::error_code ec;
    std::size_t outside = 0;
    for (const auto& e : fs::directory_iterator(root, ec))
      outside += e.path() != archive && e.path() != root / "d";
    for (const auto& e : fs::directory_iterator(root / "d", ec)) outside += e.path() != destination;
    if (outside != 0) __builtin_trap();
  }
  std::error_code ec;
  fs::remove_all(root, ec);
}

}  // namespace harbor::fuzz

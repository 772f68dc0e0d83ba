// Any bytes as a 7z archive, with a fixed password: listing and extracting
// must neither crash nor hang nor write anything outside the destination.
#include <cstdint>
#include <filesystem>
#include <string>

#include "ExtractionSandbox.h"
#include "archive/7z/U7ZArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  harbor::fuzz::extractInSandbox(
      data, size, "input.7z",
      [](const std::string& archive, const std::filesystem::path& destination) {
        harbor::U7ZArchive reader(archive, nullptr, nullptr, "password");
        reader.listFiles();
        reader.unArchivePath(destination.string());
      });
  return 0;
}

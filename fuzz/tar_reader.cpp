// Any bytes as a tar archive: listing and extracting must neither crash nor
// write anything outside the destination.
#include <cstdint>
#include <filesystem>
#include <string>

#include "ExtractionSandbox.h"
#include "archive/tar/UTarManager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  harbor::fuzz::extractInSandbox(
      data, size, "input.tar",
      [](const std::string& archive, const std::filesystem::path& destination) {
        harbor::UTarManager reader(archive, nullptr, nullptr, "password");
        reader.listFiles();
        reader.unArchivePath(destination.string());
      });
  return 0;
}

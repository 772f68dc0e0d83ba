// Any bytes as a zip archive: listing and extracting, with the tree reader and
// the one-call extractor, must neither crash nor write anything outside the
// destination.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "ExtractionSandbox.h"
#include "archive/zip/SSZipArchive.h"
#include "archive/zip/UZipArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  harbor::fuzz::extractInSandbox(
      data, size, "input.zip",
      [](const std::string& archive, const std::filesystem::path& destination) {
        harbor::UZipArchive reader(archive, nullptr, nullptr, "password");
        reader.listFiles();
        reader.unArchivePath(destination.string());
        std::optional<harbor::Error> error;
        harbor::SSZipArchive::unzipFileAtPath(archive, (destination / "ss").string(), false,
                                              "password", &error, nullptr);
      });
  return 0;
}

#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Small documents for the viewers' tests and pictures, made here so that no
// file comes from another program.
namespace harbor::gui::samples {

namespace fs = std::filesystem;

// A PNG of `w`×`h` in one colour, with a diagonal band.
std::string png(int w, int h, unsigned rgb);
void writePng(const fs::path& path, int w, int h, unsigned rgb);
// A book of `chapters` chapters ("Chapter 1"...); the first one asks for a
// picture on the network.
void writeEpub(const fs::path& path, int chapters);
// A web archive of one page and one picture under an outside address.
void writeMht(const fs::path& path);
// A PDF of `pages` pages, each with its number in large type.
void writePdf(const fs::path& path, int pages);
// `seconds` of a quiet tone, as 16-bit mono PCM.
void writeWav(const fs::path& path, int seconds);
// A zip (or 7z, by the extension) of `files` (relative path and content), made by our own writer.
void writeZip(const fs::path& path, const std::vector<std::pair<std::string, std::string>>& files,
              const std::string& password = {});

}  // namespace harbor::gui::samples

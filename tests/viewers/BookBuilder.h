#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace harbor::test {

// The files of a book by path inside it; "mimetype" is added first, stored.
using BookFiles = std::map<std::string, std::string>;

// Writes `files` as a zip at `out` (stored rather than deflated with
// `store`, so equal lengths give equal sizes); false on failure.
bool writeBook(const std::filesystem::path& out, const BookFiles& files, bool store = false);
// Writes `files` as a folder (an already unpacked book).
void writeFolder(const std::filesystem::path& dir, const BookFiles& files);

// A valid EPUB 3 book with a nav document, a non-ASCII title and a spine in
// another order than the manifest.
BookFiles epub3Book();
// A valid EPUB 2 book with an NCX and a guide.
BookFiles epub2Book();

std::string container(const std::string& rootfiles);
std::string rootfile(const std::string& fullPath,
                     const std::string& mediaType = "application/oebps-package+xml");

}  // namespace harbor::test

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <vector>

#include "cli/Commands.h"
#include "platform/Directories.h"
#include "platform/Resources.h"

namespace harbor::cli {
namespace fs = std::filesystem;

int runMainJob() {
  const fs::path root = Directories::documentDirectory();
  std::cout << "Document root: " << root.string() << "\n";

  std::vector<std::string> entries;
  std::error_code ec;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code tec;
    bool dir = it->is_directory(tec);
    entries.push_back(it->path().filename().string() + (dir ? "/" : ""));
  }
  if (ec) {
    std::cerr << "harbor: cannot list " << root.string() << ": " << ec.message() << "\n";
    return 1;
  }
  std::sort(entries.begin(), entries.end());
  std::cout << "Entries (" << entries.size() << "):\n";
  for (const auto& e : entries) std::cout << "  " << e << "\n";

  std::vector<std::string> formats;
  for (fs::directory_iterator it(resourceDirectory() / "syntax", ec), end; !ec && it != end;
       it.increment(ec)) {
    if (it->path().extension() == ".stx") formats.push_back(it->path().stem().string());
  }
  std::sort(formats.begin(), formats.end());
  std::cout << "Syntax definitions (" << formats.size() << "):";
  for (const auto& f : formats) std::cout << " " << f;
  std::cout << "\n";
  return 0;
}

}  // namespace harbor::cli

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <vector>

#include "cli/Commands.h"
#include "platform/Directories.h"
#include "syntax/CodeFactory.h"

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

  // What the editor colours: extensions and file names with a parser of their own.
  std::cout << "Highlighted extensions:";
  for (const auto& [ext, row] : CodeFactory::builtinExtensions()) {
    if (ext.find("core") == std::string::npos) std::cout << " " << ext;
  }
  std::cout << "\nHighlighted file names:";
  for (const auto& [name, row] : CodeFactory::builtinFileNames()) std::cout << " " << name;
  std::cout << "\nOpened as text: " << CodeFactory::allSupportTextExtensions().size()
            << " extensions\n";
  return 0;
}

}  // namespace harbor::cli

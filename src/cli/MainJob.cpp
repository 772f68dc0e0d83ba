#include <algorithm>
#include <filesystem>
#include <iostream>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "platform/Directories.h"
#include "syntax/CodeFactory.h"

namespace harbor::cli {
namespace fs = std::filesystem;

int runMainJob(bool json) {
  const fs::path root = Directories::documentDirectory();
  std::vector<std::string> entries;
  std::error_code ec;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code tec;
    bool dir = it->is_directory(tec);
    entries.push_back(it->path().filename().string() + (dir ? "/" : ""));
  }
  if (ec) return fail("", "cannot list " + root.string() + ": " + ec.message());
  std::sort(entries.begin(), entries.end());

  // What the editor colours: extensions and file names with a parser of their own.
  std::vector<std::string> extensions;
  for (const auto& [ext, row] : CodeFactory::builtinExtensions()) {
    if (ext.find("core") == std::string::npos) extensions.push_back(ext);
  }
  std::vector<std::string> names;
  for (const auto& [name, row] : CodeFactory::builtinFileNames()) names.push_back(name);
  const std::size_t textCount = CodeFactory::allSupportTextExtensions().size();

  if (json) {
    printJson(ordered_json{{"root", root.string()},
                           {"entries", entries},
                           {"highlightedExtensions", extensions},
                           {"highlightedFileNames", names},
                           {"textExtensionCount", textCount}});
    return 0;
  }
  std::cout << "Document root: " << root.string() << "\n";
  std::cout << "Entries (" << entries.size() << "):\n";
  for (const auto& e : entries) std::cout << "  " << e << "\n";
  std::cout << "Highlighted extensions:";
  for (const auto& e : extensions) std::cout << " " << e;
  std::cout << "\nHighlighted file names:";
  for (const auto& n : names) std::cout << " " << n;
  std::cout << "\nOpened as text: " << textCount << " extensions\n";
  return 0;
}

}  // namespace harbor::cli

#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "archive/IArchive.h"
#include "support/TestSupport.h"

namespace harbor::test {

// Runs a Python script in `dir` (archives are built with zipfile/tarfile or
// byte by byte there); true on exit 0.
inline bool runPython(const std::filesystem::path& dir, const std::string& script) {
  writeFile(dir / "make.py", script);
  const std::string cmd = "cd '" + dir.string() + "' && python3 make.py";
  return std::system(cmd.c_str()) == 0;
}

inline bool run(const std::string& cmd) {
  return std::system(cmd.c_str()) == 0;
}

inline bool haveTool(const std::string& tool) {
  return run("command -v " + tool + " >/dev/null 2>&1");
}

// Every path below `root`, relative, sorted; links are not followed.
inline std::vector<std::string> treeOf(const std::filesystem::path& root) {
  std::vector<std::string> out;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    out.push_back(std::filesystem::relative(it->path(), root).string());
  }
  std::sort(out.begin(), out.end());
  return out;
}

// The paths of all entries of a listed tree, depth first.
inline void entryPaths(const ZipEntry& node, std::vector<std::string>& out) {
  for (const auto& c : node.children()) {
    out.push_back(c->path());
    entryPaths(*c, out);
  }
}

inline std::vector<std::string> entryPaths(const IArchive& a) {
  std::vector<std::string> out;
  entryPaths(*a.rootEntry(), out);
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace harbor::test

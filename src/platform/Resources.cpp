#include "platform/Resources.h"

#include <cstdlib>
#include <system_error>
#include <vector>

namespace harbor {
namespace fs = std::filesystem;

fs::path resourceDirectory() {
  std::vector<fs::path> candidates;
  if (const char* env = std::getenv("HARBOR_RESOURCES"); env && *env) candidates.emplace_back(env);
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    fs::path bin = exe.parent_path();
    candidates.push_back(bin.parent_path() / "resources");
    candidates.push_back(bin.parent_path() / "share" / "harbor" / "resources");
  }
#ifdef HARBOR_SOURCE_RESOURCES
  candidates.emplace_back(HARBOR_SOURCE_RESOURCES);
#endif
  for (const auto& c : candidates) {
    if (fs::is_directory(c / "strings", ec)) return c;
  }
  return candidates.empty() ? fs::path("resources") : candidates.back();
}

std::optional<fs::path> resourcePath(std::string_view relative) {
  if (relative.empty()) return std::nullopt;
  fs::path rel(relative);
  // Resources are looked up by name; a name must not climb out of the folder.
  for (const auto& part : rel) {
    if (part == "..") return std::nullopt;
  }
  if (rel.is_absolute()) return std::nullopt;
  fs::path p = resourceDirectory() / rel;
  std::error_code ec;
  if (fs::is_regular_file(p, ec)) return p;
  return std::nullopt;
}

}  // namespace harbor

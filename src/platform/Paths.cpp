#include "platform/Paths.h"

#include <algorithm>
#include <vector>

namespace harbor {
namespace {

std::vector<std::string_view> components(std::string_view p) {
  std::vector<std::string_view> parts;
  std::size_t i = 0;
  while (i <= p.size()) {
    std::size_t j = std::min(p.find('/', i), p.size());
    std::string_view part = p.substr(i, j - i);
    if (part == "..") {
      // Resolved by name, as the kernel would without links: "/a/b/../c" is
      // "/a/c", so a climb out of a base never passes for a name inside it.
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (p.empty() || p.front() != '/') {
        parts.push_back(part);  // a relative path may climb above its start
      }
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = j + 1;
  }
  return parts;
}

// How many components of `path` belong to `base`, or -1 when `path` is not
// at or below it.
long depthOfBase(const std::vector<std::string_view>& parts,
                 const std::vector<std::string_view>& baseParts) {
  if (parts.size() < baseParts.size() ||
      !std::equal(baseParts.begin(), baseParts.end(), parts.begin())) {
    return -1;
  }
  return static_cast<long>(baseParts.size());
}

}  // namespace

bool isPathAtOrBelow(std::string_view path, std::string_view base) {
  return depthOfBase(components(path), components(base)) >= 0;
}

std::string relativePathBelow(std::string_view path, std::string_view base) {
  const auto parts = components(path);
  const long from = depthOfBase(parts, components(base));
  std::string out;
  if (from < 0) return out;
  for (std::size_t i = static_cast<std::size_t>(from); i < parts.size(); ++i) {
    out += '/';
    out += parts[i];
  }
  return out;
}

}  // namespace harbor

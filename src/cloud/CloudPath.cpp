#include "cloud/CloudPath.h"

#include <filesystem>

namespace harbor {
namespace fs = std::filesystem;

std::optional<std::string> cloudPathInside(const std::string& documents,
                                           const std::string& relative, bool keepLastLink) {
  if (documents.empty()) return std::nullopt;
  fs::path rel = fs::path(relative).lexically_normal();
  if (rel.is_absolute()) return std::nullopt;
  for (const auto& part : rel)
    if (part == "..") return std::nullopt;
  std::error_code ec;
  fs::path base = fs::weakly_canonical(documents, ec);
  if (ec) return std::nullopt;
  fs::path joined = (fs::path(documents) / rel).lexically_normal();
  while (!joined.empty() && !joined.has_filename()) joined = joined.parent_path();
  fs::path real;
  if (keepLastLink && joined != fs::path(documents).lexically_normal()) {
    real = fs::weakly_canonical(joined.parent_path(), ec) / joined.filename();
  } else {
    real = fs::weakly_canonical(joined, ec);
  }
  if (ec) return std::nullopt;
  auto inside = real.lexically_relative(base);
  if (inside.empty() || *inside.begin() == "..") return std::nullopt;
  return real.string();
}

}  // namespace harbor

#include "cli/Commands.h"

#include <algorithm>
#include <utility>

namespace harbor::cli {
namespace {
std::vector<std::pair<int, CommandInstaller>>& registry() {
  static std::vector<std::pair<int, CommandInstaller>> r;
  return r;
}
}  // namespace

CommandRegistrar::CommandRegistrar(int order, CommandInstaller install) {
  registry().emplace_back(order, install);
}

void installCommands(CLI::App& app, int& exitCode) {
  auto r = registry();
  std::stable_sort(r.begin(), r.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [order, install] : r) install(app, exitCode);
}

}  // namespace harbor::cli

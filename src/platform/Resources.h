#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace harbor {

// The folder of application resources (syntax/, templates/, strings/ ...):
// $HARBOR_RESOURCES, else resources/ beside the binary's folder (the build
// tree), else share/harbor/resources of the installation, else the source
// tree the binary was built from.
std::filesystem::path resourceDirectory();

// A readable resource file by its path relative to the resource folder.
std::optional<std::filesystem::path> resourcePath(std::string_view relative);

}  // namespace harbor

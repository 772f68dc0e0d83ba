#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/Error.h"

namespace harbor {

// Writes `bytes` to a temporary file beside `target`, flushes it to disk and
// renames it over the target, so a reader sees the old file or the new one,
// never half of either. On failure the target is untouched and no temporary
// file is left. The target's permissions are kept.
std::optional<Error> writeFileAtomically(const std::filesystem::path& target,
                                         std::string_view bytes);

// Renames without replacing: an existing `to` is an error, never overwritten.
std::optional<Error> moveNoReplace(const std::filesystem::path& from,
                                   const std::filesystem::path& to);

}  // namespace harbor

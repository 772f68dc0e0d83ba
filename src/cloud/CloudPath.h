#pragma once

#include <optional>
#include <string>

namespace harbor {

// Where a path given relative to the drive's documents folder lands, or none
// when it would leave it: through "..", an absolute name, or a link on the way.
// With `keepLastLink` the last component may itself be a link (it is the item
// acted on, as when a link is removed), so only its folder is resolved.
std::optional<std::string> cloudPathInside(const std::string& documents,
                                           const std::string& relative, bool keepLastLink = false);

}  // namespace harbor

#pragma once

#include <string>
#include <string_view>

namespace harbor {

// Whether one path lies inside another, and where. Paths are compared by
// components, never by characters, so "/a/bc" is not inside "/a/b"; repeated
// and trailing slashes and "." components do not count, and ".." takes back
// the component before it. Links are not resolved: callers that must stay
// inside a folder on disk compare canonical paths.

// True when `path` is `base` or lies below it.
bool isPathAtOrBelow(std::string_view path, std::string_view base);

// The part of `path` below `base`, in the form "/a/b"; empty when it is not
// below (or is `base`).
std::string relativePathBelow(std::string_view path, std::string_view base);

}  // namespace harbor

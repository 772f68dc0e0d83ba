#pragma once

#include <string>
#include <string_view>

namespace harbor::mht {

// A Content-Location read as a URL. Locations without "//" (cid:, about:,
// bare names) have no host; their path is what follows the scheme.
struct Location {
  std::string scheme;  // lower case, empty for a bare name
  std::string host;    // lower case, port dropped
  std::string path;    // without query and fragment
  bool isFileURL() const { return scheme == "file"; }
  bool hasAuthority = false;
};

Location parseLocation(std::string_view location);

// The path's folder: everything up to its last "/" unless it ends with "/".
std::string folderOfPath(std::string_view path);
// The last component of a location's path; empty when the path ends in "/".
std::string leafOfLocation(std::string_view location);

// `path` relative to the folder `base`, both "/"-separated: "a/b" under
// "a" is "b", "c/d" from "a/b" is "../../c/d".
std::string pathRelativeTo(std::string_view path, std::string_view base);

// One safe file name: no separators, NUL or control characters, nothing
// above ASCII, not "." or "..", at most 255 bytes with its extension kept.
std::string safeFileName(std::string_view name);
// A folder below the archive's root: "/a/b", or "/" for the root itself.
// ".." and absolute forms cannot climb out: every component is a safe name.
std::string safeFolderPath(std::string_view folder);

// A relative path as it must appear inside a URL attribute or url().
std::u16string urlEscapePath(std::string_view path);

// The usual extension of a MIME type, or empty.
std::string extensionForType(std::string_view type);

}  // namespace harbor::mht

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace harbor::davpath {

// The document root with its links resolved and no trailing "/"; nullopt
// when it does not exist.
std::optional<std::string> realRoot(const std::string& documentRoot);

// The file a decoded request path ("/a/b") names below `root` (a real root).
// The folders on the way are resolved; the last name is kept as it is, so a
// link is itself the resource. Nullopt for "." or ".." names, escapes that
// survived one decoding ("%2e", "%2f", ...), a folder on the way that leads
// outside, or a last name that is a link leading outside.
std::optional<std::string> resolve(std::string_view decodedPath, const std::string& root);

// As `resolve`, from a raw request target ("/a%20b?x").
std::optional<std::string> pathForURI(std::string_view uri, const std::string& root);

// The path a "Destination" header names: the text after the request's
// "Host" inside it, decoded. Nullopt for another host, no host, or a path
// that does not decode or leaves the root.
std::optional<std::string> destinationPath(std::string_view destination, std::string_view host,
                                           const std::string& root);

// `path` below `root` without the leading "/" ("" for the root itself).
std::string resourcePath(const std::string& path, const std::string& root);

// An href: UTF-8 percent-escaped, "/" kept; "<&>?+" and "#" escaped too.
std::string escapeHref(std::string_view path);

// Whether `path` is below `ancestor` (or is it, with `orSame`).
bool isBelow(const std::string& path, const std::string& ancestor, bool orSame);

// Folder passwords of the file manager. `full` is a path under
// `documentRoot`, `relative` its resource path.
// Whether the item or a folder above it (not the root) carries a password.
bool isLocked(const std::string& documentRoot, const std::string& relative);
// Whether the item or anything below it carries a password.
bool treeHoldsLocked(const std::string& documentRoot, const std::string& relative);

// Writes `data` to a hidden name beside `path` and renames it into place;
// the folder must exist already. False, with nothing left behind, on failure.
bool writeFileAtomically(const std::string& path, std::string_view data);

}  // namespace harbor::davpath

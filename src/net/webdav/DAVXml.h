#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace harbor::davxml {

// libxml2 options for client bodies: recover, no errors or warnings, no
// blanks, no network, compact. Entities are neither substituted nor loaded.
constexpr int kParseOptions = 67937;

// Property bits a PROPFIND may ask for.
enum PropertyBit : unsigned {
  kResourceType = 1,
  kCreationDate = 2,
  kLastModified = 4,
  kContentLength = 8,
  kAllProperties = 15,
};

// The properties a PROPFIND body asks for; every property for an empty,
// unreadable or unknown body.
unsigned propertyMask(std::string_view body);

// What a LOCK body asks for. `parsed` is false when the body does not parse
// at all (the request is then a refresh).
struct LockInfo {
  bool parsed = false;
  std::optional<std::string> scope;  // "exclusive", "shared", ...
  std::optional<std::string> type;   // "write"
  std::optional<std::string> owner;  // the text of owner/href
};
LockInfo lockInfo(std::string_view body);

// `text` with "&", "<", ">" and quotes as entities, for echoing client text.
std::string escapeText(std::string_view text);

}  // namespace harbor::davxml

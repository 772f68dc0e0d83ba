#pragma once

#include <set>
#include <string>

namespace harbor {

// Extension sets the list model sorts by type with, each built once.
class GlobalObject {
 public:
  using ExtensionSet = std::set<std::string, std::less<>>;

  static GlobalObject& staticInstance();
  static const ExtensionSet& getSupportMediaTypes();
  static const ExtensionSet& getSupportPlayMediaTypes();
  // Narrower than the catalogue's image set: no "heic".
  static const ExtensionSet& getSupportImageTypes();
  static const ExtensionSet& getSupportDocTypes();
};

}  // namespace harbor

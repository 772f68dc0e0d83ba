#pragma once

#include "filemanager/USupportFile.h"

namespace harbor {

// The extension maps the list model sorts by type with, each built once.
// Documents and media are the catalogue's own sets; images are the
// catalogue's set without "heic", which therefore sorts under "#".
class GlobalObject {
 public:
  using ExtensionSet = ExtensionMap;

  static GlobalObject& staticInstance();
  static const ExtensionMap& getSupportMediaTypes();
  static const ExtensionMap& getSupportPlayMediaTypes();
  static const ExtensionMap& getSupportImageTypes();
  static const ExtensionMap& getSupportDocTypes();
};

}  // namespace harbor

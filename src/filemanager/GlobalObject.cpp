#include "filemanager/GlobalObject.h"

namespace harbor {

GlobalObject& GlobalObject::staticInstance() {
  static GlobalObject instance;
  return instance;
}

const ExtensionMap& GlobalObject::getSupportMediaTypes() {
  return USupportFile::mediaTypesExtension();
}

const ExtensionMap& GlobalObject::getSupportPlayMediaTypes() {
  static const ExtensionMap map = [] {
    ExtensionMap m;
    for (const char* e : {"mp4", "mp3", "m4a", "aac", "wav", "m4v", "mov", "3gp"}) m.emplace(e, "");
    return m;
  }();
  return map;
}

const ExtensionMap& GlobalObject::getSupportImageTypes() {
  static const ExtensionMap map = [] {
    ExtensionMap m = USupportFile::imageExtension();
    m.erase("heic");
    return m;
  }();
  return map;
}

const ExtensionMap& GlobalObject::getSupportDocTypes() {
  return USupportFile::docTypesExtension();
}

}  // namespace harbor

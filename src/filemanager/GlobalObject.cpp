#include "filemanager/GlobalObject.h"

namespace harbor {

GlobalObject& GlobalObject::staticInstance() {
  static GlobalObject instance;
  return instance;
}

const GlobalObject::ExtensionSet& GlobalObject::getSupportMediaTypes() {
  static const ExtensionSet set = {
      "aa",     "a52", "ac3",  "aif", "aifc", "aiff", "au",  "snd",  "cda", "cue", "dis",
      "diswav", "fla", "flac", "mid", "midi", "rmi",  "ape", "mac",  "mp1", "mp2", "mp3",
      "mpa",    "m4a", "mpc",  "ra",  "tak",  "tta",  "ogg", "wav",  "wma", "m3u", "ttbl",
      "ttpl",   "wmv", "asf",  "asx", "rm",   "rmvb", "mpg", "mpeg", "mpe", "3gp", "mov",
      "mp4",    "m4v", "avi",  "dat", "mkv",  "flv",  "vob"};
  return set;
}

const GlobalObject::ExtensionSet& GlobalObject::getSupportPlayMediaTypes() {
  static const ExtensionSet set = {"mp4", "mp3", "m4a", "aac", "wav", "m4v", "mov", "3gp"};
  return set;
}

const GlobalObject::ExtensionSet& GlobalObject::getSupportImageTypes() {
  static const ExtensionSet set = {"bmp", "png", "gif", "jpeg", "jpg", "tiff", "tif", "ico"};
  return set;
}

const GlobalObject::ExtensionSet& GlobalObject::getSupportDocTypes() {
  static const ExtensionSet set = {"pdf",  "txt",  "doc", "ppt", "xls", "docx",
                                   "xlsx", "pptx", "rtf", "pub", "csv"};
  return set;
}

}  // namespace harbor

#include "prefs/TextExtensions.h"

#include <mutex>
#include <optional>
#include <set>

#include "prefs/EditorUserDefaults.h"

namespace harbor {
namespace {

struct CustomSet {
  std::mutex mutex;
  std::optional<std::set<std::string, std::less<>>> extensions;
};

CustomSet& custom() {
  static CustomSet c;
  return c;
}

}  // namespace

const std::map<std::string, std::string>& TextExtensions::builtin() {
  static const std::map<std::string, std::string> table = [] {
    std::map<std::string, std::string> t;
    for (const char* ext : {"cnf",        "command", "tcl",         "hs",
                            "pas",        "gradle",  "scala",       "groovy",
                            "conf",       "stx",     "cfg",         "yml",
                            "yaml",       "url",     "inc",         "v",
                            "s",          "hxx",     "hpp",         "pm",
                            "ashx",       "asmx",    "asax",        "pl",
                            "xib",        "rhtml",   "rb",          "asm",
                            "ini",        "lua",     "log",         "am",
                            "m4",         "in",      "sh",          "tiff",
                            "pch",        "lrc",     "resx",        "xsl",
                            "xslt",       "sln",     "csproj",      "build",
                            "classpath",  "project", "jsp",         "java",
                            "py",         "config",  "sql",         "rtf",
                            "properties", "sdef",    "scriptsuite", "scriptterminology",
                            "plist",      "strings", "erb",         "erl",
                            "cpp",        "md",      "markdown",    "mm",
                            "m",          "hx",      "h",           "cxx",
                            "cc",         "c",       "php",         "json",
                            "js",         "xml",     "vb",          "cs",
                            "ascx",       "aspx",    "asp",         "scss",
                            "css",        "xhtml",   "mht",         "htc",
                            "shtm",       "shtml",   "htm",         "html",
                            "txt"}) {
      t[ext] = "";
    }
    return t;
  }();
  return table;
}

bool TextExtensions::isCustom(std::string_view extension) {
  CustomSet& c = custom();
  std::lock_guard lock(c.mutex);
  if (!c.extensions) {
    c.extensions.emplace();
    for (const auto& entry : EditorUserDefaults::getAllExtensionsToFileName())
      c.extensions->insert(entry.first);
  }
  return c.extensions->find(extension) != c.extensions->end();
}

void TextExtensions::reloadCustom() {
  CustomSet& c = custom();
  std::lock_guard lock(c.mutex);
  c.extensions.reset();
}

bool TextExtensions::contains(std::string_view extension) {
  if (extension.empty()) return false;
  const auto& table = builtin();
  if (table.find(std::string(extension)) != table.end()) return true;
  return isCustom(extension);
}

}  // namespace harbor

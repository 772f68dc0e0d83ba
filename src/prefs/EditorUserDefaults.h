#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// The user's syntax assignments: stx file name to a text of comma or
// semicolon separated extensions (or, in the second store, file names).
class EditorUserDefaults {
 public:
  using Settings = std::map<std::string, std::string>;

  // Splits at "," and ";" and drops entries that are blank after trimming;
  // kept entries are returned as written.
  static std::vector<std::string> getExtensionsWithExtString(std::string_view text);
  static std::string getExtensionsValidString(const std::vector<std::string>& entries);

  static Settings getEditorSynaxSettings();
  static Settings getEditorSynaxOnlyFileSettings();

  // False with `error` set (text in the domain, code -1) when the value is
  // empty or one of its entries belongs to another file already.
  static bool saveEditorSyntaxSettings(std::string_view value, std::string_view fileNameCtlFile,
                                       Error* error, std::string_view oldStxFileName = {});
  static bool saveEditorOnlyFileSyntaxSettings(std::string_view value,
                                               std::string_view fileNameCtlFile, Error* error,
                                               std::string_view oldStxFileName = {});
  // Drops the entry and, once that is stored, its file.
  static bool removeEditorSyntaxWithFileName(std::string_view fileName);
  static bool removeEditorSyntaxOnlyFileWithFileName(std::string_view fileName);

  // Each extension (file name) to the stx file it is assigned to.
  static std::map<std::string, std::string> getAllExtensionsToFileName();
  static std::map<std::string, std::string> getAllExtensionsToOnlyFileName();

  // Deletes the files in the user's syntax folders that no entry names.
  static void removeMultipleSyntaxFile();
  static void removeMultipleSyntaxOnlyFile();
};

}  // namespace harbor

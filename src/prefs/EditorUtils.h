#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace harbor {

// Where syntax definition files live: the user's own under the application
// support directory, the shipped ones among the resources.
class EditorUtils {
 public:
  // "Editor/SyntaxFile" and "Editor/SyntaxFileOnly", made on demand.
  static std::filesystem::path defulatEditorDirectory();
  static std::filesystem::path defulatEditorOnlyFileDirectory();

  static std::filesystem::path fullNameForSyntaxExtension(std::string_view fileName);
  static std::filesystem::path fullNameForSyntaxOnlyFile(std::string_view fileName);
  static std::filesystem::path fullName(std::string_view fileName, bool isOnlyFile);
  static bool removeEditorSyntaxFile(std::string_view fileName);
  static bool removeEditorSyntaxFileOnly(std::string_view fileName);

  // A shipped resource by file name ("cpp.stx") or by stem and extension.
  static std::optional<std::filesystem::path> sourceURLWithName(std::string_view name);
  static std::optional<std::filesystem::path> sourceURLWithName(std::string_view name,
                                                                std::string_view ext);
  // The .stx file of a registry row: configType 1 and 2 are the user's
  // folders, anything else the resources; nothing for an empty name.
  static std::optional<std::filesystem::path> sourceURLWithConfigItem(int configType,
                                                                      std::string_view stxFilePath);
};

}  // namespace harbor

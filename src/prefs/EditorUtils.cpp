#include "prefs/EditorUtils.h"

#include <system_error>

#include "platform/Directories.h"
#include "platform/Resources.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

fs::path editorFolder(const char* name) {
  fs::path p = Directories::applicationSupportDirectory() / "Editor" / name;
  std::error_code ec;
  fs::create_directories(p, ec);
  return p;
}

// A plain file name: user-supplied names must not reach outside the folder.
bool isPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

bool removeIn(const fs::path& folder, std::string_view name) {
  if (!isPlainName(name)) return false;
  std::error_code ec;
  return fs::remove(folder / fs::path(name), ec) && !ec;
}

}  // namespace

fs::path EditorUtils::defulatEditorDirectory() {
  return editorFolder("SyntaxFile");
}
fs::path EditorUtils::defulatEditorOnlyFileDirectory() {
  return editorFolder("SyntaxFileOnly");
}

fs::path EditorUtils::fullNameForSyntaxExtension(std::string_view fileName) {
  return defulatEditorDirectory() / fs::path(fileName).filename();
}

fs::path EditorUtils::fullNameForSyntaxOnlyFile(std::string_view fileName) {
  return defulatEditorOnlyFileDirectory() / fs::path(fileName).filename();
}

fs::path EditorUtils::fullName(std::string_view fileName, bool isOnlyFile) {
  return isOnlyFile ? fullNameForSyntaxOnlyFile(fileName) : fullNameForSyntaxExtension(fileName);
}

bool EditorUtils::removeEditorSyntaxFile(std::string_view fileName) {
  return removeIn(defulatEditorDirectory(), fileName);
}

bool EditorUtils::removeEditorSyntaxFileOnly(std::string_view fileName) {
  return removeIn(defulatEditorOnlyFileDirectory(), fileName);
}

std::optional<fs::path> EditorUtils::sourceURLWithName(std::string_view name) {
  if (!isPlainName(name)) return std::nullopt;
  // Resources are grouped in folders by kind; a name is looked up in each.
  for (const char* folder : {"syntax/", "templates/", "", "web/", "encodings/"}) {
    if (auto p = resourcePath(std::string(folder) + std::string(name))) return p;
  }
  return std::nullopt;
}

std::optional<fs::path> EditorUtils::sourceURLWithName(std::string_view name,
                                                       std::string_view ext) {
  if (ext.empty()) return sourceURLWithName(name);
  return sourceURLWithName(std::string(name) + "." + std::string(ext));
}

std::optional<fs::path> EditorUtils::sourceURLWithConfigItem(int configType,
                                                             std::string_view stxFilePath) {
  if (stxFilePath.empty()) return std::nullopt;
  switch (configType) {
    case 1:
      return fullNameForSyntaxExtension(stxFilePath);
    case 2:
      return fullNameForSyntaxOnlyFile(stxFilePath);
    default:
      return sourceURLWithName(stxFilePath);
  }
}

}  // namespace harbor

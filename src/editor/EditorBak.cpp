#include "editor/EditorBak.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "platform/FileWrite.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {
namespace fs = std::filesystem;

std::string EditorBak::bakDirectory() {
  return bakDirectory(true);
}

std::string EditorBak::bakDirectory(bool create) {
  fs::path dir = Directories::documentDirectory() / kFolderName;
  if (create) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (ec) HB_LOG("EditorBak", "cannot make " + dir.string() + ": " + ec.message());
  }
  return dir.string();
}

bool EditorBak::isInBakDirectory(const std::string& path) {
  std::error_code ec;
  fs::path bak = fs::weakly_canonical(bakDirectory(false), ec);
  fs::path p = fs::weakly_canonical(path, ec);
  auto rel = p.lexically_relative(bak);
  return !rel.empty() && *rel.begin() != "..";
}

bool EditorBak::saveDataToPath(const std::string& path, const std::u16string& str, Error* error) {
  auto failure = writeFileAtomically(path, toUtf8(str));
  if (failure && error) *error = *failure;
  return !failure;
}

std::optional<std::string> EditorBak::backupToFileName(const std::string& fileName,
                                                       const std::u16string& str) {
  if (!getSystemEditorAutoBak()) return std::nullopt;
  std::string target =
      FileUtil::getCreateFileName(bakDirectory(), FileUtil::getFileNameNoExtension(fileName),
                                  FileUtil::getFileExtension(fileName));
  if (!saveDataToPath(target, str)) return std::nullopt;
  return target;
}

std::optional<std::string> EditorBak::backupFilePath(const std::string& path) {
  if (!getSystemEditorAutoBak()) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  std::string name = FileUtil::getFileName(path);
  std::string target = FileUtil::getCreateFileName(
      bakDirectory(), FileUtil::getFileNameNoExtension(name), FileUtil::getFileExtension(name));
  if (writeFileAtomically(target, bytes.str())) return std::nullopt;
  return target;
}

bool EditorBak::getSystemEditorAutoBak() {
  return UserDefaults::standard().boolForKey(keys::SystemEditorAutoBak, true);
}

void EditorBak::saveSystemEditorAutoBak(bool on) {
  UserDefaults::standard().setObject(keys::SystemEditorAutoBak, on);
}

}  // namespace harbor

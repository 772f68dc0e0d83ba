#include "filemanager/TempDirectoryUtil.h"

#include <filesystem>
#include <system_error>

#include "filemanager/FileUtil.h"
#include "platform/Directories.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

fs::path archiveRoot() {
  return Directories::temporaryDirectory() / "Archive";
}
fs::path httpServerRoot() {
  return Directories::temporaryDirectory() / "HttpServer";
}

std::string made(const fs::path& p) {
  std::error_code ec;
  fs::create_directories(p, ec);
  return p.string();
}

}  // namespace

std::string TempDirectoryUtil::archiveDirectory() {
  return made(archiveRoot());
}

std::string TempDirectoryUtil::archiveDirectory(const std::string& name) {
  return made(archiveRoot() / name);
}

bool TempDirectoryUtil::deleteArchiveDirectory() {
  return FileUtil::deleteFile(archiveRoot().string());
}

std::string TempDirectoryUtil::httpServerDirectory() {
  return made(httpServerRoot());
}

bool TempDirectoryUtil::deleteHttpServerDirectory() {
  return FileUtil::deleteFile(httpServerRoot().string());
}

void TempDirectoryUtil::deleteTemp() {
  FileUtil::deleteFiles(FileUtil::getCurrentFilesAndFoldersFullPath(FileUtil::tempDirectory()));
}

}  // namespace harbor

#include "archive/ZipBase.h"

#include <filesystem>

#include "archive/7z/U7ZArchive.h"
#include "archive/7z/U7zZip.h"
#include "archive/IArchive.h"
#include "archive/gzip/SingleStreamArchive.h"
#include "archive/rar/URarArchive.h"
#include "archive/tar/UTarManager.h"
#include "archive/zip/UZipArchive.h"
#include "archive/zip/UZipFileArchive.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;

ZipBase::ZipBase(std::string filePath, IActionProgress* delegate, ZipPropertyOptions options)
    : delegate_(delegate),
      propertyOptions_(std::move(options)),
      filePath_(std::move(filePath)),
      password_(propertyOptions_.password) {}

std::string ZipBase::getRelativePath(const std::string& path) const {
  std::string rel = ArchiveUtils::getTempRelative(relative_const_, path);
  while (!rel.empty() && rel.front() == '/') rel.erase(0, 1);
  while (!rel.empty() && rel.back() == '/') rel.pop_back();
  return rel;
}

std::string ArchiveUtils::getTempRelative(const std::string& base, const std::string& path) {
  if (base.empty()) return path;
  std::string b = base;
  while (b.size() > 1 && b.back() == '/') b.pop_back();
  if (path.size() > b.size() && path.compare(0, b.size(), b) == 0 &&
      (b == "/" || path[b.size()] == '/'))
    return path.substr(b == "/" ? 1 : b.size() + 1);
  return path;
}

std::unique_ptr<ZipBase> ArchiveFactory::createZipFactory(const std::vector<std::string>& sources,
                                                          IActionProgress* delegate,
                                                          const std::string& desPath,
                                                          const ZipPropertyOptions& options) {
  const std::string ext = toLower(FileUtil::getFileExtension(desPath));
  std::unique_ptr<ZipBase> writer;
  if (ext == "zip") {
    auto zip = std::make_unique<UZipFileArchive>(desPath, delegate, options);
    if (!zip->isOpen()) return zip;
    writer = std::move(zip);
  } else if (ext == "7z") {
    auto sevenZip = std::make_unique<U7zZip>(desPath, delegate, options);
    if (!sevenZip->isOpen()) return sevenZip;
    writer = std::move(sevenZip);
  } else {
    return nullptr;
  }
  for (const auto& source : sources) {
    if (isCurrentThreadCancelled()) break;
    std::string clean = source;
    while (clean.size() > 1 && clean.back() == '/') clean.pop_back();
    writer->setRelative_const(fs::path(clean).parent_path().string());
    writer->zip(clean);
  }
  writer->finished();
  return writer;
}

std::unique_ptr<IArchive> ArchiveFactory::createReader(const std::string& path,
                                                       const std::string& password) {
  const std::string ext = toLower(FileUtil::getFileExtension(path));
  auto root = ZipEntry::rootEntry();
  if (ext == "zip" || ext == "cbz" || ext == "jar" || ext == "ear" || ext == "war")
    return std::make_unique<UZipArchive>(path, root, nullptr, password);
  if (ext == "rar" || ext == "cbr")
    return std::make_unique<URarArchive>(path, root, nullptr, password);
  if (ext == "7z") return std::make_unique<U7ZArchive>(path, root, nullptr, password);
  if (ext == "tar") return std::make_unique<UTarManager>(path, root, nullptr, password);
  if (ext == "gz" || ext == "tgz" || ext == "gzip")
    return std::make_unique<UGZipArchive>(path, root, nullptr, password);
  if (ext == "bz" || ext == "bz2" || ext == "tbz" || ext == "tbz2")
    return std::make_unique<Bz2Manager>(path, root, nullptr, password);
  return nullptr;
}

}  // namespace harbor

#include "archive/ZipBase.h"

#include <filesystem>

#include "archive/7z/U7ZArchive.h"
#include "archive/7z/U7zZip.h"
#include "archive/ArchiveSignature.h"
#include "archive/IArchive.h"
#include "archive/gzip/SingleStreamArchive.h"
#include "archive/rar/URarArchive.h"
#include "archive/tar/UTarManager.h"
#include "archive/zip/UZipArchive.h"
#include "archive/zip/UZipFileArchive.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Paths.h"
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
  const std::string rel = relativePathBelow(path, base);
  return rel.empty() ? path : rel.substr(1);
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
  auto root = ZipEntry::rootEntry();
  switch (archiveKindOf(path)) {
    case ArchiveKind::Zip:
      return std::make_unique<UZipArchive>(path, root, nullptr, password);
    case ArchiveKind::Rar:
      return std::make_unique<URarArchive>(path, root, nullptr, password);
    case ArchiveKind::Tar:
      return std::make_unique<UTarManager>(path, root, nullptr, password);
    case ArchiveKind::Gzip:
      return std::make_unique<UGZipArchive>(path, root, nullptr, password);
    case ArchiveKind::Bzip2:
      return std::make_unique<Bz2Manager>(path, root, nullptr, password);
    case ArchiveKind::SevenZip:
      return std::make_unique<U7ZArchive>(path, root, nullptr, password);
    case ArchiveKind::None:
      break;
  }
  return nullptr;
}

}  // namespace harbor

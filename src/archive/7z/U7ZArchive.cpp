#include "archive/7z/U7ZArchive.h"

#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"

namespace harbor {

ZipEntry::Ptr U7zEntry::makeFolder(const std::string& folderPath) {
  return std::make_shared<U7zEntry>(folderPath, FilePos{}, 0, 0, 0, 0, std::nullopt, std::nullopt,
                                    false);
}

bool U7ZArchive::loadFile() {
  error_.reset();
  passwordFailure_ = false;
  _reader = std::make_unique<Archive7zReader>(filePath_);
  _reader->setDelegate(this);
  _reader->setPasswordGetter([this] { return password_; });
  _reader->setRestoreDates(isArchiveFileTime_);
  std::optional<Error> openError;
  if (_reader->open(&openError)) return true;
  HB_LOG("U7ZArchive", "Open error: " + (openError ? openError->message : std::string()));
  _reader.reset();
  if (openError && openError->code == 1) {
    isEncryptedFileName_ = true;
    isContainsPassword_ = true;
    isCheckContainsPassword_ = true;
    passwordFailure_ = true;
  }
  setError(openError ? *openError : errorFailedOpenFile());
  return false;
}

bool U7ZArchive::listFiles() {
  rootEntry_->clear();
  if (!loadFile()) return false;
  const Archive7zItem* first = nullptr;
  bool sawEncrypted = false;
  _reader->iterateWithHandler([&](const Archive7zReader::ItemPtr& item) {
    if (checkCancelled()) return false;
    const std::string path = item->path();
    if (!first) first = item.get();
    if (!sawEncrypted) {
      isContainsPassword_ = item->isEncrypted();
      sawEncrypted = item->isEncrypted();
    }
    if (isIgnore(path) || (item->flags() & Archive7zItem::kAnti)) return true;
    auto entry = std::make_shared<U7zEntry>(path, FilePos{}, item->crc32(), item->packedSize(),
                                            item->originalSize(), 0, std::nullopt,
                                            item->modificationDate(), !item->isDirectory());
    entry->setSource(item);
    rootEntry_->addToRootEntry(entry);
    return true;
  });
  isCheckContainsPassword_ = true;
  if (first) dealwithNull7zObjcItem(*rootEntry_, first);
  if (_reader->lastError()) setError(*_reader->lastError());
  return !error_;
}

void U7ZArchive::dealwithNull7zObjcItem(ZipEntry& node, const Archive7zItem* firstItem) {
  for (const auto& child : node.children()) {
    if (child->isLeaf()) continue;
    auto* entry = dynamic_cast<U7zEntry*>(child.get());
    if (entry && !entry->source() && firstItem)
      entry->setSource(std::make_shared<Archive7zItem>(child->path(), firstItem->flags()));
    dealwithNull7zObjcItem(*child, firstItem);
  }
}

void U7ZArchive::onArchive7zReaderExtractProgress(Archive7zReader&, float fraction) {
  if (actionDelegate_) progressUpdateCurrentSize(fraction * float(actionDelegate_->totalSize()));
}

void U7ZArchive::progressUpdateCurrentSize(float size) {
  if (actionDelegate_) actionDelegate_->progressUpdateCurrentSize(static_cast<std::uint64_t>(size));
}

bool U7ZArchive::extractLeaves(
    const std::vector<std::pair<Archive7zReader::ItemPtr, std::string>>& leaves,
    const std::string& destination) {
  _reader->setRestoreDates(isArchiveFileTime_);
  const bool ok = _reader->extractTo(leaves, destination);
  refused_ = _reader->refusedEntries();
  if (!ok) {
    passwordFailure_ = _reader->lastErrorIsPassword();
    if (_reader->lastError())
      setError(*_reader->lastError());
    else
      setError(errorArchive());
  }
  return ok;
}

bool U7ZArchive::unArchivePath(const ZipEntry* entry, const std::string& destination) {
  refused_.clear();
  if (!_reader && !loadFile()) return false;
  if (!entry || entry->isRootEntry()) {
    std::vector<std::pair<Archive7zReader::ItemPtr, std::string>> all;
    _reader->iterateWithHandler([&](const Archive7zReader::ItemPtr& item) {
      if (!isIgnore(item->path())) all.emplace_back(item, item->path());
      return true;
    });
    std::string dest = destination;
    while (dest.size() > 1 && dest.back() == '/') dest.pop_back();
    return extractLeaves(all, dest);
  }
  return unArchiveAssignDetailPath(*entry, destination, entry->leadingPath());
}

bool U7ZArchive::collect(const ZipEntry& entry, const std::string& destination,
                         const std::string& base,
                         std::vector<std::pair<Archive7zReader::ItemPtr, std::string>>& leaves) {
  if (checkCancelled()) return false;
  const std::string relative = entry.path().substr(std::min(base.size(), entry.path().size()));
  const auto* e = dynamic_cast<const U7zEntry*>(&entry);
  if (entry.isLeaf()) {
    if (e && e->source()) leaves.emplace_back(e->source(), relative);
    return true;
  }
  if (auto target = safeTarget(destination, relative)) {
    FileUtil::createFolder(*target);
    if (isArchiveFileTime_ && entry.date()) FileUtil::setFileModifiedDate(*entry.date(), *target);
  }
  for (const auto& child : entry.children())
    if (!collect(*child, destination, base, leaves)) return false;
  return true;
}

bool U7ZArchive::unArchiveAssignDetailPath(const ZipEntry& entry, const std::string& destination,
                                           const std::string& base) {
  if (!_reader && !loadFile()) return false;
  // A solid folder decodes once for the whole subtree: the leaves are
  // gathered first and extracted in one pass.
  std::vector<std::pair<Archive7zReader::ItemPtr, std::string>> leaves;
  if (!collect(entry, destination, base, leaves)) return false;
  if (extractLeaves(leaves, destination)) return true;
  if (error_ && error_->code != 100 && !passwordFailure_)
    setError({kArchiveErrorDomain, kArchiveErrorArchive, error_->message});
  return false;
}

}  // namespace harbor

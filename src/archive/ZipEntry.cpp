#include "archive/ZipEntry.h"

#include <ctime>

#include "filemanager/FileUtil.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> parts;
  std::string cur;
  for (char c : path) {
    if (c == '/') {
      if (!cur.empty() && cur != ".") parts.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty() && cur != ".") parts.push_back(cur);
  return parts;
}

std::string sizeText(std::uint64_t size) {
  return FileUtil::formatSize(size) + "/" + std::to_string(size) + " " + localizedString("Bytes");
}

}  // namespace

ZipEntry::Ptr ZipEntry::rootEntry() {
  Ptr root(new ZipEntry());
  root->path_ = "/";
  root->name_ = "/";
  root->self_ = root;
  return root;
}

ZipEntry::ZipEntry(std::string path, FilePos pos, std::uint32_t crc, std::uint64_t compressedSize,
                   std::uint64_t uncompressedSize, std::uint16_t compressionType,
                   std::optional<std::string> aliasTargetPath, std::optional<Date> date)
    : ZipEntry(path, pos, crc, compressedSize, uncompressedSize, compressionType,
               std::move(aliasTargetPath), date, path.empty() || path.back() != '/') {}

ZipEntry::ZipEntry(std::string path, FilePos pos, std::uint32_t crc, std::uint64_t compressedSize,
                   std::uint64_t uncompressedSize, std::uint16_t compressionType,
                   std::optional<std::string> aliasTargetPath, std::optional<Date> date,
                   bool isLeaf)
    : path_(std::move(path)),
      aliasTargetPath_(std::move(aliasTargetPath)),
      crc_(crc),
      compressedSize_(compressedSize),
      uncompressedSize_(uncompressedSize),
      compressionType_(compressionType),
      isLeaf_(isLeaf),
      filePos_(pos),
      date_(date) {
  const auto parts = components(path_);
  name_ = parts.empty() ? path_ : parts.back();
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) leadingPath_ += parts[i] + "/";
  if (isLeaf_) {
    totalSize_ = uncompressedSize_;
    compressTotalSize_ = compressedSize_;
  }
}

std::string ZipEntry::modifiedString() const {
  if (!date_) return "";
  std::time_t t = std::chrono::system_clock::to_time_t(*date_);
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[64];
  std::strftime(buf, sizeof buf, "%b %e, %Y at %H:%M:%S", &tm);
  return buf;
}

std::string ZipEntry::filesizeString() const {
  return sizeText(size());
}
std::string ZipEntry::compressedString() const {
  return sizeText(isLeaf_ ? compressedSize_ : compressTotalSize_);
}

void ZipEntry::addToRootEntry(const Ptr& entry) {
  ZipEntry* dir = this;
  Ptr holder;
  for (const auto& part : components(entry->leadingPath_)) {
    holder = dir->childDirectoryEntryWithName(part, entry->currentClass());
    if (!holder) return;
    dir = holder.get();
  }
  dir->addChildEntry(entry, true);
}

ZipEntry::Ptr ZipEntry::makeFolder(const std::string& folderPath) {
  return Ptr(new ZipEntry(folderPath, {}, 0, 0, 0, 0, std::nullopt, std::nullopt, false));
}

ZipEntry::Ptr ZipEntry::childDirectoryEntryWithName(const std::string& name, EntryClass cls) {
  if (isLeaf_) return nullptr;
  if (auto found = findDirEntryCheckLeaf(name, false)) return found;
  std::string base = isRootEntry() ? "" : path_;
  Ptr dir = (cls ? cls : &ZipEntry::makeFolder)(base + name + "/");
  dir->self_ = dir;
  addChildEntry(dir, false);
  return dir;
}

bool ZipEntry::addChildEntry(const Ptr& entry, bool checkIfExists) {
  if (isLeaf_ || !entry) return false;
  if (checkIfExists) {
    if (auto existing = findDirEntry(entry->name_)) {
      // A directory entry after its files fills in the implied folder.
      if (!existing->date_ && entry->date_) existing->date_ = entry->date_;
      return true;
    }
  }
  entry->parent_ = this;
  if (entry->self_.expired()) entry->self_ = entry;
  childEntries_.push_back(entry);
  for (ZipEntry* p = this; p; p = p->parent_) {
    p->totalNumber_ += 1;
    if (entry->isLeaf_) {
      p->totalSize_ += entry->uncompressedSize_;
      p->compressTotalSize_ += entry->compressedSize_;
    }
  }
  return true;
}

ZipEntry::Ptr ZipEntry::findDirEntry(const std::string& name) const {
  for (const auto& c : childEntries_)
    if (c->name_ == name) return c;
  return nullptr;
}

ZipEntry::Ptr ZipEntry::findDirEntryCheckLeaf(const std::string& name, bool leaf) const {
  for (const auto& c : childEntries_)
    if (c->name_ == name && c->isLeaf_ == leaf) return c;
  return nullptr;
}

ZipEntry::Ptr ZipEntry::findPath(const std::string& path) {
  Ptr cur = self_.lock();
  for (const auto& part : components(path)) {
    if (!cur) return nullptr;
    cur = cur->findDirEntry(part);
  }
  return cur;
}

void ZipEntry::clear() {
  childEntries_.clear();
  totalSize_ = compressTotalSize_ = 0;
  totalNumber_ = 0;
}

bool ZipEntry::compare(const ZipEntry& other) const {
  return toLower(name_) < toLower(other.name_);
}

std::uint64_t ZipEntry::totalSizes(const std::vector<Ptr>& entries) {
  std::uint64_t sum = 0;
  for (const auto& e : entries) sum += e->totalSize_;
  return sum;
}

}  // namespace harbor

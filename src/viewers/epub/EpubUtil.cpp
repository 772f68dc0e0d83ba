#include "viewers/epub/EpubUtil.h"

#include <atomic>
#include <filesystem>

#include "archive/zip/UZipArchive.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Directories.h"
#include "platform/Log.h"
#include "platform/Paths.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

UserDefaults& store() {
  return UserDefaults::standard();
}

fs::path canonicalOr(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(p, ec);
  return ec ? p.lexically_normal() : c;
}

// Counts what the unpacker writes and cancels it past the limit.
class UnpackMeter : public IActionProgress {
 public:
  UnpackMeter(std::uint64_t limit, CancellationToken token) : limit_(limit), token_(token) {}
  using IActionProgress::progressFinished;
  void progressFinished(std::uint64_t units) override {
    if ((written_ += units) > limit_) {
      over_ = true;
      token_.cancel();
    }
  }
  bool over() const { return over_; }

 private:
  std::uint64_t limit_;
  CancellationToken token_;
  std::atomic<std::uint64_t> written_{0};
  std::atomic<bool> over_{false};
};

}  // namespace

std::string FileOpertion::getEpubDirectory() {
  fs::path dir = Directories::cachesDirectory() / "Epub";
  std::error_code ec;
  fs::create_directories(dir, ec);
  return dir.string();
}

bool EpubUtil::isInsideEpubDirectory(const std::string& folder) {
  if (folder.empty()) return false;
  fs::path base = canonicalOr(FileOpertion::getEpubDirectory());
  // The folder itself may be a link; only its parent's real place counts,
  // so a link is removed rather than followed.
  fs::path p = fs::path(folder).lexically_normal();
  if (!p.has_filename()) p = p.parent_path();
  fs::path real = canonicalOr(p.parent_path()) / p.filename();
  auto rel = real.lexically_relative(base);
  return !rel.empty() && *rel.begin() != ".." && rel != ".";
}

std::string EpubUtil::cacheKey(const std::string& epubPath) {
  std::string full = canonicalOr(fs::absolute(epubPath)).string();
  std::string root = canonicalOr(FileUtil::documentDirectory()).string();
  return relativePathBelow(full, root);
}

std::string EpubUtil::recordFolder(const PlistValue& record) {
  const auto* map = record.asMap();
  if (!map) return {};
  auto it = map->find(std::string(kRelativePathKey));
  if (it == map->end() || !it->second.asString() || it->second.asString()->empty()) return {};
  return (fs::path(FileUtil::documentDirectory()) / *it->second.asString())
      .lexically_normal()
      .string();
}

PlistValue::Map EpubUtil::getAllEpubDictionary() {
  return store().dictionaryForKey(kDirectoryKey).value_or(PlistValue::Map{});
}

std::optional<std::string> EpubUtil::getEpubDirectory(const std::string& epubPath) {
  std::string key = cacheKey(epubPath);
  if (key.empty()) return std::nullopt;
  auto all = getAllEpubDictionary();
  auto it = all.find(key);
  if (it == all.end()) return std::nullopt;
  std::string folder = recordFolder(it->second);
  std::int64_t storedSize = -1;
  if (const auto* map = it->second.asMap()) {
    auto s = map->find(std::string(kFileSizeKey));
    if (s != map->end()) storedSize = s->second.asInteger().value_or(-1);
  }
  std::error_code ec;
  auto size = fs::file_size(epubPath, ec);
  // The date is left out on purpose: a copy that keeps the size keeps the book.
  if (ec || storedSize < 0 || static_cast<std::uint64_t>(storedSize) != size || folder.empty() ||
      !fs::is_directory(folder, ec)) {
    removeEpubItem(key);
    return std::nullopt;
  }
  return folder;
}

void EpubUtil::saveEpubDirectory(const std::string& epubPath, const std::string& desFolder) {
  std::string key = cacheKey(epubPath);
  if (key.empty()) return;
  std::error_code ec;
  auto size = fs::file_size(epubPath, ec);
  if (ec) return;
  fs::path rel =
      canonicalOr(desFolder).lexically_relative(canonicalOr(FileUtil::documentDirectory()));
  PlistValue::Map record{{std::string(kRelativePathKey), rel.generic_string()},
                         {std::string(kFileSizeKey), static_cast<long long>(size)},
                         {std::string(kModifiedDateKey), FileUtil::getFileMidified(epubPath)},
                         {std::string(kCreateDateKey), std::chrono::system_clock::now()}};
  auto all = getAllEpubDictionary();
  all[key] = std::move(record);
  store().setObject(kDirectoryKey, std::move(all));
  store().synchronize();
}

void EpubUtil::removeEpubItem(const std::string& keyOrPath) {
  auto all = getAllEpubDictionary();
  auto it = all.find(keyOrPath);
  if (it == all.end()) it = all.find(cacheKey(keyOrPath));
  if (it == all.end()) return;
  std::string folder = recordFolder(it->second);
  all.erase(it);
  store().setObject(kDirectoryKey, std::move(all));
  store().synchronize();
  if (!isInsideEpubDirectory(folder)) {
    if (!folder.empty()) HB_LOG("EpubUtil", "kept a folder outside the cache: " + folder);
    return;
  }
  std::error_code ec;
  fs::remove_all(folder, ec);
}

void EpubUtil::removeAllEpub() {
  auto all = getAllEpubDictionary();
  for (const auto& [key, record] : all) {
    std::string folder = recordFolder(record);
    std::error_code ec;
    if (isInsideEpubDirectory(folder)) fs::remove_all(folder, ec);
  }
  store().removeObjectForKey(kDirectoryKey);
  store().synchronize();
}

std::size_t EpubUtil::removeCacheEpubFolders() {
  std::size_t removed = 0;
  const std::string root = FileUtil::documentDirectory();
  for (const auto& [key, record] : getAllEpubDictionary()) {
    std::error_code ec;
    if (fs::exists(fs::path(root + key), ec)) continue;
    removeEpubItem(key);
    ++removed;
  }
  if (removed) CommonUtil::checkBookMark();
  return removed;
}

std::optional<EpubUtil::Date> EpubUtil::getRemoveEpubDate() {
  return store().dateForKey(kClearDateKey);
}

void EpubUtil::saveRemoveEpubDate(Date date) {
  store().setObject(kClearDateKey, date);
  store().synchronize();
}

std::size_t EpubUtil::removeMoreTimeCache() {
  if (!CommonUtil::isMoreTime(getRemoveEpubDate(), kClearIntervalSeconds)) return 0;
  saveRemoveEpubDate(std::chrono::system_clock::now());
  std::size_t removed = 0;
  for (const auto& [key, record] : getAllEpubDictionary()) {
    std::optional<Date> created;
    if (const auto* map = record.asMap()) {
      auto it = map->find(std::string(kCreateDateKey));
      if (it != map->end() && it->second.asDate()) created = *it->second.asDate();
    }
    // A record without a date can't be aged and goes too.
    if (created && !CommonUtil::isMoreTime(created, kMaxRecordAgeSeconds)) continue;
    removeEpubItem(key);
    ++removed;
  }
  return removed;
}

std::uint64_t EpubUtil::unpackLimit(std::uint64_t fileSize) {
  std::uint64_t scaled =
      fileSize > kMaxUnpackedBytes / kMaxExpansion ? kMaxUnpackedBytes : fileSize * kMaxExpansion;
  return std::min(scaled, kMaxUnpackedBytes);
}

bool EpubUtil::unpackBook(const std::string& epubPath, const std::string& destination,
                          Error* error) {
  auto fail = [&](std::string message) {
    std::error_code ec;
    fs::remove_all(destination, ec);
    HB_LOG("EpubUtil", message);
    if (error) *error = Error{"EpubUtil", 1, std::move(message)};
    return false;
  };
  std::error_code ec;
  auto size = fs::file_size(epubPath, ec);
  if (ec) return fail("can not read " + epubPath);
  if (!fs::create_directories(destination, ec) && ec) return fail("can not create " + destination);

  const std::uint64_t limit = unpackLimit(size);
  CancellationToken token;
  UnpackMeter meter(limit, token);
  // Made directly: the archive factory goes by extension and knows no ".epub".
  UZipArchive zip(epubPath, nullptr, &meter, "");
  if (!zip.listFiles()) return fail("not a readable book: " + epubPath);
  std::uint64_t declared = 0;
  if (auto root = zip.rootEntry())
    for (const auto& child : root->children()) declared += child->size();
  if (declared > limit)
    return fail("the book unpacks to more than " + std::to_string(limit) + " bytes");
  bool ok;
  {
    CurrentCancellationScope scope(token);
    ok = zip.unArchivePath(destination);
  }
  if (meter.over())
    return fail("the book unpacks to more than " + std::to_string(limit) + " bytes");
  if (!ok) {
    auto e = zip.archiveError();
    return fail(e ? e->message : "can not unpack " + epubPath);
  }
  return true;
}

std::optional<EpubUtil::OpenedBook> EpubUtil::openBook(const std::string& epubPath, Error* error) {
  if (!cacheKey(epubPath).empty()) {
    if (auto folder = getEpubDirectory(epubPath)) return OpenedBook{*folder, true};
    std::string folder = (fs::path(FileOpertion::getEpubDirectory()) / detail::makeUUID()).string();
    if (!unpackBook(epubPath, folder, error)) return std::nullopt;
    saveEpubDirectory(epubPath, folder);
    return OpenedBook{folder, false};
  }
  std::string folder =
      (fs::path(FileUtil::tempBundleIdDirectory()) / ("epub-" + detail::makeUUID())).string();
  if (!unpackBook(epubPath, folder, error)) return std::nullopt;
  return OpenedBook{folder, false};
}

}  // namespace harbor

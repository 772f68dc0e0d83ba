#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/UserDefaults.h"

namespace harbor {

// Where unpacked books live.
class FileOpertion {
 public:
  FileOpertion() = delete;
  // <caches>/Epub, made when missing.
  static std::string getEpubDirectory();
};

// The persistent cache from a book under the document root to the folder it
// was unpacked into, and the unpacking itself.
class EpubUtil {
 public:
  using Date = std::chrono::system_clock::time_point;

  static constexpr std::string_view kDirectoryKey = "SYSTEM_EPUB_DIRECTORY";
  static constexpr std::string_view kClearDateKey = "SYSTEM_EPUB_CLEAR_DATE";
  static constexpr std::string_view kRelativePathKey = "EPUB_RELATIVEPATH";
  static constexpr std::string_view kFileSizeKey = "EPUB_FILESIZE";
  static constexpr std::string_view kModifiedDateKey = "EPUB_MODIFIEDDATE";
  static constexpr std::string_view kCreateDateKey = "EPUB_CREATEDATE";
  // Old records are swept at most once a day and go after thirty days.
  static constexpr double kClearIntervalSeconds = 24 * 3600.0;
  static constexpr double kMaxRecordAgeSeconds = 30 * 24 * 3600.0;
  static constexpr std::uint64_t kMaxUnpackedBytes = std::uint64_t{2} << 30;
  static constexpr std::uint64_t kMaxExpansion = 100;

  EpubUtil() = delete;

  // The cache key of a book: its path relative to the document root ("/a.epub"),
  // empty for a book outside it.
  static std::string cacheKey(const std::string& epubPath);

  // The unpacked folder of a book, when its record is still good: the size
  // matches and the folder exists. A stale record is removed with its folder.
  static std::optional<std::string> getEpubDirectory(const std::string& epubPath);
  static void saveEpubDirectory(const std::string& epubPath, const std::string& desFolder);
  static PlistValue::Map getAllEpubDictionary();
  // The folder a record names, resolved against the document root.
  static std::string recordFolder(const PlistValue& record);

  static void removeAllEpub();
  // `key` is a cache key or a book's full path.
  static void removeEpubItem(const std::string& key);
  // Records of books that are gone; answers how many went.
  static std::size_t removeCacheEpubFolders();
  // Records older than the age limit, when the last sweep is a day old;
  // answers how many went.
  static std::size_t removeMoreTimeCache();
  static std::optional<Date> getRemoveEpubDate();
  static void saveRemoveEpubDate(Date date);

  // Unpacked bytes allowed for a book of `fileSize`.
  static std::uint64_t unpackLimit(std::uint64_t fileSize);
  // Unpacks into `destination` (made here) with the extraction guards and the
  // byte limit; on failure nothing is left and `error` says why.
  static bool unpackBook(const std::string& epubPath, const std::string& destination, Error* error);

  struct OpenedBook {
    std::string folder;
    bool cached = false;
  };
  // The cached folder of a book under the document root, or a fresh unpack:
  // into a new folder of the Epub folder (recorded) for a book under the
  // root, into a temporary folder (not recorded) for any other.
  static std::optional<OpenedBook> openBook(const std::string& epubPath, Error* error);

  // Whether `folder` is strictly inside the Epub folder: the only folders
  // this cache ever deletes.
  static bool isInsideEpubDirectory(const std::string& folder);
};

}  // namespace harbor

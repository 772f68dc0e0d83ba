#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/FileUtil.h"
#include "filemanager/USupportFile.h"
#include "platform/UserDefaults.h"

namespace harbor {

// Helpers shared by the screens and services around the file manager.
class CommonUtil {
 public:
  CommonUtil() = delete;

  // Bookmarks: a map from a path relative to the document root to its record.
  static constexpr std::string_view kBookmarkKey = "SYSTEM_BOOKMARK";
  // The list order, kept as the decimal string of the number.
  static constexpr std::string_view kFileTypeOrderKey = "SYSTEM_FILE_TYPE_ORDER_KEY";
  // 0 list view, 1 icon view.
  static constexpr std::string_view kShowItemsOptionsKey = "SystemShowItemsOptions";
  // Where a file kind's own image lives among the resources: <folder>/<ext>.png.
  static constexpr std::string_view kFileTypeImageFolder = "images/filetypes";

  // One entry of a folder as a listing sees it. `isDirectory` follows a link
  // (a link to a folder is a folder); size and date are those of the entry
  // itself, as FileUtil::getFileSize and getFileMidified read them. An entry
  // that vanished before it could be read is a file of size 0 dated at the
  // epoch.
  struct FolderEntry {
    std::string name;
    bool isDirectory = false;
    std::uint64_t size = 0;
    FileUtil::Date modified{};
  };

  // The entries directly in `folder`, in no particular order, with one stat
  // at most per entry; without `withAttributes` size and date are left at 0
  // and entries whose kind the directory itself tells are not stat'ed at all.
  // Folders are kept when `containsFolder` is set; files when `filters` is
  // null or holds their lower-case extension. False when the folder cannot be
  // read.
  static bool entriesInCurrentFolder(const std::string& folder, std::vector<FolderEntry>& entries,
                                     bool containsFolder, const ExtensionMap* filters,
                                     bool withAttributes);
  // The names of those entries, sorted.
  static void filesnameInCurrentFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                       bool containsFolder, const ExtensionMap* filters);

  // Appends the full paths of the entries directly in `folder`, sorted by
  // name: files whose lower-case extension is in `filters` (empty: all),
  // and with `containsFolder` every folder as well. Ignored names never show.
  static void filesInCurrentFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                   bool containsFolder, const std::vector<std::string>& filters);
  static std::size_t getFilesNumberInFolder(const std::string& folder, bool containsFolder,
                                            const std::vector<std::string>& filters);

  // Drops the bookmarks of files that no longer exist under the document root.
  static void checkBookMark();
  // A document's bookmark, keyed by its path relative to the document root:
  // font size and scroll height as integers, and whether it was the source.
  static void saveBookMarkPath(const std::string& path, long long textSize, long long scrollY,
                               bool isSource);
  static std::optional<PlistValue::Map> getBookMarkByPath(const std::string& path);

  // Whether at least `seconds` have passed since `since`; true when there is
  // no date yet, and when the date lies in the future (a clock set back).
  static bool isMoreTime(const std::optional<FileUtil::Date>& since, double seconds);

  // The rule of FileUtil::formatSize.
  static std::string formattedFileSizeAll(std::uint64_t size);
  // Always in megabytes: "%.2f MB".
  static std::string formattedFileSize(std::uint64_t size);

  // The list order in force: 0 name, 1 date, 2 type, 3 size. A missing or
  // unreadable setting is 0.
  static int getFileDisplayType();
  static void setFileDisplayType(int type);
  // The localised title of an order; values not listed are "Name".
  static std::string getFileDisplayTypeString(int type);
  // 0 list view, 1 icon view; any other stored value gives the default.
  static int getShowItemsOptionsValue(int defaultShowItemsType = 0);
  static std::string getShowItemsOptionsString(int value);

  // The image file name for a file's kind: its own "<ext>.png" when the
  // resources have one, else the catalogue's table, else "text.png" for an
  // editable extension, else "unknow.png".
  static std::string getFileTypeImageByName(std::string_view name);
  static std::string getFileTypeImageByExtension(std::string_view extension);
  // The MIME type the system's table gives the path's extension;
  // "application/octet-stream" when it has none.
  static std::string getEmailMimeType(std::string_view path);
};

// Where each document was last left: a record per path relative to the
// document root (font size, scroll height, first visible offset, source).
class UWebViewUtil {
 public:
  UWebViewUtil() = delete;
  static void saveLastOpen(PlistValue::Map info, const std::string& path);
  static std::optional<PlistValue::Map> getLastOpenByPath(const std::string& path);
};

}  // namespace harbor

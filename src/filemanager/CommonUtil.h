#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// Helpers shared by the screens and services around the file manager.
class CommonUtil {
 public:
  CommonUtil() = delete;

  // Bookmarks: a map from a path relative to the document root to its record.
  static constexpr std::string_view kBookmarkKey = "SYSTEM_BOOKMARK";

  // Appends the full paths of the entries directly in `folder`, sorted by
  // name: files whose lower-case extension is in `filters` (empty: all),
  // and with `containsFolder` every folder as well. ".DS_Store" never shows.
  static void filesInCurrentFolder(const std::string& folder, std::vector<std::string>& tFiles,
                                   bool containsFolder, const std::vector<std::string>& filters);
  static std::size_t getFilesNumberInFolder(const std::string& folder, bool containsFolder,
                                            const std::vector<std::string>& filters);

  // Drops the bookmarks of files that no longer exist under the document root.
  static void checkBookMark();

  // The rule of FileUtil::formatSize.
  static std::string formattedFileSizeAll(std::uint64_t size);
  // Always in megabytes: "%.2f MB".
  static std::string formattedFileSize(std::uint64_t size);
};

}  // namespace harbor

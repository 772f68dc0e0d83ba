#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// Bookkeeping that follows a file through operations: per-path passwords and
// the thumbnail cache. Paths given here are full paths; the password map is
// keyed by the path relative to the document root ("/a/b", "" for the root).
class FileManagerUtil {
 public:
  FileManagerUtil() = delete;

  // Per-path passwords: a map from a path relative to the document root to
  // the encoded password.
  static constexpr std::string_view kFilePasswordKey = "SYSTEM_FILE_PASSWORD";

  // ---- Passwords -----------------------------------------------------------
  // Values stay encoded here; only getFilePassword decodes.
  static std::map<std::string, std::string> getPasswordHashTable();
  // Stores the encoded password for `path`; an empty password removes the
  // entry instead. False for a path outside the document root.
  static bool saveFilePassword(const std::string& path, const std::string& password);
  // The decoded password; nullopt when none is stored or it does not decode.
  static std::optional<std::string> getFilePassword(const std::string& path);
  static void removeFilePassword(const std::string& path);
  // The entries of `path` and of everything below it.
  static void removeFileAndChildrenPassword(const std::string& path);
  // As above, and the same paths leave `passwordRows` (a list of full paths).
  static void removeFileAndChildrenPassword(const std::string& path,
                                            std::vector<std::string>& passwordRows);
  static void removeAllFilesPassword();
  static bool isPasswordFile(const std::string& path);
  // Whether `pwd` opens `path`; a path with no usable password always opens.
  static bool isSamePasswordFile(const std::string& path, const std::string& pwd);
  // An empty stored password matches anything; otherwise the entered text
  // must equal the stored one as it is or once encoded.
  static bool isSamePassword(const std::string& stored, const std::string& password);
  // Whether `path` or any folder above it, up to the root, is locked. Takes
  // a full path under the document root or a relative one.
  static bool isExistsPasswordInPathComponents(const std::string& path);
  // The same walk, answering the nearest locked level as a relative path
  // ("/a/b", "" for the root itself); nullopt when nothing on the way is.
  static std::optional<std::string> getPasswordPathInPathComponents(const std::string& path);
  // Full paths of the locked items at or below `path`; "/a/ab" is not below
  // "/a/a".
  static std::vector<std::string> getAllPasswordFileList(const std::string& path);
  // Carry the entries at or below `path` over to `desPath`; moving drops the
  // old ones. Only the bookkeeping moves: the caller moves the files.
  static void copyFileAndPassword(const std::string& path, const std::string& desPath);
  static void cutFileAndPassword(const std::string& path, const std::string& desPath);
  static void dealwithFileAndPassword(const std::string& path, const std::string& desPath,
                                      bool isCopy);
  // Drops the password entries of items that have vanished, keeping the
  // document root's own entry; removes the key when nothing is left.
  static void checkPasswordFileIsExists();

  // ---- Thumbnails ----------------------------------------------------------
  // For each file under the document root the cache holds a folder
  // "<relative path>_thumb" with "<name>_75_75.jpg" and "<name>_screen.jpg";
  // a folder's cache is the folder "<relative path>" holding its children's.
  static std::string thumbnailDirectory();
  static std::string thumbnailCacheFolder(const std::string& path);
  // Makes the thumbnail and screen image of a file; true when both exist
  // afterwards. The media subsystem installs the real one.
  using ThumbnailGenerator = std::function<bool(
      const std::string& path, const std::string& thumbnailPath, const std::string& screenPath)>;
  static void setThumbnailGenerator(ThumbnailGenerator generator);
  // The cached image, made again when missing or older than the file; empty
  // when none can be had.
  static std::string getThumbnailImage(const std::string& path);
  static std::string getFullScreenImage(const std::string& path);
  static void removeThumbAndScreenImage(const std::string& path);
  static void removeDirectoryThumbAndScreenImage(const std::string& path);
  // The cache follows a copied or moved file or folder; an existing cache at
  // the target is replaced, and a renamed file's images take its new name.
  static void dealwithThumbnailAndScreenImage(const std::string& path, const std::string& desPath,
                                              bool isCopy);
  static void removeFileImageLocalCache();
  // Removes the item and its cached images, and once it is gone its
  // password entries.
  static bool removePath(const std::string& path);

  // ---- Names ---------------------------------------------------------------
  static bool isHiddenDirectory(std::string_view path);
  // The file name without one leading ".".
  static std::string trimLeftPoingOfFileName(std::string_view path);
  // Removes the ignored names (names or paths ending so).
  static void ignoreFile(std::vector<std::string>& files);
  // `path` below `sourcePath` as "/a/b", compared by components; empty when
  // it is not below.
  static std::string getRelativeTo(const std::string& path, const std::string& sourcePath);
};

}  // namespace harbor

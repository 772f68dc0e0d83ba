#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/Error.h"

namespace harbor {

class IActionProgress;
class FileListItem;

// Path, size and naming operations. Paths are full UTF-8 path strings;
// relative paths are relative to the document root and read "/a/b". Nothing
// here reports an error: failures answer false, 0 or empty.
class FileUtil {
 public:
  using Date = std::chrono::system_clock::time_point;

  // What createFile(path, attr) sets on the new file besides its content.
  struct FileAttributes {
    std::optional<unsigned> permissions;  // mode bits, e.g. 0644
    std::optional<Date> modificationDate;
  };

  FileUtil() = delete;

  // Directories; each is made when missing.
  static std::string documentDirectory();
  static std::string appliationSupportDirectory();
  static std::string systemPath();  // application support + "System"
  static std::string cachePath();
  static std::string tempDirectory();
  static std::string tempBundleIdDirectory();  // temporary folder + application identifier

  // Sizes. A single item is measured by lstat, so a link is its own size.
  static std::uint64_t getFileSize(const std::string& path);
  static std::uint64_t fileSizeAtPath(const std::string& path);
  // Sum of every non-folder entry below `path` (a file answers its own size).
  static std::uint64_t folderSize(const std::string& path);
  // As above; `itemNumber` receives the number of entries, files and folders.
  static std::uint64_t folderSize(const std::string& path, std::uint64_t& itemNumber);
  // Sum over a list of files and folders, until the thread is cancelled.
  static std::uint64_t getFileSizeFiles(const std::vector<std::string>& files);
  // Modification date of the entry itself; the epoch when it cannot be read.
  static Date getFileMidified(const std::string& path);
  // "1023B", "1.0K", "1.00M", "1.000G"; 0 gives a fixed localised text.
  static std::string formatSize(std::uint64_t size);

  // Names. getFileName and getFileDirectory accept "\" as a separator.
  static std::string getFileName(std::string_view path);
  static std::string getFileDirectory(std::string_view path);
  // Text behind the last dot of the last component; a leading dot (".bashrc")
  // marks a hidden name, not an extension.
  static std::string getFileExtension(std::string_view path);
  static std::string getFileNameNoExtension(std::string_view path);
  // Extension of a URL's last path segment, ignoring the query.
  static std::string getUrlExtension(std::string_view url);
  static std::string getDocumentRelativePath(std::string_view path);
  static std::string getApplicationSupportRelativePath(std::string_view path);
  // "/a/b" for a path below the base, compared by components; empty for the
  // base itself and for a path outside it.
  static std::string getRelativePath(std::string_view path, std::string_view baseRelative);
  // Names ignored everywhere: ".DS_Store", "__MACOSX", "Thumbs.db". Every
  // listing, walk and archive reader asks these, and only these.
  static const std::vector<std::string>& ignoreFileNames();
  static bool isIgnoredName(std::string_view name);
  // A path any of whose components is an ignored name ("__MACOSX/a/b").
  static bool isIgnoredPath(std::string_view path);

  // Free names. Each answers the full path of the first candidate that does
  // not exist in `folder`: "notes.txt", "notes 2.txt", "notes 3.txt"...
  // `filename` is the stem; `extension` may be empty. "report.tar" + "gz"
  // goes on with "report 2.tar.gz".
  static std::string getCreateFileName(const std::string& folder, const std::string& filename,
                                       const std::string& extension);
  // The same rule against names not yet on disk: `files` holds the taken
  // paths ("folder/name", lower case); the answer is "folder/free name".
  static std::string getCreateFileName(const std::string& folder, const std::string& filename,
                                       const std::string& extension,
                                       const std::unordered_set<std::string>& files);
  // "data", "data 2"; "my.folder", "my 2.folder".
  static std::string getCreateFolderName(const std::string& folder, const std::string& filename);
  // The plain join when free; otherwise the folder rule when a folder is in
  // the way, the file rule (on the name's stem and extension) when not.
  static std::string getCreateName(const std::string& folder, const std::string& filename);

  // Listing. "Total" walks all levels, "Current" one level; results are
  // sorted by name. Links to folders are not walked into, so a deep walk
  // lists them as files; one level down they are folders.
  static std::vector<std::string> subpathsAtPaths(const std::string& path);  // relative
  static std::vector<std::string> subpathsFullPathAtPath(const std::string& path);
  static std::vector<std::string> subpathsFullPathAtPaths(const std::vector<std::string>& paths);
  static std::vector<std::string> getTotalAllFilesFullPath(
      const std::string& path);  // without the ignored names
  static std::vector<std::string> getTotalFoldersFullPath(const std::string& path);
  static std::vector<std::string> getCurrentFilesFullPath(const std::string& path);
  static std::vector<std::string> getCurrentFoldersFullPath(const std::string& path);
  static std::vector<std::string> getCurrentFilesAndFoldersFullPath(const std::string& path);
  // With `checkFile` the ignored names are left out.
  static std::vector<std::string> getCurrentFilesAndFoldersFullPath(const std::string& path,
                                                                    bool checkFile);
  static std::size_t getFileCountInDirectory(const std::string& path);
  // Fills a tree below `root` from its folder, by name, skipping ignored names
  // and stopping when the thread is cancelled. Links are leaves, so a loop
  // of links is never followed. `block` sees each child once it is attached.
  static void recuriseFileModelList(FileListItem& root);
  static void recuriseFileModelList(FileListItem& root,
                                    const std::function<void(FileListItem&)>& block);
  // What CommonUtil::filesInCurrentFolder would list, counted.
  static std::size_t getFilesNumberInFolder(const std::string& folder, bool containsFolder,
                                            const std::vector<std::string>& filters);
  // Appends every file at any level below `folder` whose lower-case
  // extension is in `filters` (empty: all), leaving out the ignored names.
  static void contentsOfFolder(const std::string& folder, std::vector<std::string>& tFiles,
                               const std::vector<std::string>& filters);

  // File changes.
  static bool createFolder(const std::string& path);  // with parents; an existing folder is fine
  static bool createFolder(const std::string& path, Date date);
  // Linux cannot set a creation date; `created` is accepted and ignored.
  static bool createFolder(const std::string& path, Date date, Date created);
  static bool createFile(const std::string& path);  // empty, mode 0666 less the umask
  static bool createFile(const std::string& path, const FileAttributes& attr);
  // True when nothing is left at `path` afterwards; folders go whole.
  static bool deleteFile(const std::string& path);
  static bool deleteFiles(const std::vector<std::string>& paths);
  // There is no trash to move to here: the item is deleted.
  static bool trashFile(const std::string& path);
  static void deleteFileInThread(const std::string& path);
  static void trashFileInThread(const std::string& path);
  static void deleteSubFilesInThread(const std::string& folder);  // keeps the folder
  // Copies `path` onto `desPath` in 1 MiB blocks; a new target gets the
  // source's permission bits less the umask (see FileModes), reporting each block's
  // length through progressFinished. With `isOverWrite` an existing target
  // is replaced; without it the target is appended to, whatever `isAppend`
  // says. Stops after the current block when the thread is cancelled.
  // False when the source cannot be read, the target cannot be written, or
  // the copy was cancelled.
  static bool copyFile(const std::string& path, const std::string& desPath, bool isOverWrite,
                       bool isAppend, IActionProgress* delegate);
  // A file or a whole folder, overwriting files. A link inside a folder is
  // copied as the file it points to; links to folders and dangling links are
  // skipped. False when the source does not exist, on cancellation, or when
  // an item could not be copied (the rest is still copied).
  static bool copyItem(const std::string& path, const std::string& desPath,
                       IActionProgress* delegate);
  static bool appendDataToFile(const std::string& path, std::string_view data);  // creates
  static bool emptyFile(const std::string& path);  // an existing file only
  static bool setFileModifiedDate(Date date, const std::string& fullPath);
  static bool setFileModifiedDate(Date date, Date created, const std::string& fullPath);
  // The mode a new item of its kind gets: 0666 or 0777, less the umask.
  static bool setfullPermission(const std::string& path);
  static unsigned getFilePermission(const std::string& path);  // 0 on failure
  static bool setFilePermission(const std::string& path, unsigned permission);

  // Kinds. "FilePath" forms follow links for folders; the entry itself is
  // asked by isDirectoryFileType and isReguralFilePath. URL forms take a
  // "file://" URL or a plain path.
  static bool isDirectoryFilePath(const std::string& path);
  static bool isDirectoryFileType(const std::string& path);
  static bool isDirectoryFileURL(const std::string& url);
  static bool isReguralFilePath(const std::string& path);
  static bool isReguralFileURL(const std::string& url);
  // The link's own text in `destination`.
  static bool isSybolicLinkPath(const std::string& path, std::string* destination = nullptr);
  // The link's target as a full path in `destination`.
  static bool fileIsAlias(const std::string& path, std::string* destination = nullptr);
  // The end of a chain of links as a full path; a path that is no link
  // answers itself; a loop answers empty.
  static std::string resolvingAlias(const std::string& path);
  static std::string resolvingAliasURL(const std::string& url);
  // "file:///a%20b" gives "/a b"; anything else is taken as a path already.
  static std::string pathFromURL(const std::string& url);
  // Makes `path` a symbolic link to `targetPath`.
  static bool createAliasPath(const std::string& path, const std::string& targetPath,
                              Error* error = nullptr);
};

}  // namespace harbor

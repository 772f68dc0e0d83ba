#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Cancellation.h"
#include "platform/ScreenPort.h"

namespace harbor {

// What the property screen shows of one file or folder.
struct FilePropertyInfo {
  using Date = std::chrono::system_clock::time_point;
  std::string name;
  std::string path;          // full path
  std::string relativePath;  // under the documents; "/" for the root
  bool exists = false;
  bool isDirectory = false;
  bool isSymbolicLink = false;
  std::string linkTarget;
  // Localisation key of the kind: "Folder", "Archive", "Image", "Music",
  // "Movie", "Text" or "File".
  std::string kind;
  std::string extension;  // lower case, files only
  std::string mimeType;   // files only
  // A file's own size at once; a folder's once its walk ends.
  std::uint64_t size = 0;
  std::uint64_t fileNumber = 0;    // below a folder
  std::uint64_t folderNumber = 0;  // below a folder
  bool counting = false;           // a folder's walk still runs
  bool countCancelled = false;     // the walk was stopped: size and counts are partial
  std::optional<Date> created;     // where the file system keeps it
  std::optional<Date> modified;
  std::optional<Date> accessed;
  unsigned permissions = 0;  // mode bits
  bool isLocked = false;     // a folder password guards it
};

// The property screen of one item. A folder's size is summed on a thread of
// its own, never on the main thread; leaving the screen stops the walk.
class FilePropertyController : public ViewController,
                               public std::enable_shared_from_this<FilePropertyController> {
 public:
  explicit FilePropertyController(std::string path);
  ~FilePropertyController() override;
  std::string className() const override { return "FilePropertyController"; }

  static std::shared_ptr<FilePropertyController> instanceWithPath(const std::string& path);

  void setPort(std::shared_ptr<IScreenPort> port) { _port = std::move(port); }
  // Reads what is at hand and starts a folder's walk.
  void viewDidLoad();
  // The screen goes: a running walk stops.
  void viewDidDisappear();
  void cancel();

  const std::string& path() const { return _path; }
  // A copy: the walk updates it from the main queue.
  FilePropertyInfo info() const;
  bool isCounting() const;
  // Told on the main queue when the walk has ended (or was stopped).
  void setOnChange(std::function<void(const FilePropertyInfo&)> onChange) {
    _onChange = std::move(onChange);
  }

  // The fields a file's own metadata gives, without any walk.
  static FilePropertyInfo readInfo(const std::string& path);
  // The localisation key of a file's kind.
  static std::string kindOf(const std::string& path, bool isDirectory);
  // "rwxr-xr-x".
  static std::string permissionText(unsigned mode);

 private:
  void countFinished(std::uint64_t size, std::uint64_t files, std::uint64_t folders,
                     bool cancelled);

  std::string _path;
  std::shared_ptr<IScreenPort> _port;
  mutable std::mutex _mutex;
  FilePropertyInfo _info;
  CancellationToken _walk;
  std::function<void(const FilePropertyInfo&)> _onChange;
};

}  // namespace harbor

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace harbor {

class DirectoryWatcher;

class DirectoryWatcherDelegate {
 public:
  virtual ~DirectoryWatcherDelegate() = default;
  // On the main queue, once per burst of changes to the folder's own
  // entries: something was created, removed or renamed in it.
  virtual void directoryDidChange(DirectoryWatcher& watcher) = 0;
};

// Watches one folder with inotify. Changes inside its subfolders are not
// reported; writes into its files only when asked for (`watchContents`). An
// overflowing event queue reports a change, so a delegate that rescans loses
// nothing. Start and invalidate it on the main thread; the delegate must
// outlive the watch.
class DirectoryWatcher {
 public:
  // The inotify events watched: entries of the folder itself appearing,
  // going or changing names, and the folder itself going away.
  static const std::uint32_t kWatchedEvents;
  // Added with `watchContents`: a file's data or attributes changing.
  static const std::uint32_t kContentEvents;

  // A watch already running, or null when either argument is missing or the
  // folder cannot be watched.
  static std::unique_ptr<DirectoryWatcher> watchFolderWithPath(const std::string& path,
                                                               DirectoryWatcherDelegate* delegate,
                                                               bool watchContents = false);
  DirectoryWatcher(std::string path, DirectoryWatcherDelegate* delegate,
                   bool watchContents = false);
  ~DirectoryWatcher();
  DirectoryWatcher(const DirectoryWatcher&) = delete;
  DirectoryWatcher& operator=(const DirectoryWatcher&) = delete;

  // Refused (false) while a watch is active, or when the folder cannot be
  // watched.
  bool startMonitoring();
  // Stops the watch and releases its descriptors and thread; a change
  // already on its way to the main queue is dropped. Start may follow again.
  void invalidate();
  bool isActive() const { return inotifyFd_ >= 0; }

  const std::string& folderPath() const { return folderPath_; }
  int tag() const { return tag_; }
  void setTag(int tag) { tag_ = tag; }

 private:
  struct Delivery;
  void readLoop(int inotifyFd, int stopFd, std::uint32_t mask, std::shared_ptr<Delivery> delivery);

  std::string folderPath_;
  DirectoryWatcherDelegate* delegate_;
  std::uint32_t mask_;
  int tag_ = 0;
  int inotifyFd_ = -1;
  int stopFd_ = -1;
  std::thread reader_;
  std::shared_ptr<Delivery> delivery_;
};

}  // namespace harbor

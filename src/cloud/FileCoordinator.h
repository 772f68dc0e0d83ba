#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// Serialises file access with other processes through advisory locks. Each
// item gets a lock file named by a hash of its canonical path, kept in a
// runtime folder that is never synced. An operation takes a shared lock on
// every ancestor of its items, an exclusive lock on an item it writes and a
// shared one on an item it reads, all in path order so that two operations
// can never wait on each other. The kernel drops the locks of a process that
// dies.
class FileCoordinator {
 public:
  enum Options : int {
    kNone = 0,
    kForDeleting = 1,
    kForMoving = 2,
    kForReplacing = 8,
  };

  FileCoordinator() = delete;

  // $XDG_RUNTIME_DIR/harbor/cloud-locks, else the temporary folder's.
  static std::string lockDirectory();
  static std::string lockFileFor(const std::string& path);

  // Runs `accessor` with the item's path while holding its locks; false with
  // `error` set when the locks can't be taken.
  static bool coordinateWriting(const std::string& url, int options,
                                const std::function<void(const std::string&)>& accessor,
                                Error* error);
  static bool coordinateWriting(
      const std::string& url1, int options1, const std::string& url2, int options2,
      const std::function<void(const std::string&, const std::string&)>& accessor, Error* error);
  static bool coordinateReading(
      const std::string& readUrl, int readOptions, const std::string& writeUrl, int writeOptions,
      const std::function<void(const std::string&, const std::string&)>& accessor, Error* error);

 private:
  struct Request {
    std::string path;
    bool exclusive;
  };
  static bool withLocks(std::vector<Request> requests, const std::function<void()>& body,
                        Error* error);
};

}  // namespace harbor

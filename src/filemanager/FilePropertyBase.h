#pragma once

#include <dirent.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/NotificationCenter.h"
#include "platform/OperationQueue.h"

namespace harbor {

// Failures of the walkers and copies: the code is the POSIX error number,
// ECANCELED for a cancelled copy.
inline constexpr const char* kFilePropertyErrorDomain = "FilePropertyErrorDomain";

// Queue priorities: work for a top-level folder, and work found below it,
// which goes first so the queue stays short.
inline constexpr QueuePriority kTopLevelPriority = static_cast<QueuePriority>(1);
inline constexpr QueuePriority kSubdirectoryPriority = static_cast<QueuePriority>(2);

// The options record of the walkers and of the archive writers.
struct FilePropertyOptions {
  bool _isIgnoreHiddenFile = false;  // skip names that begin with "."
  std::string _password;             // an archive writer's password
};

// A name to ignore. A plain record: no walker consults it.
struct FileIngoreProperty {
  std::string _name;
  bool _isDirectory = false;
  bool _isCaseIgnore = false;
};

// The queue a property object works on. Operations added through it are
// counted, so a wait ends when every one has finished. A cancel reaches
// queued and running operations, and nothing is added after it. The queue
// listens to the given broadcasts for its whole life and cancels on them.
class FilePropertyQueue {
 public:
  FilePropertyQueue(int maxConcurrent, std::string name,
                    std::initializer_list<const char*> cancelNotifications);
  ~FilePropertyQueue();  // cancels and waits for what runs
  FilePropertyQueue(const FilePropertyQueue&) = delete;
  FilePropertyQueue& operator=(const FilePropertyQueue&) = delete;

  // False, and the operation never runs, once the queue was cancelled.
  bool addOperation(std::shared_ptr<Operation> operation, QueuePriority priority);
  void cancel();
  bool isCancelled() const;
  // Blocks until every operation added has finished. When the waiting
  // thread is cancelled meanwhile, the queue is cancelled too.
  void waitUntilFinished();
  // How many operations were ever added.
  std::size_t addedCount() const;
  OperationQueue& queue() { return *queue_; }

 private:
  struct Shared;
  void operationFinished();

  std::shared_ptr<Shared> shared_;
  std::unique_ptr<OperationQueue> queue_;
  std::vector<NotificationCenter::Token> observers_;
  mutable std::mutex pendingMutex_;
  std::condition_variable pendingDone_;
  std::size_t pending_ = 0;
  std::size_t added_ = 0;
};

// The base of the tree walkers: the queue, its cancellation and the
// selection. The selection holds paths or "file://" URLs. A walker is used
// from one thread: it blocks that thread until its walk is over.
class FilePropertyBase {
 public:
  virtual ~FilePropertyBase();
  FilePropertyBase(const FilePropertyBase&) = delete;
  FilePropertyBase& operator=(const FilePropertyBase&) = delete;

  std::vector<std::string> URLs() const;
  void setURLs(std::vector<std::string> urls);
  // A folder the walk skips when it meets it at the top of the selection.
  std::string sytemDirectory() const;
  void setSytemDirectory(std::string path);
  // Whether a selection of one folder counts that folder itself.
  bool isContainsSelf() const { return isContainsSelf_; }
  void setIsContainsSelf(bool contains) { isContainsSelf_ = contains; }
  const FilePropertyOptions& propertyOptions() const { return _propertyOptions; }
  void setPropertyOptions(FilePropertyOptions options) { _propertyOptions = std::move(options); }

  // Stops the walk; what was collected so far stays.
  void cancel() { queue_.cancel(); }
  bool isCancelled() const { return queue_.isCancelled(); }
  OperationQueue& queue() { return queue_.queue(); }
  // How many queue operations this walk made (one per folder walked).
  std::size_t operationCount() const { return queue_.addedCount(); }

  // Adds work for a folder; false once the walk was cancelled.
  bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) {
    return queue_.addOperation(std::move(operation), priority);
  }
  // Whether a folder met at the top of the selection is walked.
  virtual bool isDirectoryAndExecute(const std::string& path);

 protected:
  FilePropertyBase(std::vector<std::string> urls, int maxConcurrent, std::string queueName,
                   std::initializer_list<const char*> cancelNotifications);

  // The selection as paths.
  std::vector<std::string> selectionPaths() const;
  void waitUntilFinished() { queue_.waitUntilFinished(); }

  FilePropertyOptions _propertyOptions;

 private:
  FilePropertyQueue queue_;
  mutable std::mutex urlsMutex_;
  std::vector<std::string> urls_;
  std::string sytemDirectory_;
  bool isContainsSelf_ = false;
};

namespace detail {

// Calls `visit(dirFd, entry)` for each entry of a folder but "." and "..",
// until it answers false. False when the folder cannot be read.
bool scanDirectory(const std::string& path, const std::function<bool(int, const dirent&)>& visit);

// The direct children of a folder as full paths, sorted; empty when it
// cannot be read.
std::vector<std::string> childPaths(const std::string& folder);

inline std::string joinPath(const std::string& folder, const char* name) {
  std::string out;
  out.reserve(folder.size() + 1 + std::char_traits<char>::length(name));
  out += folder;
  if (out.empty() || out.back() != '/') out += '/';
  out += name;
  return out;
}

// An error of the domain from an errno value and what failed.
Error posixError(int code, const std::string& what);

}  // namespace detail

}  // namespace harbor

#include "filemanager/FilePropertyBase.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"

namespace harbor {

// What a broadcast needs to reach the queue: it may arrive on any thread, up
// to the moment the owner goes away.
struct FilePropertyQueue::Shared {
  std::mutex mutex;
  OperationQueue* queue = nullptr;  // null once the owner is going
  bool cancelled = false;

  void cancel() {
    std::lock_guard lock(mutex);
    cancelled = true;
    if (queue) queue->cancelAllOperations();
  }
};

FilePropertyQueue::FilePropertyQueue(int maxConcurrent, std::string name,
                                     std::initializer_list<const char*> cancelNotifications)
    : shared_(std::make_shared<Shared>()),
      queue_(std::make_unique<OperationQueue>(maxConcurrent, std::move(name))) {
  shared_->queue = queue_.get();
  for (const char* notification : cancelNotifications) {
    std::weak_ptr<Shared> weak = shared_;
    observers_.push_back(NotificationCenter::defaultCenter().addObserver(
        notification, [weak](const NotificationCenter::Notification&) {
          if (auto shared = weak.lock()) shared->cancel();
        }));
  }
}

FilePropertyQueue::~FilePropertyQueue() {
  for (auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
  shared_->cancel();
  {
    std::lock_guard lock(shared_->mutex);
    shared_->queue = nullptr;
  }
  std::unique_lock lock(pendingMutex_);
  pendingDone_.wait(lock, [this] { return pending_ == 0; });
}

bool FilePropertyQueue::addOperation(std::shared_ptr<Operation> operation, QueuePriority priority) {
  if (!operation) return false;
  // Held across the add, so a cancel cannot slip in between the check and
  // the operation reaching the queue.
  std::lock_guard lock(shared_->mutex);
  if (shared_->cancelled || !shared_->queue) return false;
  {
    std::lock_guard pendingLock(pendingMutex_);
    ++pending_;
    ++added_;
  }
  operation->setQueuePriority(priority);
  operation->setCompletionBlock([this] { operationFinished(); });
  shared_->queue->addOperation(std::move(operation));
  return true;
}

void FilePropertyQueue::operationFinished() {
  std::lock_guard lock(pendingMutex_);
  if (--pending_ == 0) pendingDone_.notify_all();
}

void FilePropertyQueue::cancel() {
  shared_->cancel();
}

bool FilePropertyQueue::isCancelled() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->cancelled;
}

void FilePropertyQueue::waitUntilFinished() {
  std::unique_lock lock(pendingMutex_);
  while (pending_ != 0) {
    // Wakes now and then to pass the caller's own cancellation on.
    pendingDone_.wait_for(lock, std::chrono::milliseconds(20));
    if (pending_ != 0 && isCurrentThreadCancelled()) {
      lock.unlock();
      cancel();
      lock.lock();
    }
  }
}

std::size_t FilePropertyQueue::addedCount() const {
  std::lock_guard lock(pendingMutex_);
  return added_;
}

// ---------------------------------------------------------------------------

FilePropertyBase::FilePropertyBase(std::vector<std::string> urls, int maxConcurrent,
                                   std::string queueName,
                                   std::initializer_list<const char*> cancelNotifications)
    : queue_(maxConcurrent, std::move(queueName), cancelNotifications), urls_(std::move(urls)) {}

FilePropertyBase::~FilePropertyBase() = default;

std::vector<std::string> FilePropertyBase::URLs() const {
  std::lock_guard lock(urlsMutex_);
  return urls_;
}

void FilePropertyBase::setURLs(std::vector<std::string> urls) {
  std::lock_guard lock(urlsMutex_);
  urls_ = std::move(urls);
}

std::string FilePropertyBase::sytemDirectory() const {
  std::lock_guard lock(urlsMutex_);
  return sytemDirectory_;
}

void FilePropertyBase::setSytemDirectory(std::string path) {
  std::lock_guard lock(urlsMutex_);
  sytemDirectory_ = std::move(path);
}

std::vector<std::string> FilePropertyBase::selectionPaths() const {
  std::vector<std::string> paths = URLs();
  for (auto& p : paths) {
    p = std::filesystem::path(FileUtil::pathFromURL(p)).lexically_normal().string();
    while (p.size() > 1 && p.back() == '/') p.pop_back();
  }
  return paths;
}

bool FilePropertyBase::isDirectoryAndExecute(const std::string& path) {
  const std::string skip = sytemDirectory();
  if (skip.empty()) return true;
  auto trimmed = [](std::string p) {
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    return p;
  };
  return trimmed(path) != trimmed(FileUtil::pathFromURL(skip));
}

// ---------------------------------------------------------------------------

namespace detail {

bool scanDirectory(const std::string& path, const std::function<bool(int, const dirent&)>& visit) {
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  DIR* dir = ::fdopendir(fd);
  if (!dir) {
    ::close(fd);
    return false;
  }
  while (const dirent* e = ::readdir(dir)) {
    const char* n = e->d_name;
    if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
    if (!visit(fd, *e)) break;
  }
  ::closedir(dir);
  return true;
}

std::vector<std::string> childPaths(const std::string& folder) {
  std::vector<std::string> out;
  scanDirectory(folder, [&](int, const dirent& e) {
    out.push_back(joinPath(folder, e.d_name));
    return true;
  });
  std::sort(out.begin(), out.end());
  return out;
}

Error posixError(int code, const std::string& what) {
  return Error{kFilePropertyErrorDomain, code, what + ": " + std::strerror(code)};
}

}  // namespace detail
}  // namespace harbor

#pragma once

#include <any>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cloud/CloudProvider.h"
#include "cloud/MetadataQuery.h"
#include "filemanager/IActionProgress.h"
#include "platform/Error.h"
#include "platform/OperationQueue.h"

namespace harbor {

// One operation on the cloud drive: started, run on the background queue,
// and waited for by the caller in waitRun, which keeps the main queue going.
class ICloudBase {
 public:
  using FinishBlock = std::function<void(const std::string& path, const std::string& destination,
                                         const std::any& tag, const std::optional<Error>& error)>;
  static constexpr const char* kErrorDomain = "iCloud Drive error";
  // How long a change the drive doesn't show yet waits before it is asked again.
  static constexpr std::chrono::milliseconds kRequeryInterval{300};

  ICloudBase(std::string path, std::string destination, IActionProgress* progressDelegate);
  virtual ~ICloudBase();
  ICloudBase(const ICloudBase&) = delete;
  ICloudBase& operator=(const ICloudBase&) = delete;

  // The drive's documents folder, or empty when no container is set.
  static std::string documentsURL();

  virtual void start(std::any tag = {}) = 0;
  // Ends the operation with `message` and code -1.
  void stop(const std::string& message);
  void waitRun();
  bool isContinuingWaiting() const;
  static Error createErrorWithMsg(const std::string& message, long code);
  void releaseQuery();
  void releaseWorkQueue();

  bool isSuccess() const;
  std::string errorMessage() const;
  std::optional<Error> error() const;
  void setFinishBlock(FinishBlock block) { _finishBlock = std::move(block); }
  void setUseMainThread(bool value) { _isUseMainThread = value; }
  const std::string& path() const { return _path; }
  const std::string& destination() const { return _destination; }

 protected:
  // Runs `work` on the global background queue; the destructor waits for it.
  void runInBackground(std::function<void()> work);
  void createOperationQueue();
  // A query on `path` whose callbacks hop to the worker queue.
  void createQueryOn(const std::string& path, MetadataQuery::Callback gathering,
                     MetadataQuery::Callback update);
  // Stores the outcome, tells the delegate and the block, ends the wait.
  void finish(std::optional<Error> error);
  // Polls every kRequeryInterval until the drive shows `path`, then finishes.
  void waitForItem(const std::string& path);
  void startTimer(std::function<void()> fired);
  void stopTimer();

  std::string _path;
  std::string _destination;
  bool _isIgnoreThreadCanceled = false;
  std::atomic<bool> _isCanceled{false};
  std::atomic<bool> _isUseMainThread{true};
  std::atomic<bool> _isExecuting{false};
  std::unique_ptr<MetadataQuery> _query;
  std::any _tag;
  std::vector<std::string> _contents;
  FinishBlock _finishBlock;
  IActionProgress* _progressDelegate = nullptr;
  std::optional<Error> _error;
  std::unique_ptr<OperationQueue> _workerQueue;
  std::shared_ptr<CloudProvider> provider_;
  mutable std::recursive_mutex lock_;

 private:
  std::mutex pendingMutex_;
  std::condition_variable pendingDone_;
  int pending_ = 0;
  std::atomic<bool> finished_{false};
  std::atomic<std::uint64_t> timerGeneration_{0};
};

class ICloudDelete : public ICloudBase {
 public:
  using ICloudBase::ICloudBase;
  static std::unique_ptr<ICloudDelete> instanceWithPath(const std::string& path,
                                                        IActionProgress* progressDelegate);
  void start(std::any tag = {}) override;
};

class ICloudDownload : public ICloudBase {
 public:
  using ICloudBase::ICloudBase;
  static std::unique_ptr<ICloudDownload> instanceWithPath(const std::string& path,
                                                          const std::string& destination,
                                                          IActionProgress* progressDelegate);
  void start(std::any tag = {}) override;
  // Whether the last start asked the drive for the item (it was not current).
  bool usedQuery() const { return usedQuery_; }

 private:
  void liveUpdate(const std::optional<CloudItem>& item);
  void copyToDestination();
  std::atomic<bool> usedQuery_{false};
};

class ICloudUpload : public ICloudBase {
 public:
  using ICloudBase::ICloudBase;
  static std::unique_ptr<ICloudUpload> instanceWithPath(const std::string& path,
                                                        const std::string& destination,
                                                        IActionProgress* progressDelegate);
  void start(std::any tag = {}) override;

 private:
  void createQuery();
  void liveUpdate(const std::optional<CloudItem>& item);
};

class ICloudCreateDir : public ICloudBase {
 public:
  using ICloudBase::ICloudBase;
  static std::unique_ptr<ICloudCreateDir> instanceWithPath(const std::string& path,
                                                           IActionProgress* progressDelegate);
  void start(std::any tag = {}) override;
};

class ICloudMove : public ICloudBase {
 public:
  using ICloudBase::ICloudBase;
  static std::unique_ptr<ICloudMove> instanceWithPath(const std::string& path,
                                                      const std::string& destination,
                                                      IActionProgress* progressDelegate);
  void start(std::any tag = {}) override;
};

// Copies `source` over `target` so that the target is never missing or
// half-written: a file through a hidden temporary and a rename; a folder by
// swapping it in and removing the old one after.
bool replaceItemAtomically(const std::string& source, const std::string& target, Error* error);

}  // namespace harbor

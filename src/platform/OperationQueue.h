#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Cancellation.h"

namespace harbor {

enum class QueuePriority : int { VeryLow = -8, Low = -4, Normal = 0, High = 4, VeryHigh = 8 };

// A unit of work for an OperationQueue, always held by shared_ptr. While
// main() runs, the operation's token is the thread's current one, so code deep
// down can poll isCurrentThreadCancelled().
class Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Runs the operation on this thread unless it already ran; a cancelled
  // operation finishes without calling main().
  void start();
  void cancel() { token_.cancel(); }
  bool isCancelled() const { return token_.isCancelled(); }
  bool isExecuting() const;
  bool isFinished() const;
  // Blocks until finished; never call it from the operation itself.
  void waitUntilFinished();

  // Read when the operation is added to a queue; later changes do not move it.
  QueuePriority queuePriority() const { return priority_.load(); }
  void setQueuePriority(QueuePriority p) { priority_.store(p); }

  CancellationToken token() const { return token_; }

  // Runs on the thread that finishes the operation (cancelled or not), before
  // waiters are released.
  void setCompletionBlock(std::function<void()> block);

 protected:
  virtual void main() = 0;

 private:
  friend class OperationQueue;
  enum class State { Ready, Queued, Executing, Finished };

  // Ready -> Queued, false when the operation was queued or run before.
  bool markQueued();
  void finish();

  CancellationToken token_;
  std::atomic<QueuePriority> priority_{QueuePriority::Normal};
  mutable std::mutex mutex_;
  std::condition_variable finished_;
  State state_ = State::Ready;
  std::function<void()> completion_;
};

// An operation made from a function.
class BlockOperation : public Operation {
 public:
  explicit BlockOperation(std::function<void()> block) : block_(std::move(block)) {}

 protected:
  void main() override {
    if (block_) block_();
  }

 private:
  std::function<void()> block_;
};

// A thread pool with a concurrency limit. Higher priorities start first, FIFO
// within a priority. Threads are made on demand up to the limit; the
// destructor cancels what is still queued and waits for what runs.
class OperationQueue {
 public:
  explicit OperationQueue(int maxConcurrentOperationCount = 4, std::string name = {});
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  // The shared queue for background work, with a limit of 4.
  static OperationQueue& backgroundQueue();

  // A limit of 0 or less means one per processor.
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;

  void addOperation(std::shared_ptr<Operation> operation);
  std::shared_ptr<Operation> addOperation(std::function<void()> block,
                                          QueuePriority priority = QueuePriority::Normal);

  // Queued operations finish at once without running; running ones see their
  // token cancelled.
  void cancelAllOperations();
  // Blocks until nothing is queued or running. On a suspended queue with
  // queued work it waits for a resume; never call it from one of its own
  // operations.
  void waitUntilAllOperationsAreFinished();
  std::size_t operationCount() const;

  void setSuspended(bool suspended);
  bool isSuspended() const;

  const std::string& name() const { return name_; }

 private:
  using Key = std::pair<int, std::uint64_t>;  // (-priority, order added)

  void workerLoop();
  bool canStartLocked() const;
  void spawnWorkersLocked();
  bool idleLocked() const { return pending_.empty() && running_.empty() && finishing_ == 0; }

  const std::string name_;
  mutable std::mutex mutex_;
  std::condition_variable work_;  // workers wait here
  std::condition_variable idle_;  // waitUntilAllOperationsAreFinished waits here
  std::map<Key, std::shared_ptr<Operation>> pending_;
  std::vector<std::shared_ptr<Operation>> running_;
  std::vector<std::thread> threads_;
  std::uint64_t nextOrder_ = 0;
  std::size_t waitingWorkers_ = 0;
  std::size_t finishing_ = 0;  // taken off the queue by a cancel, not finished yet
  int maxConcurrent_ = 4;
  bool suspended_ = false;
  bool stopping_ = false;
};

// For work that runs on its own thread, outside any queue (clearing the
// temporary folder at launch...). The returned token is the thread's current
// one while `work` runs.
class CancellableThread {
 public:
  static CancellationToken startDetached(std::function<void()> work);
};

}  // namespace harbor

#include "platform/OperationQueue.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <system_error>

#include "platform/Log.h"

namespace harbor {
namespace {

// Work must not take the process down by throwing out of a worker thread.
void runGuarded(const char* cls, const std::function<void()>& fn) {
  try {
    fn();
  } catch (const std::exception& e) {
    HB_LOG(cls, std::string("work threw: ") + e.what());
  } catch (...) {
    HB_LOG(cls, "work threw a non-standard exception");
  }
}

void nameThread(const std::string& name) {
  if (name.empty()) return;
  // Linux limits thread names to 15 bytes.
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

}  // namespace

// ---------------------------------------------------------------------------
// Operation

bool Operation::isExecuting() const {
  std::lock_guard lock(mutex_);
  return state_ == State::Executing;
}

bool Operation::isFinished() const {
  std::lock_guard lock(mutex_);
  return state_ == State::Finished;
}

void Operation::setCompletionBlock(std::function<void()> block) {
  std::lock_guard lock(mutex_);
  completion_ = std::move(block);
}

bool Operation::markQueued() {
  std::lock_guard lock(mutex_);
  if (state_ != State::Ready) return false;
  state_ = State::Queued;
  return true;
}

void Operation::start() {
  {
    std::lock_guard lock(mutex_);
    if (state_ == State::Executing || state_ == State::Finished) return;
    state_ = State::Executing;
  }
  if (!isCancelled()) {
    CurrentCancellationScope scope(token_);
    runGuarded("Operation", [this] { main(); });
  }
  finish();
}

void Operation::finish() {
  std::function<void()> completion;
  {
    std::lock_guard lock(mutex_);
    completion = std::move(completion_);
    completion_ = nullptr;
  }
  if (completion) runGuarded("Operation", completion);
  std::lock_guard lock(mutex_);
  state_ = State::Finished;
  finished_.notify_all();
}

void Operation::waitUntilFinished() {
  std::unique_lock lock(mutex_);
  finished_.wait(lock, [this] { return state_ == State::Finished; });
}

// ---------------------------------------------------------------------------
// OperationQueue

OperationQueue::OperationQueue(int maxConcurrentOperationCount, std::string name)
    : name_(std::move(name)) {
  setMaxConcurrentOperationCount(maxConcurrentOperationCount);
}

OperationQueue::~OperationQueue() {
  std::map<Key, std::shared_ptr<Operation>> dropped;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    dropped.swap(pending_);
  }
  for (auto& [key, op] : dropped) {
    op->cancel();
    op->finish();
  }
  work_.notify_all();
  for (std::thread& t : threads_) {
    // An operation that destroys its own queue cannot join its own thread.
    if (t.get_id() == std::this_thread::get_id()) {
      t.detach();
    } else if (t.joinable()) {
      t.join();
    }
  }
}

OperationQueue& OperationQueue::backgroundQueue() {
  // Never destroyed: joining at exit could hang on work that ignores
  // cancellation, and the process is ending anyway.
  static OperationQueue* queue = new OperationQueue(4, "harbor-bg");
  return *queue;
}

void OperationQueue::setMaxConcurrentOperationCount(int count) {
  if (count <= 0) count = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  std::lock_guard lock(mutex_);
  maxConcurrent_ = count;
  spawnWorkersLocked();
  work_.notify_all();
}

int OperationQueue::maxConcurrentOperationCount() const {
  std::lock_guard lock(mutex_);
  return maxConcurrent_;
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (!operation) return;
  if (!operation->markQueued()) {
    HB_LOG("OperationQueue", "operation was already queued or run; ignored");
    return;
  }
  {
    std::lock_guard lock(mutex_);
    if (!stopping_) {
      int priority = static_cast<int>(operation->queuePriority());
      pending_.emplace(Key{-priority, nextOrder_++}, std::move(operation));
      spawnWorkersLocked();
      work_.notify_all();
      return;
    }
  }
  // The queue is going away: the operation ends like any queued one.
  operation->cancel();
  operation->finish();
}

std::shared_ptr<Operation> OperationQueue::addOperation(std::function<void()> block,
                                                        QueuePriority priority) {
  auto op = std::make_shared<BlockOperation>(std::move(block));
  op->setQueuePriority(priority);
  addOperation(op);
  return op;
}

void OperationQueue::cancelAllOperations() {
  std::map<Key, std::shared_ptr<Operation>> dropped;
  {
    std::lock_guard lock(mutex_);
    for (auto& op : running_) op->cancel();
    dropped.swap(pending_);
    finishing_ += dropped.size();
  }
  // Completion blocks run outside the lock, here on the cancelling thread.
  for (auto& [key, op] : dropped) {
    op->cancel();
    op->finish();
  }
  std::lock_guard lock(mutex_);
  finishing_ -= dropped.size();
  if (idleLocked()) idle_.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [this] { return idleLocked(); });
}

std::size_t OperationQueue::operationCount() const {
  std::lock_guard lock(mutex_);
  return pending_.size() + running_.size() + finishing_;
}

void OperationQueue::setSuspended(bool suspended) {
  std::lock_guard lock(mutex_);
  suspended_ = suspended;
  if (!suspended) {
    spawnWorkersLocked();
    work_.notify_all();
  }
}

bool OperationQueue::isSuspended() const {
  std::lock_guard lock(mutex_);
  return suspended_;
}

bool OperationQueue::canStartLocked() const {
  return !suspended_ && !pending_.empty() &&
         running_.size() < static_cast<std::size_t>(maxConcurrent_);
}

void OperationQueue::spawnWorkersLocked() {
  if (suspended_ || stopping_) return;
  std::size_t slots = static_cast<std::size_t>(maxConcurrent_);
  std::size_t free = running_.size() < slots ? slots - running_.size() : 0;
  std::size_t wanted = std::min(free, pending_.size());
  // Waiting workers will pick the work up; make only the missing ones.
  while (waitingWorkers_ < wanted && threads_.size() < slots) {
    try {
      threads_.emplace_back([this] { workerLoop(); });
    } catch (const std::system_error& e) {
      // The threads already there carry on; the work waits for them.
      HB_LOG("OperationQueue", std::string("cannot start a thread: ") + e.what());
      return;
    }
    ++waitingWorkers_;  // counted until it takes work, so it is not made twice
  }
}

void OperationQueue::workerLoop() {
  nameThread(name_);
  std::unique_lock lock(mutex_);
  for (;;) {
    work_.wait(lock, [this] { return stopping_ || canStartLocked(); });
    if (!canStartLocked()) break;  // stopping, nothing more to run
    --waitingWorkers_;
    auto first = pending_.begin();
    std::shared_ptr<Operation> op = std::move(first->second);
    pending_.erase(first);
    running_.push_back(op);

    lock.unlock();
    op->start();
    lock.lock();

    std::erase(running_, op);
    ++waitingWorkers_;
    if (idleLocked()) idle_.notify_all();
    // A slot is free: another worker may be waiting on the limit.
    work_.notify_all();
  }
  --waitingWorkers_;
}

// ---------------------------------------------------------------------------
// CancellableThread

CancellationToken CancellableThread::startDetached(std::function<void()> work) {
  CancellationToken token;
  try {
    std::thread([token, work = std::move(work)] {
      CurrentCancellationScope scope(token);
      if (work) runGuarded("CancellableThread", work);
    }).detach();
  } catch (const std::system_error& e) {
    HB_LOG("CancellableThread", std::string("cannot start a thread: ") + e.what());
    token.cancel();
  }
  return token;
}

}  // namespace harbor

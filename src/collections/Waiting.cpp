#include "collections/Waiting.h"

#include "platform/MainQueue.h"

namespace harbor {

void Semaphore::signal() {
  {
    std::lock_guard lock(mutex_);
    ++count_;
  }
  cv_.notify_one();
}

bool Semaphore::wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  auto ready = [this] { return count_ > 0; };
  if (timeout.count() <= 0) {
    cv_.wait(lock, ready);
  } else if (!cv_.wait_for(lock, timeout, ready)) {
    return false;
  }
  --count_;
  return true;
}

SemaphoreWrapper::SemaphoreWrapper() : semaphore(std::make_shared<Semaphore>()) {}

void SemaphoreWrapper::addTask(const std::function<void(std::shared_ptr<Semaphore>)>& task) {
  std::shared_ptr<Semaphore> current;
  {
    std::lock_guard lock(monitor_);
    current = semaphore;
  }
  if (current && task) task(current);
}

bool SemaphoreWrapper::addTask(const std::function<void(std::shared_ptr<Semaphore>)>& task,
                               std::chrono::milliseconds time) {
  addTask(task);
  return wait(time);
}

bool SemaphoreWrapper::wait() {
  return wait(std::chrono::milliseconds(0));
}

bool SemaphoreWrapper::wait(std::chrono::milliseconds time) {
  std::shared_ptr<Semaphore> current;
  {
    std::lock_guard lock(monitor_);
    current = semaphore;
  }
  if (!current) return false;
  bool signalled = current->wait(time);
  releaseSemaphore();
  return signalled;
}

void SemaphoreWrapper::releaseSemaphore() {
  std::lock_guard lock(monitor_);
  semaphore.reset();
}

bool RunLoopWrapper::wait(const std::function<bool()>& done) {
  return wait(done, kDefaultInterval);
}

bool RunLoopWrapper::wait(const std::function<bool()>& done, std::chrono::milliseconds interval) {
  return wait(done, interval, std::chrono::milliseconds(0), nullptr, nullptr);
}

bool RunLoopWrapper::wait(const std::function<bool()>& done, std::chrono::milliseconds interval,
                          std::chrono::milliseconds limit,
                          const std::function<void()>& timeoutBlock) {
  return wait(done, interval, limit, timeoutBlock, nullptr);
}

bool RunLoopWrapper::wait(const std::function<bool()>& done, std::chrono::milliseconds interval,
                          std::chrono::milliseconds limit,
                          const std::function<void()>& timeoutBlock,
                          const std::function<bool()>& cancelBlock) {
  using Clock = std::chrono::steady_clock;
  if (interval.count() <= 0) interval = kDefaultInterval;
  const auto start = Clock::now();
  for (;;) {
    if (MainQueue::shared().runUntil(done, interval)) return true;
    if (cancelBlock && cancelBlock()) return false;
    if (limit.count() > 0 && Clock::now() - start >= limit) {
      if (timeoutBlock) timeoutBlock();
      return false;
    }
  }
}

}  // namespace harbor

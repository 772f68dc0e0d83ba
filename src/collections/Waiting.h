#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace harbor {

// A counting semaphore a task signals when it is done.
class Semaphore {
 public:
  void signal();
  // Blocks until signalled or the timeout passes; a zero timeout waits for
  // ever. Answers whether it was signalled.
  bool wait(std::chrono::milliseconds timeout);

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  long count_ = 0;
};

// Waits for a task that reports back through a semaphore. After the wait the
// semaphore is released; the wrapper is for one task.
class SemaphoreWrapper {
 public:
  SemaphoreWrapper();
  // The task gets the semaphore (its own reference, so signalling after the
  // wait ended is safe) and signals it when it finishes.
  void addTask(const std::function<void(std::shared_ptr<Semaphore>)>& task);
  // The same, then waits: for ever when `time` is zero. Answers whether the
  // task signalled in time.
  bool addTask(const std::function<void(std::shared_ptr<Semaphore>)>& task,
               std::chrono::milliseconds time);
  bool wait();
  bool wait(std::chrono::milliseconds time);
  void releaseSemaphore();

 private:
  std::mutex monitor_;
  std::shared_ptr<Semaphore> semaphore;
};

// Runs the main queue while waiting for a condition, so work the awaited
// task posts to the main thread still runs.
class RunLoopWrapper {
 public:
  static constexpr std::chrono::milliseconds kDefaultInterval{10};

  // Each answers true when `done` said stop, false when the time limit
  // passed or `cancel` asked to leave. A zero limit waits for ever.
  static bool wait(const std::function<bool()>& done);
  static bool wait(const std::function<bool()>& done, std::chrono::milliseconds interval);
  static bool wait(const std::function<bool()>& done, std::chrono::milliseconds interval,
                   std::chrono::milliseconds limit, const std::function<void()>& timeoutBlock);
  static bool wait(const std::function<bool()>& done, std::chrono::milliseconds interval,
                   std::chrono::milliseconds limit, const std::function<void()>& timeoutBlock,
                   const std::function<bool()>& cancelBlock);
};

}  // namespace harbor

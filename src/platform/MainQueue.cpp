#include "platform/MainQueue.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <string>

#include "platform/Log.h"

namespace harbor {
namespace {

void runGuarded(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& e) {
    HB_LOG("MainQueue", std::string("work threw: ") + e.what());
  } catch (...) {
    HB_LOG("MainQueue", "work threw a non-standard exception");
  }
}

}  // namespace

MainQueue::MainQueue() : mainThread_(std::this_thread::get_id()) {}

MainQueue& MainQueue::shared() {
  // Never destroyed: workers may still post while the process exits.
  static MainQueue* queue = new MainQueue;
  return *queue;
}

void MainQueue::post(std::function<void()> work) {
  if (!work) return;
  std::unique_lock lock(mutex_);
  if (dispatcher_) {
    auto dispatcher = dispatcher_;
    lock.unlock();
    dispatcher(std::move(work));
    return;
  }
  queue_.push_back(std::move(work));
  posted_.notify_all();
}

void MainQueue::postAndWait(std::function<void()> work) {
  if (!work) return;
  if (isMainThread()) {
    runGuarded(work);
    return;
  }
  struct Handshake {
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
  };
  auto handshake = std::make_shared<Handshake>();
  post([handshake, work = std::move(work)] {
    runGuarded(work);
    std::lock_guard lock(handshake->mutex);
    handshake->done = true;
    handshake->cv.notify_all();
  });
  std::unique_lock lock(handshake->mutex);
  handshake->cv.wait(lock, [&] { return handshake->done; });
}

bool MainQueue::isMainThread() const {
  std::lock_guard lock(mutex_);
  return std::this_thread::get_id() == mainThread_;
}

void MainQueue::adoptCurrentThread() {
  std::lock_guard lock(mutex_);
  mainThread_ = std::this_thread::get_id();
}

void MainQueue::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    posted_.wait(lock, [this] { return stopRequested_ || !queue_.empty(); });
    if (stopRequested_) {
      stopRequested_ = false;
      return;
    }
    auto work = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    runGuarded(work);
    lock.lock();
  }
}

void MainQueue::stop() {
  std::lock_guard lock(mutex_);
  stopRequested_ = true;
  posted_.notify_all();
}

std::size_t MainQueue::runPending() {
  std::deque<std::function<void()>> batch;
  {
    std::lock_guard lock(mutex_);
    batch.swap(queue_);
  }
  for (auto& work : batch) runGuarded(work);
  return batch.size();
}

bool MainQueue::runUntil(std::function<bool()> done, std::chrono::milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  // done() may turn true without anything being posted, so look again often.
  constexpr auto kSlice = std::chrono::milliseconds(5);
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    if (done && done()) return true;
    const auto now = Clock::now();
    if (now >= deadline) break;
    std::function<void()> work;
    {
      std::unique_lock lock(mutex_);
      posted_.wait_until(lock, std::min(deadline, now + kSlice),
                         [this] { return !queue_.empty(); });
      if (queue_.empty()) continue;
      work = std::move(queue_.front());
      queue_.pop_front();
    }
    runGuarded(work);
  }
  return done && done();
}

std::shared_ptr<MainQueue::Timer> MainQueue::postAfter(std::chrono::milliseconds delay,
                                                       std::function<void()> work) {
  auto timer = std::make_shared<Timer>();
  if (!work) return timer;
  std::lock_guard lock(timerMutex_);
  timers_.emplace(nowLocked() + delay, PendingTimer{timer, std::move(work)});
  // One thread for all timers on the steady clock, never ended: the queue
  // lives as long as the process.
  if (!timerThreadStarted_) {
    timerThreadStarted_ = true;
    std::thread([this] { timerLoop(); }).detach();
  }
  timerChanged_.notify_all();
  return timer;
}

MainQueue::TimePoint MainQueue::nowLocked() const {
  return manualClock_ ? manualNow_ : std::chrono::steady_clock::now();
}

std::vector<MainQueue::PendingTimer> MainQueue::takeDueLocked(TimePoint now) {
  std::vector<PendingTimer> due;
  while (!timers_.empty() && timers_.begin()->first <= now) {
    due.push_back(std::move(timers_.begin()->second));
    timers_.erase(timers_.begin());
  }
  return due;
}

void MainQueue::postTimers(std::vector<PendingTimer> due) {
  // Cancelling still counts after the work was posted, until it runs.
  for (auto& t : due) {
    if (t.timer->isCancelled()) continue;
    post([timer = t.timer, work = std::move(t.work)] {
      if (!timer->isCancelled()) work();
    });
  }
}

void MainQueue::timerLoop() {
  std::unique_lock lock(timerMutex_);
  for (;;) {
    if (manualClock_ || timers_.empty()) {
      timerChanged_.wait(lock);
      continue;
    }
    const TimePoint next = timers_.begin()->first;
    if (timerChanged_.wait_until(lock, next) == std::cv_status::no_timeout) continue;
    auto due = takeDueLocked(std::chrono::steady_clock::now());
    lock.unlock();
    postTimers(std::move(due));
    lock.lock();
  }
}

void MainQueue::setManualClock(bool manual) {
  std::lock_guard lock(timerMutex_);
  if (manual && !manualClock_) manualNow_ = std::chrono::steady_clock::now();
  manualClock_ = manual;
  timerChanged_.notify_all();
}

void MainQueue::advanceClock(std::chrono::milliseconds by) {
  std::vector<PendingTimer> due;
  {
    std::lock_guard lock(timerMutex_);
    if (!manualClock_) return;
    manualNow_ += by;
    due = takeDueLocked(manualNow_);
  }
  postTimers(std::move(due));
}

void MainQueue::setDispatcher(std::function<void(std::function<void()>)> dispatcher) {
  std::deque<std::function<void()>> handOver;
  {
    std::lock_guard lock(mutex_);
    dispatcher_ = dispatcher;
    if (dispatcher_) handOver.swap(queue_);
  }
  for (auto& work : handOver) dispatcher(std::move(work));
}

}  // namespace harbor

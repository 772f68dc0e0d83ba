#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace harbor {

// The main thread and its run loop. Work posted from any thread runs on the
// main thread, in the order posted. The GUI routes posts into its own event
// loop with setDispatcher; the CLI and tests drive the loop themselves with
// run(), runPending() or runUntil().
class MainQueue {
 public:
  static MainQueue& shared();

  void post(std::function<void()> work);

  // A one-shot timer: its work is posted once its delay has passed on the
  // queue's clock, unless cancelled before it runs.
  class Timer {
   public:
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }

   private:
    std::atomic<bool> cancelled_{false};
  };
  std::shared_ptr<Timer> postAfter(std::chrono::milliseconds delay, std::function<void()> work);
  // Scripted runs and tests: time stands still until advanced, and the
  // timers that come due are posted by advanceClock, in the order of their
  // due times. Switching back to the steady clock keeps pending timers.
  void setManualClock(bool manual);
  void advanceClock(std::chrono::milliseconds by);
  // Runs `work` on the main thread and returns once it has run. On the main
  // thread it runs inline. From another thread it blocks until the main
  // thread's loop (run, runPending, runUntil or the dispatcher's event loop)
  // takes it: when nobody drives the loop, it waits until somebody does.
  void postAndWait(std::function<void()> work);

  bool isMainThread() const;
  // This thread becomes the main thread. By default the first thread to call
  // shared() is.
  void adoptCurrentThread();

  // Runs posted work until stop(). A stop() that comes before run() makes the
  // next run() return at once, so a worker finishing early cannot be missed.
  void run();
  void stop();
  // Runs what is queued now (not what it posts in turn); returns the count.
  std::size_t runPending();
  // Runs posted work until done() answers true or the timeout passes; answers
  // done() at the end.
  bool runUntil(std::function<bool()> done, std::chrono::milliseconds timeout);

  // A GUI maps posts onto its own event loop. Work already queued is handed
  // over; an empty dispatcher goes back to the built-in queue.
  void setDispatcher(std::function<void(std::function<void()>)> dispatcher);

 private:
  MainQueue();
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;

  mutable std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<std::function<void()>> queue_;
  std::function<void(std::function<void()>)> dispatcher_;
  std::thread::id mainThread_;
  bool stopRequested_ = false;

  using TimePoint = std::chrono::steady_clock::time_point;
  struct PendingTimer {
    std::shared_ptr<Timer> timer;
    std::function<void()> work;
  };
  TimePoint nowLocked() const;
  void timerLoop();
  // Removes the timers due by `now`, earliest first.
  std::vector<PendingTimer> takeDueLocked(TimePoint now);
  void postTimers(std::vector<PendingTimer> due);
  std::mutex timerMutex_;
  std::condition_variable timerChanged_;
  std::multimap<TimePoint, PendingTimer> timers_;
  bool manualClock_ = false;
  TimePoint manualNow_{};
  bool timerThreadStarted_ = false;
};

}  // namespace harbor

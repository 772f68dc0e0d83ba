#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor::cli {

// Turns Ctrl-C into the walkers' cancel broadcast, and into `onInterrupt`
// when one is given. Signals are taken by a thread of their own, so neither
// runs inside a handler.
class InterruptWatch {
 public:
  explicit InterruptWatch(std::function<void()> onInterrupt = {})
      : onInterrupt_(std::move(onInterrupt)) {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    sigaddset(&set_, SIGUSR1);
    // Blocked before any worker starts, so every thread inherits the mask.
    pthread_sigmask(SIG_BLOCK, &set_, &old_);
    thread_ = std::thread([this] {
      for (;;) {
        int sig = 0;
        if (sigwait(&set_, &sig) != 0 || sig == SIGUSR1) return;
        interrupted_ = true;
        NotificationCenter::defaultCenter().post(notifications::FilePropertyCancelNotification);
        if (onInterrupt_) onInterrupt_();
      }
    });
  }
  ~InterruptWatch() {
    pthread_kill(thread_.native_handle(), SIGUSR1);
    thread_.join();
    pthread_sigmask(SIG_SETMASK, &old_, nullptr);
  }
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  bool interrupted() const { return interrupted_; }

 private:
  std::function<void()> onInterrupt_;
  sigset_t set_;
  sigset_t old_;
  std::atomic<bool> interrupted_{false};
  std::thread thread_;
};

}  // namespace harbor::cli

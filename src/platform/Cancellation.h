#pragma once

#include <atomic>
#include <memory>

namespace harbor {

// A shared flag that a worker polls between items. Copies share the flag.
class CancellationToken {
 public:
  CancellationToken() : flag_(std::make_shared<std::atomic<bool>>(false)) {}
  void cancel() const { flag_->store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return flag_->load(std::memory_order_relaxed); }
  bool operator==(const CancellationToken& o) const { return flag_ == o.flag_; }

 private:
  std::shared_ptr<std::atomic<bool>> flag_;
};

// The token of the work running on this thread, standing for the platform's
// "is the current thread cancelled". Operation queues and worker threads set
// it; a thread without one is never cancelled.
bool isCurrentThreadCancelled();

class CurrentCancellationScope {
 public:
  explicit CurrentCancellationScope(const CancellationToken& token);
  ~CurrentCancellationScope();
  CurrentCancellationScope(const CurrentCancellationScope&) = delete;
  CurrentCancellationScope& operator=(const CurrentCancellationScope&) = delete;

 private:
  const CancellationToken* previous_;
};

}  // namespace harbor

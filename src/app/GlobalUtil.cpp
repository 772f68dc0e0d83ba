#include "app/GlobalUtil.h"

#include <mutex>

#include "platform/MainQueue.h"

namespace harbor {
namespace {
std::mutex lock;
int holds = 0;
std::function<void(bool)> handler;

void setIdleTimerDisabled(bool disabled) {
  std::function<void(bool)> h;
  {
    std::lock_guard g(lock);
    h = handler;
  }
  if (h) MainQueue::shared().post([h, disabled] { h(disabled); });
}
}  // namespace

void GlobalUtil::unLockScreen() {
  bool first;
  {
    std::lock_guard g(lock);
    first = ++holds == 1;
  }
  if (first) setIdleTimerDisabled(true);
}

void GlobalUtil::lockScreen() {
  bool last = false;
  {
    std::lock_guard g(lock);
    if (holds > 0) last = --holds == 0;
  }
  if (last) setIdleTimerDisabled(false);
}

int GlobalUtil::holdCount() {
  std::lock_guard g(lock);
  return holds;
}

void GlobalUtil::setIdleTimerHandler(std::function<void(bool)> h) {
  std::lock_guard g(lock);
  handler = std::move(h);
}

}  // namespace harbor

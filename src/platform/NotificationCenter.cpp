#include "platform/NotificationCenter.h"

namespace harbor {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: observers may post from threads still running at exit.
  static NotificationCenter* center = new NotificationCenter;
  return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(std::string name, Observer observer) {
  if (!observer) return 0;
  std::lock_guard lock(mutex_);
  Token token = nextToken_++;
  entries_.push_back({token, std::move(name), std::make_shared<const Observer>(std::move(observer)),
                      std::make_shared<std::atomic<bool>>(true)});
  return token;
}

void NotificationCenter::removeObserver(Token token) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [token](const Entry& e) {
    if (e.token != token) return false;
    e.registered->store(false);
    return true;
  });
}

void NotificationCenter::post(std::string_view name, std::any object) {
  // Observers run outside the lock so they can post, add and remove freely.
  std::vector<Entry> targets;
  {
    std::lock_guard lock(mutex_);
    for (const Entry& e : entries_) {
      if (e.name.empty() || e.name == name) targets.push_back(e);
    }
  }
  if (targets.empty()) return;
  const Notification note{std::string(name), std::move(object)};
  for (const Entry& e : targets) {
    if (e.registered->load()) (*e.observer)(note);
  }
}

}  // namespace harbor

#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// Named broadcasts. Observers are called synchronously on the posting thread,
// in the order they were added. An observer may add or remove observers,
// itself included, while it is being called; one removed before its turn in
// a post under way is not called. Removing an observer does not wait for a
// call already running on another thread.
class NotificationCenter {
 public:
  struct Notification {
    std::string name;
    std::any object;
  };
  using Observer = std::function<void(const Notification&)>;
  using Token = std::uint64_t;  // never 0

  NotificationCenter() = default;
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  static NotificationCenter& defaultCenter();

  // An empty name observes every post.
  Token addObserver(std::string name, Observer observer);
  void removeObserver(Token token);
  void post(std::string_view name, std::any object = {});

 private:
  struct Entry {
    Token token;
    std::string name;
    std::shared_ptr<const Observer> observer;
    // Cleared on removal, so a post already holding a copy skips it.
    std::shared_ptr<std::atomic<bool>> registered;
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  Token nextToken_ = 1;
};

}  // namespace harbor

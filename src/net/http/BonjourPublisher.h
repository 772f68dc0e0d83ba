#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace harbor {

// Publishes one service on the local network through the Avahi daemon.
// Without a daemon it stays silently off. A name already taken on the
// network gets an alternative one.
class BonjourPublisher {
 public:
  BonjourPublisher();
  ~BonjourPublisher();
  BonjourPublisher(const BonjourPublisher&) = delete;
  BonjourPublisher& operator=(const BonjourPublisher&) = delete;

  // False when no daemon answers.
  bool publish(const std::string& name, const std::string& type, std::uint16_t port,
               const std::map<std::string, std::string>& txt);
  void unpublish();
  std::string publishedName() const;

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace harbor

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cloud/CloudProvider.h"

namespace harbor {

class OperationQueue;

// A live search for one item by path. A watch on the item's folder (its
// entries, and the contents of its files for progress and changes) reports
// on the main queue; each report hops to the query's own serial queue, which
// looks the item up again and answers when it differs. The first answer is
// the gathering, each change after it an update; both run on that queue, one
// at a time. Reports need the main queue to run (the app's loop, or
// MainQueue::run/runUntil in a command).
class MetadataQuery {
 public:
  using Callback = std::function<void(const std::optional<CloudItem>&)>;
  MetadataQuery(std::shared_ptr<CloudProvider> provider, std::string path);
  ~MetadataQuery();
  MetadataQuery(const MetadataQuery&) = delete;
  MetadataQuery& operator=(const MetadataQuery&) = delete;

  void startQuery(Callback finishGathering, Callback liveUpdate);
  // No callback starts after this returns; one may still be running. A
  // callback may stop its own query but not destroy it.
  void stopQuery();
  std::size_t resultCount() const;
  std::optional<CloudItem> resultAtIndex(std::size_t index) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
  // Serial and named uniquely, like every operation's worker queue.
  std::unique_ptr<OperationQueue> _workerQueue;
};

}  // namespace harbor

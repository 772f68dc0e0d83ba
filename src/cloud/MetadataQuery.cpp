#include "cloud/MetadataQuery.h"

#include <filesystem>
#include <mutex>

#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/watcher/DirectoryWatcher.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/OperationQueue.h"

namespace harbor {

// Shared with the watch and the queued lookups, so that neither outlives
// what it touches.
struct MetadataQuery::State : DirectoryWatcherDelegate,
                              std::enable_shared_from_this<MetadataQuery::State> {
  std::shared_ptr<CloudProvider> provider;
  std::string path;
  Callback gathering, update;

  mutable std::mutex mutex;
  std::optional<CloudItem> result;
  bool gathered = false;
  bool stopped = false;
  OperationQueue* queue = nullptr;            // the query's; null once stopped
  std::unique_ptr<DirectoryWatcher> watcher;  // touched on the main thread only

  // Main thread: a burst of changes in the folder.
  void directoryDidChange(DirectoryWatcher&) override { lookUpLater(); }

  void lookUpLater() {
    std::lock_guard lock(mutex);
    if (stopped || !queue) return;
    std::weak_ptr<State> weak = shared_from_this();
    queue->addOperation([weak] {
      if (auto self = weak.lock()) self->lookUp();
    });
  }

  void lookUp() {
    auto item = provider->itemAt(path);
    bool first;
    {
      std::lock_guard lock(mutex);
      if (stopped) return;
      first = !gathered;
      if (!first && item == result) return;
      gathered = true;
      result = item;
    }
    const Callback& cb = first ? gathering : update;
    if (cb) cb(item);
  }

  // Main thread. The watch comes first, so that nothing between the first
  // look and the watch goes unseen.
  void startWatching() {
    {
      std::lock_guard lock(mutex);
      if (stopped) return;
    }
    const std::string folder = std::filesystem::path(path).parent_path().string();
    watcher = DirectoryWatcher::watchFolderWithPath(folder, this, true);
    if (!watcher) HB_LOG("MetadataQuery:startQuery", "cannot watch " + folder);
    lookUpLater();
  }
};

MetadataQuery::MetadataQuery(std::shared_ptr<CloudProvider> provider, std::string path)
    : state_(std::make_shared<State>()),
      _workerQueue(std::make_unique<OperationQueue>(1, detail::makeUUID())) {
  state_->provider = std::move(provider);
  state_->path = std::move(path);
  state_->queue = _workerQueue.get();
}

MetadataQuery::~MetadataQuery() {
  stopQuery();
}

// Runs on the main thread: inline when already there, else posted.
static void onMainThread(std::function<void()> work) {
  if (MainQueue::shared().isMainThread())
    work();
  else
    MainQueue::shared().post(std::move(work));
}

void MetadataQuery::startQuery(Callback finishGathering, Callback liveUpdate) {
  state_->gathering = std::move(finishGathering);
  state_->update = std::move(liveUpdate);
  onMainThread([state = state_] { state->startWatching(); });
}

void MetadataQuery::stopQuery() {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->stopped) return;
    state_->stopped = true;
    state_->queue = nullptr;
  }
  _workerQueue->cancelAllOperations();
  onMainThread([state = state_] { state->watcher.reset(); });
}

std::size_t MetadataQuery::resultCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->result ? 1 : 0;
}

std::optional<CloudItem> MetadataQuery::resultAtIndex(std::size_t index) const {
  std::lock_guard lock(state_->mutex);
  return index == 0 ? state_->result : std::nullopt;
}

}  // namespace harbor

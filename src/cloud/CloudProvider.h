#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// What the drive knows about one item.
struct CloudItem {
  using Date = std::chrono::system_clock::time_point;
  std::string filename;  // as listed: a placeholder ".a.txt.cloud" lists as "a.txt"
  std::string path;      // full path of the item as it will be once downloaded
  bool isDirectory = false;
  std::uint64_t totalBytes = 0;
  Date lastModifiedDate{};
  bool downloaded = false;       // "current" when true, "notDownloaded" otherwise
  double percentDownloaded = 0;  // of a placeholder: part file over its size
  bool uploaded = false;         // present at full size
  double percentUploaded = 0;

  const char* downloadingStatus() const { return downloaded ? "current" : "notDownloaded"; }
  bool operator==(const CloudItem&) const = default;
};

// A cloud container: where its documents are, and the status of its items.
class CloudProvider {
 public:
  virtual ~CloudProvider() = default;
  virtual std::string containerURL() const = 0;
  std::string documentsURL() const {
    return containerURL().empty() ? "" : containerURL() + "/Documents";
  }
  // Set and writable.
  virtual bool isAvailable() const = 0;
  // The item at `path` (present or a placeholder), or none.
  virtual std::optional<CloudItem> itemAt(const std::string& path) const = 0;
  // The items directly in `folder`, sorted by name, without the sync client's
  // own files and our temporaries.
  virtual std::vector<CloudItem> itemsIn(const std::string& folder) const = 0;
  virtual bool startDownloading(const std::string& path, Error* error) = 0;

  // The provider the operations use.
  static std::shared_ptr<CloudProvider> shared();
  static void setShared(std::shared_ptr<CloudProvider> provider);
};

// A folder that a desktop sync client keeps. An item not yet downloaded is a
// placeholder ".NAME.cloud" holding its size in decimal; asking for it writes
// ".NAME.cloud-request"; the client writes ".NAME.cloud-part", renames it to
// NAME and removes placeholder and request.
class LocalSyncFolderProvider : public CloudProvider {
 public:
  explicit LocalSyncFolderProvider(std::string containerDir);
  // `--cloud-dir` when given, else $HARBOR_CLOUD_DIR; null when neither.
  static std::shared_ptr<LocalSyncFolderProvider> fromEnvironment(const std::string& cloudDir);

  std::string containerURL() const override { return container_; }
  bool isAvailable() const override;
  std::optional<CloudItem> itemAt(const std::string& path) const override;
  std::vector<CloudItem> itemsIn(const std::string& folder) const override;
  bool startDownloading(const std::string& path, Error* error) override;

  // Names that never list: the sync client's files and hidden temporaries.
  static bool isBookkeepingName(const std::string& name);
  static std::string placeholderPath(const std::string& path);
  static std::string requestPath(const std::string& path);
  static std::string partPath(const std::string& path);
  static constexpr const char* kTemporaryPrefix = ".harbor-tmp-";

 private:
  std::string container_;
};

}  // namespace harbor

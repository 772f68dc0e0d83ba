#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cloud/CloudProvider.h"

namespace harbor {

// One item as the cloud browser shows it.
struct DocumentBrowserModelObject {
  std::string _displayName;
  std::string _subtitle;
  std::string _URL;  // full path
  std::uint64_t totalBytes = 0;
  CloudItem::Date lastModifiedDate{};
  bool _isDirectory = false;
  std::string _filename;
  // A folder's items, when the query went below it (recursive scans).
  std::vector<DocumentBrowserModelObject> _childrens;
  std::string _identifier;  // path relative to the scanned folder
  CloudItem _metadataItem;

  bool operator==(const DocumentBrowserModelObject&) const = default;
};

// The items of a folder (and below, when recursive), and what changed since
// the previous scan.
class DocumentBrowserQuery {
 public:
  struct Changes {
    std::vector<std::string> added, removed, changed;  // identifiers
    bool empty() const { return added.empty() && removed.empty() && changed.empty(); }
  };

  DocumentBrowserQuery(std::shared_ptr<CloudProvider> provider, std::string folder, bool recursive);
  ~DocumentBrowserQuery();
  DocumentBrowserQuery(const DocumentBrowserQuery&) = delete;
  DocumentBrowserQuery& operator=(const DocumentBrowserQuery&) = delete;

  std::vector<DocumentBrowserModelObject> scan() const;
  // Scans and diffs against the previous scan (the first scan adds all).
  Changes update();
  const std::vector<DocumentBrowserModelObject>& objects() const { return _previousQueryObjects; }
  // The folder's items as a tree: top-level objects holding their `_childrens`.
  std::vector<DocumentBrowserModelObject> tree() const;

  // Watches the folder (and, when recursive, each folder below it), entries
  // and file contents alike, and on the main queue rescans after each burst
  // of changes, calling `changed` with each difference that is not empty.
  // Main thread only; the query must outlive the watch or stop it.
  void startWatching(std::function<void(const Changes&)> changed);
  void stopWatching();

 private:
  class Watch;
  void syncWatches();
  void scanInto(const std::string& folder, const std::string& prefix,
                std::vector<DocumentBrowserModelObject>& out) const;
  std::shared_ptr<CloudProvider> provider_;
  std::string folder_;
  bool _isRecurive = false;
  std::vector<DocumentBrowserModelObject> _previousQueryObjects;  // ordered by identifier
  std::function<void(const Changes&)> changed_;
  std::map<std::string, std::unique_ptr<Watch>> watches_;  // by folder path
};

// Small questions about the drive's items.
class ICloudDriveUtil {
 public:
  static constexpr const char* kOperationItemsKey = "SystemICloudDirveOpertionItems";
  ICloudDriveUtil() = delete;
  // Where an operation's history is kept, unless told otherwise.
  enum class CloudTag { iCloudDriveTag };
  static constexpr CloudTag historyType = CloudTag::iCloudDriveTag;

  // A file's size; a folder's, the sum over its `_childrens`.
  static std::uint64_t getItemSize(const DocumentBrowserModelObject& item);
  static std::uint64_t totalFileSize(const std::vector<DocumentBrowserModelObject>& items);
  static bool isExistsICloudDocument(const std::string& path);
  static std::uint64_t getICloudFileSize(const std::string& path);
  static CloudItem::Date getICloudModifiedDate(const std::string& path);
  static bool getICloudISDirectory(const std::string& path);
  static void removeOperationItems();
};

}  // namespace harbor

#pragma once

#include <cstdint>
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

  std::vector<DocumentBrowserModelObject> scan() const;
  // Scans and diffs against the previous scan (the first scan adds all).
  Changes update();
  const std::vector<DocumentBrowserModelObject>& objects() const { return _previousQueryObjects; }

 private:
  void scanInto(const std::string& folder, const std::string& prefix,
                std::vector<DocumentBrowserModelObject>& out) const;
  std::shared_ptr<CloudProvider> provider_;
  std::string folder_;
  bool _isRecurive = false;
  std::vector<DocumentBrowserModelObject> _previousQueryObjects;  // ordered by identifier
};

// Small questions about the drive's items.
class ICloudDriveUtil {
 public:
  static constexpr const char* kOperationItemsKey = "SystemICloudDirveOpertionItems";
  ICloudDriveUtil() = delete;
  static std::uint64_t totalFileSize(const std::vector<DocumentBrowserModelObject>& items);
  static bool isExistsICloudDocument(const std::string& path);
  static std::uint64_t getICloudFileSize(const std::string& path);
  static CloudItem::Date getICloudModifiedDate(const std::string& path);
  static bool getICloudISDirectory(const std::string& path);
  static void removeOperationItems();
};

}  // namespace harbor

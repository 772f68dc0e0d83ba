#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace harbor {

// The progress of one zip download, by browser session guid.
class WifiDownloadItem {
 public:
  static std::shared_ptr<WifiDownloadItem> instanceWithPath(const std::string& path,
                                                            const std::string& guid,
                                                            std::uint64_t totalSize) {
    auto item = std::make_shared<WifiDownloadItem>();
    item->_archivePath = path;
    item->_guid = guid;
    item->_totalSize = totalSize;
    return item;
  }
  void addProgressSize(std::uint64_t size) { _currentSize += size; }
  void finishedDownload() { isFinishedZip = true; }

  std::atomic<std::uint64_t> _currentSize{0};
  std::uint64_t _totalSize = 0;
  std::string _archivePath;
  std::string _guid;
  std::atomic<bool> isFinishedZip{false};
  std::atomic<bool> isCancel{false};
};

}  // namespace harbor

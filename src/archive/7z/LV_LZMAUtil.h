#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace harbor {

// A class-level 7z service over the same reader: list with a callback per
// item, extract everything or one item. Nothing in the application calls it.
class LV_LZMAUtil {
 public:
  struct ItemRecord {
    std::string name;
    std::uint64_t size = 0;
    std::string time;  // "yyyy-MM-dd HH:mm:ss", empty without a date
    std::uint32_t crc = 0;
    bool isdir = false;
  };
  using ListFunc = std::function<void(void* parameter, const ItemRecord& item)>;
  // Called after each extracted item with its name and size.
  using ExtractFunc =
      std::function<void(void* parameter, const std::string& name, std::uint64_t size)>;

  static bool listFiles(const std::string& archivePath, const ListFunc& func, void* parameter);
  static bool extract7zArchive(const std::string& archivePath, const std::string& dirName,
                               const ExtractFunc& func, void* parameter);
  // One item (its archive path); with `fullpath` it keeps its folders.
  static bool extract7zArchive(const std::string& archivePath, const std::string& dirName,
                               const ExtractFunc& func, const std::string& itemPath, bool fullpath,
                               void* parameter);
};

}  // namespace harbor

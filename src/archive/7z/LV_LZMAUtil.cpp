#include "archive/7z/LV_LZMAUtil.h"

#include <cstdio>
#include <ctime>

#include "archive/7z/Archive7zReader.h"
#include "filemanager/FileUtil.h"
#include "platform/Log.h"

namespace harbor {
namespace {

void printError(const char* what) {
  std::fprintf(stderr, "\nERROR: %s\n", what);
}

std::string formatTime(const std::optional<Archive7zItem::Date>& date) {
  if (!date) return "";
  const std::time_t t = std::chrono::system_clock::to_time_t(*date);
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  return buf;
}

bool extractItems(const std::string& archivePath, const std::string& dirName,
                  const LV_LZMAUtil::ExtractFunc& func, const std::string* itemPath, bool fullpath,
                  void* parameter) {
  Archive7zReader reader(archivePath);
  if (!reader.open(nullptr)) {
    printError("can not open input file");
    return false;
  }
  if (!FileUtil::createFolder(dirName)) {
    printError("can not open output file");
    return false;
  }
  std::vector<Archive7zReader::ItemPtr> items;
  reader.iterateWithHandler([&](const Archive7zReader::ItemPtr& item) {
    std::string path = item->path();
    if (!itemPath || path == *itemPath || path == *itemPath + "/") items.push_back(item);
    return true;
  });
  if (itemPath && items.empty()) {
    printError("can not open input file");
    return false;
  }
  if (!reader.extract(items, dirName, fullpath)) {
    printError(reader.lastError() && reader.lastError()->code == 5 ? "can not open output file"
                                                                   : "can not close output file");
    return false;
  }
  if (func)
    for (const auto& item : items) func(parameter, item->path(), item->originalSize());
  return true;
}

}  // namespace

bool LV_LZMAUtil::listFiles(const std::string& archivePath, const ListFunc& func, void* parameter) {
  Archive7zReader reader(archivePath);
  if (!reader.open(nullptr)) {
    HB_LOG("LV_LZMAUtil", "could not extract files from 7z archive");
    return false;
  }
  reader.iterateWithHandler([&](const Archive7zReader::ItemPtr& item) {
    ItemRecord r;
    r.name = item->path();
    r.size = item->originalSize();
    r.time = formatTime(item->modificationDate());
    r.crc = item->crc32();
    r.isdir = item->isDirectory();
    if (func) func(parameter, r);
    return true;
  });
  return true;
}

bool LV_LZMAUtil::extract7zArchive(const std::string& archivePath, const std::string& dirName,
                                   const ExtractFunc& func, void* parameter) {
  return extractItems(archivePath, dirName, func, nullptr, true, parameter);
}

bool LV_LZMAUtil::extract7zArchive(const std::string& archivePath, const std::string& dirName,
                                   const ExtractFunc& func, const std::string& itemPath,
                                   bool fullpath, void* parameter) {
  return extractItems(archivePath, dirName, func, &itemPath, fullpath, parameter);
}

}  // namespace harbor

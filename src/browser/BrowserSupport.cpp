#include "browser/BrowserSupport.h"

#include <magic.h>

#include <mutex>

#include "filemanager/CommonUtil.h"
#include "platform/Log.h"
#include "platform/UserDefaults.h"

namespace harbor {

void TransferClipboard::saveCopySystemPath(const std::optional<std::vector<std::string>>& paths,
                                           bool isCopy) {
  UserDefaults& defaults = UserDefaults::standard();
  if (!paths) {
    defaults.removeObjectForKey(kKey);
    return;
  }
  PlistValue::Array files;
  for (const auto& path : *paths) files.emplace_back(path);
  PlistValue::Map entry;
  entry["files"] = PlistValue(std::move(files));
  entry["iscopy"] = PlistValue(isCopy);
  defaults.setObject(kKey, PlistValue(std::move(entry)));
}

std::optional<std::vector<std::string>> TransferClipboard::getCopySystemPath(bool& isCopy) {
  isCopy = false;
  auto value = UserDefaults::standard().objectForKey(kKey);
  if (!value) return std::nullopt;
  const PlistValue::Map* entry = value->asMap();
  if (!entry) return std::nullopt;
  auto files = entry->find("files");
  if (files == entry->end() || !files->second.asArray()) return std::nullopt;
  std::vector<std::string> paths;
  for (const auto& item : *files->second.asArray()) {
    if (const std::string* path = item.asString()) paths.push_back(*path);
  }
  auto flag = entry->find("iscopy");
  if (flag != entry->end()) isCopy = flag->second.asBool().value_or(false);
  return paths;
}

namespace {
std::mutex pasteboardMutex;
std::shared_ptr<IPasteboard> sharedPasteboard;
}  // namespace

std::shared_ptr<IPasteboard> IPasteboard::shared() {
  std::lock_guard lock(pasteboardMutex);
  if (!sharedPasteboard) sharedPasteboard = std::make_shared<MemoryPasteboard>();
  return sharedPasteboard;
}

void IPasteboard::setShared(std::shared_ptr<IPasteboard> pasteboard) {
  std::lock_guard lock(pasteboardMutex);
  sharedPasteboard = std::move(pasteboard);
}

std::string MimeTypes::getEmailMimeType(const std::string& path) {
  std::string type = CommonUtil::getEmailMimeType(path);
  if (type != "application/octet-stream") return type;
  std::string content = contentMimeType(path);
  return content.empty() ? type : content;
}

std::string MimeTypes::contentMimeType(const std::string& path) {
  // One magic cookie per thread: loading the database is the slow part, and
  // a cookie must not be shared between threads.
  thread_local std::unique_ptr<magic_set, void (*)(magic_t)> cookie{nullptr, magic_close};
  if (!cookie) {
    magic_t made = magic_open(MAGIC_MIME_TYPE | MAGIC_SYMLINK | MAGIC_ERROR);
    if (!made) return {};
    if (magic_load(made, nullptr) != 0) {
      HB_LOG("MimeTypes", std::string("cannot load the magic database: ") + magic_error(made));
      magic_close(made);
      return {};
    }
    cookie.reset(made);
  }
  const char* type = magic_file(cookie.get(), path.c_str());
  return type ? std::string(type) : std::string();
}

}  // namespace harbor

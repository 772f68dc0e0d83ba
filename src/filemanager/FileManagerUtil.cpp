#include "filemanager/FileManagerUtil.h"

#include <filesystem>
#include <system_error>

#include "filemanager/FileUtil.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace fs = std::filesystem;

void FileManagerUtil::checkPasswordFileIsExists() {
  UserDefaults& defaults = UserDefaults::standard();
  auto passwords = defaults.dictionaryForKey(kFilePasswordKey);
  if (!passwords) return;
  const fs::path root = FileUtil::documentDirectory();
  std::size_t removed = std::erase_if(*passwords, [&](const auto& entry) {
    std::string rel = entry.first;
    rel.erase(0, rel.find_first_not_of('/'));
    // The root's own entry guards the whole browser; the root never vanishes.
    if (rel.empty()) return false;
    std::error_code ec;
    return !fs::exists(fs::symlink_status(root / rel, ec));
  });
  if (passwords->empty()) {
    defaults.removeObjectForKey(kFilePasswordKey);
  } else if (removed != 0) {
    defaults.setObject(kFilePasswordKey, std::move(*passwords));
  } else {
    return;
  }
  defaults.synchronize();
}

}  // namespace harbor

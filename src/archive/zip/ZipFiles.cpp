#include "archive/zip/UZipFileArchive.h"
#include "platform/Cancellation.h"

namespace harbor {

bool UZipFileArchive::zipFiles(const std::vector<std::string>& files, IActionProgress* delegate,
                               const std::string& desPath, const std::string& relative_const) {
  UZipFileArchive archive(desPath, delegate, ZipPropertyOptions{});
  if (!archive.isOpen()) return false;
  archive.setRelative_const(relative_const);
  for (const auto& file : files) {
    if (isCurrentThreadCancelled()) break;
    archive.zip(file);
  }
  bool ok = archive.close();
  return ok && !isCurrentThreadCancelled();
}

}  // namespace harbor

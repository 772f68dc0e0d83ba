#pragma once

#include <optional>
#include <string>

#include "platform/Error.h"

namespace harbor {

// Backups of the editor's texts in "Text files bak" under the document root:
// every save and every opening leaves a copy there, so no text is lost to a
// failed write or a discarded change.
class EditorBak {
 public:
  EditorBak() = delete;

  static constexpr const char* kFolderName = "Text files bak";

  // The backup folder, made on demand unless `create` is false.
  static std::string bakDirectory();
  static std::string bakDirectory(bool create);
  static bool isInBakDirectory(const std::string& path);

  // UTF-8 through a temporary file beside the target and a rename. Answers
  // whether the write succeeded; the reason goes to `error`.
  static bool saveDataToPath(const std::string& path, const std::u16string& str,
                             Error* error = nullptr);
  // Each answers the path written, nothing when auto backup is off or the
  // write failed.
  static std::optional<std::string> backupToFileName(const std::string& fileName,
                                                     const std::u16string& str);
  static std::optional<std::string> backupFilePath(const std::string& path);

  static bool getSystemEditorAutoBak();
  static void saveSystemEditorAutoBak(bool on);
};

}  // namespace harbor

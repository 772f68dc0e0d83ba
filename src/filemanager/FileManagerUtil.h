#pragma once

#include <string_view>

namespace harbor {

// Bookkeeping that follows a file through operations: per-path passwords.
class FileManagerUtil {
 public:
  FileManagerUtil() = delete;

  // Per-path passwords: a map from a path relative to the document root to
  // the encoded password.
  static constexpr std::string_view kFilePasswordKey = "SYSTEM_FILE_PASSWORD";

  // Drops the password entries of items that have vanished, keeping the
  // document root's own entry; removes the key when nothing is left.
  static void checkPasswordFileIsExists();
};

}  // namespace harbor

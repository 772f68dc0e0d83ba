#pragma once

#include <string>

namespace harbor {

// Working folders under the application's temporary folder. Each accessor
// makes its folder when missing.
class TempDirectoryUtil {
 public:
  TempDirectoryUtil() = delete;

  // Where archive work happens.
  static std::string archiveDirectory();
  static std::string archiveDirectory(const std::string& name);  // a folder inside it
  static bool deleteArchiveDirectory();

  // Where uploads to the web file manager land until they are complete.
  static std::string httpServerDirectory();
  static bool deleteHttpServerDirectory();

  // Empties the temporary folder, keeping the folder itself. Left-overs of an
  // earlier run are cleared this way at launch.
  static void deleteTemp();
};

}  // namespace harbor

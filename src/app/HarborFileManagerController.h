#pragma once

#include <memory>
#include <string>

#include "browser/FileManagerController.h"

namespace harbor {

// The application's root browser. At launch it clears the clipboard, so
// paths copied in an earlier run are not pasted by surprise; at the root its
// sheets offer the preferences; its sheet without a selection opens the
// cloud drive.
class HarborFileManagerController : public FileManagerController {
 public:
  explicit HarborFileManagerController(std::string folderPath = {});
  std::string className() const override { return "HarborFileManagerController"; }

  // The root of the window's navigation, made at launch.
  static std::shared_ptr<HarborFileManagerController> createRoot();
  void finishLauchingNotification();

  std::shared_ptr<FileManagerBaseController> createFileManager(const std::string& path) override;
  // The application shows web archives itself.
  bool isSupportViewMht() const override { return true; }
  bool isAlertPreferences(bool withSelection) const override;
  bool handleSheetEntry(const std::string& entry) override;

  bool isSupportICloudDrive() const override { return true; }
  bool hasICloudDriveClass() const override { return true; }
  // Opens the drive's screen, or says the drive is unavailable.
  void loadICloudDrive(bool forImport) override;
  // A file picked on the drive: downloaded on the worker, then opened alone
  // or, for an import, put in this folder under a free name. `depth` drive
  // screens are closed first.
  void cloudFilePicked(const std::string& cloudPath, bool forImport, int depth);
};

}  // namespace harbor

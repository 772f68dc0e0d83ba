#pragma once

#include <memory>
#include <string>

#include "browser/FileManagerController.h"

namespace harbor {

// The application's root browser. At launch it clears the clipboard, so
// paths copied in an earlier run are not pasted by surprise; at the root its
// sheets offer the preferences.
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
};

}  // namespace harbor

#include "app/HarborFileManagerController.h"

#include "app/SystemSettingsController.h"
#include "browser/BrowserSupport.h"

namespace harbor {

HarborFileManagerController::HarborFileManagerController(std::string folderPath)
    : FileManagerController(std::move(folderPath)) {}

std::shared_ptr<HarborFileManagerController> HarborFileManagerController::createRoot() {
  auto root = std::make_shared<HarborFileManagerController>();
  root->finishLauchingNotification();
  return root;
}

void HarborFileManagerController::finishLauchingNotification() {
  TransferClipboard::saveCopySystemPath(std::nullopt, false);
}

std::shared_ptr<FileManagerBaseController> HarborFileManagerController::createFileManager(
    const std::string& path) {
  auto next = std::make_shared<HarborFileManagerController>(path);
  next->setPort(_port);
  return next;
}

bool HarborFileManagerController::isAlertPreferences(bool withSelection) const {
  (void)withSelection;
  return isRoot();
}

bool HarborFileManagerController::handleSheetEntry(const std::string& entry) {
  if (entry != "Preferences") return false;
  port().push(std::make_shared<SystemSettingsController>());
  return true;
}

}  // namespace harbor

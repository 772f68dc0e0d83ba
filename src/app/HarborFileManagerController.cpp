#include "app/HarborFileManagerController.h"

#include <thread>

#include "app/CommonApplication.h"
#include "app/ICloudDriveController.h"
#include "app/SystemSettingsController.h"
#include "browser/BrowserSupport.h"
#include "cloud/DocumentBrowserQuery.h"
#include "cloud/ICloudBase.h"
#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "platform/Cancellation.h"
#include "platform/FileWrite.h"
#include "platform/MainQueue.h"
#include "platform/Strings.h"

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

void HarborFileManagerController::loadICloudDrive(bool forImport) {
  if (!CommonApplication::isCloudSupportAvailable()) {
    alertMsg("unavailable", localizedString("Cloud Drive") + " " + localizedString("unavailable"));
    return;
  }
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  auto screen = std::make_shared<ICloudDriveController>(
      std::string(), forImport, [weak, forImport](const std::string& cloudPath, int depth) {
        if (auto self = std::static_pointer_cast<HarborFileManagerController>(weak.lock()))
          self->cloudFilePicked(cloudPath, forImport, depth);
      });
  screen->setPort(portPointer());
  port().push(screen);
  screen->viewDidLoad();
}

void HarborFileManagerController::cloudFilePicked(const std::string& cloudPath, bool forImport,
                                                  int depth) {
  for (int i = 0; i < depth; ++i) port().pop();
  // Taken here: the worker reads nothing of the screen's own state.
  const std::string folder = fullFolderPath();
  startAction([cloudPath, forImport, folder](FileManagerController& base) {
    auto& self = static_cast<HarborFileManagerController&>(base);
    const std::string name = FileUtil::getFileName(cloudPath);
    self.updateTitle(localizedString("Downloading") + " " + name);
    self.setTotalSizeWithNum(ICloudDriveUtil::getICloudFileSize(cloudPath));
    // Nothing shows in the folder until the download is whole.
    const std::string work = FileManagerController::makeHiddenWorkFolder(
        forImport ? folder : TempDirectoryUtil::archiveDirectory());
    const std::string downloaded = work + "/" + name;
    auto download = ICloudDownload::instanceWithPath(cloudPath, downloaded, &self);
    download->setUseMainThread(false);
    download->start();
    // The drive may take its time: the worker's cancel ends the wait.
    while (download->isContinuingWaiting()) {
      if (isCurrentThreadCancelled()) {
        download->stop(localizedString("UserCancelAction"));
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const bool cancelled = isCurrentThreadCancelled();
    std::string made;
    if (!cancelled && !download->isSuccess()) {
      self.alertMsg("Failure", download->errorMessage());
    } else if (!cancelled && forImport) {
      const std::string target = FileUtil::getCreateFileName(
          folder, FileUtil::getFileNameNoExtension(name), FileUtil::getFileExtension(name));
      if (auto error = moveNoReplace(downloaded, target)) {
        self.alertMsg("Failure", error->message);
      } else {
        made = target;
      }
    } else if (!cancelled) {
      made = downloaded;
    }
    download.reset();
    if (forImport || made.empty()) FileUtil::deleteFile(work);
    MainQueue::shared().postAndWait([&self, forImport, made] {
      self.port().setBusy(false);
      if (made.empty()) return self.reloadData();
      if (!forImport) {
        // Opened alone, as a file that is not part of this listing.
        self.loadFilePathFromServer(made);
        return;
      }
      self.scrollToValue = made;
      self.addToSearchResultOrReload({made}, {});
    });
  });
}

}  // namespace harbor

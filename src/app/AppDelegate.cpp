#include "app/AppDelegate.h"

#include <filesystem>

#include "app/GlobalConfig.h"
#include "app/HarborFileManagerController.h"
#include "app/LockServices.h"
#include "browser/FileManagerController.h"
#include "cloud/CloudProvider.h"
#include "editor/EditorBaseController.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "platform/OperationQueue.h"

namespace harbor {

bool AppDelegate::didFinishLaunchingWithOptions(const LaunchOptions& options) {
  GlobalConfig::initConfig<AppGlobalConfig>(this);
  installMissingLockServices(*this);
  CommonApplication::didFinishLaunchingWithOptions(options);
  initAction();
  warnUnreadablePasswords();
  window()->makeKeyAndVisible();
  return true;
}

void AppDelegate::initAction() {
  startClearTemp();
  // The editor sits below the application: what it needs of the frame comes
  // through hooks set here.
  EditorHooks::isQuillpad = [this] { return isQuillpad(); };
  EditorHooks::browserFolder = [this] {
    auto explorer = getFileExplorer();
    const std::string root = FileUtil::documentDirectory();
    if (!explorer) return root;
    std::string rel = explorer->fullRelativePath();
    rel.erase(0, rel.find_first_not_of('/'));
    return rel.empty() ? root : (std::filesystem::path(root) / rel).string();
  };
  FileManagerUtil::checkPasswordFileIsExists();
  // The cloud drive is the sync folder from the environment, usable while it
  // is there and writable.
  if (!CloudProvider::shared())
    CloudProvider::setShared(LocalSyncFolderProvider::fromEnvironment(""));
  if (!ApplicationServices::shared().cloudIdentityAvailable) {
    ApplicationServices::shared().cloudIdentityAvailable = [] {
      auto provider = CloudProvider::shared();
      return provider && provider->isAvailable();
    };
  }
  std::shared_ptr<ViewController> browser;
  if (auto& make = ApplicationServices::shared().fileManagerController) {
    browser = make();
  } else {
    auto root = HarborFileManagerController::createRoot();
    root->viewDidLoad();
    browser = root;
  }
  fileManagerNavController = std::make_shared<NavigationController>(browser);
  _rootViewController = fileManagerNavController;
  setWindowDidFinishLaunchingRootViewController();
}

void AppDelegate::startClearTemp() {
  clearTempDone_ = std::make_shared<std::promise<void>>();
  clearTempFuture_ = clearTempDone_->get_future().share();
  // The hook is taken here, on the main thread, not read from the worker.
  CancellableThread::startDetached(
      [done = clearTempDone_, more = ApplicationServices::shared().afterClearTemp] {
        TempDirectoryUtil::deleteTemp();
        if (more) more();
        done->set_value();
      });
}

bool AppDelegate::waitForClearTemp(std::chrono::milliseconds timeout) {
  return clearTempFuture_.valid() &&
         clearTempFuture_.wait_for(timeout) == std::future_status::ready;
}

void AppDelegate::applicationDidEnterBackground() {
  CommonApplication::applicationDidEnterBackground();
  if (fileManagerNavController) {
    for (const auto& screen : fileManagerNavController->viewControllers) {
      if (auto browser = std::dynamic_pointer_cast<FileManagerController>(screen))
        browser->enterBackground();
    }
  }
  // `_viewController` is never set, so nothing is ever reported running here.
  if (!_viewController) CommonUtil::checkBookMark();
}

}  // namespace harbor

#include "app/CommonApplication.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "app/GlobalConfig.h"
#include "app/LocalLoginController.h"
#include "browser/FileManagerBaseController.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/OperationQueue.h"
#include "platform/Strings.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/FileShareUtil.h"
#include "prefs/SystemUtils.h"
#include "prefs/TouchIDUtils.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

CommonApplication* sharedApp = nullptr;

// "file:///a%20b" -> "/a b"; a plain absolute path is taken as it is.
std::optional<std::string> filePathOfURL(const std::string& url) {
  if (url.empty()) return std::nullopt;
  if (url.front() == '/') return url;
  static constexpr std::string_view scheme = "file://";
  if (url.compare(0, scheme.size(), scheme) != 0) return std::nullopt;
  std::string rest = url.substr(scheme.size());
  // "file://localhost/x" names the same file as "file:///x".
  if (rest.compare(0, 9, "localhost") == 0) rest.erase(0, 9);
  if (rest.empty() || rest.front() != '/') return std::nullopt;
  std::string out;
  out.reserve(rest.size());
  for (size_t i = 0; i < rest.size(); ++i) {
    auto hex = [](char c) -> int {
      if (c >= '0' && c <= '9') return c - '0';
      if (c >= 'a' && c <= 'f') return c - 'a' + 10;
      if (c >= 'A' && c <= 'F') return c - 'A' + 10;
      return -1;
    };
    if (rest[i] == '%' && i + 2 < rest.size() && hex(rest[i + 1]) >= 0 && hex(rest[i + 2]) >= 0) {
      out += static_cast<char>(hex(rest[i + 1]) * 16 + hex(rest[i + 2]));
      i += 2;
    } else {
      out += rest[i];
    }
  }
  return out;
}

}  // namespace

void ImageCache::setObject(const std::string& key, std::shared_ptr<const void> image) {
  std::lock_guard lock(mutex_);
  images_[key] = std::move(image);
}

std::shared_ptr<const void> ImageCache::objectForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = images_.find(key);
  return it == images_.end() ? nullptr : it->second;
}

void ImageCache::removeAllObjects() {
  std::lock_guard lock(mutex_);
  images_.clear();
}

std::size_t ImageCache::count() const {
  std::lock_guard lock(mutex_);
  return images_.size();
}

CommonApplication::CommonApplication() {
  sharedApp = this;
}

CommonApplication::~CommonApplication() {
  // The lock screen outlives any one application object; it must not call a gone one.
  if (auto login = LocalLoginController::singleInstance(); login->delegate == this) {
    login->delegate = nullptr;
  }
  if (reachabilityToken_) NotificationCenter::defaultCenter().removeObserver(reachabilityToken_);
  if (sharedApp == this) sharedApp = nullptr;
}

CommonApplication* CommonApplication::sharedAppDelegate() {
  return sharedApp;
}

OperationQueue& CommonApplication::backgroundQueue() {
  static OperationQueue queue(4, "CommonApplication.backgroundQueue");
  return queue;
}

ImageCache& CommonApplication::processedImageCache() {
  static ImageCache cache;
  return cache;
}

bool CommonApplication::didFinishLaunchingWithOptions(const LaunchOptions& options) {
  loadWifiInfo();
  SystemUtils::systemLogin();
  createWindow();
  reachabilityToken_ = NotificationCenter::defaultCenter().addObserver(
      notifications::kNetworkReachabilityChangedNotification,
      [this](const NotificationCenter::Notification&) { networkStateChange(); });
  detectNetwork();
  initHttpServer();
  // The window has no root yet: when a lock applies, the lock screen becomes it.
  isSecurity(true);
  getShortCutItem(options);
  if (isSupportFashCache()) initFastCache();
  return true;
}

void CommonApplication::loadWifiInfo() {
  if (isLoadNetWorkWatcher()) networkStateChange();
}

void CommonApplication::createWindow() {
  window_ = std::make_unique<MyWindow>();
}

void CommonApplication::detectNetwork() {
  // Only there to have the system ask for network permission early; the
  // reply is ignored.
  if (auto& probe = ApplicationServices::shared().detectNetwork) probe();
}

void CommonApplication::initHttpServer() {
  if (!isUseHttpServer()) return;
  auto& make = ApplicationServices::shared().makeShareServer;
  if (!make) return;
  httpServer_ = make();
  if (httpServer_ && FileShareUtil::isAutomaticallyOpenShare()) {
    if (!httpServer_->startHttpServer()) HB_LOG("CommonApplication", "the share did not start");
  }
  if (GlobalConfig* config = GlobalConfig::instance()) config->setHttpServer(httpServer_);
}

void CommonApplication::initFastCache() {
  imageFormats_ = {{"SquareImage32BitBGRA", "FICDPhotoImageFormatFamily", 400},
                   {"PixelImage", "FICDPhotoImageFormatFamily", 1000}};
}

void CommonApplication::networkStateChange() {
  auto& status = ApplicationServices::shared().reachabilityStatus;
  _networkState = (status && status() == 1) ? 1 : 0;
}

void CommonApplication::applicationDidEnterBackground() {
  // The task switcher must never show a document: lock before leaving.
  isSecurity();
}

void CommonApplication::applicationWillEnterForeground() {
  isSecurity(true);
}

void CommonApplication::applicationDidReceiveMemoryWarning() {
  processedImageCache().removeAllObjects();
}

bool CommonApplication::openURL(const std::string& url, const std::string&, const std::any&) {
  if (auto path = filePathOfURL(url)) handleOpenURL(*path);
  return true;
}

void CommonApplication::handleOpenURL(const std::string& path) {
  // What the system put in Inbox is what arrived; move all of it. An empty
  // Inbox means the item is only at the URL.
  std::vector<std::string> entries;
  CommonUtil::filesInCurrentFolder(FileUtil::documentDirectory() + "/Inbox", entries, true, {});
  if (!entries.empty()) {
    FileManagerBaseController::moveInboxToImported();
  } else {
    FileUtil::createFolder(FileUtil::documentDirectory() + "/Imported");
    copyImportFile(path);
  }
  NotificationCenter::defaultCenter().post(notifications::HBFileDirectoryChangeToParentNotification,
                                           std::string());
}

void CommonApplication::copyImportFile(const std::string& path) {
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(path, ec))) {
    HB_LOG("CommonApplication", "nothing to import at " + path);
    return;
  }
  const std::string imported = FileUtil::documentDirectory() + "/Imported";
  FileUtil::createFolder(imported);
  // The folder rule, whatever the item is.
  const std::string target = FileUtil::getCreateFolderName(imported, FileUtil::getFileName(path));
  if (!FileUtil::copyItem(path, target, nullptr)) {
    HB_LOG("CommonApplication", "cannot copy " + path + " to " + target);
  }
}

void CommonApplication::setWindowRootViewControllerOnMainThread(
    std::shared_ptr<ViewController> root) {
  MainQueue& main = MainQueue::shared();
  if (!main.isMainThread()) {
    main.postAndWait([this, root] { setWindowRootViewControllerOnMainThread(root); });
    return;
  }
  if (!window_) createWindow();
  const bool changed = window_->rootViewController != root;
  window_->rootViewController = root;
  if (changed) {
    if (auto& told = ApplicationServices::shared().rootChanged) told(root);
    ScreenPort::shared()->rootChanged(root);
  }
  // A quick action waits until the normal root shows, never behind the lock.
  if (root && root == _rootViewController) handerShortCutItem();
}

void CommonApplication::restoreWindowRootViewController() {
  setWindowRootViewControllerOnMainThread(_rootViewController);
}

void CommonApplication::setWindowDidFinishLaunchingRootViewController() {
  if (window_ && window_->rootViewController) return;  // the lock screen stays
  setWindowRootViewControllerOnMainThread(_rootViewController);
}

std::shared_ptr<ViewController> CommonApplication::loginController() {
  if (!loginController_) {
    if (auto& make = ApplicationServices::shared().loginController) loginController_ = make();
  }
  return loginController_;
}

bool CommonApplication::isSecurity() {
  return isSecurity(false);
}

bool CommonApplication::isSecurity(bool useBiometric) {
  if (isSupportLoginSecurity() && checkPassword()) {
    auto login = loginController();
    if (!login) {
      HB_LOG("CommonApplication", "a lock applies but no lock screen is available");
      return true;
    }
    if (!window_) createWindow();
    if (window_->rootViewController != login) setWindowRootViewControllerOnMainThread(login);
    if (useBiometric && isUseTouchIDAuthentication()) {
      // The reply may come on another thread.
      TouchIDUtils::authentionTouchID([this](bool ok, long code) {
        if (ok) {
          restoreWindowRootViewController();
        } else if (code != IBiometrics::kUserCancel) {
          auto show = [] {
            if (auto& alert = ApplicationServices::shared().alertMsg) {
              alert(localizedString("Failure"));
            }
          };
          if (MainQueue::shared().isMainThread()) {
            show();
          } else {
            MainQueue::shared().post(show);
          }
        }
      });
    }
    return true;
  }
  if (_rootViewController && window_ && window_->rootViewController != _rootViewController) {
    restoreWindowRootViewController();
  }
  return false;
}

bool CommonApplication::checkPassword() {
  auto store = ApplicationServices::shared().passwords;
  if (!store) return false;
  if (!store->getLocalPassword().empty()) {
    if (!store->getAutoLogin()) return true;
  }
  // A locked folder on screen locks the program even with auto login on.
  return !getFileExplorePassword().empty();
}

bool CommonApplication::isUseTouchIDAuthentication() {
  return TouchIDUtils::isSupportTouchID() && TouchIDSettings::isTouchIDAuthentication();
}

void CommonApplication::getShortCutItem(const LaunchOptions& options) {
  if (options.shortcutItem) _currentShortcutItem = options.shortcutItem;
}

void CommonApplication::performActionForShortcutItem(
    const ShortcutItem& item, const std::function<void(bool)>& completionHandler) {
  _currentShortcutItem = item;
  if (completionHandler) completionHandler(true);
  if (window_ && _rootViewController && window_->rootViewController == _rootViewController) {
    handerShortCutItem();
  }
}

void CommonApplication::handerShortCutItem() {
  if (_currentShortcutItem && _currentShortcutItem->type == "WIFISHARE") shortcutWiFiShareAction();
}

void CommonApplication::shortcutWiFiShareAction() {
  _currentShortcutItem.reset();
}

void CommonApplication::handleEventsForBackgroundURLSession(std::function<void()> handler) {
  _backgroundSessionCompletionHandler = std::move(handler);
}

void CommonApplication::networkRequestStarted() {
  std::lock_guard lock(requestsMutex_);
  ++outstandingRequests_;
}

void CommonApplication::networkRequestStopped() {
  std::lock_guard lock(requestsMutex_);
  if (outstandingRequests_ > 0) --outstandingRequests_;
}

std::int64_t CommonApplication::outstandingRequests() const {
  std::lock_guard lock(requestsMutex_);
  return outstandingRequests_;
}

bool CommonApplication::isNetworkActivityIndicatorVisible() const {
  return outstandingRequests() > 0;
}

std::shared_ptr<IFileExplorer> CommonApplication::getFileExplorer() {
  auto nav = getFileNavigationController();
  if (!nav) return nullptr;
  for (auto it = nav->viewControllers.rbegin(); it != nav->viewControllers.rend(); ++it) {
    if (auto explorer = std::dynamic_pointer_cast<IFileExplorer>(*it)) return explorer;
  }
  return nullptr;
}

std::optional<std::string> CommonApplication::getFileExplorePwdPath() {
  auto explorer = getFileExplorer();
  auto store = ApplicationServices::shared().passwords;
  if (!explorer || !store) return std::nullopt;
  return store->isExistsPasswordInPathComponents(explorer->fullRelativePath());
}

std::string CommonApplication::getFileExplorePassword() {
  auto path = getFileExplorePwdPath();
  auto store = ApplicationServices::shared().passwords;
  if (!path || !store) return {};
  return store->getFilePassword(FileUtil::documentDirectory() + *path);
}

bool CommonApplication::isCloudAvailable() const {
  return isCloudSupportAvailable();
}

bool CommonApplication::isCloudSupportAvailable() {
  auto& identity = ApplicationServices::shared().cloudIdentityAvailable;
  return identity && identity();
}

void CommonApplication::saveStateWhenTerminate() {
  std::error_code ec;
  fs::remove_all(Directories::temporaryDirectory(), ec);
}

void CommonApplication::exitCurrentApplication() {
  saveStateWhenTerminate();
  std::exit(0);
}

int CommonApplication::supportedInterfaceOrientations() const {
  if (AppUserDefaultUtils::getLockOrientation()) {
    return AppUserDefaultUtils::getLockOrientationInterface();
  }
  return 30;  // all four orientations
}

}  // namespace harbor

#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "app/ApplicationServices.h"
#include "app/ILocalLogin.h"
#include "platform/NotificationCenter.h"
#include "platform/ScreenPort.h"

namespace harbor {

class MyWindow {
 public:
  std::shared_ptr<ViewController> rootViewController;
  bool isKeyAndVisible = false;
  void makeKeyAndVisible() { isKeyAndVisible = true; }
};

class OperationQueue;

struct ShortcutItem {
  std::string type;
};

struct LaunchOptions {
  std::optional<ShortcutItem> shortcutItem;
};

// An in-memory cache of processed images, emptied on every memory warning.
class ImageCache {
 public:
  void setObject(const std::string& key, std::shared_ptr<const void> image);
  std::shared_ptr<const void> objectForKey(const std::string& key) const;
  void removeAllObjects();
  std::size_t count() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<const void>> images_;
};

// One image format registered with the shared image cache at launch.
struct ImageFormat {
  std::string name;
  std::string family;
  int maximumCount;
};

// The application object: launch, lifecycle, incoming files and the lock
// decisions. One per process, reached through sharedAppDelegate().
class CommonApplication : public ILocalLogin {
 public:
  CommonApplication();
  ~CommonApplication() override;
  CommonApplication(const CommonApplication&) = delete;
  CommonApplication& operator=(const CommonApplication&) = delete;

  static CommonApplication* sharedAppDelegate();

  // Capabilities; the product's application object overrides some.
  virtual bool isSupportLoginSecurity() const { return false; }
  virtual bool isQuillpad() const { return false; }
  virtual bool isUseHttpServer() const { return true; }
  virtual bool isSupportFashCache() const { return true; }
  virtual bool isLoadNetWorkWatcher() const { return false; }
  virtual bool isExtractAllSupportedArchive() const { return false; }
  virtual bool isSupportViewMht() const { return false; }
  virtual bool isSplitScreen() const { return false; }
  virtual bool isSupportStartFullScreen() const { return false; }
  virtual bool isCustomViewBackground() const { return false; }
  virtual int defaultShowItemsType() const { return 0; }
  virtual int httpServerPort() const { return 41491; }

  // Platform calls.
  virtual bool willFinishLaunchingWithOptions(const LaunchOptions&) { return true; }
  virtual bool didFinishLaunchingWithOptions(const LaunchOptions& options);
  virtual void applicationWillResignActive() {}
  virtual void applicationDidBecomeActive() {}
  virtual void applicationWillTerminate() {}
  virtual void applicationDidEnterBackground();
  virtual void applicationWillEnterForeground();
  void applicationDidReceiveMemoryWarning();
  // Always yes; acts on a non-empty file URL (or plain absolute path) only.
  bool openURL(const std::string& url, const std::string& sourceApplication = {},
               const std::any& annotation = {});
  void performActionForShortcutItem(const ShortcutItem& item,
                                    const std::function<void(bool)>& completionHandler);
  void handleEventsForBackgroundURLSession(std::function<void()> completionHandler);

  // Incoming files.
  void handleOpenURL(const std::string& path);
  void copyImportFile(const std::string& path);

  // Window root.
  void setWindowRootViewControllerOnMainThread(std::shared_ptr<ViewController> root);
  void restoreWindowRootViewController() override;
  void setWindowDidFinishLaunchingRootViewController();

  // Lock.
  bool isSecurity();
  bool isSecurity(bool useBiometric);
  bool checkPassword();
  bool isUseTouchIDAuthentication() override;

  // Quick actions.
  void getShortCutItem(const LaunchOptions& options);
  void handerShortCutItem();
  void shortcutWiFiShareAction();
  const std::optional<ShortcutItem>& currentShortcutItem() const { return _currentShortcutItem; }

  // Network activity.
  void networkRequestStarted();
  void networkRequestStopped();
  std::int64_t outstandingRequests() const;
  bool isNetworkActivityIndicatorVisible() const;
  void networkStateChange();
  int networkState() const { return _networkState; }

  static OperationQueue& backgroundQueue();
  static ImageCache& processedImageCache();
  const std::vector<ImageFormat>& imageFormats() const { return imageFormats_; }

  // The file browser on screen and its lock.
  virtual std::shared_ptr<NavigationController> getFileNavigationController() { return nullptr; }
  std::shared_ptr<IFileExplorer> getFileExplorer();
  std::optional<std::string> getFileExplorePwdPath() override;
  std::string getFileExplorePassword();

  bool isCloudAvailable() const;
  static bool isCloudSupportAvailable();

  // Removes the temporary folder and ends the process with status 0.
  [[noreturn]] void exitCurrentApplication();
  void saveStateWhenTerminate();

  int supportedInterfaceOrientations() const;
  bool shouldAutorotate() const { return true; }

  MyWindow* window() { return window_.get(); }
  std::shared_ptr<IShareServer> httpServer() const { return httpServer_; }
  std::shared_ptr<ViewController> rootViewController() const { return _rootViewController; }
  void setRootViewController(std::shared_ptr<ViewController> root) {
    _rootViewController = std::move(root);
  }
  bool isLoadInterstitial = false;

 protected:
  // Steps of the base launch, in order.
  void loadWifiInfo();
  void createWindow();
  void detectNetwork();
  void initHttpServer();
  void initFastCache();
  // The lock screen, made once.
  std::shared_ptr<ViewController> loginController();

  std::shared_ptr<ViewController> _rootViewController;
  std::shared_ptr<NavigationController> _navController;
  std::optional<ShortcutItem> _currentShortcutItem;
  int _networkState = 0;
  double _brightNess = 1.0;

 private:
  std::unique_ptr<MyWindow> window_;
  std::shared_ptr<IShareServer> httpServer_;
  std::shared_ptr<ViewController> loginController_;
  std::vector<ImageFormat> imageFormats_;
  std::function<void()> _backgroundSessionCompletionHandler;
  NotificationCenter::Token reachabilityToken_ = 0;
  mutable std::mutex requestsMutex_;
  std::int64_t outstandingRequests_ = 0;
};

}  // namespace harbor

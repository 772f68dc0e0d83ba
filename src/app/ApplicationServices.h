#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/ScreenPort.h"
#include "prefs/TouchIDUtils.h"

namespace harbor {

// The lock's password storage, as the frame's lock decisions read it.
class IPasswordStore {
 public:
  virtual ~IPasswordStore() = default;
  virtual std::string getLocalPassword() = 0;  // "" when none
  virtual bool getAutoLogin() = 0;
  // Decoded password of a full path, "" when none.
  virtual std::string getFilePassword(const std::string& fullPath) = 0;
  // The locked folder on the way from a relative path up to the root, if any.
  virtual std::optional<std::string> isExistsPasswordInPathComponents(
      const std::string& relativePath) = 0;
};

// The Wi-Fi share server, as the frame starts and stops it.
class IShareServer {
 public:
  virtual ~IShareServer() = default;
  virtual bool startHttpServer() = 0;
  virtual void stopHttpServer() = 0;
  virtual bool isRunning() const = 0;
};

// Services the application frame reaches through hooks, filled in by the
// subsystems that provide them. Until one is provided its step does nothing.
struct ApplicationServices {
  std::shared_ptr<IPasswordStore> passwords;
  std::function<std::shared_ptr<IShareServer>()> makeShareServer;
  // The lock screen and the root file browser screens.
  std::function<std::shared_ptr<ViewController>()> loginController;
  std::function<std::shared_ptr<ViewController>()> fileManagerController;
  // The sharing screen and the cloud drive screen it opens.
  std::function<std::shared_ptr<ViewController>()> fileShareController;
  std::function<std::shared_ptr<ViewController>()> iCloudDriveController;
  // Shows a localised message on the top screen.
  std::function<void(const std::string&)> alertMsg;
  // Told on the main thread whenever the window's root changes (the lock
  // screen comes or goes), so the screens follow.
  std::function<void(const std::shared_ptr<ViewController>&)> rootChanged;
  // The connectivity probe; its reply is ignored.
  std::function<void()> detectNetwork;
  // Work that joins the launch's temporary-files clean-up.
  std::function<void()> afterClearTemp;
  // Network state: the reachability status (1 for reachable by Wi-Fi).
  std::function<int()> reachabilityStatus;
  // Whether a cloud identity exists.
  std::function<bool()> cloudIdentityAvailable;

  static ApplicationServices& shared();
};

}  // namespace harbor

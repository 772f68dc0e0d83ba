#pragma once

#include <optional>
#include <string>

namespace harbor {

// What the lock screen needs from the application object.
class ILocalLogin {
 public:
  virtual ~ILocalLogin() = default;
  // Puts the normal root back in place of the lock screen.
  virtual void restoreWindowRootViewController() = 0;
  // The locked folder the file browser shows, relative to the document root.
  virtual std::optional<std::string> getFileExplorePwdPath() = 0;
  virtual bool isUseTouchIDAuthentication() = 0;
};

}  // namespace harbor

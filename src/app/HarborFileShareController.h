#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/ScreenPort.h"
#include "net/share/FileShareController.h"

namespace harbor {

// The sharing screen of this application: Wi-Fi sharing plus a row that
// opens the cloud drive.
class HarborFileShareController : public FileShareController, public ViewController {
 public:
  using FileShareController::FileShareController;
  std::string className() const override { return "HarborFileShareController"; }

  // The cloud drive row: its screen when the cloud can be reached, else a
  // message saying it cannot.
  void loadICloudDrive();
  // Where a screen opened from here goes (the navigation stack's push).
  std::function<void(std::shared_ptr<ViewController>)> pushViewController;

 protected:
  bool isSupportICloudDrive() override { return true; }
};

}  // namespace harbor

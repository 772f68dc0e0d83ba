#pragma once

#include <chrono>
#include <future>

#include "app/CommonApplication.h"

namespace harbor {

// The product's application object.
class AppDelegate : public CommonApplication {
 public:
  bool isSupportLoginSecurity() const override { return true; }
  bool isQuillpad() const override { return true; }
  bool isExtractAllSupportedArchive() const override { return true; }

  bool didFinishLaunchingWithOptions(const LaunchOptions& options) override;
  void applicationDidEnterBackground() override;

  std::shared_ptr<NavigationController> getFileNavigationController() override {
    return fileManagerNavController;
  }

  // The start-up work after the base launch, in order.
  void initAction();
  void startClearTemp();
  // Resolves when the launch's temporary-files clean-up has run.
  bool waitForClearTemp(std::chrono::milliseconds timeout);

  std::shared_ptr<NavigationController> fileManagerNavController;

 protected:
  // Declared for the browser's "is work running" question and never set, so
  // the bookmark purge on entering the background always runs.
  std::shared_ptr<ViewController> _viewController;

 private:
  std::shared_ptr<std::promise<void>> clearTempDone_;
  std::shared_future<void> clearTempFuture_;
};

}  // namespace harbor

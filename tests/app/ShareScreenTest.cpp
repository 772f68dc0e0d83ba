#include <gtest/gtest.h>

#include "app/AppDelegate.h"
#include "app/GlobalConfig.h"
#include "app/HarborFileShareController.h"
#include "app/ShareAdapter.h"
#include "net/share/WiFiShare.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {

struct Screen : ViewController {
  explicit Screen(std::string n) : name(std::move(n)) {}
  std::string className() const override { return name; }
  std::string name;
};

class ShareScreen : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
    ApplicationServices::shared() = ApplicationServices{};
    ShareHooks::shared() = ShareHooks{};
  }
  void TearDown() override {
    ApplicationServices::shared() = ApplicationServices{};
    ShareHooks::shared() = ShareHooks{};
    GlobalConfig::reset();
    TempHome::TearDown();
  }
};

TEST_F(ShareScreen, TheAdapterGivesTheSharingScreenOfTheApplicationsOwnShare) {
  auto& services = ApplicationServices::shared();
  services.fileManagerController = [] { return std::make_shared<Screen>("Browser"); };
  std::vector<std::string> alerts;
  services.alertMsg = [&](const std::string& m) { alerts.push_back(m); };
  AppDelegate app;
  installShareServices(app);
  ShareHooks::shared().httpServerPort = [] { return std::uint16_t{0}; };
  ASSERT_TRUE(app.didFinishLaunchingWithOptions({}));
  ASSERT_TRUE(GlobalConfig::instance()->httpServer);
  EXPECT_TRUE(GlobalConfig::instance()->httpServer->isRunning());

  auto screen =
      std::dynamic_pointer_cast<HarborFileShareController>(services.fileShareController());
  ASSERT_TRUE(screen);
  ASSERT_EQ(screen->sectionArray().size(), 2u);
  EXPECT_EQ(screen->sectionArray()[1].title, "CloudStorage");
  EXPECT_EQ(screen->sectionArray()[1].rows[0].at("control_event"), "loadICloudDrive:");
  // The address shown is the running share's.
  std::string address = WiFiShareBase::address();
  std::string row = screen->sectionArray()[0].rows[0].at("control_row_text");
  if (!address.empty()) {
    EXPECT_EQ(row.rfind("http://" + address + ":", 0), 0u) << row;
  }

  std::vector<std::shared_ptr<ViewController>> pushed;
  screen->pushViewController = [&](auto vc) { pushed.push_back(vc); };
  services.cloudIdentityAvailable = [] { return false; };
  screen->loadICloudDrive();
  EXPECT_EQ(alerts, std::vector<std::string>{"iCloud Drive unavailable"});
  EXPECT_TRUE(pushed.empty());
  services.cloudIdentityAvailable = [] { return true; };
  services.iCloudDriveController = [] { return std::make_shared<Screen>("ICloudDriveController"); };
  screen->loadICloudDrive();
  ASSERT_EQ(pushed.size(), 1u);
  EXPECT_EQ(pushed[0]->className(), "ICloudDriveController");
  EXPECT_EQ(alerts.size(), 1u);

  // The network state the frame reads comes from the probe.
  ASSERT_TRUE(services.reachabilityStatus);
  EXPECT_EQ(services.reachabilityStatus(), address.empty() ? 0 : 1);
}

}  // namespace
}  // namespace harbor

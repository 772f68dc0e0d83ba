#include "app/ShareAdapter.h"

#include <memory>

#include "app/ApplicationServices.h"
#include "app/CommonApplication.h"
#include "app/GlobalConfig.h"
#include "app/GlobalUtil.h"
#include "app/HarborFileShareController.h"
#include "net/share/Reachability.h"
#include "net/share/WiFiShare.h"

namespace harbor {
namespace {

class WiFiShareServer : public IShareServer {
 public:
  WiFiShareServer() : share_(std::make_shared<WiFiShare>()) { share_->initHttpServer(); }
  bool startHttpServer() override { return share_->startHttpServer(); }
  void stopHttpServer() override { share_->stopHttpServer(); }
  bool isRunning() const override { return share_->isRunning(); }
  const std::shared_ptr<WiFiShare>& share() const { return share_; }

 private:
  std::shared_ptr<WiFiShare> share_;
};

// One probe for the process: the kernel's news reaches every listener.
std::shared_ptr<Reachability> networkProbe() {
  static auto probe = [] {
    auto r = Reachability::reachabilityForInternetConnection();
    r->startNotifier();
    return r;
  }();
  return probe;
}

}  // namespace

void installShareServices(CommonApplication& application) {
  auto& hooks = ShareHooks::shared();
  hooks.unLockScreen = [] { GlobalUtil::unLockScreen(); };
  hooks.lockScreen = [] { GlobalUtil::lockScreen(); };
  hooks.httpServerPort = [&application] {
    return static_cast<std::uint16_t>(application.httpServerPort());
  };
  auto& services = ApplicationServices::shared();
  services.makeShareServer = [] { return std::make_shared<WiFiShareServer>(); };
  services.reachabilityStatus = [] {
    return static_cast<int>(networkProbe()->currentReachabilityStatus());
  };
  (void)networkProbe();
  // The sharing screen drives the application's own share, made at launch.
  services.fileShareController = []() -> std::shared_ptr<ViewController> {
    GlobalConfig* config = GlobalConfig::instance();
    auto server = config ? std::dynamic_pointer_cast<WiFiShareServer>(config->httpServer) : nullptr;
    if (!server) return nullptr;
    auto screen = std::make_shared<HarborFileShareController>(server->share());
    screen->viewDidLoad();
    return screen;
  };
}

}  // namespace harbor

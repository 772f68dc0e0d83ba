#include "app/ShareAdapter.h"

#include <memory>

#include "app/ApplicationServices.h"
#include "app/CommonApplication.h"
#include "app/GlobalUtil.h"
#include "net/share/WiFiShare.h"

namespace harbor {
namespace {

class WiFiShareServer : public IShareServer {
 public:
  WiFiShareServer() { share_.initHttpServer(); }
  bool startHttpServer() override { return share_.startHttpServer(); }
  void stopHttpServer() override { share_.stopHttpServer(); }
  bool isRunning() const override { return share_.isRunning(); }

 private:
  WiFiShare share_;
};

}  // namespace

void installShareServices(CommonApplication& application) {
  auto& hooks = ShareHooks::shared();
  hooks.unLockScreen = [] { GlobalUtil::unLockScreen(); };
  hooks.lockScreen = [] { GlobalUtil::lockScreen(); };
  hooks.httpServerPort = [&application] {
    return static_cast<std::uint16_t>(application.httpServerPort());
  };
  ApplicationServices::shared().makeShareServer = [] {
    return std::make_shared<WiFiShareServer>();
  };
}

}  // namespace harbor

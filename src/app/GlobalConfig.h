#pragma once

#include <memory>

#include "app/ApplicationServices.h"

namespace harbor {

class CommonApplication;

// The global registry: the application object and the share server.
class GlobalConfig {
 public:
  virtual ~GlobalConfig() = default;

  // Makes the registry once, of class T; a later call re-points it at `app`.
  template <class T = GlobalConfig>
  static GlobalConfig& initConfig(CommonApplication* app) {
    if (!slot()) slot() = std::make_unique<T>();
    slot()->app = app;
    return *slot();
  }
  static GlobalConfig* instance() { return slot().get(); }
  static void reset() { slot().reset(); }

  void setHttpServer(std::shared_ptr<IShareServer> server) { httpServer = std::move(server); }
  bool isExtractAllSupportedArchive() const;

  CommonApplication* app = nullptr;
  std::shared_ptr<IShareServer> httpServer;

 private:
  static std::unique_ptr<GlobalConfig>& slot();
};

class AppGlobalConfig : public GlobalConfig {};

}  // namespace harbor

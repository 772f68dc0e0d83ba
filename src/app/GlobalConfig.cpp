#include "app/GlobalConfig.h"

#include "app/CommonApplication.h"

namespace harbor {

std::unique_ptr<GlobalConfig>& GlobalConfig::slot() {
  static std::unique_ptr<GlobalConfig> config;
  return config;
}

bool GlobalConfig::isExtractAllSupportedArchive() const {
  return app && app->isExtractAllSupportedArchive();
}

}  // namespace harbor

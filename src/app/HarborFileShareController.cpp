#include "app/HarborFileShareController.h"

#include "app/ApplicationServices.h"
#include "app/CommonApplication.h"
#include "platform/Strings.h"

namespace harbor {

void HarborFileShareController::loadICloudDrive() {
  auto& services = ApplicationServices::shared();
  if (CommonApplication::isCloudSupportAvailable()) {
    auto screen = services.iCloudDriveController ? services.iCloudDriveController() : nullptr;
    if (screen && pushViewController) pushViewController(std::move(screen));
    return;
  }
  if (services.alertMsg) services.alertMsg("iCloud Drive " + localizedString("unavailable"));
}

}  // namespace harbor

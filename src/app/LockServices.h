#pragma once

#include <memory>

namespace harbor {

class CommonApplication;
class IScreenPort;

// Fills the lock's part of ApplicationServices: the password store over the
// preferences and the folder password map, this platform's biometrics (none
// on Linux), the lock screen bound to `application` and `port`, and alertMsg
// through the port.
void installLockServices(CommonApplication& application, std::shared_ptr<IScreenPort> port);

}  // namespace harbor

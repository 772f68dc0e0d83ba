#pragma once

#include <memory>

namespace harbor {

class CommonApplication;
class IPasswordStore;
class IScreenPort;

// The lock's passwords as stored: the preferences and the folder map.
std::shared_ptr<IPasswordStore> makeStoredPasswordStore();

// Fills the lock's part of ApplicationServices: the password store over the
// preferences and the folder password map, this platform's biometrics (none
// on Linux), the lock screen bound to `application` and `port`, and alertMsg
// through the port.
void installLockServices(CommonApplication& application, std::shared_ptr<IScreenPort> port);
// Only what is still missing: the store and a lock screen with no port. A
// launch without them could never lock.
void installMissingLockServices(CommonApplication& application);
// A stored lock or Wi-Fi password that no longer deciphers reads as none;
// rather than let the lock vanish unnoticed, the user is told so. Answers
// how many messages were shown.
int warnUnreadablePasswords();

}  // namespace harbor

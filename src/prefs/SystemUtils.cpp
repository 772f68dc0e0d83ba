#include "prefs/SystemUtils.h"

#include "prefs/PreferenceKeys.h"
#include "platform/UserDefaults.h"

namespace harbor {

std::uint64_t SystemUtils::getLoginTimes() {
  auto v = UserDefaults::standard().objectForKey(keys::SystemLoginTimes);
  // A missing or non-number value counts as no launch yet.
  if (!v || !v->isNumber()) return 0;
  auto n = v->asInteger();
  return (n && *n > 0) ? static_cast<std::uint64_t>(*n) : 0;
}

void SystemUtils::systemLogin() {
  UserDefaults::standard().setObject(keys::SystemLoginTimes,
                                     static_cast<long long>(getLoginTimes() + 1));
}

bool SystemUtils::isFirstLogin() {
  return getLoginTimes() == 0;
}

}  // namespace harbor

#include "prefs/FileShareUtil.h"

#include "platform/UserDefaults.h"

namespace harbor {

bool FileShareUtil::isAutomaticallyOpenShare() {
  return UserDefaults::standard().boolForKey("AutomaticallyOpenShare", true);
}

void FileShareUtil::setAutomaticallyOpenShare(bool open) {
  UserDefaults::standard().setObject("AutomaticallyOpenShare", open);
}

}  // namespace harbor

#pragma once

// Strings between the libraries and Qt, in one place for every view.

#include <QString>
#include <string>
#include <string_view>

#include "platform/Strings.h"

namespace harbor::gui {

inline QString qs(const std::string& s) {
  return QString::fromStdString(s);
}

// The system's own text for a key, in the user's language.
inline QString loc(std::string_view key) {
  return QString::fromStdString(localizedString(key));
}

}  // namespace harbor::gui

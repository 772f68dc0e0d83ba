#pragma once

#include <string>
#include <string_view>

namespace harbor {

// Words shown to a user: the text of `key` in the strings table of the user's
// language (resources/strings/<lang>.json), else English, else the key itself.
std::string localizedString(std::string_view key);

// Drops the loaded tables, so the next lookup reads them again.
void reloadLocalizedStrings();

}  // namespace harbor

#pragma once

#include <map>
#include <string>
#include <string_view>

namespace harbor {

// Which extensions open as text: the fixed table plus the extensions the user
// assigned a syntax file to. It sits below both the syntax engine and the
// file manager, so the file catalogue can ask without pulling in the engine.
class TextExtensions {
 public:
  // Extension to "" for every built-in extension that opens in the editor.
  static const std::map<std::string, std::string>& builtin();
  // The user's assigned extensions, read once and kept until `reloadCustom`.
  static bool isCustom(std::string_view extension);
  // The user's table changed: read it again on the next question.
  static void reloadCustom();
  // Built-in or custom; compared as given (callers lower-case).
  static bool contains(std::string_view extension);
};

}  // namespace harbor

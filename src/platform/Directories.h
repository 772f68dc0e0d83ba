#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace harbor {

// The folders the application lives in. Everything but the document root sits
// in Harbor's home, $XDG_DATA_HOME/harbor (~/.local/share/harbor), so a root
// given with --root never gets our bookkeeping folders written beside it.
class Directories {
 public:
  // The document root: the override (from --root) when set, else HARBOR_ROOT,
  // else <home>/Documents. Made on first use.
  static std::filesystem::path documentDirectory();
  static void setDocumentRootOverride(const std::filesystem::path& root);

  static std::filesystem::path homeDirectory();                // <XDG_DATA_HOME>/harbor
  static std::filesystem::path applicationSupportDirectory();  // <home>/Library/Application Support
  static std::filesystem::path cachesDirectory();              // <home>/Library/Caches
  static std::filesystem::path temporaryDirectory();           // <home>/tmp
  static std::filesystem::path configDirectory();              // <XDG_CONFIG_HOME>/harbor

  static const std::string& applicationIdentifier();
};

}  // namespace harbor

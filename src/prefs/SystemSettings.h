#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "platform/NotificationCenter.h"

namespace harbor {

// One row of the settings table: row keys to values. Texts are localisation
// keys; "control_event" names the operation the screen runs on selection,
// "control_content_name" the preference a switch shows.
using PreferenceRow = std::map<std::string, std::string>;
// The first row of a section carries the section's title, if it has one.
using PreferenceSection = std::vector<PreferenceRow>;

namespace rowkeys {
inline constexpr const char* text = "control_row_text";
inline constexpr const char* sectionTitle = "control_section_title";
inline constexpr const char* accessoryType = "control_row_accessory_type";
inline constexpr const char* selectStyle = "control_row_select_style";
inline constexpr const char* style = "control_row_style";
inline constexpr const char* height = "control_row_height";
inline constexpr const char* control = "control_name";
inline constexpr const char* content = "control_content_name";
inline constexpr const char* event = "control_event";
inline constexpr const char* image = "control_image_name";
inline constexpr const char* accessoryTitle = "control_accessoryView_title";
inline constexpr const char* accessoryEvent = "control_accessoryView_event";
inline constexpr const char* detail = "CONTROL_ROW_DETAIL_TEXT";
}  // namespace rowkeys

// The settings screen's table, built from data; the screen only shows it and
// runs the named events.
class SystemSettings {
 public:
  // A library this program is built on: name, what it does, its licence.
  using Credit = std::array<std::string, 3>;

  SystemSettings() = default;
  ~SystemSettings();
  SystemSettings(const SystemSettings&) = delete;
  SystemSettings& operator=(const SystemSettings&) = delete;

  // Rebuilds `preferences` from the stored settings.
  void loadPreferences();
  // Sections only some screens add.
  PreferenceSection loadNightMode() const;
  PreferenceSection loadPrivacySettings() const;
  static const std::vector<Credit>& creditsArray();

  // Rebuild the table when a setting or the default encoding changes.
  void startObserving();
  void systemSettingsChange() { loadPreferences(); }
  void encodingChange() { loadPreferences(); }

  std::vector<PreferenceSection> preferences;

 private:
  std::vector<NotificationCenter::Token> tokens_;
};

}  // namespace harbor

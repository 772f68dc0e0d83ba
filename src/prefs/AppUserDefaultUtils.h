#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace harbor {

// Getters and setters of the frame's display preferences.
class AppUserDefaultUtils {
 public:
  using Clock = std::chrono::system_clock;

  static void saveCommonBoolean(bool value, std::string_view key);
  static bool getCommonBoolean(std::string_view key, bool defaultValue);

  static bool getNightMode();
  static void saveNightMode(bool on);
  // Defaults: today 22:00 and today 07:00, local time.
  static Clock::time_point getStartTime();
  static Clock::time_point getEndTime();
  static void saveStartTime(Clock::time_point t);
  static void saveEndTime(Clock::time_point t);
  static std::string getStartTimeString();  // "HH:mm"
  static std::string getEndTimeString();
  // Yes when the switch is on, the present is not after today's start and is
  // before today's end. The period does not wrap over midnight by itself.
  static bool isNightModeTime();
  static bool isNightModeTime(Clock::time_point now);

  static double getBrightness(double screenBrightness);
  static void saveBrightness(double value);
  static bool getLockOrientation();
  static int getLockOrientationInterface();  // default 1
  // Stores the flag and the orientation showing now.
  static void saveLockSetting(bool lock, int currentOrientation);
  static bool getHiddenTitlePlayingVideo();
  static void saveHiddenTitlePlayingVideo(bool hide);
};

// The format images are imported in: "jpg", "png" or "Automatic".
class ImageSettings {
 public:
  static std::string getImportFormat();
  static void saveImportFormat(std::string_view format);
  static bool isJpg();
  static bool isPng();
};

}  // namespace harbor

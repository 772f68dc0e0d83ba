#include "prefs/AppUserDefaultUtils.h"

#include <ctime>

#include <fmt/format.h>

#include "prefs/PreferenceKeys.h"
#include "platform/Unicode.h"
#include "platform/UserDefaults.h"

namespace harbor {
namespace {

using Clock = AppUserDefaultUtils::Clock;

std::tm localTime(Clock::time_point t) {
  std::time_t tt = Clock::to_time_t(t);
  std::tm tm{};
  localtime_r(&tt, &tm);
  return tm;
}

// `day`'s date with the time of day of `time`, to the second.
Clock::time_point onDay(Clock::time_point day, Clock::time_point time) {
  std::tm d = localTime(day), t = localTime(time);
  d.tm_hour = t.tm_hour;
  d.tm_min = t.tm_min;
  d.tm_sec = t.tm_sec;
  d.tm_isdst = -1;
  return Clock::from_time_t(std::mktime(&d));
}

Clock::time_point todayAt(int hour, int minute) {
  std::tm d = localTime(Clock::now());
  d.tm_hour = hour;
  d.tm_min = minute;
  d.tm_sec = 0;
  d.tm_isdst = -1;
  return Clock::from_time_t(std::mktime(&d));
}

Clock::time_point dateOr(const char* key, Clock::time_point fallback) {
  auto d = UserDefaults::standard().dateForKey(key);
  return d ? *d : fallback;
}

std::string hhmm(Clock::time_point t) {
  std::tm tm = localTime(t);
  return fmt::format("{:02}:{:02}", tm.tm_hour, tm.tm_min);
}

}  // namespace

void AppUserDefaultUtils::saveCommonBoolean(bool value, std::string_view key) {
  UserDefaults::standard().setObject(key, value);
}

bool AppUserDefaultUtils::getCommonBoolean(std::string_view key, bool defaultValue) {
  return UserDefaults::standard().boolForKey(key, defaultValue);
}

bool AppUserDefaultUtils::getNightMode() {
  return getCommonBoolean(keys::SYSTEM_NIGHT_MODE, false);
}
void AppUserDefaultUtils::saveNightMode(bool on) {
  saveCommonBoolean(on, keys::SYSTEM_NIGHT_MODE);
}

Clock::time_point AppUserDefaultUtils::getStartTime() {
  return dateOr(keys::SYSTEM_START_TIME, todayAt(22, 0));
}

Clock::time_point AppUserDefaultUtils::getEndTime() {
  return dateOr(keys::SYSTEM_END_TIME, todayAt(7, 0));
}

void AppUserDefaultUtils::saveStartTime(Clock::time_point t) {
  UserDefaults::standard().setObject(keys::SYSTEM_START_TIME, t);
}

void AppUserDefaultUtils::saveEndTime(Clock::time_point t) {
  UserDefaults::standard().setObject(keys::SYSTEM_END_TIME, t);
}

std::string AppUserDefaultUtils::getStartTimeString() {
  return hhmm(getStartTime());
}
std::string AppUserDefaultUtils::getEndTimeString() {
  return hhmm(getEndTime());
}

bool AppUserDefaultUtils::isNightModeTime() {
  return isNightModeTime(Clock::now());
}

bool AppUserDefaultUtils::isNightModeTime(Clock::time_point now) {
  if (!getNightMode()) return false;
  const Clock::time_point start = onDay(now, getStartTime());
  const Clock::time_point end = onDay(now, getEndTime());
  return !(now > start) && now < end;
}

double AppUserDefaultUtils::getBrightness(double screenBrightness) {
  return UserDefaults::standard().doubleForKey(keys::SYSTEM_BRIGHTNESS, screenBrightness);
}

void AppUserDefaultUtils::saveBrightness(double value) {
  UserDefaults::standard().setObject(keys::SYSTEM_BRIGHTNESS, value);
}

bool AppUserDefaultUtils::getLockOrientation() {
  return getCommonBoolean(keys::SYSTEM_LOCKORIENTATION, false);
}

int AppUserDefaultUtils::getLockOrientationInterface() {
  return static_cast<int>(
      UserDefaults::standard().integerForKey(keys::SYSTEM_LOCKORIENTATION_Interface, 1));
}

void AppUserDefaultUtils::saveLockSetting(bool lock, int currentOrientation) {
  UserDefaults& d = UserDefaults::standard();
  d.setObject(keys::SYSTEM_LOCKORIENTATION, lock);
  d.setObject(keys::SYSTEM_LOCKORIENTATION_Interface, currentOrientation);
}

bool AppUserDefaultUtils::getHiddenTitlePlayingVideo() {
  return getCommonBoolean(keys::SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO, false);
}

void AppUserDefaultUtils::saveHiddenTitlePlayingVideo(bool hide) {
  saveCommonBoolean(hide, keys::SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO);
}

std::string ImageSettings::getImportFormat() {
  return UserDefaults::standard().stringForKey(keys::SystemSettingsImageImportFormat, "Automatic");
}

void ImageSettings::saveImportFormat(std::string_view format) {
  UserDefaults::standard().setObject(keys::SystemSettingsImageImportFormat, format);
}

bool ImageSettings::isJpg() {
  return equalsIgnoreCase(getImportFormat(), "jpg");
}
bool ImageSettings::isPng() {
  return equalsIgnoreCase(getImportFormat(), "png");
}

}  // namespace harbor

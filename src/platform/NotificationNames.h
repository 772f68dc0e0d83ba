#pragma once

// The names of the broadcasts that cross subsystems, in one place.
namespace harbor::notifications {

inline constexpr const char* HBFileDirectoryCurrentChangetNotification =
    "HBFileDirectoryCurrentChangetNotification";
inline constexpr const char* HBFileDirectoryChangeToParentNotification =
    "HBFileDirectoryChangeToParentNotification";
inline constexpr const char* HBFileOrderTypeChangeNotication = "HBFileOrderTypeChangeNotication";
inline constexpr const char* HBEncodingChangeNotication = "HBEncodingChangeNotication";
inline constexpr const char* ExtractFilesFinishedNotification = "ExtractFilesFinishedNotification";
inline constexpr const char* FilePropertyCancelNotification = "FilePropertyCancelNotification";
inline constexpr const char* FilePropertyTotalSizeCancelNotification =
    "FilePropertyTotalSizeCancelNotification";
inline constexpr const char* FileShareChangeNotifiation = "FileShareChangeNotifiation";
inline constexpr const char* SystemCancelWifiThread = "SystemCancelWifiThread";
inline constexpr const char* HTTPConnectionDidDie = "HTTPConnectionDidDie";
inline constexpr const char* WebSocketDidDie = "WebSocketDidDie";
inline constexpr const char* kNetworkReachabilityChangedNotification =
    "kNetworkReachabilityChangedNotification";
inline constexpr const char* SystemSettingsNotification = "SystemSettingsNotification";
inline constexpr const char* TapOneNotification = "TapOneNotification";
inline constexpr const char* TapAndHoldNotification = "TapAndHoldNotification";

}  // namespace harbor::notifications

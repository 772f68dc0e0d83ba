#pragma once

// The preference keys of the application frame and the editor; each other
// subsystem keeps its own keys beside its code.
namespace harbor::keys {

inline constexpr const char* SystemLoginTimes = "SystemLoginTimes";
inline constexpr const char* SYSTEM_DEFAULT_Encoding = "SYSTEM_DEFAULT_Encoding";
inline constexpr const char* SYSTEM_ENCODING_HISTORY = "SYSTEM_ENCODING_HISTORY";
inline constexpr const char* SystemEditorAutoBak = "SystemEditorAutoBak";
inline constexpr const char* SYSTEM_BOOKMARK = "SYSTEM_BOOKMARK";
inline constexpr const char* SYSTEM_LASTOPEN_INFO = "SYSTEM_LASTOPEN_INFO";
inline constexpr const char* EditorSyntaxSystemSettings = "EditorSyntaxSystemSettings";
inline constexpr const char* EditorSyntaxOnlyFileSystemSettings =
    "EditorSyntaxOnlyFileSystemSettings";
inline constexpr const char* SYSTEM_NIGHT_MODE = "SYSTEM_NIGHT_MODE";
inline constexpr const char* SYSTEM_START_TIME = "SYSTEM_START_TIME";
inline constexpr const char* SYSTEM_END_TIME = "SYSTEM_END_TIME";
inline constexpr const char* SYSTEM_BRIGHTNESS = "SYSTEM_BRIGHTNESS";
inline constexpr const char* SYSTEM_LOCKORIENTATION = "SYSTEM_LOCKORIENTATION";
inline constexpr const char* SYSTEM_LOCKORIENTATION_Interface = "SYSTEM_LOCKORIENTATION_Interface";
inline constexpr const char* SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO =
    "SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO";
inline constexpr const char* SystemSettingsImageImportFormat = "SystemSettingsImageImportFormat";
inline constexpr const char* SystemPDFDisplayDirection = "SystemPDFDisplayDirection";
inline constexpr const char* SYSTEM_LOCAL_LOGIN_PASSWORD = "SYSTEM_LOCAL_LOGIN_PASSWORD";
inline constexpr const char* SYSTEM_WIFI_LOGIN_PASSWORD = "SYSTEM_WIFI_LOGIN_PASSWORD";
inline constexpr const char* System_Local_AutoLogin = "System_Local_AutoLogin";
inline constexpr const char* SystemTouchIDAuthentication = "SystemTouchIDAuthentication";
inline constexpr const char* SystemTouchIDAuthenticationFolder =
    "SystemTouchIDAuthenticationFolder";
inline constexpr const char* SYSTEM_FILE_PASSWORD = "SYSTEM_FILE_PASSWORD";

}  // namespace harbor::keys

namespace harbor {

// The keys of a position record (a bookmark or a last-open record).
inline constexpr const char* SYSTEM_BOOKMARK_FONT_SIZE = "SYSTEM_BOOKMARK_FONT_SIZE";
inline constexpr const char* SYSTEM_BOOKMARK_SCROLLY = "SYSTEM_BOOKMARK_SCROLLY";
inline constexpr const char* SYSTEM_BOOKMARK_ISSOURCE = "isSource";
inline constexpr const char* SYSTEM_BOOKMARK_TEXT_START = "SYSTEM_BOOKMARK_TEXT_START";

}  // namespace harbor

#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace harbor {

// Logged failures read "Class:function message".
std::string formatLogLine(std::string_view cls, std::string_view function,
                          std::string_view message);

void logMessage(std::string_view cls, std::string_view function, std::string_view message);

// Replaces where log lines go (standard error by default); an empty sink
// restores that. Returns the previous sink so tests can put it back.
using LogSink = std::function<void(const std::string& line)>;
LogSink setLogSink(LogSink sink);

}  // namespace harbor

#define HB_LOG(cls, message) ::harbor::logMessage((cls), __func__, (message))

#include "platform/Log.h"

#include <cstdio>
#include <mutex>

namespace harbor {
namespace {
std::mutex& sinkMutex() {
  static std::mutex m;
  return m;
}
LogSink& sink() {
  static LogSink s;
  return s;
}
}  // namespace

std::string formatLogLine(std::string_view cls, std::string_view function,
                          std::string_view message) {
  std::string line;
  line.reserve(cls.size() + function.size() + message.size() + 2);
  line.append(cls).append(":").append(function).append(" ").append(message);
  return line;
}

void logMessage(std::string_view cls, std::string_view function, std::string_view message) {
  const std::string line = formatLogLine(cls, function, message);
  std::lock_guard lock(sinkMutex());
  if (sink()) {
    sink()(line);
  } else {
    std::fprintf(stderr, "%s\n", line.c_str());
  }
}

LogSink setLogSink(LogSink s) {
  std::lock_guard lock(sinkMutex());
  LogSink previous = std::move(sink());
  sink() = std::move(s);
  return previous;
}

}  // namespace harbor

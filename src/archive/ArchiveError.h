#pragma once

#include <string>

#include "platform/Error.h"

namespace harbor {

inline constexpr const char* kArchiveErrorDomain = "ArchiveErrorDomain";

// Failures of readers and writers. Code 100 (cancelled) is never shown to the
// user.
enum ArchiveErrorCode : long {
  kArchiveErrorOpenFile = 1,
  kArchiveErrorOpenFirstFile = 2,
  kArchiveErrorParameter = 3,
  kArchiveErrorArchive = 4,
  kArchiveErrorCreateFile = 5,
  kArchiveErrorCancelled = 100,
};

Error errorFailedOpenFile();
Error errorFailedOpenFirstFile();
Error errorParameter();
Error errorArchive();
Error errorFailedToCreateFile(const std::string& name);
Error errorCancelOpertion();

}  // namespace harbor

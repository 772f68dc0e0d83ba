#include "archive/ArchiveError.h"

namespace harbor {

Error errorFailedOpenFile() {
  return {kArchiveErrorDomain, 1, "Failed to open archive file"};
}
Error errorFailedOpenFirstFile() {
  return {kArchiveErrorDomain, 2, "Failed to open first file in archive file"};
}
Error errorParameter() {
  return {kArchiveErrorDomain, 3, "Parameter error"};
}
Error errorArchive() {
  return {kArchiveErrorDomain, 4, "Archive issues"};
}
Error errorFailedToCreateFile(const std::string& name) {
  return {kArchiveErrorDomain, 5, "Failed to create file " + name};
}
Error errorCancelOpertion() {
  return {kArchiveErrorDomain, 100, "The operation is canceled"};
}

}  // namespace harbor

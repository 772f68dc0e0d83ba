#pragma once

#include <optional>
#include <string>

#include "platform/Error.h"

namespace harbor {

// A request as the web view hands it over, with the one property this
// protocol reads.
struct MhtURLRequest {
  std::string url;
  // The "contentData" property: the bytes to answer with, if someone set it.
  std::optional<std::string> contentData;
};

// Reads and sets "contentData" on a request.
const std::optional<std::string>& contentData(const MhtURLRequest& request);
void setContentData(MhtURLRequest& request, std::string data);

// The decisions of the handler that serves archive content to a web view
// under the "applewebdata" scheme; the GUI binds them to its web engine.
// Pages are shown from the unpacked files, so nothing in that flow sets
// the property and a request without it fails as unavailable.
class MhtURLProtocol {
 public:
  static constexpr const char* kScheme = "applewebdata";
  static constexpr long kResourceUnavailable = -1008;

  static void registerMhtProtocol();
  static bool isRegistered();
  static bool canInitWithRequest(const MhtURLRequest& request);
  static MhtURLRequest canonicalRequestForRequest(const MhtURLRequest& request) { return request; }

  // What startLoading answers: the data to deliver before finishing, or the
  // error to fail with.
  struct Loading {
    std::optional<std::string> data;
    std::optional<Error> error;
  };
  Loading startLoading(const MhtURLRequest& request);
  void stopLoading() { _stopped = true; }
  bool isStopped() const { return _stopped; }

 private:
  bool _stopped = false;
};

}  // namespace harbor

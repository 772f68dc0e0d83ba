#include "viewers/mht/MhtURLProtocol.h"

#include <atomic>

#include "platform/Unicode.h"

namespace harbor {
namespace {

std::atomic<bool> registered{false};

}  // namespace

const std::optional<std::string>& contentData(const MhtURLRequest& request) {
  return request.contentData;
}

void setContentData(MhtURLRequest& request, std::string data) {
  request.contentData = std::move(data);
}

void MhtURLProtocol::registerMhtProtocol() {
  registered = true;
}

bool MhtURLProtocol::isRegistered() {
  return registered;
}

bool MhtURLProtocol::canInitWithRequest(const MhtURLRequest& request) {
  const std::size_t colon = request.url.find(':');
  if (colon == std::string::npos) return false;
  return equalsIgnoreCase(std::string_view(request.url).substr(0, colon), kScheme);
}

MhtURLProtocol::Loading MhtURLProtocol::startLoading(const MhtURLRequest& request) {
  _stopped = false;
  if (const auto& data = contentData(request)) return Loading{*data, std::nullopt};
  return Loading{std::nullopt,
                 Error{"NSURLErrorDomain", kResourceUnavailable, "resource unavailable"}};
}

}  // namespace harbor

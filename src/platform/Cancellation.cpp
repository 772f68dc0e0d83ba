#include "platform/Cancellation.h"

namespace harbor {
namespace {
thread_local const CancellationToken* currentToken = nullptr;
}

bool isCurrentThreadCancelled() {
  return currentToken && currentToken->isCancelled();
}

CurrentCancellationScope::CurrentCancellationScope(const CancellationToken& token)
    : previous_(currentToken) {
  currentToken = &token;
}

CurrentCancellationScope::~CurrentCancellationScope() {
  currentToken = previous_;
}

}  // namespace harbor

#pragma once

#include <string>

namespace harbor {

// What a service answers instead of throwing: a domain, a code and a message
// that may be shown to the user.
struct Error {
  std::string domain;
  long code = 0;
  std::string message;

  bool operator==(const Error&) const = default;
};

}  // namespace harbor

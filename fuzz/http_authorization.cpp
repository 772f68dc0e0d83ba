// "Authorization" values and query strings are read before anyone is known.
#include <cstdint>
#include <string_view>

#include "net/http/HTTPAuthentication.h"
#include "net/http/HTTPUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  harbor::HTTPAuthenticationRequest auth(in);
  if (auth.isBasic() && auth.isDigest()) __builtin_trap();
  for (const auto* field : {&auth.username(), &auth.nonce(), &auth.uri(), &auth.response()}) {
    if (field->size() > in.size()) __builtin_trap();
  }
  if (auth.isBasic()) (void)harbor::HTTPUtil::base64Decode(auth.base64Credentials());
  return 0;
}

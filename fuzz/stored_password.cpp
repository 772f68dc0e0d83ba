// Stored password values come from a preferences file anyone may edit: any
// text must read back as a password or as none, never crash, and a password
// read back must survive another round.
#include <cstdint>
#include <string_view>

#include "prefs/AesCipher.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto key = harbor::AesCipher::keyFromText("fuzz key");
  const harbor::AesCipher::Iv iv{};
  std::string_view text(reinterpret_cast<const char*>(data), size);
  auto plain = harbor::AesCipher::decipherFromBase64(text, key, iv);
  if (!plain) return 0;
  std::string again = harbor::AesCipher::encipherToBase64(*plain, key, iv);
  if (again.empty() || harbor::AesCipher::decipherFromBase64(again, key, iv) != plain) {
    __builtin_trap();
  }
  return 0;
}

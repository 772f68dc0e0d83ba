#include "encoding/EncodingItem.h"

#include <fmt/format.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <memory>
#include <mutex>

#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {

EncodingItem::EncodingItem(StringEncoding enc, std::string n) : encoding(enc), name(std::move(n)) {
  localizedName = StringEncodings::localizedNameOfStringEncoding(encoding);
  if (localizedName.empty()) localizedName = name;
}

EncodingItem EncodingItem::automatic() {
  EncodingItem item;
  item.encoding = kUTF8StringEncoding;
  item.name = "Automatic";
  item.localizedName = localizedString("Automatic");
  return item;
}

int EncodingItem::compare(const EncodingItem& other) const {
  int c = name.compare(other.name);
  return c < 0 ? -1 : c > 0 ? 1 : 0;
}

int EncodingItem::localizedCompare(const EncodingItem& other) const {
  // A collator of the user's locale, as a localised comparison is; its
  // const calls are safe from any thread.
  static std::once_flag once;
  static std::unique_ptr<icu::Collator> collator;
  std::call_once(once, [] {
    UErrorCode status = U_ZERO_ERROR;
    collator.reset(icu::Collator::createInstance(icu::Locale::getDefault(), status));
    if (U_FAILURE(status)) collator.reset();
  });
  if (!collator) {
    int c = localizedName.compare(other.localizedName);
    return c < 0 ? -1 : c > 0 ? 1 : 0;
  }
  std::u16string a = toUtf16(localizedName), b = toUtf16(other.localizedName);
  UErrorCode status = U_ZERO_ERROR;
  UCollationResult r = collator->compare(a.data(), static_cast<int32_t>(a.size()), b.data(),
                                         static_cast<int32_t>(b.size()), status);
  return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

std::string EncodingItem::description() const {
  return fmt::format("<EncodingItem:{}>{}:{}", static_cast<const void*>(this), name, localizedName);
}

}  // namespace harbor

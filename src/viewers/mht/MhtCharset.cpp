#include "viewers/mht/MhtCharset.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <memory>

#include "encoding/EncodingUtil.h"
#include "encoding/StringEncodings.h"
#include "platform/Unicode.h"

namespace harbor::mht {
namespace {

struct CloseConverter {
  void operator()(UConverter* c) const { ucnv_close(c); }
};

}  // namespace

std::optional<std::u16string> decodeCharset(std::string_view bytes, std::string_view charset,
                                            bool strictName) {
  if (strictName &&
      StringEncodings::convertIANACharSetNameToEncoding(charset) == kInvalidTableEncoding) {
    return std::nullopt;
  }
  return StringEncodings::decode(bytes, EncodingUtil::convertStringToNSStringEncoding(charset));
}

std::string encodeCharset(std::u16string_view text, std::string_view charset, bool markup) {
  const StringEncoding encoding = EncodingUtil::convertStringToNSStringEncoding(charset);
  if (encoding == kUTF8StringEncoding) return toUtf8(text);
  const std::string icu = StringEncodings::icuConverterName(encoding);
  if (icu.empty()) return toUtf8(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UConverter, CloseConverter> cnv(ucnv_open(icu.c_str(), &status));
  if (U_FAILURE(status) || !cnv) return toUtf8(text);
  if (markup) {
    ucnv_setFromUCallBack(cnv.get(), UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr,
                          nullptr, &status);
  } else {
    ucnv_setFromUCallBack(cnv.get(), UCNV_FROM_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr,
                          &status);
  }
  status = U_ZERO_ERROR;
  std::string out(static_cast<std::size_t>(
                      UCNV_GET_MAX_BYTES_FOR_STRING(text.size(), ucnv_getMaxCharSize(cnv.get()))) +
                      16,
                  '\0');
  const int32_t n = ucnv_fromUChars(cnv.get(), out.data(), static_cast<int32_t>(out.size()),
                                    text.data(), static_cast<int32_t>(text.size()), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    // Escapes can outgrow the estimate; ask again with the size needed.
    out.assign(static_cast<std::size_t>(n), '\0');
    status = U_ZERO_ERROR;
    ucnv_resetFromUnicode(cnv.get());
    ucnv_fromUChars(cnv.get(), out.data(), n, text.data(), static_cast<int32_t>(text.size()),
                    &status);
    if (U_FAILURE(status) && status != U_STRING_NOT_TERMINATED_WARNING) return toUtf8(text);
    return out;
  }
  if (U_FAILURE(status)) return toUtf8(text);
  out.resize(static_cast<std::size_t>(n));
  return out;
}

}  // namespace harbor::mht

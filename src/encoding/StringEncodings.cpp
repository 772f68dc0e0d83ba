#include "encoding/StringEncodings.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "platform/Strings.h"

namespace harbor {
namespace {

struct Entry {
  TableEncoding table;
  // Space-separated; the first is the preferred name.
  const char* names;
  const char* icu;  // nullptr: no converter here
  const char* display;
  bool ownMark;  // the converter keeps a leading U+FEFF that we drop
  // Read through a superset's converter (ISO-8859-1 as windows-1252): text
  // that is really in the subset never holds the C1 controls where the two
  // differ, and files named or detected as the subset are in practice the
  // superset, as browsers know. Such a row never answers for the converter.
  bool superset = false;
};

// The table numbers are the platform's; the names are IANA's where IANA has
// one, with the aliases files carry in practice. Names the platform does not
// resolve ("Korean", "Greek7", "Cyrillic1251"...) are deliberately absent.
constexpr Entry kEntries[] = {
    {0x08000100, "UTF-8 utf8 unicode-1-1-utf-8", "UTF-8", "Unicode (UTF-8)", true},
    {0x00000100, "UTF-16 ISO-10646-UCS-2 UCS-2 csUnicode", "UTF-16", "Unicode (UTF-16)", false},
    {0x10000100, "UTF-16BE", "UTF-16BE", "Unicode (UTF-16BE)", true},
    {0x14000100, "UTF-16LE", "UTF-16LE", "Unicode (UTF-16LE)", true},
    {0x0c000100, "UTF-32", "UTF-32", "Unicode (UTF-32)", false},
    {0x18000100, "UTF-32BE", "UTF-32BE", "Unicode (UTF-32BE)", true},
    {0x1c000100, "UTF-32LE", "UTF-32LE", "Unicode (UTF-32LE)", true},
    {0x04000100, "UTF-7 csUTF7", "UTF-7", "Unicode (UTF-7)", false},
    {0x0600, "US-ASCII ASCII ANSI_X3.4-1968 ISO646-US us csASCII iso-ir-6", "US-ASCII",
     "Western (ASCII)", false},
    {0x0201, "ISO-8859-1 ISO_8859-1 ISO_8859-1:1987 latin1 l1 iso-ir-100 IBM819 CP819 csISOLatin1",
     "ibm-5348_P100-1997", "Western (ISO Latin 1)", false, true},
    {0x0202, "ISO-8859-2 ISO_8859-2 latin2 l2 iso-ir-101 csISOLatin2", "ibm-912_P100-1995",
     "Central European (ISO Latin 2)", false},
    {0x0203, "ISO-8859-3 ISO_8859-3 latin3 l3 csISOLatin3", "ibm-913_P100-2000",
     "Western (ISO Latin 3)", false},
    {0x0204, "ISO-8859-4 ISO_8859-4 latin4 l4 csISOLatin4", "ibm-914_P100-1995",
     "Central European (ISO Latin 4)", false},
    {0x0205, "ISO-8859-5 ISO_8859-5 cyrillic csISOLatinCyrillic", "ibm-915_P100-1995",
     "Cyrillic (ISO 8859-5)", false},
    {0x0206, "ISO-8859-6 ISO_8859-6 ISO-8859-6-I arabic ECMA-114 ASMO-708 csISOLatinArabic",
     "ibm-1089_P100-1995", "Arabic (ISO 8859-6)", false},
    {0x0207, "ISO-8859-7 ISO_8859-7 greek greek8 ELOT_928 ECMA-118 csISOLatinGreek",
     "ibm-9005_X110-2007", "Greek (ISO 8859-7)", false},
    {0x0208, "ISO-8859-8 ISO_8859-8 ISO-8859-8-I ISO-8859-8-E hebrew csISOLatinHebrew",
     "ibm-5012_P100-1999", "Hebrew (ISO 8859-8)", false},
    {0x0209, "ISO-8859-9 ISO_8859-9 latin5 l5 csISOLatin5", "ibm-5350_P100-1998",
     "Turkish (ISO Latin 5)", false, true},
    {0x020A, "ISO-8859-10 latin6 l6 csISOLatin6", "iso-8859_10-1998", "Nordic (ISO Latin 6)",
     false},
    {0x020B, "ISO-8859-11", "iso-8859_11-2001", "Thai (ISO 8859-11)", false},
    {0x020D, "ISO-8859-13 latin7", "ibm-921_P100-1995", "Baltic (ISO Latin 7)", false},
    {0x020E, "ISO-8859-14 latin8 iso-celtic", "iso-8859_14-1998", "Celtic (ISO Latin 8)", false},
    {0x020F, "ISO-8859-15 ISO_8859-15 Latin-9 latin9", "ibm-923_P100-1998", "Western (ISO Latin 9)",
     false},
    {0x0210, "ISO-8859-16 latin10", nullptr, "Romanian (ISO Latin 10)", false},
    {0x0500, "windows-1252 cp1252 x-cp1252", "ibm-5348_P100-1997", "Western (Windows Latin 1)",
     false},
    {0x0501, "windows-1250 cp1250 x-cp1250", "ibm-5346_P100-1998",
     "Central European (Windows Latin 2)", false},
    {0x0502, "windows-1251 cp1251 x-cp1251", "ibm-5347_P100-1998", "Cyrillic (Windows)", false},
    {0x0503, "windows-1253 cp1253", "ibm-5349_P100-1998", "Greek (Windows)", false},
    {0x0504, "windows-1254 cp1254", "ibm-5350_P100-1998", "Turkish (Windows Latin 5)", false},
    {0x0505, "windows-1255 cp1255", "ibm-9447_P100-2002", "Hebrew (Windows)", false},
    {0x0506, "windows-1256 cp1256", "ibm-9448_X100-2005", "Arabic (Windows)", false},
    {0x0507, "windows-1257 cp1257", "ibm-9449_P100-2002", "Baltic (Windows)", false},
    {0x0508, "windows-1258 cp1258", "ibm-5354_P100-1998", "Vietnamese (Windows)", false},
    {0x041D, "windows-874 cp874 TIS-620", "windows-874-2000", "Thai (Windows, DOS)", false},
    {0x0400, "IBM437 cp437 437 csPC8CodePage437", "ibm-437_P100-1995", "Latin-US (DOS)", false},
    {0x0405, "IBM737 cp737", "ibm-737_P100-1997", "Greek (DOS)", false},
    {0x0406, "IBM775 cp775 csPC775Baltic", "ibm-775_P100-1996", "Baltic (DOS)", false},
    {0x0410, "IBM850 cp850 850 csPC850Multilingual", "ibm-850_P100-1995", "Western (DOS Latin 1)",
     false},
    {0x0411, "IBM851 cp851 851", "ibm-851_P100-1995", "Greek (DOS Greek 1)", false},
    {0x0412, "IBM852 cp852 852 csPCp852", "ibm-852_P100-1995", "Central European (DOS Latin 2)",
     false},
    {0x0413, "IBM855 cp855 855", "ibm-855_P100-1995", "Cyrillic (DOS)", false},
    {0x0414, "IBM857 cp857 857", "ibm-857_P100-1995", "Turkish (DOS)", false},
    {0x0415, "IBM860 cp860 860", "ibm-860_P100-1995", "Portuguese (DOS)", false},
    {0x0416, "IBM861 cp861 861 cp-is", "ibm-861_P100-1995", "Icelandic (DOS)", false},
    {0x0417, "IBM862 cp862 862", "ibm-862_P100-1995", "Hebrew (DOS)", false},
    {0x0418, "IBM863 cp863 863", "ibm-863_P100-1995", "Canadian French (DOS)", false},
    {0x0419, "IBM864 cp864", "ibm-864_X110-1999", "Arabic (DOS)", false},
    {0x041A, "IBM865 cp865 865", "ibm-865_P100-1995", "Nordic (DOS)", false},
    {0x041B, "IBM866 cp866 866 csIBM866", "ibm-866_P100-1995", "Russian (DOS)", false},
    {0x041C, "IBM869 cp869 869 cp-gr", "ibm-869_P100-1995", "Greek (DOS Greek 2)", false},
    {0x0C02, "IBM037 cp037 ebcdic-cp-us ebcdic-cp-ca csIBM037", "ibm-37_P100-1995",
     "Western (EBCDIC Latin 1)", false},
    {0x0A01, "Shift_JIS shift-jis sjis x-sjis MS_Kanji csShiftJIS", "ibm-943_P15A-2003",
     "Japanese (Shift JIS)", false},
    {0x0420, "cp932 windows-31j csWindows31J", "ibm-943_P15A-2003", "Japanese (Windows, DOS)",
     false},
    {0x0920, "EUC-JP x-euc-jp csEUCPkdFmtJapanese", "euc-jp-2007", "Japanese (EUC)", false},
    {0x0820, "ISO-2022-JP csISO2022JP", "ISO_2022,locale=ja,version=0", "Japanese (ISO 2022-JP)",
     false},
    {0x0822, "ISO-2022-JP-1", "ISO_2022,locale=ja,version=1", "Japanese (ISO 2022-JP-1)", false},
    {0x0821, "ISO-2022-JP-2 csISO2022JP2", "ISO_2022,locale=ja,version=2",
     "Japanese (ISO 2022-JP-2)", false},
    {0x0001, "x-mac-japanese", nullptr, "Japanese (Mac OS)", false},
    {0x0421, "GBK cp936 windows-936 MS936 CP936", "windows-936-2000", "Chinese (GBK)", false},
    {0x0632, "GB18030", "gb18030", "Chinese (GB 18030)", false},
    {0x0930, "GB2312 EUC-CN x-euc-cn csGB2312", "ibm-1383_P110-1999",
     "Simplified Chinese (GB 2312)", false},
    {0x0A05, "HZ-GB-2312 HZ", "HZ", "Simplified Chinese (HZ GB 2312)", false},
    {0x0830, "ISO-2022-CN", "ISO_2022,locale=zh,version=0", "Chinese (ISO 2022-CN)", false},
    {0x0831, "ISO-2022-CN-EXT", "ISO_2022,locale=zh,version=1", "Chinese (ISO 2022-CN-EXT)", false},
    {0x0A03, "Big5 csBig5 x-x-big5 Big5-ETen", "windows-950-2000", "Traditional Chinese (Big 5)",
     false},
    {0x0423, "cp950 windows-950 MS950", "windows-950-2000", "Traditional Chinese (Windows, DOS)",
     false},
    {0x0A06, "Big5-HKSCS", "ibm-1375_P100-2008", "Traditional Chinese (Big 5 HKSCS)", false},
    {0x0931, "EUC-TW x-euc-tw", "euc-tw-2014", "Traditional Chinese (EUC)", false},
    {0x0940, "EUC-KR csEUCKR", "ibm-970_P110_P110-2006_U2", "Korean (EUC)", false},
    {0x0422, "cp949 windows-949 ks_c_5601-1987 KS_C_5601-1989 KSC_5601 UHC", "windows-949-2000",
     "Korean (Windows, DOS)", false},
    {0x0840, "ISO-2022-KR csISO2022KR", "ISO_2022,locale=ko,version=0", "Korean (ISO 2022-KR)",
     false},
    {0x0A02, "KOI8-R csKOI8R", "ibm-878_P100-1996", "Cyrillic (KOI8-R)", false},
    {0x0A08, "KOI8-U", "ibm-1168_P100-2002", "Ukrainian (KOI8-U)", false},
    {0x0A07, "VISCII csVISCII", nullptr, "Vietnamese (VISCII)", false},
    {0x0000, "macintosh mac csMacintosh x-mac-roman", "macos-0_2-10.2", "Western (Mac OS Roman)",
     false},
    {0x0006, "x-mac-greek", "macos-6_2-10.4", "Greek (Mac OS)", false},
    {0x0007, "x-mac-cyrillic mac-cyrillic maccyrillic", "macos-7_3-10.2", "Cyrillic (Mac OS)",
     false},
    {0x001D, "x-mac-centraleurroman x-mac-ce mac-centraleurope", "macos-29-10.2",
     "Central European (Mac OS)", false},
    {0x0023, "x-mac-turkish", "macos-35-10.2", "Turkish (Mac OS)", false},
};

// The platform's own constants for the classic encodings; every other
// encoding is its table number with the top bit of 32 set.
constexpr std::pair<TableEncoding, StringEncoding> kClassic[] = {
    {0x0600, 1},  {0x0B01, 2},  {0x0920, 3},  {0x08000100, 4}, {0x0201, 5},  {0x0021, 6},
    {0x0BFF, 7},  {0x0420, 8},  {0x0202, 9},  {0x0100, 10},    {0x0502, 11}, {0x0500, 12},
    {0x0503, 13}, {0x0504, 14}, {0x0501, 15}, {0x0820, 21},    {0x0000, 30},
};
constexpr StringEncoding kTableBit = 0x80000000u;

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

struct Index {
  std::unordered_map<std::string, const Entry*> byName;
  std::unordered_map<TableEncoding, const Entry*> byTable;
  std::unordered_map<std::string, const Entry*> byConverter;
  std::vector<TableEncoding> available;
};

const Index& index() {
  static const Index idx = [] {
    Index i;
    for (const Entry& e : kEntries) {
      i.byTable.emplace(e.table, &e);
      std::string_view names = e.names;
      while (!names.empty()) {
        std::size_t end = names.find(' ');
        i.byName.emplace(asciiLower(names.substr(0, end)), &e);
        names = end == std::string_view::npos ? std::string_view{} : names.substr(end + 1);
      }
      if (!e.icu) continue;
      UErrorCode status = U_ZERO_ERROR;
      UConverter* cnv = ucnv_open(e.icu, &status);
      if (U_FAILURE(status) || !cnv) continue;
      i.available.push_back(e.table);
      // Several table rows may share a converter; the first row answers.
      if (!e.superset) i.byConverter.emplace(ucnv_getName(cnv, &status), &e);
      ucnv_close(cnv);
    }
    return i;
  }();
  return idx;
}

const Entry* entryForStringEncoding(StringEncoding encoding) {
  TableEncoding t = StringEncodings::convertNSStringEncodingToEncoding(encoding);
  if (t == kInvalidTableEncoding) return nullptr;
  auto it = index().byTable.find(t);
  return it == index().byTable.end() ? nullptr : it->second;
}

struct ConverterCloser {
  void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

// NUL never stands in text; a C1 control not in text of a legacy table.
// Bytes that decode to them are binary, or text in another encoding.
bool holdsControls(const char16_t* p, const char16_t* end, bool c1) {
  for (; p < end; ++p) {
    if (*p == 0 || (c1 && *p >= 0x80 && *p <= 0x9F)) return true;
  }
  return false;
}

// The Unicode forms share the low half of their table numbers.
bool unicodeRow(const Entry& e) {
  return (e.table & 0xFFFFu) == 0x0100u;
}

std::optional<std::u16string> decodeEntry(std::string_view bytes, const Entry* e, bool c1);

}  // namespace

TableEncoding StringEncodings::convertIANACharSetNameToEncoding(std::string_view name) {
  auto it = index().byName.find(asciiLower(name));
  return it == index().byName.end() ? kInvalidTableEncoding : it->second->table;
}

StringEncoding StringEncodings::convertEncodingToNSStringEncoding(TableEncoding encoding) {
  if (encoding == kInvalidTableEncoding) return kInvalidStringEncoding;
  for (const auto& [t, s] : kClassic) {
    if (t == encoding) return s;
  }
  return kTableBit | encoding;
}

TableEncoding StringEncodings::convertNSStringEncodingToEncoding(StringEncoding encoding) {
  TableEncoding t = kInvalidTableEncoding;
  for (const auto& [table, s] : kClassic) {
    if (s == encoding) t = table;
  }
  if (t == kInvalidTableEncoding && (encoding & kTableBit) && encoding <= 0xFFFFFFFFu) {
    t = static_cast<TableEncoding>(encoding & ~kTableBit);
  }
  return index().byTable.count(t) ? t : kInvalidTableEncoding;
}

std::string StringEncodings::convertEncodingToIANACharSetName(TableEncoding encoding) {
  auto it = index().byTable.find(encoding);
  if (it == index().byTable.end()) return {};
  std::string_view names = it->second->names;
  return std::string(names.substr(0, names.find(' ')));
}

std::vector<TableEncoding> StringEncodings::getListOfAvailableEncodings() {
  return index().available;
}

std::string StringEncodings::icuConverterName(StringEncoding encoding) {
  const Entry* e = entryForStringEncoding(encoding);
  if (!e || !e->icu) return {};
  UErrorCode status = U_ZERO_ERROR;
  Converter cnv(ucnv_open(e->icu, &status));
  if (U_FAILURE(status) || !cnv) return {};
  return ucnv_getName(cnv.get(), &status);
}

StringEncoding StringEncodings::stringEncodingForConverterName(std::string_view icuName) {
  UErrorCode status = U_ZERO_ERROR;
  Converter cnv(ucnv_open(std::string(icuName).c_str(), &status));
  if (U_FAILURE(status) || !cnv) return kInvalidStringEncoding;
  auto it = index().byConverter.find(ucnv_getName(cnv.get(), &status));
  if (it == index().byConverter.end()) return kInvalidStringEncoding;
  return convertEncodingToNSStringEncoding(it->second->table);
}

std::string StringEncodings::localizedNameOfStringEncoding(StringEncoding encoding) {
  const Entry* e = entryForStringEncoding(encoding);
  return e ? localizedString(e->display) : std::string();
}

bool StringEncodings::isUnicode(StringEncoding encoding) {
  const Entry* e = entryForStringEncoding(encoding);
  return e && unicodeRow(*e);
}

std::optional<std::u16string> StringEncodings::decode(std::string_view bytes,
                                                      StringEncoding encoding) {
  const Entry* e = entryForStringEncoding(encoding);
  return decodeEntry(bytes, e, e && !unicodeRow(*e));
}

std::optional<std::u16string> StringEncodings::decodeAsChosen(std::string_view bytes,
                                                              StringEncoding encoding) {
  return decodeEntry(bytes, entryForStringEncoding(encoding), false);
}

namespace {

std::optional<std::u16string> decodeEntry(std::string_view bytes, const Entry* e, bool c1) {
  if (!e || !e->icu) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  Converter cnv(ucnv_open(e->icu, &status));
  if (U_FAILURE(status) || !cnv) return std::nullopt;
  ucnv_setToUCallBack(cnv.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return std::nullopt;

  // Converted a slice at a time straight into the result, so a huge input
  // needs no second copy and binary content stops the work early. No
  // converter here makes more UTF-16 units than it reads bytes, apart from
  // what it held back from the previous slice.
  constexpr std::size_t kSlice = std::size_t{1} << 20;
  constexpr std::size_t kSlack = 64;
  std::u16string out;
  const char* src = bytes.data();
  const char* const end = bytes.data() + bytes.size();
  do {
    const char* sliceEnd = static_cast<std::size_t>(end - src) > kSlice ? src + kSlice : end;
    const bool flush = sliceEnd == end;
    for (;;) {
      const std::size_t start = out.size();
      const std::size_t room = static_cast<std::size_t>(sliceEnd - src) + kSlack;
      out.resize(start + room);
      char16_t* target = out.data() + start;
      status = U_ZERO_ERROR;
      ucnv_toUnicode(cnv.get(), &target, out.data() + start + room, &src, sliceEnd, nullptr, flush,
                     &status);
      out.resize(static_cast<std::size_t>(target - out.data()));
      if (holdsControls(out.data() + start, out.data() + out.size(), c1)) return std::nullopt;
      if (status == U_BUFFER_OVERFLOW_ERROR) continue;
      if (U_FAILURE(status)) return std::nullopt;
      break;
    }
  } while (src < end);

  if (e->ownMark && !out.empty() && out.front() == u'\uFEFF') out.erase(0, 1);
  return out;
}

}  // namespace

std::optional<std::u16string> StringEncodings::decodeCString(const char* bytes,
                                                             StringEncoding encoding) {
  if (!bytes) return std::nullopt;
  return decode(std::string_view(bytes, std::strlen(bytes)), encoding);
}

}  // namespace harbor

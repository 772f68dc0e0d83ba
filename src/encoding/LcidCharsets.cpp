// Windows locale identifiers to the charset of their ANSI code page, for
// names written by Windows programs (archive entries, old documents).
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "encoding/EncodingUtil.h"

namespace harbor {
namespace {

struct Row {
  std::uint16_t lcid;
  const char* charset;
};

constexpr const char* kLatin1 = "ISO-8859-1";   // code page 1252
constexpr const char* kLatin2 = "ISO-8859-2";   // 1250
constexpr const char* kArabic = "ISO-8859-6";   // 1256
constexpr const char* kGreek = "ISO-8859-7";    // 1253
constexpr const char* kHebrew = "ISO-8859-8";   // 1255
constexpr const char* kTurkish = "ISO-8859-9";  // 1254
constexpr const char* kThai = "ISO-8859-11";    // 874
constexpr const char* kBaltic = "ISO-8859-13";  // 1257
constexpr const char* kCyrillic = "cp1251";
constexpr const char* kJapanese = "cp932";
constexpr const char* kKorean = "cp949";
constexpr const char* kSimplified = "GBK";    // 936
constexpr const char* kTraditional = "BIG5";  // 950

// Sorted by identifier. Locales whose code page is Unicode only, or one of
// the few not in this list of charsets (Vietnamese 1258), fall to UTF-8.
constexpr Row kRows[] = {
    {0x0401, kArabic},       // ar-SA
    {0x0402, kCyrillic},     // bg-BG
    {0x0403, kLatin1},       // ca-ES
    {0x0404, kTraditional},  // zh-TW
    {0x0405, kLatin2},       // cs-CZ
    {0x0406, kLatin1},       // da-DK
    {0x0407, kLatin1},       // de-DE
    {0x0408, kGreek},        // el-GR
    {0x0409, kLatin1},       // en-US
    {0x040A, kLatin1},       // es-ES_tradnl
    {0x040B, kLatin1},       // fi-FI
    {0x040C, kLatin1},       // fr-FR
    {0x040D, kHebrew},       // he-IL
    {0x040E, kLatin2},       // hu-HU
    {0x040F, kLatin1},       // is-IS
    {0x0410, kLatin1},       // it-IT
    {0x0411, kJapanese},     // ja-JP
    {0x0412, kKorean},       // ko-KR
    {0x0413, kLatin1},       // nl-NL
    {0x0414, kLatin1},       // nb-NO
    {0x0415, kLatin2},       // pl-PL
    {0x0416, kLatin1},       // pt-BR
    {0x0417, kLatin1},       // rm-CH
    {0x0418, kLatin2},       // ro-RO
    {0x0419, kCyrillic},     // ru-RU
    {0x041A, kLatin2},       // hr-HR
    {0x041B, kLatin2},       // sk-SK
    {0x041C, kLatin2},       // sq-AL
    {0x041D, kLatin1},       // sv-SE
    {0x041E, kThai},         // th-TH
    {0x041F, kTurkish},      // tr-TR
    {0x0420, kArabic},       // ur-PK
    {0x0421, kLatin1},       // id-ID
    {0x0422, kCyrillic},     // uk-UA
    {0x0423, kCyrillic},     // be-BY
    {0x0424, kLatin2},       // sl-SI
    {0x0425, kBaltic},       // et-EE
    {0x0426, kBaltic},       // lv-LV
    {0x0427, kBaltic},       // lt-LT
    {0x0428, kCyrillic},     // tg-Cyrl-TJ
    {0x0429, kArabic},       // fa-IR
    {0x042C, kTurkish},      // az-Latn-AZ
    {0x042D, kLatin1},       // eu-ES
    {0x042E, kLatin2},       // hsb-DE
    {0x042F, kCyrillic},     // mk-MK
    {0x0432, kLatin1},       // tn-ZA
    {0x0434, kLatin1},       // xh-ZA
    {0x0435, kLatin1},       // zu-ZA
    {0x0436, kLatin1},       // af-ZA
    {0x0438, kLatin1},       // fo-FO
    {0x043B, kLatin1},       // se-NO
    {0x043E, kLatin1},       // ms-MY
    {0x043F, kCyrillic},     // kk-KZ
    {0x0440, kCyrillic},     // ky-KG
    {0x0441, kLatin1},       // sw-KE
    {0x0443, kTurkish},      // uz-Latn-UZ
    {0x0444, kCyrillic},     // tt-RU
    {0x0450, kCyrillic},     // mn-MN
    {0x0452, kLatin1},       // cy-GB
    {0x0456, kLatin1},       // gl-ES
    {0x0462, kLatin1},       // fy-NL
    {0x0464, kLatin1},       // fil-PH
    {0x0468, kLatin1},       // ha-Latn-NG
    {0x046A, kLatin1},       // yo-NG
    {0x046B, kLatin1},       // quz-BO
    {0x046C, kLatin1},       // nso-ZA
    {0x046D, kCyrillic},     // ba-RU
    {0x046E, kLatin1},       // lb-LU
    {0x046F, kLatin1},       // kl-GL
    {0x0470, kLatin1},       // ig-NG
    {0x047A, kLatin1},       // arn-CL
    {0x047C, kLatin1},       // moh-CA
    {0x047E, kLatin1},       // br-FR
    {0x0480, kArabic},       // ug-CN
    {0x0482, kLatin1},       // oc-FR
    {0x0483, kLatin1},       // co-FR
    {0x0485, kCyrillic},     // sah-RU
    {0x0487, kLatin1},       // rw-RW
    {0x0488, kLatin1},       // wo-SN
    {0x048C, kArabic},       // prs-AF
    {0x0801, kArabic},       // ar-IQ
    {0x0804, kSimplified},   // zh-CN
    {0x0807, kLatin1},       // de-CH
    {0x0809, kLatin1},       // en-GB
    {0x080A, kLatin1},       // es-MX
    {0x080C, kLatin1},       // fr-BE
    {0x0810, kLatin1},       // it-CH
    {0x0813, kLatin1},       // nl-BE
    {0x0814, kLatin1},       // nn-NO
    {0x0816, kLatin1},       // pt-PT
    {0x081A, kLatin2},       // sr-Latn-CS
    {0x081D, kLatin1},       // sv-FI
    {0x082C, kCyrillic},     // az-Cyrl-AZ
    {0x082E, kLatin2},       // dsb-DE
    {0x083B, kLatin1},       // se-SE
    {0x083C, kLatin1},       // ga-IE
    {0x083E, kLatin1},       // ms-BN
    {0x0843, kCyrillic},     // uz-Cyrl-UZ
    {0x085D, kLatin1},       // iu-Latn-CA
    {0x086B, kLatin1},       // quz-EC
    {0x0C01, kArabic},       // ar-EG
    {0x0C04, kTraditional},  // zh-HK
    {0x0C07, kLatin1},       // de-AT
    {0x0C09, kLatin1},       // en-AU
    {0x0C0A, kLatin1},       // es-ES
    {0x0C0C, kLatin1},       // fr-CA
    {0x0C1A, kCyrillic},     // sr-Cyrl-CS
    {0x0C3B, kLatin1},       // se-FI
    {0x0C6B, kLatin1},       // quz-PE
    {0x1001, kArabic},       // ar-LY
    {0x1004, kSimplified},   // zh-SG
    {0x1007, kLatin1},       // de-LU
    {0x1009, kLatin1},       // en-CA
    {0x100A, kLatin1},       // es-GT
    {0x100C, kLatin1},       // fr-CH
    {0x101A, kLatin2},       // hr-BA
    {0x103B, kLatin1},       // smj-NO
    {0x1401, kArabic},       // ar-DZ
    {0x1404, kTraditional},  // zh-MO
    {0x1407, kLatin1},       // de-LI
    {0x1409, kLatin1},       // en-NZ
    {0x140A, kLatin1},       // es-CR
    {0x140C, kLatin1},       // fr-LU
    {0x141A, kLatin2},       // bs-Latn-BA
    {0x143B, kLatin1},       // smj-SE
    {0x1801, kArabic},       // ar-MA
    {0x1809, kLatin1},       // en-IE
    {0x180A, kLatin1},       // es-PA
    {0x180C, kLatin1},       // fr-MC
    {0x181A, kLatin2},       // sr-Latn-BA
    {0x183B, kLatin1},       // sma-NO
    {0x1C01, kArabic},       // ar-TN
    {0x1C09, kLatin1},       // en-ZA
    {0x1C0A, kLatin1},       // es-DO
    {0x1C1A, kCyrillic},     // sr-Cyrl-BA
    {0x1C3B, kLatin1},       // sma-SE
    {0x2001, kArabic},       // ar-OM
    {0x2009, kLatin1},       // en-JM
    {0x200A, kLatin1},       // es-VE
    {0x201A, kCyrillic},     // bs-Cyrl-BA
    {0x203B, kLatin1},       // sms-FI
    {0x2401, kArabic},       // ar-YE
    {0x2409, kLatin1},       // en-029
    {0x240A, kLatin1},       // es-CO
    {0x241A, kLatin2},       // sr-Latn-RS
    {0x243B, kLatin1},       // smn-FI
    {0x2801, kArabic},       // ar-SY
    {0x2809, kLatin1},       // en-BZ
    {0x280A, kLatin1},       // es-PE
    {0x281A, kCyrillic},     // sr-Cyrl-RS
    {0x2C01, kArabic},       // ar-JO
    {0x2C09, kLatin1},       // en-TT
    {0x2C0A, kLatin1},       // es-AR
    {0x2C1A, kLatin2},       // sr-Latn-ME
    {0x3001, kArabic},       // ar-LB
    {0x3009, kLatin1},       // en-ZW
    {0x300A, kLatin1},       // es-EC
    {0x301A, kCyrillic},     // sr-Cyrl-ME
    {0x3401, kArabic},       // ar-KW
    {0x3409, kLatin1},       // en-PH
    {0x340A, kLatin1},       // es-CL
    {0x3801, kArabic},       // ar-AE
    {0x380A, kLatin1},       // es-UY
    {0x3C01, kArabic},       // ar-BH
    {0x3C0A, kLatin1},       // es-PY
    {0x4001, kArabic},       // ar-QA
    {0x4009, kLatin1},       // en-IN
    {0x400A, kLatin1},       // es-BO
    {0x4409, kLatin1},       // en-MY
    {0x440A, kLatin1},       // es-SV
    {0x4809, kLatin1},       // en-SG
    {0x480A, kLatin1},       // es-HN
    {0x4C0A, kLatin1},       // es-NI
    {0x500A, kLatin1},       // es-PR
    {0x540A, kLatin1},       // es-US
};

constexpr bool sorted() {
  for (std::size_t i = 1; i < std::size(kRows); ++i) {
    if (kRows[i - 1].lcid >= kRows[i].lcid) return false;
  }
  return true;
}
static_assert(sorted(), "LCID rows must stay sorted for the binary search");

}  // namespace

std::string EncodingUtil::getCharsetFromLCID(std::uint32_t lcid) {
  auto it = std::lower_bound(std::begin(kRows), std::end(kRows), lcid,
                             [](const Row& r, std::uint32_t id) { return r.lcid < id; });
  if (it != std::end(kRows) && it->lcid == lcid) return it->charset;
  return "UTF-8";
}

}  // namespace harbor

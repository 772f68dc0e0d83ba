#include "editor/FindTextInString.h"

#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <memory>
#include <sstream>

#include "editor/ByteScreen.h"
#include "platform/Cancellation.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace harbor {
namespace {

constexpr std::size_t npos = static_cast<std::size_t>(-1);
// Backtracking memory one match may use before it counts as a runaway.
constexpr int32_t kRegexStackLimit = 32 * 1024 * 1024;

// Unicode letters, marks and digits, plus "_" and "-": a hit touching one of
// these is part of a longer word.
bool isWordUnit(char16_t c) {
  if (c == u'_' || c == u'-') return true;
  if (c < 0x80) return (c >= u'0' && c <= u'9') || ((c | 0x20) >= u'a' && (c | 0x20) <= u'z');
  const int32_t mask = U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK;
  return (U_GET_GC_MASK(static_cast<UChar32>(c)) & mask) != 0;
}

// Simple case folding that keeps every offset where it was, so hits in the
// folded copy are hits in the source.
void foldInto(std::u16string_view in, std::u16string& out) {
  out.resize(in.size());
  const std::size_t n = in.size();
  constexpr std::size_t kChunk = 32;
  std::size_t i = 0;
  while (i < n) {
    // Runs of ASCII, the usual case in source code, fold without branches.
    if (i + kChunk <= n) {
      char16_t seen = 0;
      for (std::size_t k = 0; k < kChunk; ++k) seen |= in[i + k];
      if (seen < 0x80) {
        for (std::size_t k = 0; k < kChunk; ++k) {
          const char16_t c = in[i + k];
          out[i + k] = static_cast<char16_t>(c + (static_cast<unsigned>(c - u'A') < 26u ? 32 : 0));
        }
        i += kChunk;
        continue;
      }
    }
    for (const std::size_t end = std::min(n, i + kChunk); i < end;) {
      const char16_t c = in[i];
      if (c < 0x80) {
        out[i++] = (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
        continue;
      }
      if (U16_IS_LEAD(c) && i + 1 < n && U16_IS_TRAIL(in[i + 1])) {
        const UChar32 f = u_foldCase(U16_GET_SUPPLEMENTARY(c, in[i + 1]), U_FOLD_CASE_DEFAULT);
        const bool pair = f > 0xFFFF;
        out[i] = pair ? U16_LEAD(f) : c;
        out[i + 1] = pair ? U16_TRAIL(f) : in[i + 1];
        i += 2;
        continue;
      }
      if (U16_IS_SURROGATE(c)) {
        out[i++] = c;
        continue;
      }
      const UChar32 f = u_foldCase(c, U_FOLD_CASE_DEFAULT);
      out[i++] = (f <= 0xFFFF && !U16_IS_SURROGATE(f)) ? static_cast<char16_t>(f) : c;
    }
  }
}

// The next occurrence of `needle` at or after `from`. Candidates are found by
// the first and last unit together, eight positions at a time.
std::size_t findUnits(std::u16string_view hay, std::u16string_view needle, std::size_t from) {
  const std::size_t m = needle.size(), n = hay.size();
  if (m == 0 || from > n || n - from < m) return npos;
  const char16_t* h = hay.data();
  const char16_t first = needle[0], last = needle[m - 1];
  const std::size_t lastStart = n - m;
  std::size_t i = from;
  auto confirm = [&](std::size_t at) {
    return m <= 2 || std::memcmp(h + at + 1, needle.data() + 1, (m - 2) * sizeof(char16_t)) == 0;
  };
#if defined(__SSE2__)
  const __m128i vf = _mm_set1_epi16(static_cast<short>(first));
  const __m128i vl = _mm_set1_epi16(static_cast<short>(last));
  while (i + 8 <= lastStart + 1) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + m - 1));
    unsigned mask = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi16(a, vf), _mm_cmpeq_epi16(b, vl))));
    while (mask) {
      const unsigned bit = static_cast<unsigned>(__builtin_ctz(mask));
      const std::size_t at = i + bit / 2;
      if (confirm(at)) return at;
      mask &= ~(3u << bit);
    }
    i += 8;
  }
#endif
  for (; i <= lastStart; ++i) {
    if (h[i] == first && h[i + m - 1] == last && confirm(i)) return i;
  }
  return npos;
}

// findUnits over ASCII bytes.
std::size_t findBytes(std::string_view hay, std::string_view needle, std::size_t from) {
  if (needle.empty()) return npos;
  const std::size_t m = needle.size();
  return detail::findScreened(hay, from, m, detail::ByteScreen::exact(needle), [&](std::size_t at) {
    return m <= 2 || std::memcmp(hay.data() + at + 1, needle.data() + 1, m - 2) == 0;
  });
}

// findBytes ignoring the case of ASCII letters, for a needle already in
// lower case: no folded copy of the text is made.
std::size_t findBytesIgnoringCase(std::string_view hay, std::string_view lower, std::size_t from) {
  if (lower.empty()) return npos;
  return detail::findScreened(hay, from, lower.size(), detail::ByteScreen::ignoringCase(lower),
                              [&](std::size_t at) {
                                for (std::size_t k = 0; k < lower.size(); ++k) {
                                  if (detail::foldAscii(hay[at + k]) != lower[k]) return false;
                                }
                                return true;
                              });
}

// Start of the line holding `location`, looking back at most `limit` units;
// a longer line starts at the limit (never inside a surrogate pair).
template <class Char>
std::size_t lineStart(std::basic_string_view<Char> s, std::size_t location, std::size_t limit) {
  location = std::min(location, s.size());
  if (location == 0) return 0;
  const std::size_t lower = limit >= location ? 0 : location - limit;
  for (std::size_t i = location; i > lower; --i) {
    if (s[i - 1] == Char('\n')) return i;
  }
  if (lower > 0 && lower < s.size() && U16_IS_TRAIL(s[lower]) && U16_IS_LEAD(s[lower - 1])) {
    return lower + 1;
  }
  return lower;
}

// End of the line holding `end` (the offset of its "\n"), looking ahead at
// most `limit` units.
template <class Char>
std::size_t lineEnd(std::basic_string_view<Char> s, std::size_t end, std::size_t limit) {
  if (end >= s.size()) return end;
  const std::size_t upper = (limit >= s.size() - end) ? s.size() : end + limit;
  const auto* begin = s.data() + end;
  const auto* stop = s.data() + upper;
  const auto* nl = std::find(begin, stop, Char('\n'));
  if (nl != stop) return static_cast<std::size_t>(nl - s.data());
  if (upper < s.size() && upper > end && U16_IS_LEAD(s[upper - 1]) && U16_IS_TRAIL(s[upper])) {
    return upper - 1;
  }
  return upper;
}

// Makes the items of one search in source order. Hits whose shown lines fall
// in the same stretch of the source share one copy of it. Every allocation
// the items make is charged to the budget as it happens; what the builder
// took is given back unless the caller keeps the items (release()).
template <class Char>
class ItemBuilder {
 public:
  ItemBuilder(std::basic_string_view<Char> source, ItemMemoryBudget& budget)
      : source_(source), budget_(budget) {}
  ~ItemBuilder() { budget_.give(taken_); }
  ItemBuilder(const ItemBuilder&) = delete;
  ItemBuilder& operator=(const ItemBuilder&) = delete;

  FindTextItem make(TextRange range) {
    FindTextItem item;
    item._range = range;
    const std::size_t start = lineStart(source_, range.location, FindTextInString::kShowedContext);
    const std::size_t end = lineEnd(source_, range.end(), FindTextInString::kShowedContext);
    item._showedRange = TextRange{start, end - start};
    if (!stretch_ || start < stretchStart_ || end > stretchStart_ + stretch_->size()) {
      // A long line is copied a stretch ahead, so the hits after this one
      // on it point into the same copy.
      const std::size_t stretchEnd = std::max(end, lineEnd(source_, end, kStretch));
      // The copy and its control block; a copy that fails the budget is
      // still made for this one hit, which add() then refuses.
      if (!take((stretchEnd - start) * sizeof(char16_t) + kSharedOverhead)) full_ = true;
      const auto piece = source_.substr(start, stretchEnd - start);
      stretch_ = std::make_shared<const std::u16string>(piece.begin(), piece.end());
      stretchStart_ = start;
    }
    item._showedText = SharedText(stretch_, start - stretchStart_, end - start);
    return item;
  }

  // Appends a made item; false (leaving `items` as it was) once the hits are
  // over their budget.
  bool add(std::vector<FindTextItem>& items, FindTextItem&& item) {
    if (full_) return false;
    // A replacement longer than the string's own storage is a block of its own.
    if (item._replacedText.capacity() > kInlineUnits &&
        !take((item._replacedText.capacity() + 1) * sizeof(char16_t))) {
      full_ = true;
      return false;
    }
    if (items.size() == items.capacity() && !grow(items)) return false;
    items.push_back(std::move(item));
    return true;
  }

  // The caller keeps the items and with them what they are charged.
  void release() { taken_ = 0; }

 private:
  static constexpr std::size_t kStretch = 1 << 16;
  static inline const std::size_t kInlineUnits = std::u16string().capacity();
  static constexpr std::size_t kSharedOverhead = 32;

  bool take(std::size_t bytes) {
    if (!budget_.take(bytes)) return false;
    taken_ += bytes;
    return true;
  }

  // Grows the list by hand: while it moves, the old block and the new one
  // are both held, and both are charged.
  bool grow(std::vector<FindTextItem>& items) {
    const std::size_t old = items.capacity();
    std::size_t wanted = std::max<std::size_t>(64, old * 2);
    while (!take(wanted * sizeof(FindTextItem))) {
      // Near the limit the list grows by smaller steps before it gives up.
      const std::size_t step = (wanted - old) / 2;
      if (step < std::max<std::size_t>(16, old / 16)) return false;
      wanted = old + step;
    }
    items.reserve(wanted);
    budget_.give(old * sizeof(FindTextItem));
    taken_ -= old * sizeof(FindTextItem);
    return true;
  }

  std::basic_string_view<Char> source_;
  ItemMemoryBudget& budget_;
  std::size_t taken_ = 0;
  bool full_ = false;
  std::shared_ptr<const std::u16string> stretch_;
  std::size_t stretchStart_ = 0;
};

std::string withArgument(const char* key, std::string_view argument) {
  std::string text = localizedString(key);
  if (auto at = text.find("%@"); at != std::string::npos) text.replace(at, 2, argument);
  return text;
}

// Runs a literal search, calling `onHit` for each hit that passes the word
// test; `onHit` returns false to stop. False when the search stopped or the
// thread was cancelled before the end. The source is UTF-16, or ASCII text
// as bytes: there a needle that holds (after folding) a unit past ASCII
// cannot occur.
template <class Char, class OnHit>
bool literalSearch(std::basic_string_view<Char> source, const FindTextOptions& options,
                   OnHit&& onHit) {
  const std::u16string_view needle = options._findString;
  if (source.empty() || needle.empty() || needle.size() > source.size()) return true;
  std::u16string foldedNeedle;
  std::u16string_view wide = needle;
  if (options._isCaseSensitive) {
    foldInto(needle, foldedNeedle);
    wide = foldedNeedle;
  }
  std::basic_string<Char> pattern;
  if constexpr (sizeof(Char) == 1) {
    for (char16_t c : wide) {
      if (c >= 0x80) return true;
      pattern += static_cast<char>(c);
    }
  } else {
    pattern.assign(wide);
  }
  // UTF-16 is searched in a folded copy; ASCII bytes fold as they are read.
  std::basic_string<Char> foldedSource;
  std::basic_string_view<Char> hay = source;
  if constexpr (sizeof(Char) == 2) {
    if (options._isCaseSensitive) {
      foldInto(source, foldedSource);
      hay = foldedSource;
    }
  }
  std::size_t from = 0;
  while (from < hay.size()) {
    std::size_t at;
    if constexpr (sizeof(Char) == 1) {
      at = options._isCaseSensitive ? findBytesIgnoringCase(hay, pattern, from)
                                    : findBytes(hay, pattern, from);
    } else {
      at = findUnits(hay, pattern, from);
    }
    if (at == npos) break;
    const TextRange range{at, pattern.size()};
    bool take = true;
    if (options._isMatchWord) {
      // The units either side, 0 where there is none.
      const auto before = static_cast<char16_t>(at > 0 ? source[at - 1] : 0);
      const auto after =
          static_cast<char16_t>(range.end() < source.size() ? source[range.end()] : 0);
      take = !(before && isWordUnit(before)) && !(after && isWordUnit(after));
    }
    if (take && !onHit(range)) return false;
    from = range.end();
    if (isCurrentThreadCancelled()) return false;
  }
  return true;
}

UBool U_CALLCONV keepMatching(const void*, int32_t) {
  return !isCurrentThreadCancelled();
}
// Called at every start position the search tries: only one in 64K looks
// at the thread, or the looking costs more than the search.
UBool U_CALLCONV keepFinding(const void*, int64_t matchIndex) {
  return (matchIndex & 0xFFFF) != 0 || !isCurrentThreadCancelled();
}

enum class RegexOutcome { Done, Cancelled, Failed, Stopped };

// All matches of `pattern` over `source`; `onMatch` returns false to stop.
// Each match gets the whole time limit: the matcher restarts at every
// match's end.
template <class OnMatch>
RegexOutcome regexSearch(std::u16string_view source, std::u16string_view pattern, bool ignoreCase,
                         Error* error, OnMatch&& onMatch) {
  auto failWith = [&](long code, std::string message) {
    if (error) *error = Error{kFindTextErrorDomain, code, std::move(message)};
    return RegexOutcome::Failed;
  };
  if (source.size() > static_cast<std::size_t>(INT32_MAX) ||
      pattern.size() > static_cast<std::size_t>(INT32_MAX)) {
    return failWith(U_INDEX_OUTOFBOUNDS_ERROR, localizedString("FindTextTooLarge"));
  }
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError{};
  const icu::UnicodeString patternText(false, pattern.data(), static_cast<int32_t>(pattern.size()));
  std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
      patternText, ignoreCase ? UREGEX_CASE_INSENSITIVE : 0, parseError, status));
  if (U_FAILURE(status) || !compiled) {
    return failWith(status, withArgument("FindInvalidPattern", toUtf8(pattern)));
  }
  const icu::UnicodeString input(false, source.data(), static_cast<int32_t>(source.size()));
  std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(input, status));
  if (U_FAILURE(status) || !matcher) {
    return failWith(status, withArgument("FindInvalidPattern", toUtf8(pattern)));
  }
  matcher->setTimeLimit(FindTextInString::regexTimeLimit(), status);
  matcher->setStackLimit(kRegexStackLimit, status);
  matcher->setMatchCallback(keepMatching, nullptr, status);
  matcher->setFindProgressCallback(keepFinding, nullptr, status);
  const int32_t groups = matcher->groupCount();
  const int64_t length = static_cast<int64_t>(source.size());
  int64_t from = 0;
  RegexMatchResult result;
  // Where every match starts with a literal run, the run's occurrences are
  // the only places worth trying: found eight units at a time, each tried
  // with an anchored match, instead of the matcher stepping through every
  // position itself.
  const std::u16string start =
      ignoreCase ? std::u16string() : FindTextInString::regexLiteralStart(pattern);
  std::size_t tried = 0;
  auto findFrom = [&](int64_t at) {
    if (start.empty()) return static_cast<bool>(matcher->find(at, status));
    for (auto next = static_cast<std::size_t>(at);;) {
      next = findUnits(source, start, next);
      if (next == npos) return false;
      if (matcher->lookingAt(static_cast<int64_t>(next), status)) return true;
      if (U_FAILURE(status)) return false;
      if ((++tried & 0xFFFF) == 0 && isCurrentThreadCancelled()) {
        status = U_REGEX_STOPPED_BY_CALLER;
        return false;
      }
      ++next;
    }
  };
  while (from <= length) {
    status = U_ZERO_ERROR;
    if (!findFrom(from)) break;
    result.ranges.clear();
    for (int32_t g = 0; g <= groups; ++g) {
      const int64_t s = matcher->start64(g, status), e = matcher->end64(g, status);
      result.ranges.push_back(
          s < 0 ? TextRange{RegexMatchResult::kNoGroup, 0}
                : TextRange{static_cast<std::size_t>(s), static_cast<std::size_t>(e - s)});
    }
    if (!onMatch(result)) return RegexOutcome::Stopped;
    const TextRange whole = result.ranges.front();
    from = static_cast<int64_t>(whole.end());
    if (whole.length == 0) {
      // An empty match moves on by one character, or it would be found again.
      from += (whole.end() + 1 < source.size() && U16_IS_LEAD(source[whole.end()]) &&
               U16_IS_TRAIL(source[whole.end() + 1]))
                  ? 2
                  : 1;
    }
  }
  if (status == U_REGEX_STOPPED_BY_CALLER || isCurrentThreadCancelled()) {
    return RegexOutcome::Cancelled;
  }
  if (status == U_REGEX_TIME_OUT) {
    return failWith(status, withArgument("FindTimeOut", toUtf8(pattern)));
  }
  if (status == U_REGEX_STACK_OVERFLOW) {
    return failWith(status, withArgument("FindTimeOut", toUtf8(pattern)));
  }
  if (U_FAILURE(status) && status != U_INDEX_OUTOFBOUNDS_ERROR) {
    return failWith(status, withArgument("FindInvalidPattern", toUtf8(pattern)));
  }
  return RegexOutcome::Done;
}

}  // namespace

std::atomic<std::int32_t> FindTextInString::timeLimit_{5000};
std::atomic<std::size_t> FindTextInString::itemMemoryLimit_{kDefaultItemMemoryLimit};

std::shared_ptr<FindTextOptions> FindTextOptions::instanceWithString(std::u16string findString) {
  auto options = std::make_shared<FindTextOptions>();
  options->_findString = std::move(findString);
  return options;
}

TextRange FindTextItem::rangeInShowRange() const {
  return TextRange{_range.location - _showedRange.location, _range.length};
}

FindTextHighlight FindTextItem::attributedString() const {
  FindTextHighlight out;
  out.text = _showedText.str();
  out.range = rangeInShowRange();
  out.foregroundColor = Color::rgb(255, 0, 0);
  out.backgroundColor = Color::rgb(211, 211, 211);
  out.underline = true;
  return out;
}

std::string FindTextItem::description() const {
  std::ostringstream out;
  out << "<FindTextItem:" << static_cast<const void*>(this) << ">Range:" << toString(_range);
  return out.str();
}

std::vector<TextRange> FindTextItem::rangesOfStringInDocument(std::u16string_view string,
                                                              std::u16string_view source) {
  std::vector<TextRange> out;
  for (std::size_t at = findUnits(source, string, 0); at != npos;
       at = findUnits(source, string, at + string.size())) {
    out.push_back(TextRange{at, string.size()});
  }
  return out;
}

Error FindTextInString::tooManyItemsError() {
  return Error{kFindTextErrorDomain, U_BUFFER_OVERFLOW_ERROR,
               localizedString("FindTooManyResults")};
}

bool FindTextInString::isTooManyItemsError(const Error& error) {
  return error.domain == kFindTextErrorDomain && error.code == U_BUFFER_OVERFLOW_ERROR;
}

bool ItemMemoryBudget::take(std::size_t bytes) {
  std::size_t used = used_.load(std::memory_order_relaxed);
  do {
    if (bytes > limit_ || used > limit_ - bytes) return false;
  } while (!used_.compare_exchange_weak(used, used + bytes, std::memory_order_relaxed));
  return true;
}

void FindTextInString::setItemMemoryLimit(std::size_t bytes) {
  itemMemoryLimit_.store(bytes);
}
std::size_t FindTextInString::itemMemoryLimit() {
  return itemMemoryLimit_.load();
}

void FindTextInString::setRegexTimeLimit(std::int32_t limit) {
  timeLimit_.store(limit);
}
std::int32_t FindTextInString::regexTimeLimit() {
  return timeLimit_.load();
}

void FindTextInString::markWordBoundaries(FindTextOptions& options) {
  if (!options._isRegex || !options._isMatchWord) return;
  std::u16string& p = options._findString;
  if (!p.starts_with(u"\\b")) p.insert(0, u"\\b");
  if (!p.ends_with(u"\\b")) p += u"\\b";
}

std::vector<FindRangeObject> FindTextInString::findText(std::u16string_view source,
                                                        FindTextOptions& options, Error* error) {
  if (options._isRegex) {
    std::vector<FindRangeObject> out;
    for (const auto& match : findTextWithRegex(source, options, error)) {
      out.push_back(FindRangeObject::instanseWithRange(match.range()));
    }
    return out;
  }
  return findText(source, options, error, {});
}

std::vector<FindRangeObject> FindTextInString::findText(std::u16string_view source,
                                                        FindTextOptions& options, Error* error,
                                                        const RangeBlock& block) {
  std::vector<FindRangeObject> results;
  const std::size_t maxRanges = itemMemoryLimit() / sizeof(FindRangeObject);
  literalSearch<char16_t>(source, options, [&](TextRange range) {
    if (results.size() >= maxRanges) {
      if (error) *error = tooManyItemsError();
      return false;
    }
    results.push_back(FindRangeObject::instanseWithRange(range));
    if (block) block(results, options, range);
    return true;
  });
  return results;
}

std::vector<RegexMatchResult> FindTextInString::findTextWithRegex(std::u16string_view source,
                                                                  FindTextOptions& options,
                                                                  Error* error,
                                                                  const MatchBlock& block) {
  std::vector<RegexMatchResult> matches;
  if (source.empty()) return matches;
  markWordBoundaries(options);
  std::size_t bytes = 0;
  const std::size_t limit = itemMemoryLimit();
  const RegexOutcome outcome = regexSearch(
      source, options._findString, options._isCaseSensitive, error, [&](const RegexMatchResult& m) {
        bytes += sizeof(RegexMatchResult) + m.ranges.size() * sizeof(TextRange);
        if (bytes > limit) return false;
        matches.push_back(m);
        return true;
      });
  if (outcome == RegexOutcome::Stopped && error) *error = tooManyItemsError();
  if (outcome != RegexOutcome::Done) return {};
  if (block) {
    for (const auto& m : matches) block(m);
  }
  return matches;
}

namespace {

template <class Char>
std::vector<FindTextItem> literalItems(std::basic_string_view<Char> source,
                                       const FindTextOptions& options, Error* error,
                                       ItemMemoryBudget& budget) {
  std::vector<FindTextItem> items;
  ItemBuilder<Char> builder(source, budget);
  bool full = false;
  literalSearch<Char>(source, options, [&](TextRange range) {
    FindTextItem item = builder.make(range);
    item._replacedText = options._replaceString;
    if (!builder.add(items, std::move(item))) {
      full = true;
      return false;
    }
    return true;
  });
  if (full) {
    if (error) *error = FindTextInString::tooManyItemsError();
    return {};
  }
  builder.release();
  return items;
}
}  // namespace

std::vector<FindTextItem> FindTextInString::findTextItems(std::u16string_view source,
                                                          FindTextOptions& options, Error* error) {
  ItemMemoryBudget budget(itemMemoryLimit());
  return findTextItems(source, options, error, budget);
}

std::vector<FindTextItem> FindTextInString::findTextItems(std::u16string_view source,
                                                          FindTextOptions& options, Error* error,
                                                          ItemMemoryBudget& budget) {
  if (options._isRegex) {
    std::vector<FindTextItem> items;
    ItemBuilder<char16_t> builder(source, budget);
    // Items are built as the matches come, not from a list of all matches
    // first: that list alone would double the memory of a search with
    // millions of hits.
    if (source.empty()) return items;
    markWordBoundaries(options);
    const RegexOutcome outcome = regexSearch(source, options._findString, options._isCaseSensitive,
                                             error, [&](const RegexMatchResult& m) {
                                               FindTextItem item = builder.make(m.range());
                                               if (!options._replaceString.empty()) {
                                                 item._replacedText = replacementStringForResult(
                                                     m, source, 0, options._replaceString);
                                               }
                                               return builder.add(items, std::move(item));
                                             });
    if (outcome == RegexOutcome::Stopped && error) *error = tooManyItemsError();
    if (outcome != RegexOutcome::Done) return {};
    builder.release();
    return items;
  }
  return literalItems<char16_t>(source, options, error, budget);
}

std::vector<FindTextItem> FindTextInString::findTextItemsInAscii(std::string_view ascii,
                                                                 const FindTextOptions& options,
                                                                 Error* error,
                                                                 ItemMemoryBudget& budget) {
  return literalItems<char>(ascii, options, error, budget);
}

std::u16string FindTextInString::regexLiteralStart(std::u16string_view p) {
  if (p.starts_with(u"\\b")) p.remove_prefix(2);
  int depth = 0;
  bool inClass = false;
  for (std::size_t i = 0; i < p.size(); ++i) {
    const char16_t c = p[i];
    if (c == u'\\') {
      ++i;
    } else if (inClass) {
      if (c == u']') inClass = false;
    } else if (c == u'[') {
      inClass = true;
    } else if (c == u'(') {
      ++depth;
    } else if (c == u')') {
      --depth;
    } else if (c == u'|' && depth <= 0) {
      return {};
    }
  }
  std::size_t n = 0;
  while (n < p.size() && p[n] < 0x80 &&
         (std::isalnum(static_cast<unsigned char>(p[n])) || p[n] == u'_' || p[n] == u' ')) {
    ++n;
  }
  if (n < p.size() && (p[n] == u'*' || p[n] == u'?' || p[n] == u'{') && n > 0) --n;
  return std::u16string(p.substr(0, n));
}

std::vector<std::u16string> FindTextInString::findTextItems(std::u16string_view source,
                                                            std::u16string_view pattern) {
  std::vector<std::u16string> out;
  regexSearch(source, pattern, true, nullptr, [&](const RegexMatchResult& m) {
    for (const TextRange& r : m.ranges) {
      out.emplace_back(r.location == RegexMatchResult::kNoGroup
                           ? std::u16string()
                           : std::u16string(source.substr(r.location, r.length)));
    }
    return true;
  });
  return out;
}

std::size_t FindTextInString::findPrevousNewLineOrFirst(std::u16string_view source,
                                                        TextRange range) {
  return lineStart<char16_t>(source, range.location, npos);
}

std::size_t FindTextInString::findNextNewLineOrEnd(std::u16string_view source, TextRange range) {
  return lineEnd<char16_t>(source, range.end(), npos);
}

char16_t FindTextInString::getPreviousChar(std::u16string_view source, std::size_t index) {
  if (index == 0 || index > source.size()) return 0;
  return source[index - 1];
}

char16_t FindTextInString::getNextChar(std::u16string_view source, std::size_t index) {
  // Reads the unit after `index`; past the end there is none.
  if (index >= source.size() || index + 1 >= source.size()) return 0;
  return source[index + 1];
}

std::u16string FindTextInString::replacementStringForResult(const RegexMatchResult& result,
                                                            std::u16string_view source,
                                                            std::ptrdiff_t offset,
                                                            std::u16string_view templ) {
  std::u16string out;
  const std::size_t groups = result.ranges.empty() ? 0 : result.ranges.size() - 1;
  for (std::size_t i = 0; i < templ.size(); ++i) {
    const char16_t c = templ[i];
    if (c == u'\\' && i + 1 < templ.size()) {
      out += templ[++i];
      continue;
    }
    if (c == u'$' && i + 1 < templ.size() && templ[i + 1] >= u'0' && templ[i + 1] <= u'9') {
      std::size_t group = templ[++i] - u'0';
      // Further digits belong to the number while it still names a group.
      while (i + 1 < templ.size() && templ[i + 1] >= u'0' && templ[i + 1] <= u'9' &&
             group * 10 + (templ[i + 1] - u'0') <= groups) {
        group = group * 10 + (templ[++i] - u'0');
      }
      if (group <= groups) {
        const TextRange r = result.ranges[group];
        if (r.location != RegexMatchResult::kNoGroup) {
          const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(r.location) + offset;
          if (at >= 0 && static_cast<std::size_t>(at) + r.length <= source.size()) {
            out += source.substr(static_cast<std::size_t>(at), r.length);
          }
        }
      }
      continue;
    }
    out += c;
  }
  return out;
}

std::u16string FindTextInString::transformStringToPattern(std::u16string_view text) {
  std::u16string out;
  out.reserve(text.size() * 2);
  for (char16_t c : text) {
    out += u'\\';
    out += c;
  }
  return out;
}

}  // namespace harbor

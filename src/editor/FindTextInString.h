#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/TextStorage.h"

namespace harbor {

inline constexpr const char* kFindTextErrorDomain = "FindTextErrorDomain";

// What to look for and how; shared read-only by the workers of a search over
// many texts once the driver has prepared it.
struct FindTextOptions {
  static std::shared_ptr<FindTextOptions> instanceWithString(std::u16string findString);

  std::u16string _findString;
  std::u16string _replaceString;
  // Read as "ignore case": true searches without regard to case. Callers and
  // stored searches rely on this reading, so it stays inverted.
  bool _isCaseSensitive = false;
  bool _isRegex = false;
  bool _isMatchWord = false;
  bool _isLoop = false;  // the caller's wrap-around; the search ignores it
  bool _isAutoEncoding = false;
  std::string _encodingName;
  std::int64_t _findInType = 0;
  // Parallel lists: texts, their identities and where they came from.
  std::vector<std::u16string> _sourceObjects;
  std::vector<std::string> _sourceObjectsId;
  std::vector<std::string> _sourceURLs;
};

class FindRangeObject {
 public:
  static FindRangeObject instanseWithRange(TextRange range) { return FindRangeObject(range); }
  TextRange range() const { return range_; }
  bool operator==(const FindRangeObject&) const = default;

 private:
  explicit FindRangeObject(TextRange range) : range_(range) {}
  TextRange range_;
};

// A hit shown in a list: the text of its line with the hit marked.
struct FindTextHighlight {
  std::u16string text;
  TextRange range;
  Color foregroundColor;
  Color backgroundColor;
  bool underline = false;
};

// A read-only piece of text that many hits may share: hits close together
// on one line point into one copy of it rather than each holding its own,
// so a huge line with millions of hits is copied about once.
class SharedText {
 public:
  SharedText() = default;
  SharedText(std::u16string text)
      : owner_(std::make_shared<const std::u16string>(std::move(text))), length_(owner_->size()) {}
  SharedText(std::shared_ptr<const std::u16string> owner, std::size_t offset, std::size_t length)
      : owner_(std::move(owner)), offset_(offset), length_(length) {}

  std::u16string_view view() const {
    return owner_ ? std::u16string_view(*owner_).substr(offset_, length_) : std::u16string_view();
  }
  operator std::u16string_view() const { return view(); }
  std::u16string str() const { return std::u16string(view()); }
  std::size_t size() const { return length_; }
  bool empty() const { return length_ == 0; }
  std::u16string_view substr(std::size_t pos, std::size_t n = std::u16string_view::npos) const {
    return view().substr(pos, n);
  }
  friend bool operator==(const SharedText& a, std::u16string_view b) { return a.view() == b; }

 private:
  std::shared_ptr<const std::u16string> owner_;
  std::size_t offset_ = 0;
  std::size_t length_ = 0;
};

// One hit and the line around it.
struct FindTextItem {
  TextRange _range;
  TextRange _showedRange;
  SharedText _showedText;
  std::u16string _replacedText;
  std::int64_t _tag = 0;
  // 1-based line of the hit's start where the search counted lines (file
  // searches do), else 0.
  std::size_t _lineNumber = 0;

  // `_range` relative to the start of `_showedRange`.
  TextRange rangeInShowRange() const;
  // Red on light grey, underlined.
  FindTextHighlight attributedString() const;
  std::string description() const;
  // Every occurrence of `string` in `source`, by exact search.
  static std::vector<TextRange> rangesOfStringInDocument(std::u16string_view string,
                                                         std::u16string_view source);
};

// One regular-expression match: group 0 first; a group that took no part has
// location npos.
struct RegexMatchResult {
  std::vector<TextRange> ranges;
  TextRange range() const { return ranges.empty() ? TextRange{} : ranges.front(); }
  static constexpr std::size_t kNoGroup = static_cast<std::size_t>(-1);
};

// Memory the hits of one search hold, counted as it is allocated (the item
// list's whole capacity, the old and the new block while it grows, shared
// line copies, replacements off the string's own storage). The workers of a
// search over many texts share one, so together they stay within one limit.
class ItemMemoryBudget {
 public:
  explicit ItemMemoryBudget(std::size_t limit) : limit_(limit) {}
  // Takes `bytes` unless that would pass the limit; then takes nothing.
  bool take(std::size_t bytes);
  void give(std::size_t bytes) { used_.fetch_sub(bytes, std::memory_order_relaxed); }
  std::size_t used() const { return used_.load(std::memory_order_relaxed); }
  std::size_t limit() const { return limit_; }

 private:
  std::atomic<std::size_t> used_{0};
  const std::size_t limit_;
};

// Searches one string, literally or with a regular expression. Stateless;
// runs on any thread and stops when the thread's work is cancelled.
class FindTextInString {
 public:
  using RangeBlock = std::function<void(std::vector<FindRangeObject>& results,
                                        const FindTextOptions& options, TextRange range)>;
  using MatchBlock = std::function<void(const RegexMatchResult& match)>;

  // Ranges of all hits, by the options' mode.
  static std::vector<FindRangeObject> findText(std::u16string_view source, FindTextOptions& options,
                                               Error* error);
  // Literal search; `block` sees each hit after it joined the list.
  static std::vector<FindRangeObject> findText(std::u16string_view source, FindTextOptions& options,
                                               Error* error, const RangeBlock& block);
  // Regular-expression search. A bad pattern or a match that runs out of
  // time or memory fills `error` and gives nothing; a cancelled search gives
  // nothing and no error.
  static std::vector<RegexMatchResult> findTextWithRegex(std::u16string_view source,
                                                         FindTextOptions& options, Error* error,
                                                         const MatchBlock& block = {});
  static std::vector<FindTextItem> findTextItems(std::u16string_view source,
                                                 FindTextOptions& options, Error* error);
  // The same, charging the hits to `budget`. What a failed or cancelled
  // search took is given back; the hits returned stay charged.
  static std::vector<FindTextItem> findTextItems(std::u16string_view source,
                                                 FindTextOptions& options, Error* error,
                                                 ItemMemoryBudget& budget);
  // A literal search (not a regular expression) over text that is all
  // ASCII, given as its bytes: the items the search over the same text as
  // UTF-16 gives, without widening it first.
  static std::vector<FindTextItem> findTextItemsInAscii(std::string_view ascii,
                                                        const FindTextOptions& options,
                                                        Error* error, ItemMemoryBudget& budget);
  // All capture groups of all matches, group 0 first, ignoring case.
  static std::vector<std::u16string> findTextItems(std::u16string_view source,
                                                   std::u16string_view pattern);

  // Word-matching regex mode wraps the pattern in "\b" once; the options keep
  // the marks, so callers that share options do this before sharing them.
  static void markWordBoundaries(FindTextOptions& options);

  static std::size_t findPrevousNewLineOrFirst(std::u16string_view source, TextRange range);
  static std::size_t findNextNewLineOrEnd(std::u16string_view source, TextRange range);
  static char16_t getPreviousChar(std::u16string_view source, std::size_t index);
  static char16_t getNextChar(std::u16string_view source, std::size_t index);

  // The text a match becomes under `templ`: "$n" takes group n (as many
  // digits as name a group), "\" takes the next unit as it stands.
  static std::u16string replacementStringForResult(const RegexMatchResult& result,
                                                   std::u16string_view source,
                                                   std::ptrdiff_t offset,
                                                   std::u16string_view templ);

  // A backslash before every code unit.
  static std::u16string transformStringToPattern(std::u16string_view text);

  // Work units (roughly milliseconds) one regex match may take before it is
  // abandoned as a runaway pattern.
  static void setRegexTimeLimit(std::int32_t limit);
  static std::int32_t regexTimeLimit();

  // Lines longer than this show only this much around a hit on each side, so
  // a file that is one huge line cannot make every hit carry all of it.
  static constexpr std::size_t kShowedContext = 256;
  // Memory the hits of one search may hold, as ItemMemoryBudget counts it
  // (the texts searched are not counted). Past it the search stops with
  // tooManyItemsError() rather than exhaust memory on a pattern that matches
  // nearly everywhere; a search over many texts shares one such limit.
  static constexpr std::size_t kDefaultItemMemoryLimit = std::size_t{512} << 20;
  static void setItemMemoryLimit(std::size_t bytes);
  static std::size_t itemMemoryLimit();
  static Error tooManyItemsError();
  static bool isTooManyItemsError(const Error& error);

  // The literal run every match of a regular expression starts with (after
  // a leading "\b"): its leading ASCII letters, digits, "_" and spaces, when
  // no top-level "|" offers another start; a unit under a quantifier that
  // allows none is left out. Empty when there is no such run.
  static std::u16string regexLiteralStart(std::u16string_view pattern);

 private:
  static std::atomic<std::int32_t> timeLimit_;
  static std::atomic<std::size_t> itemMemoryLimit_;
};

}  // namespace harbor

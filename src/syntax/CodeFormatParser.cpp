#include "syntax/CodeFormatParser.h"

#include <unicode/uchar.h>

#include <algorithm>

#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {

constexpr std::size_t npos = std::u16string_view::npos;

bool startsWithAt(std::u16string_view text, std::size_t index, std::size_t last,
                  std::u16string_view marker) {
  return !marker.empty() && index <= last && marker.size() <= last - index &&
         text.compare(index, marker.size(), marker) == 0;
}

}  // namespace

// ---- RangeAttributes ------------------------------------------------------

std::uint32_t RangeAttributes::intern(const TextAttributes& attributes) {
  for (std::uint32_t i = 0; i < palette_.size(); ++i) {
    if (palette_[i] == attributes) return i;
  }
  palette_.push_back(attributes);
  return static_cast<std::uint32_t>(palette_.size() - 1);
}

void RangeAttributes::set(TextRange range, std::uint32_t attributes) {
  entries_.push_back({range, attributes, static_cast<std::uint32_t>(entries_.size())});
  finalized_ = false;
}

void RangeAttributes::set(TextRange range, const TextAttributes& attributes) {
  set(range, intern(attributes));
}

void RangeAttributes::finalize() {
  if (finalized_) return;
  std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
    return a.range != b.range ? a.range < b.range : a.order < b.order;
  });
  // Keep the last write of each range.
  std::size_t out = 0;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (i + 1 < entries_.size() && entries_[i + 1].range == entries_[i].range) continue;
    entries_[out++] = entries_[i];
  }
  entries_.resize(out);
  erasedCount_ = 0;
  finalized_ = true;
}

const TextAttributes* RangeAttributes::find(TextRange range) const {
  auto it = std::lower_bound(entries_.begin(), entries_.end(), range,
                             [](const Entry& e, const TextRange& r) { return e.range < r; });
  if (it == entries_.end() || it->range != range || it->erased) return nullptr;
  return &palette_[it->attributes];
}

void RangeAttributes::erase(TextRange range) {
  auto it = std::lower_bound(entries_.begin(), entries_.end(), range,
                             [](const Entry& e, const TextRange& r) { return e.range < r; });
  if (it != entries_.end() && it->range == range && !it->erased) {
    it->erased = true;
    ++erasedCount_;
  }
}

const TextAttributes* RangeAttributes::findFrom(std::size_t& cursor, TextRange range) const {
  while (cursor < entries_.size() && entries_[cursor].range < range) ++cursor;
  if (cursor == entries_.size() || entries_[cursor].range != range || entries_[cursor].erased) {
    return nullptr;
  }
  return &palette_[entries_[cursor].attributes];
}

void RangeAttributes::eraseAt(std::size_t cursor) {
  if (cursor < entries_.size() && !entries_[cursor].erased) {
    entries_[cursor].erased = true;
    ++erasedCount_;
  }
}

bool RangeAttributes::empty() const {
  return size() == 0;
}
std::size_t RangeAttributes::size() const {
  return entries_.size() - erasedCount_;
}

// ---- set-up ------------------------------------------------------------------

CodeFormatParser::CodeFormatParser() = default;
CodeFormatParser::~CodeFormatParser() = default;

void CodeFormatParser::loadStxParser(const std::optional<std::filesystem::path>& stxFile) {
  stxParser = stxFile ? StxParser::instanceWithStxFile(*stxFile) : std::make_shared<StxParser>();
}

void CodeFormatParser::initPara() {
  visibleRange = TextRange{};
  const StxParser& stx = *stxParser;
  escape = stx.escape.empty() ? 0 : stx.escape.front();
  // White space always splits words; the table holds it with the delimiters.
  for (char16_t c = 0; c < 128; ++c) asciiDelimiters_[c] = isEmptySpaceChar(c);
  otherDelimiters_.clear();
  for (char16_t c : stx.delimiter) {
    if (c < 128) {
      asciiDelimiters_[c] = true;
    } else {
      otherDelimiters_ += c;
    }
  }
  if (!defaultFont) defaultFont = editorDefaultFont();
  defaultTextColor = editorDefaultColor();
  suggestAttributeAndValue = elementWithAttributeValue();
  isLineComment1 = !stx.lineComment.empty();
  isLineComment2 = !stx.lineComment2.empty();
  isMultilineComment1 = !stx.commentOn.empty() && !stx.commentOff.empty();
  isMultilineComment2 = !stx.commentOn2.empty() && !stx.commentOff2.empty();
}

// ---- character classes -------------------------------------------------------

bool CodeFormatParser::isOtherSpace(char16_t c) {
  return c == 0x85 || u_isUWhiteSpace(c);
}

bool CodeFormatParser::isWhiteSpaceChar(char16_t c) {
  if (c < 128) return c == u' ' || c == u'\t';
  return c != 0x85 && c != 0x2028 && c != 0x2029 && u_isUWhiteSpace(c);
}

bool CodeFormatParser::isAlpha(char16_t c) {
  if (c < 128) return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
  return u_isalpha(c);
}

bool CodeFormatParser::isOtherDelimiter(char16_t c) const {
  return isEmptySpaceChar(c) || otherDelimiters_.find(c) != npos;
}

bool CodeFormatParser::isCurrentIndexSpace() const {
  char16_t c = currentCharStatic();
  return c == 0xA0 || c == u' ' || (c >= 0x09 && c <= 0x0D);
}

// ---- primitives ----------------------------------------------------------------

std::u16string CodeFormatParser::currentString() {
  return currentIndex < lastIndex ? std::u16string(1, text[currentIndex++]) : std::u16string();
}

std::u16string CodeFormatParser::currentStringStatic() const {
  return currentIndex < lastIndex ? std::u16string(1, text[currentIndex]) : std::u16string();
}

std::u16string CodeFormatParser::currentRange(TextRange r) const {
  if (r.location >= text.size()) return {};
  return std::u16string(text.substr(r.location, r.length));
}

char16_t CodeFormatParser::previousOneCharWithCondition(
    const std::function<bool(char16_t)>& condition, std::size_t index) const {
  std::size_t i = std::min(index, text.size());
  while (i > 0) {
    char16_t c = text[--i];
    if (!condition(c)) return c;
  }
  return 0;
}

char16_t CodeFormatParser::previousCharIgnoreWhiteSpace(std::size_t index) const {
  return previousOneCharWithCondition([](char16_t c) { return isEmptySpaceChar(c); }, index);
}

char16_t CodeFormatParser::getNextCharIgnoreWhiteSpace(std::size_t index) const {
  for (std::size_t i = index + 1; i < lastIndex; ++i) {
    if (!isEmptySpaceChar(text[i])) {
      noteReach(i + 1);
      return text[i];
    }
  }
  noteReach(lastIndex);
  return 0;
}

char16_t CodeFormatParser::skipWhiteChar() {
  while (currentIndex < lastIndex && isEmptySpaceChar(text[currentIndex])) ++currentIndex;
  return currentCharStatic();
}

char16_t CodeFormatParser::skipSpaceNoNewLineChar() {
  while (currentIndex < lastIndex && isWhiteSpaceChar(text[currentIndex])) ++currentIndex;
  return currentCharStatic();
}

void CodeFormatParser::skipChar(const std::function<bool(char16_t)>& whileTrue) {
  while (currentIndex < lastIndex && whileTrue(text[currentIndex])) ++currentIndex;
}

void CodeFormatParser::skipTextWithCondition(const std::function<bool(char16_t)>& untilTrue) {
  while (currentIndex < lastIndex && !untilTrue(text[currentIndex])) ++currentIndex;
}

void CodeFormatParser::skipDeliterChar() {
  while (currentIndex < lastIndex && isDeliterChar(text[currentIndex])) ++currentIndex;
}

void CodeFormatParser::skipNotAlphaOrUnderline() {
  while (currentIndex < lastIndex && !isAlphaOrUnderLine(text[currentIndex])) ++currentIndex;
}

void CodeFormatParser::skipNotAlphaNumberUnderline() {
  while (currentIndex < lastIndex && !isAlphaOrNumberOrUnderline(text[currentIndex])) {
    ++currentIndex;
  }
}

void CodeFormatParser::skipDigits() {
  while (currentIndex < lastIndex && isDigit(text[currentIndex])) ++currentIndex;
}

std::u16string CodeFormatParser::previousStringBySplitChar(std::size_t index) const {
  if (index == 0) return {};
  index = std::min(index, text.size());
  const std::size_t from = index > 50 ? index - 50 : 0;
  std::size_t i = index;
  while (i > from && !isDeliterChar(text[i - 1])) --i;
  return std::u16string(text.substr(i, index - i));
}

std::u16string CodeFormatParser::previousStringBySplitChar() const {
  std::size_t index = std::min(currentIndex, text.size());
  std::size_t i = index;
  while (i > 0 && !isDeliterChar(text[i - 1])) --i;
  return std::u16string(text.substr(i, index - i));
}

// ---- the main loop ---------------------------------------------------------------

void CodeFormatParser::parserDetail() {
  while (currentIndex < lastIndex) {
    const std::size_t gap = currentIndex;
    const char16_t c = skipWhiteChar();
    if (atTokenBoundary(gap)) break;
    if (c == 0) break;  // the end, or a NUL in the text
    if (scanOtherStartPattern()) continue;
    if (isScanComment()) continue;
    if (scanQuote()) continue;
    if (scanOtherPattern()) continue;
    if (isEndSymbol()) break;
    if (isDeliterChar(c)) {
      ++currentIndex;
      continue;
    }
    scanKeyword();
  }
}

bool CodeFormatParser::isEndSymbol() {
  if (!endSymbol) return false;
  const std::size_t save = currentIndex;
  for (char16_t e : *endSymbol) {
    if (currentChar() != e) {
      currentIndex = save;
      return false;
    }
  }
  lastIndex = currentIndex;
  return true;
}

namespace {
std::map<std::u16string, CodeFormatParser::EmbeddedScanner>& embeddedScanners() {
  static std::map<std::u16string, CodeFormatParser::EmbeddedScanner> scanners;
  return scanners;
}
}  // namespace

void CodeFormatParser::registerEmbeddedScanner(const std::u16string& language,
                                               EmbeddedScanner scanner) {
  embeddedScanners()[language] = scanner;
}

bool CodeFormatParser::scanOtherStartPattern() {
  if (formatInContainsType.empty()) return false;
  const auto& scanners = embeddedScanners();
  const auto it = scanners.find(formatInContainsType);
  return it != scanners.end() && it->second(*this);
}

// ---- words -------------------------------------------------------------------------

void CodeFormatParser::addKeywordItem(int indexTag, TextRange r) {
  if (keywordsItems.empty()) keywordsItems.resize(1);
  std::size_t bucket = indexTag >= 0 && static_cast<std::size_t>(indexTag) < keywordsItems.size()
                           ? static_cast<std::size_t>(indexTag)
                           : 0;
  keywordsItems[bucket].push_back(CodeRangeItem::instanceWithRange(r, kKeyword));
}

std::optional<TextRange> CodeFormatParser::scanWord() {
  std::size_t start = currentIndex;
  if (isDeliterChar(currentCharStatic())) ++start;
  // The first character is taken without inspection.
  ++currentIndex;
  while (currentIndex < lastIndex) {
    const char16_t c = text[currentIndex];
    if (isDeliterChar(c) || (escape != 0 && c == escape)) break;
    ++currentIndex;
  }
  if (currentIndex > lastIndex) currentIndex = lastIndex;
  if (currentIndex <= start) return std::nullopt;
  return TextRange{start, currentIndex - start};
}

std::optional<std::u16string_view> CodeFormatParser::scanKeyword() {
  const auto r = scanWord();
  if (!r) return std::nullopt;
  std::u16string_view word = text.substr(r->location, r->length);
  const int found = stxParser->findKeyword(word);
  if (found >= 0) addKeywordItem(found, *r);
  return word;
}

std::optional<std::u16string_view> CodeFormatParser::scanCommonKeyword() {
  const auto r = scanWord();
  if (!r) return std::nullopt;
  addKeywordItem(0, *r);
  return text.substr(r->location, r->length);
}

TextRange CodeFormatParser::scanKeywords(std::u16string_view literal) {
  const std::size_t start = currentIndex;
  std::size_t k = 0;
  while (k < literal.size() && currentIndex < lastIndex) {
    if (text[currentIndex] != literal[k]) {
      currentIndex = start;
      return zeroRange;
    }
    ++k;
    ++currentIndex;
  }
  return TextRange{start, k};
}

// ---- quotes ------------------------------------------------------------------------

TextRange CodeFormatParser::scanQuoteWithChar(char16_t quote, bool continueQuote) {
  if (quote == 0 || currentCharStatic() != quote) return zeroRange;
  const std::size_t start = currentIndex++;
  if (currentIndex >= lastIndex) return TextRange{start, 1};
  while (currentIndex < lastIndex) {
    const char16_t c = text[currentIndex];
    if (c == u'\n') {
      if (!continueQuote) break;
      ++currentIndex;
    } else if (escape != 0 && c == escape) {
      // The escape test comes first: with '' doubling a lone closing quote
      // is only stepped over, and the string runs on.
      ++currentIndex;
      const char16_t next = currentCharStatic();
      if (next != 0 && (next == quote || next == escape)) ++currentIndex;
    } else if (c == quote) {
      ++currentIndex;
      break;
    } else {
      ++currentIndex;
    }
  }
  return TextRange{start, currentIndex - start};
}

TextRange CodeFormatParser::scanQuote1() {
  return scanQuoteWithChar(stxParser->quotetion1, stxParser->continueQuote);
}

TextRange CodeFormatParser::scanQuote2() {
  return scanQuoteWithChar(stxParser->quotetion2, stxParser->continueQuote);
}

bool CodeFormatParser::scanQuote() {
  TextRange r = scanQuote1();
  if (r.length) {
    quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote1));
    return true;
  }
  r = scanQuote2();
  if (r.length) {
    quotetion2Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote2));
    return true;
  }
  return false;
}

TextRange CodeFormatParser::scanQuote(std::u16string_view marker, bool continueQuote) {
  if (!startsWithAt(text, currentIndex, lastIndex, marker)) return zeroRange;
  const std::size_t start = currentIndex;
  currentIndex += marker.size();
  std::size_t matched = 0;
  while (currentIndex < lastIndex) {
    const char16_t c = text[currentIndex];
    if (c == u'\n' && !continueQuote) break;
    if (escape != 0 && c == escape) {
      currentIndex = std::min(currentIndex + 2, lastIndex);
      matched = 0;
      continue;
    }
    ++currentIndex;
    if (c == marker[matched]) {
      if (++matched == marker.size()) return TextRange{start, currentIndex - start};
    } else {
      matched = 0;
    }
  }
  // Unlike a one-character quote, an unterminated one is no quote.
  noteReach(currentIndex + 1);
  currentIndex = start;
  return zeroRange;
}

// ---- comments ------------------------------------------------------------------------

TextRange CodeFormatParser::scanLineComment(std::u16string_view marker) {
  if (!startsWithAt(text, currentIndex, lastIndex, marker)) return zeroRange;
  const std::size_t start = currentIndex;
  const std::size_t nl = text.substr(0, lastIndex).find(u'\n', currentIndex + marker.size());
  currentIndex = nl == npos ? lastIndex : nl + 1;
  return TextRange{start, currentIndex - start};
}

TextRange CodeFormatParser::scanLineComment1() {
  return isLineComment1 ? scanLineComment(stxParser->lineComment) : zeroRange;
}

TextRange CodeFormatParser::scanLineComment2() {
  return isLineComment2 ? scanLineComment(stxParser->lineComment2) : zeroRange;
}

bool CodeFormatParser::isScanLineComment() {
  TextRange r = scanLineComment1();
  if (r.length) {
    lineComment1Items.push_back(CodeRangeItem::instanceWithRange(r, kLineComment1));
    return true;
  }
  r = scanLineComment2();
  if (r.length) {
    lineComment2Items.push_back(CodeRangeItem::instanceWithRange(r, kLineComment2));
    return true;
  }
  return false;
}

TextRange CodeFormatParser::scanMultilineComment(std::u16string_view on, std::u16string_view off,
                                                 bool isCanIgnoreCmtOff, bool* isIgnoredCmtOff) {
  if (!startsWithAt(text, currentIndex, lastIndex, on)) return zeroRange;
  const std::size_t start = currentIndex;
  const std::size_t from = start + on.size();

  // Where `off` next occurs from `from`. Markers that never close would
  // make a text full of openers quadratic, so each pass remembers how far a
  // marker was searched and what was found.
  std::size_t found = npos;
  auto cached = std::find_if(offSearches_.begin(), offSearches_.end(),
                             [&](const OffSearch& s) { return s.marker == off; });
  if (cached != offSearches_.end() && cached->limit == lastIndex && from >= cached->searchedFrom &&
      (cached->foundAt == npos || cached->foundAt >= from)) {
    found = cached->foundAt;
  } else {
    found = text.substr(0, lastIndex).find(off, from);
    if (cached == offSearches_.end()) {
      offSearches_.push_back({std::u16string(off), from, lastIndex, found});
    } else {
      *cached = OffSearch{std::u16string(off), from, lastIndex, found};
    }
  }

  noteReach(found != npos ? found + off.size() : lastIndex);
  if (found != npos) {
    currentIndex = found + off.size();
    return TextRange{start, currentIndex - start};
  }
  if (!isCanIgnoreCmtOff) {
    // An unterminated block comment is no comment: scanning goes on from
    // the opening marker.
    currentIndex = start;
    return zeroRange;
  }
  if (isIgnoredCmtOff) *isIgnoredCmtOff = true;
  currentIndex = lastIndex;
  return TextRange{start, lastIndex - start};
}

TextRange CodeFormatParser::scanMultilineComment(std::u16string_view on, std::u16string_view off) {
  return scanMultilineComment(on, off, false, nullptr);
}

TextRange CodeFormatParser::scanMultilineComment1() {
  return isMultilineComment1 ? scanMultilineComment(stxParser->commentOn, stxParser->commentOff)
                             : zeroRange;
}

TextRange CodeFormatParser::scanMultilineComment2() {
  return isMultilineComment2 ? scanMultilineComment(stxParser->commentOn2, stxParser->commentOff2)
                             : zeroRange;
}

TextRange CodeFormatParser::innerRange(TextRange r, std::u16string_view on,
                                       std::u16string_view off) {
  if (r.length < on.size() + off.size())
    return TextRange{r.location + std::min(r.length, on.size()), 0};
  return TextRange{r.location + on.size(), r.length - on.size() - off.size()};
}

void CodeFormatParser::addRangeToMultiline1Items(TextRange r) {
  multilineComment1Items.push_back(CodeRangeItem::instanceWithRange(r, kBlockComment1));
}

void CodeFormatParser::addRangeToMultiline2Items(TextRange r) {
  multilineComment2Items.push_back(CodeRangeItem::instanceWithRange(r, kBlockComment2));
}

bool CodeFormatParser::isScanComment() {
  TextRange r = scanMultilineComment1();
  if (r.length) {
    addRangeToMultiline1Items(r);
    return true;
  }
  r = scanMultilineComment2();
  if (r.length) {
    addRangeToMultiline2Items(r);
    return true;
  }
  return isScanLineComment();
}

// ---- embedded regions ---------------------------------------------------------------

bool CodeFormatParser::scanServerTag(const std::string& language, std::u16string_view begin,
                                     std::u16string_view end) {
  TextRange r = scanMultilineComment(begin, end);
  if (!r.length) return false;
  if (textStorage) loadOtherExtensionParser(language, innerRange(r, begin, end), *textStorage);
  return true;
}

std::shared_ptr<CodeFormatParser> CodeFormatParser::loadOtherExtensionParser(
    const std::string& language, TextRange range, TextStorage& storage) {
  auto parser = CodeFactory::codeFormatParserWithExtension(language);
  parser->defaultFont = defaultFont;
  parser->visibleRange = range;
  otherFormatParser.push_back(parser);
  parser->parserValueWithTextStorage(storage, range.location, range.end());
  return parser;
}

// ---- offset queries -----------------------------------------------------------------

bool CodeFormatParser::isRangeInItems(std::size_t offset, const std::vector<CodeRangeItem>& items) {
  // Lists are in text order; a binary search finds the candidate.
  auto it =
      std::upper_bound(items.begin(), items.end(), offset,
                       [](std::size_t o, const CodeRangeItem& i) { return o < i.range.location; });
  if (it != items.begin() && std::prev(it)->range.contains(offset)) return true;
  // Hooks may append out of order; fall back to a walk.
  return std::any_of(items.begin(), items.end(),
                     [&](const CodeRangeItem& i) { return i.range.contains(offset); });
}

bool CodeFormatParser::isCurrentOffsetInComment(std::size_t offset) const {
  return isRangeInItems(offset, lineComment1Items) || isRangeInItems(offset, lineComment2Items) ||
         isRangeInItems(offset, multilineComment1Items) ||
         isRangeInItems(offset, multilineComment2Items);
}

bool CodeFormatParser::isCurrentOffsetInQuote(std::size_t offset) const {
  return isRangeInItems(offset, quotetion1Items) || isRangeInItems(offset, quotetion2Items);
}

bool CodeFormatParser::isCurrentOffsetInOther(std::size_t offset) const {
  return isRangeInItems(offset, otherPatternItems);
}

bool CodeFormatParser::isCurrentOffsetNoSuggest(std::size_t offset) const {
  return isCurrentOffsetInComment(offset) || isCurrentOffsetInQuote(offset) ||
         isCurrentOffsetInOther(offset);
}

std::optional<std::size_t> CodeFormatParser::foundFirstPriority(std::size_t offset, char16_t first,
                                                                char16_t second) const {
  std::size_t i = std::min(offset, text.size());
  while (i > 0) {
    const char16_t c = text[--i];
    if (c == first) return std::nullopt;
    if (c == second) return i;
  }
  return std::nullopt;
}

// ---- suggestions ---------------------------------------------------------------------

bool CodeFormatParser::isCanLoadSuggestItems(const std::u16string& lastInput, TextRange selRange,
                                             SuggestField&) {
  if (lastInput.empty()) return false;
  const char16_t c = lastInput.back();
  if (!isAlphaOrNumberOrUnderlineOrMinus(c)) return false;
  return !isCurrentOffsetNoSuggest(selRange.location > 0 ? selRange.location - 1 : 0);
}

std::vector<std::u16string> CodeFormatParser::searchText(std::u16string_view term, bool,
                                                         const SuggestField*, long stxFieldType) {
  std::vector<std::u16string> out;
  if (term.empty()) return out;
  const std::u16string lower = toLower(term);
  const auto& items = stxParser->keywordItems;
  bool anyOfType = stxFieldType == 0;
  if (!anyOfType) {
    anyOfType = std::none_of(items.begin(), items.end(),
                             [&](const auto& i) { return i->keywordType == stxFieldType; });
  }
  for (const auto& item : items) {
    if (!anyOfType && item->keywordType != stxFieldType) continue;
    for (std::size_t k = 0; k < item->keywordsCaseOptions.size(); ++k) {
      if (item->keywordsCaseOptions[k].compare(0, lower.size(), lower) == 0) {
        out.push_back(item->keywords[k]);
      }
    }
  }
  return out;
}

void CodeFormatParser::loadSuggestItems(ISuggestDelegate& delegate) {
  delegate.onLoadSuggestItems(searchText(searchTerm, false, nullptr, 0));
}

// ---- the highlighting pass --------------------------------------------------------

void CodeFormatParser::parserSmart(TextStorage& storage) {
  if (!isHadParser) {
    if (!defaultFont) defaultFont = editorDefaultFont();
    storage.addFont(*defaultFont, TextRange{0, storage.length()});
  }
  if (storage.length() >= kHighlightCutOff) {
    // Large texts get no scan and no colours.
    removeAllTokenAttributes();
    forgetIncrementalState();
    lastScanned_ = {};
    isHadParser = true;
    return;
  }
  if (!parserIncremental(storage)) {
    parserValueWithTextStorage(storage);
    addAttributesToTextStorage();
    syncPoints_ = std::move(scanPoints_);
    scanPoints_.clear();
    lastScanned_ = TextRange{0, storage.length()};
    // Tags and embedded languages keep state across lines: they always get
    // the whole text.
    incrementalReady_ = elementItems.empty() && otherFormatParser.empty();
    passStorage_ = &storage;
    passLength_ = storage.length();
  }
  editPending_ = false;
}

void CodeFormatParser::forgetIncrementalState() {
  incrementalReady_ = false;
  editPending_ = false;
  syncPoints_.clear();
  scanPoints_.clear();
}

void CodeFormatParser::noteEdit(TextRange edited, std::ptrdiff_t change) {
  if (!incrementalReady_) return;
  const std::size_t oldLength = static_cast<std::size_t>(
      std::max<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(edited.length) - change));
  if (!editPending_) {
    editPending_ = true;
    editFrom_ = edited.location;
    editTo_ = edited.end();
    editChange_ = change;
    return;
  }
  // Widen the pending span to cover both, in the newest text's offsets.
  std::size_t to = edited.end();
  if (editTo_ > edited.location) {
    const std::size_t moved =
        editTo_ >= edited.location + oldLength
            ? static_cast<std::size_t>(static_cast<std::ptrdiff_t>(editTo_) + change)
            : edited.end();
    to = std::max(to, moved);
  }
  editFrom_ = std::min(editFrom_, edited.location);
  editTo_ = to;
  editChange_ += change;
}

bool CodeFormatParser::atTokenBoundary(std::size_t gapStart) {
  // Tokens read at least to where they ended, and a character beyond.
  noteReach(gapStart + 1);
  // The last line start within the blanks, if any.
  std::size_t at = currentIndex;
  while (at > gapStart && text[at - 1] != u'\n') --at;
  const bool lineStart = at > 0 && text[at - 1] == u'\n';
  if (lineStart && resyncing_ && passedEdit_) {
    // Back in step when the previous pass stood between tokens at the same
    // place of the unchanged text. A token after the edit must lie between,
    // so nothing scanned from here looks back into the edit.
    const auto old = static_cast<std::ptrdiff_t>(at) - editChange_;
    const auto it = std::lower_bound(
        syncPoints_.begin(), syncPoints_.end(), old,
        [](const SyncPoint& p, std::ptrdiff_t o) { return static_cast<std::ptrdiff_t>(p.at) < o; });
    if (old >= 0 && it != syncPoints_.end() && static_cast<std::ptrdiff_t>(it->at) == old) {
      stoppedAt_ = at;
      stopped_ = true;
      return true;
    }
  }
  if (lineStart) scanPoints_.push_back({at, std::max(reach_, at)});
  if (resyncing_ && currentIndex >= editTo_ && currentIndex < lastIndex) passedEdit_ = true;
  return false;
}

namespace {

// Items of one list, in text order: those before `from` stay, the fresh ones
// follow, then the old ones from `oldTail` on, moved by `change`.
void spliceItems(std::vector<CodeRangeItem>& old, std::vector<CodeRangeItem>& fresh,
                 std::size_t from, std::optional<std::size_t> oldTail, std::ptrdiff_t change) {
  const auto head = std::partition_point(
      old.begin(), old.end(), [&](const CodeRangeItem& i) { return i.range.location < from; });
  auto tail = old.end();
  if (oldTail) {
    tail = std::partition_point(
        head, old.end(), [&](const CodeRangeItem& i) { return i.range.location < *oldTail; });
  }
  for (auto it = tail; it != old.end(); ++it) {
    it->range.location =
        static_cast<std::size_t>(static_cast<std::ptrdiff_t>(it->range.location) + change);
    it->fullRange.location =
        static_cast<std::size_t>(static_cast<std::ptrdiff_t>(it->fullRange.location) + change);
  }
  // In place: a fresh copy of a long list on every keystroke would churn
  // the allocator for nothing.
  const auto at = old.erase(head, tail);
  old.insert(at, fresh.begin(), fresh.end());
  fresh = std::move(old);
}

}  // namespace

bool CodeFormatParser::parserIncremental(TextStorage& storage) {
  if (!incrementalReady_ || !editPending_ || !isHadParser || passStorage_ != &storage ||
      static_cast<std::ptrdiff_t>(passLength_) + editChange_ !=
          static_cast<std::ptrdiff_t>(storage.length()) ||
      editTo_ > storage.length()) {
    return false;
  }
  // The last boundary whose earlier tokens read nothing the edit touched,
  // and one more back: a token may peek a little past where it ends.
  const auto usable = std::partition_point(
      syncPoints_.begin(), syncPoints_.end(),
      [&](const SyncPoint& p) { return p.at <= editFrom_ && p.reach <= editFrom_; });
  const std::size_t kept = static_cast<std::size_t>(usable - syncPoints_.begin());
  const std::size_t start = kept >= 2 ? syncPoints_[kept - 2].at : 0;
  reach_ = kept >= 2 ? syncPoints_[kept - 2].reach : 0;

  std::vector<std::vector<CodeRangeItem>*> lists = {
      &attributesItems,        &otherPatternItems,      &lineComment1Items, &lineComment2Items,
      &multilineComment1Items, &multilineComment2Items, &quotetion1Items,   &quotetion2Items};
  std::vector<std::vector<CodeRangeItem>> oldLists;
  oldLists.reserve(lists.size());
  for (auto* l : lists) oldLists.push_back(std::move(*l));
  std::vector<std::vector<CodeRangeItem>> oldKeywords = std::move(keywordsItems);

  bindStorage(storage, start, storage.length());
  parserBegin();
  if (start == 0) {
    if (currentCharStatic() == 0xFEFF) ++currentIndex;
    parserStart();
  }
  resyncing_ = true;
  passedEdit_ = false;
  stopped_ = false;
  scanPoints_.clear();
  parserDetail();
  resyncing_ = false;
  actionElementItems();
  if (!elementItems.empty() || !otherFormatParser.empty() ||
      oldKeywords.size() != keywordsItems.size()) {
    return false;  // the whole pass runs instead and replaces every list
  }
  if (stopped_) lastIndex = stoppedAt_;
  const std::size_t end = lastIndex;

  // Colours of the scanned span only: outside it the storage already shows
  // what the previous pass wrote, moved with the text.
  RangeAttributes m;
  addAttributesToTextStorage(m);
  addAttributesToTextStorageExtensions(m);

  std::optional<std::size_t> oldTail;
  if (stopped_) oldTail = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(end) - editChange_);
  for (std::size_t i = 0; i < lists.size(); ++i) {
    spliceItems(oldLists[i], *lists[i], start, oldTail, editChange_);
  }
  for (std::size_t i = 0; i < keywordsItems.size(); ++i) {
    spliceItems(oldKeywords[i], keywordsItems[i], start, oldTail, editChange_);
  }

  std::vector<SyncPoint> points;
  points.reserve(syncPoints_.size() + scanPoints_.size());
  points.insert(points.end(), syncPoints_.begin(),
                syncPoints_.begin() + static_cast<std::ptrdiff_t>(kept >= 2 ? kept - 2 : 0));
  points.insert(points.end(), scanPoints_.begin(), scanPoints_.end());
  if (oldTail) {
    const std::size_t oldEditEnd =
        static_cast<std::size_t>(static_cast<std::ptrdiff_t>(editTo_) - editChange_);
    const auto moved = [&](std::size_t at) {
      return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(at) + editChange_);
    };
    std::size_t reach = reach_;
    for (auto it = std::partition_point(syncPoints_.begin(), syncPoints_.end(),
                                        [&](const SyncPoint& p) { return p.at < *oldTail; });
         it != syncPoints_.end(); ++it) {
      // What a later token read moves with the text; what the replaced
      // tokens read is now the edit's.
      const std::size_t r = it->reach >= oldEditEnd  ? moved(it->reach)
                            : it->reach <= editFrom_ ? it->reach
                                                     : editTo_;
      reach = std::max(reach, r);
      points.push_back({moved(it->at), reach});
    }
  }
  syncPoints_ = std::move(points);
  scanPoints_.clear();
  passLength_ = storage.length();
  lastScanned_ = TextRange{start, end - start};
  return true;
}

void CodeFormatParser::parserValueWithTextStorage(TextStorage& storage) {
  parserValueWithTextStorage(storage, 0, storage.length());
}

void CodeFormatParser::bindStorage(TextStorage& storage, std::size_t start, std::size_t end) {
  textStorage = &storage;
  textHolder_ = storage.stringSnapshot();
  text = *textHolder_;
  lastIndex = std::min(end, text.size());
  currentIndex = originIndex = std::min(start, lastIndex);
}

void CodeFormatParser::parserValueWithTextStorage(TextStorage& storage, std::size_t start,
                                                  std::size_t end) {
  // A scan from elsewhere replaces the lists: only parserSmart's whole pass
  // makes them a base for the next partial one.
  incrementalReady_ = false;
  scanPoints_.clear();
  reach_ = 0;
  bindStorage(storage, start, end);
  parserBegin();
  if (currentCharStatic() == 0xFEFF) ++currentIndex;
  parserStart();
  parserDetail();
  actionElementItems();
}

void CodeFormatParser::parserBegin() {
  removeAllTokenAttributes();
  keywordsItems.resize(std::max<std::size_t>(1, stxParser->keywordItems.size()));
  offSearches_.clear();
}

void CodeFormatParser::removeAllTokenAttributes() {
  attributesItems.clear();
  keywordsItems.clear();
  lineComment1Items.clear();
  lineComment2Items.clear();
  multilineComment1Items.clear();
  multilineComment2Items.clear();
  quotetion1Items.clear();
  quotetion2Items.clear();
  otherPatternItems.clear();
  otherFormatParser.clear();
  elementItems.clear();
}

void CodeFormatParser::actionElementItems() {
  if (elementItems.empty()) return;
  if (keywordsItems.empty()) keywordsItems.resize(1);
  for (const auto& e : elementItems) {
    keywordsItems[0].push_back(CodeRangeItem::instanceWithRange(e->range, e->type));
    for (const auto& attr : e->children()) {
      attributesItems.push_back(CodeRangeItem::instanceWithRange(attr->range, kAttributeName));
      if (const auto& v = attr->value()) {
        quotetion1Items.push_back(CodeRangeItem::instanceWithRange(v->range, kAttributeValue));
      }
    }
  }
}

void CodeFormatParser::addToRangeAttributes(RangeAttributes& m,
                                            const std::vector<CodeRangeItem>& items,
                                            const TextAttributes& attributes_) const {
  if (items.empty()) return;
  const std::uint32_t attributes = m.intern(attributes_);
  TextRange run = items.front().range;
  for (std::size_t i = 1; i < items.size(); ++i) {
    const TextRange& next = items[i].range;
    if (next.location == run.end()) {
      run = TextRange::unionRange(run, next);
    } else {
      m.set(run, attributes);
      run = next;
    }
  }
  m.set(run, attributes);
}

void CodeFormatParser::setOtherAttributesToTextStorage(const TextAttributes&, RangeAttributes&) {}

void CodeFormatParser::addAttributesToTextStorage(RangeAttributes& m) {
  const TextAttributes comment = commentAttributes();
  addToRangeAttributes(m, lineComment1Items, comment);
  addToRangeAttributes(m, lineComment2Items, comment);
  addToRangeAttributes(m, multilineComment1Items, comment);
  addToRangeAttributes(m, multilineComment2Items, comment);
  const TextAttributes quote = quotetionAttributes();
  addToRangeAttributes(m, quotetion1Items, quote);
  addToRangeAttributes(m, quotetion2Items, quote);
  const TextAttributes keyword = keywordAttributes();
  for (const auto& bucket : keywordsItems) addToRangeAttributes(m, bucket, keyword);
  addToRangeAttributes(m, attributesItems, attributesAttributes());
  setOtherAttributesToTextStorage(defaultAttributes(), m);
  // Embedded regions write last, over the host.
  for (const auto& other : otherFormatParser) other->addAttributesToTextStorage(m);
}

void CodeFormatParser::addAttributesToTextStorage() {
  if (!textStorage) return;
  RangeAttributes m;
  addAttributesToTextStorage(m);
  m.finalize();
  addAttributesToTextStorageExtensions(m);
  isHadParser = true;
}

void CodeFormatParser::addAttributesToTextStorageExtensions(RangeAttributes& m) {
  if (!textStorage) return;
  m.finalize();
  RangeAttributes resets;
  if (isHadParser) {
    const TextAttributes plain = defaultAttributes();
    const TextRange scanned{originIndex, lastIndex > originIndex ? lastIndex - originIndex : 0};
    // Both the storage's runs and the map are in text order: one walk
    // pairs them.
    std::size_t cursor = 0;
    textStorage->enumerateForegroundColorRuns(
        scanned, false,
        [&](const std::optional<Color>& color, TextRange run, const TextAttributes* uniform,
            bool&) {
          if (!color) return;
          if (const TextAttributes* want = m.findFrom(cursor, run)) {
            if (want->foregroundColor == color) {
              m.eraseAt(cursor);
              return;
            }
          } else if (uniform && *uniform == plain) {
            return;  // already plain: a reset would change nothing
          }
          resets.set(run, plain);
        });
  }
  if (!resets.empty() || !m.empty()) {
    // Resets first, so new colours land on clean text.
    setAttributesWithRangeAttributes(resets);
    setAttributesWithRangeAttributes(m);
  }
}

void CodeFormatParser::setAttributesWithRangeAttributes(const RangeAttributes& m) {
  if (!textStorage) return;
  m.forEach([&](TextRange r, const TextAttributes& a) { textStorage->setAttributes(a, r); });
}

void CodeFormatParser::removeSameAttributes(RangeAttributes& m, TextRange range) const {
  if (!textStorage) return;
  m.finalize();
  range.length = std::min(range.end(), textStorage->length()) -
                 std::min(range.location, textStorage->length());
  textStorage->enumerateForegroundColor(
      range, false, [&](const std::optional<Color>& color, TextRange run, bool&) {
        const TextAttributes* want = m.find(run);
        if (want && want->foregroundColor == color) m.erase(run);
      });
}

bool CodeFormatParser::isExceedVisibleRange() const {
  return visibleRange.length != 0 && currentIndex >= visibleRange.end();
}

bool CodeFormatParser::isLessThanVisibleRange() const {
  return visibleRange.length != 0 && currentIndex <= visibleRange.location;
}

bool CodeFormatParser::isTextInVisibleRange() const {
  return visibleRange.length == 0 ||
         (currentIndex >= visibleRange.location && currentIndex <= visibleRange.end());
}

// ---- languages at the caret ----------------------------------------------------------

CodeFormatParser* CodeFormatParser::getCodeFormatParserByAccessoryType() {
  for (const auto& other : otherFormatParser) {
    if (other->extTag == formatType) return other.get();
  }
  return this;
}

bool CodeFormatParser::changeInputAccessoryView(TextRange selection) {
  for (const auto& other : otherFormatParser) {
    auto inside = [&](std::size_t o) { return o >= other->originIndex && o <= other->lastIndex; };
    if (inside(selection.location) || inside(selection.end())) {
      if (formatType == other->formatType) return false;
      formatType = other->formatType;
      return true;
    }
  }
  if (formatType != extTag) {
    formatType = extTag;
    return true;
  }
  return false;
}

// ---- comment toggling ---------------------------------------------------------------

std::u16string CodeFormatParser::firstLineComment() const {
  return stxParser->lineComment.empty() ? stxParser->lineComment2 : stxParser->lineComment;
}

std::optional<std::u16string> CodeFormatParser::comments(TextRange selected) {
  CodeFormatParser* target = getCodeFormatParserByAccessoryType();
  const std::u16string selectedText = currentRange(selected);
  const std::u16string marker = target->firstLineComment();
  if (!marker.empty()) return insertStringToBeginLine(selectedText, marker);
  if (target->isMultilineComment1) {
    return target->stxParser->commentOn + selectedText + target->stxParser->commentOff;
  }
  return std::nullopt;
}

std::optional<std::u16string> CodeFormatParser::unComments(TextRange selected) {
  CodeFormatParser* target = getCodeFormatParserByAccessoryType();
  const std::u16string selectedText = currentRange(selected);
  const StxParser& stx = *target->stxParser;
  if (!stx.lineComment.empty()) {
    if (auto r = deleteStringToBeginLine(selectedText, stx.lineComment)) return r;
  }
  if (!stx.lineComment2.empty()) {
    if (auto r = deleteStringToBeginLine(selectedText, stx.lineComment2)) return r;
  }
  if (target->isMultilineComment1) {
    if (auto r = deleteStringToBeginLine(selectedText, stx.commentOn, stx.commentOff)) return r;
  }
  if (target->isMultilineComment2) {
    if (auto r = deleteStringToBeginLine(selectedText, stx.commentOn2, stx.commentOff2)) return r;
  }
  return std::nullopt;
}

namespace {
std::vector<std::u16string_view> splitLines(std::u16string_view text) {
  std::vector<std::u16string_view> lines;
  std::size_t start = 0;
  while (true) {
    std::size_t nl = text.find(u'\n', start);
    if (nl == npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, nl - start));
    start = nl + 1;
  }
  return lines;
}
}  // namespace

std::u16string CodeFormatParser::insertStringToBeginLine(std::u16string_view text,
                                                         std::u16string_view marker) {
  const auto lines = splitLines(text);
  std::u16string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool last = i + 1 == lines.size();
    // A selection ending in a line feed leaves its empty tail alone.
    if (!last || !lines[i].empty()) out.append(marker);
    out.append(lines[i]);
    if (!last) out += u'\n';
  }
  return out;
}

std::optional<std::u16string> CodeFormatParser::deleteStringToBeginLine(
    std::u16string_view text, std::u16string_view marker) {
  if (marker.empty()) return std::nullopt;
  const auto lines = splitLines(text);
  std::u16string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool last = i + 1 == lines.size();
    std::u16string_view line = lines[i];
    if (last && line.empty()) break;
    std::size_t lead = 0;
    while (lead < line.size() && isWhiteSpaceChar(line[lead])) ++lead;
    if (line.compare(lead, marker.size(), marker) != 0) return std::nullopt;
    out.append(line.substr(0, lead));
    out.append(line.substr(lead + marker.size()));
    if (!last) out += u'\n';
  }
  return out;
}

std::optional<std::u16string> CodeFormatParser::deleteStringToBeginLine(std::u16string_view text,
                                                                        std::u16string_view start,
                                                                        std::u16string_view end) {
  if (start.empty() || end.empty()) return std::nullopt;
  const std::size_t s = text.find(start);
  const std::size_t e = text.rfind(end);
  if (s == npos || e == npos || e < s + start.size()) return std::nullopt;
  auto blank = [](std::u16string_view part) {
    return std::all_of(part.begin(), part.end(), [](char16_t c) { return isEmptySpaceChar(c); });
  };
  if (!blank(text.substr(0, s)) || !blank(text.substr(e + end.size()))) return std::nullopt;
  std::u16string out(text.substr(0, s));
  out.append(text.substr(s + start.size(), e - s - start.size()));
  out.append(text.substr(e + end.size()));
  return out;
}

}  // namespace harbor

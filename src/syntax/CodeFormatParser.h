#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextStorage.h"
#include "syntax/CodeConfigItem.h"
#include "syntax/CodeRangeItem.h"
#include "syntax/StxParser.h"

namespace harbor {

// Texts of this many UTF-16 units or more, and files of more bytes, get no
// colours: the editor stays responsive on logs and data dumps.
inline constexpr std::size_t kHighlightCutOff = 524288;

// Ranges and the attributes to write over them. Two writes of one range
// collapse into one: the last wins.
class RangeAttributes {
 public:
  // Attribute sets are few; entries refer to them by index.
  std::uint32_t intern(const TextAttributes& attributes);
  void set(TextRange range, std::uint32_t attributes);
  void set(TextRange range, const TextAttributes& attributes);
  // Sorts by range and drops all but the last write of each range.
  void finalize();
  // After finalize(): the entry with exactly this range, or nullptr.
  const TextAttributes* find(TextRange range) const;
  void erase(TextRange range);
  bool empty() const;
  std::size_t size() const;
  template <class F>
  void forEach(F&& f) const {
    for (const auto& e : entries_) {
      if (!e.erased) f(e.range, palette_[e.attributes]);
    }
  }
  // After finalize(), for ranges asked in increasing order: the entry with
  // exactly `range`, found by advancing `cursor` (start it at 0).
  const TextAttributes* findFrom(std::size_t& cursor, TextRange range) const;
  void eraseAt(std::size_t cursor);

 private:
  struct Entry {
    TextRange range;
    std::uint32_t attributes;
    std::uint32_t order;
    bool erased = false;
  };
  std::vector<TextAttributes> palette_;
  std::vector<Entry> entries_;
  std::size_t erasedCount_ = 0;
  bool finalized_ = true;
};

// What a suggestion request knows about the caret: the field type (a
// `CodeKeywordItem::KeywordType`: tag name, attribute name or attribute
// value) and the names around it.
struct SuggestField {
  long fieldType = 0;
  std::u16string eleName;
  std::u16string attrName;
  TextRange attrValueRange;
};

// Where the suggestion logic talks back to the editor.
class ISuggestDelegate {
 public:
  virtual ~ISuggestDelegate() = default;
  virtual void onLoadSuggestItems(const std::vector<std::u16string>& items) = 0;
  virtual void onReplaceString(const std::u16string& text, std::size_t startOffset,
                               std::size_t endOffset, long focusDiff) = 0;
  virtual void onInputString(const std::u16string& text, long diff) = 0;
  // The selection in the text being typed into; reactions to typing start there.
  virtual TextRange onSelectedRange() { return {}; }
  // Asks for a fresh pass over the whole text a while after typing stops.
  virtual void onStartTimer() {}
};

// The base scanner of every language. One pass walks the text once from
// `currentIndex` to `lastIndex` and sorts what it finds into range lists; a
// language is a subclass that overrides a few hooks. The highlighting pass
// turns the lists into colours and writes only runs that changed.
class CodeFormatParser {
 public:
  CodeFormatParser();
  virtual ~CodeFormatParser();
  CodeFormatParser(const CodeFormatParser&) = delete;
  CodeFormatParser& operator=(const CodeFormatParser&) = delete;

  // ---- set-up -------------------------------------------------------------
  // Loads the language description (a subclass may adjust it afterwards).
  virtual void loadStxParser(const std::optional<std::filesystem::path>& stxFile);
  void setStxParser(std::shared_ptr<StxParser> parser) { stxParser = std::move(parser); }
  // Prepares the parser once its description is set.
  virtual void initPara();

  // ---- hooks --------------------------------------------------------------
  virtual std::string className() const { return "CodeFormatParser"; }
  virtual std::string defaultStxName() const { return {}; }
  virtual std::string defaultCtlFile() const { return {}; }
  virtual std::u16string defaultFormatType() const { return extTag; }
  virtual long defaultAccessoryType() const { return 0; }
  virtual bool isSupportPreview() const { return false; }
  virtual void parserStart() {}
  virtual void parserDetail();
  // By default: the opener of the language embedded through a template
  // (`formatInContainsType`), if that language registered a scanner.
  virtual bool scanOtherStartPattern();
  virtual bool scanOtherPattern() { return false; }
  // The word scanned, whether or not it is a keyword. A view into `text`:
  // a copy per word would cost more than the scan itself.
  virtual std::optional<std::u16string_view> scanKeyword();
  virtual void addRangeToMultiline1Items(TextRange r);
  virtual void addRangeToMultiline2Items(TextRange r);
  virtual void setOtherAttributesToTextStorage(const TextAttributes& defaults,
                                               RangeAttributes& rangeToAttributes);
  virtual std::map<std::u16string, std::map<std::u16string, std::vector<std::u16string>>>
  elementWithAttributeValue() const {
    return {};
  }
  virtual std::u16string checkTag(const std::u16string& t) { return t; }
  virtual bool reformatCode(const std::u16string&) { return true; }
  virtual bool isCanLoadSuggestItems(const std::u16string& lastInputString, TextRange selRange,
                                     SuggestField& stxFieldobj);
  virtual std::vector<std::u16string> searchText(std::u16string_view term, bool tail,
                                                 const SuggestField* attri, long stxFieldType);
  virtual void loadSuggestItems(ISuggestDelegate& delegate);
  virtual std::vector<std::u16string> greaterCharNoAction() const { return {}; }
  virtual std::vector<std::u16string> greaterCharNoContent() const { return {}; }
  virtual long selectedKeywordsItemFocusDiff(const std::u16string&) const { return 0; }
  virtual std::shared_ptr<CodeElement> getElementItemNeedEnd(std::size_t index,
                                                             const CodeElement* element) {
    (void)index;
    (void)element;
    return nullptr;
  }
  virtual bool isCurrentOffsetNoSuggest(std::size_t offset) const;

  // ---- the highlighting pass ---------------------------------------------
  // After an edit noted below, re-scans from a line start before the edit
  // and stops at the first line start after it where the scan is back in
  // step with the previous one; the lists and the colours then equal those
  // of a pass over the whole text. Anything else gets the whole text.
  void parserSmart(TextStorage& storage);
  // The storage changed since the last pass: `edited` is the new text's span
  // and `change` the difference in length, as the storage reports them.
  void noteEdit(TextRange edited, std::ptrdiff_t change);
  // The span the last parserSmart scanned.
  TextRange lastScannedRange() const { return lastScanned_; }
  void parserValueWithTextStorage(TextStorage& storage);
  virtual void parserValueWithTextStorage(TextStorage& storage, std::size_t currentIndex,
                                          std::size_t lastIndex);
  void parserBegin();
  void actionElementItems();
  void addAttributesToTextStorage();
  virtual void addAttributesToTextStorage(RangeAttributes& rangeToAttributes);
  void addToRangeAttributes(RangeAttributes& m, const std::vector<CodeRangeItem>& items,
                            const TextAttributes& attributes) const;
  void addAttributesToTextStorageExtensions(RangeAttributes& m);
  void setAttributesWithRangeAttributes(const RangeAttributes& m);
  void removeSameAttributes(RangeAttributes& m, TextRange range) const;
  void removeAllTokenAttributes();
  void setVisibleRange(TextRange r) { visibleRange = r; }
  bool isExceedVisibleRange() const;
  bool isLessThanVisibleRange() const;
  bool isTextInVisibleRange() const;

  static Color commentColor() { return Color::rgb(0, 128, 0); }
  static Color quotetionColor() { return Color::rgb(180, 41, 133); }
  static Color keywordsColor() { return Color::rgb(60, 60, 235); }
  static Color attributesColor() { return Color::rgb(138, 43, 226); }
  static Color otherColor() { return Color::rgb(220, 20, 180); }
  static Color editorDefaultColor() { return Color::rgb(0, 0, 0); }
  static Font editorDefaultFont() { return Font{"monospace", 16}; }
  TextAttributes commentAttributes() const { return {defaultFont, commentColor()}; }
  TextAttributes quotetionAttributes() const { return {defaultFont, quotetionColor()}; }
  TextAttributes keywordAttributes() const { return {defaultFont, keywordsColor()}; }
  TextAttributes attributesAttributes() const { return {defaultFont, attributesColor()}; }
  TextAttributes otherAttributes() const { return {defaultFont, otherColor()}; }
  TextAttributes defaultAttributes() const { return {defaultFont, defaultTextColor}; }

  // ---- character primitives ----------------------------------------------
  bool isCanContinue() const { return currentIndex < lastIndex; }
  bool isCanContinue(std::size_t index) const { return index < lastIndex; }
  bool isCanContinuePrevious() const { return currentIndex > 0; }
  char16_t currentChar() { return currentIndex < lastIndex ? text[currentIndex++] : 0; }
  char16_t currentCharStatic() const { return currentIndex < lastIndex ? text[currentIndex] : 0; }
  char16_t currentCharStaticChecked() const { return currentCharStatic(); }
  char16_t currentCharStatic(std::size_t index) const {
    return index < lastIndex ? text[index] : 0;
  }
  static char16_t currentCharStatic(std::u16string_view s, std::size_t index) {
    return index < s.size() ? s[index] : 0;
  }
  std::u16string currentString();
  std::u16string currentStringStatic() const;
  std::u16string currentRange(TextRange r) const;
  char16_t getNextOneChar() const { return getNextOneChar(currentIndex); }
  char16_t getNextOneChar(std::size_t index) const { return currentCharStatic(index + 1); }
  char16_t previousOneChar() const { return previousOneChar(currentIndex); }
  char16_t previousOneChar(std::size_t index) const {
    return index > 0 && index - 1 < text.size() ? text[index - 1] : 0;
  }
  char16_t previousOneCharWithCondition(const std::function<bool(char16_t)>& condition,
                                        std::size_t index) const;
  char16_t previousCharIgnoreWhiteSpace() const {
    return previousCharIgnoreWhiteSpace(currentIndex);
  }
  char16_t previousCharIgnoreWhiteSpace(std::size_t index) const;
  char16_t getNextCharIgnoreWhiteSpace(std::size_t index) const;
  char16_t skipWhiteChar();
  char16_t skipSpaceNoNewLineChar();
  void skipChar(const std::function<bool(char16_t)>& whileTrue);
  void skipTextWithCondition(const std::function<bool(char16_t)>& untilTrue);
  void skipDeliterChar();
  void skipNotAlphaOrUnderline();
  void skipNotAlphaNumberUnderline();
  void skipDigits();

  bool isDeliterChar() const { return isDeliterChar(currentCharStatic()); }
  bool isDeliterChar(char16_t c) const {
    if (c < 128) return asciiDelimiters_[c];
    return isOtherDelimiter(c);
  }
  bool isEmptySpaceChar() const { return isEmptySpaceChar(currentCharStatic()); }
  static bool isEmptySpaceChar(char16_t c) {
    if (c < 128) return c == u' ' || (c >= 0x09 && c <= 0x0D);
    return isOtherSpace(c);
  }
  static bool isWhiteSpaceChar(char16_t c);  // no line terminators
  static bool isAlpha(char16_t c);
  static bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
  static bool isAlphaOrUnderLine(char16_t c) { return c == u'_' || isAlpha(c); }
  static bool isAlphaOrNumber(char16_t c) { return isDigit(c) || isAlpha(c); }
  static bool isAlphaOrNumberOrUnderline(char16_t c) { return c == u'_' || isAlphaOrNumber(c); }
  static bool isAlphaOrNumberOrUnderlineOrMinus(char16_t c) {
    return c == u'-' || isAlphaOrNumberOrUnderline(c);
  }
  bool isCurrentAlpha() const { return isAlpha(currentCharStatic()); }
  bool isCurrentAlphaOrUnderLine() const { return isAlphaOrUnderLine(currentCharStatic()); }
  bool isCurrentAlphaOrNumber() const { return isAlphaOrNumber(currentCharStatic()); }
  bool isCurrentAlphaOrNumberOrUnderline() const {
    return isAlphaOrNumberOrUnderline(currentCharStatic());
  }
  bool isCurrentAlphaOrNumberOrUnderlineOrMinus() const {
    return isAlphaOrNumberOrUnderlineOrMinus(currentCharStatic());
  }
  bool isCurrentIndexNumber() const { return isDigit(currentCharStatic()); }
  bool isCurrentIndexSpace() const;

  std::u16string previousStringBySplitChar(std::size_t index) const;
  std::u16string previousStringBySplitChar() const;

  // ---- scanners ------------------------------------------------------------
  bool isScanComment();
  bool isScanLineComment();
  bool scanQuote();
  bool isEndSymbol();
  std::optional<std::u16string_view> scanCommonKeyword();
  TextRange scanKeywords(std::u16string_view literal);
  TextRange scanQuoteWithChar(char16_t quote, bool continueQuote);
  TextRange scanQuote1();
  TextRange scanQuote2();
  TextRange scanQuote(std::u16string_view marker, bool continueQuote);
  TextRange scanLineComment(std::u16string_view marker);
  TextRange scanLineComment1();
  TextRange scanLineComment2();
  TextRange scanMultilineComment(std::u16string_view on, std::u16string_view off,
                                 bool isCanIgnoreCmtOff, bool* isIgnoredCmtOff);
  TextRange scanMultilineComment(std::u16string_view on, std::u16string_view off);
  TextRange scanMultilineComment1();
  TextRange scanMultilineComment2();
  static TextRange innerRange(TextRange r, std::u16string_view on, std::u16string_view off);
  bool scanServerTag(const std::string& language, std::u16string_view begin,
                     std::u16string_view end);
  std::shared_ptr<CodeFormatParser> loadOtherExtensionParser(const std::string& language,
                                                             TextRange range, TextStorage& storage);

  // A language that can sit inside another file's template (an erb page's
  // Ruby) scans its own openers on the host's cursor. Languages register
  // while the format registry is built, before any parser runs.
  using EmbeddedScanner = bool (*)(CodeFormatParser& host);
  static void registerEmbeddedScanner(const std::u16string& language, EmbeddedScanner scanner);

  // ---- offset queries ----------------------------------------------------
  static bool isRangeInItems(std::size_t offset, const std::vector<CodeRangeItem>& items);
  bool isCurrentOffsetInComment(std::size_t offset) const;
  bool isCurrentOffsetInQuote(std::size_t offset) const;
  bool isCurrentOffsetInOther(std::size_t offset) const;
  // The offset of `second` when, walking back from `offset`, it comes before `first`.
  std::optional<std::size_t> foundFirstPriority(std::size_t offset, char16_t first,
                                                char16_t second) const;

  // ---- comment toggling ----------------------------------------------------
  std::u16string firstLineComment() const;
  std::optional<std::u16string> comments(TextRange selected);
  std::optional<std::u16string> unComments(TextRange selected);
  static std::u16string insertStringToBeginLine(std::u16string_view text,
                                                std::u16string_view marker);
  static std::optional<std::u16string> deleteStringToBeginLine(std::u16string_view text,
                                                               std::u16string_view marker);
  static std::optional<std::u16string> deleteStringToBeginLine(std::u16string_view text,
                                                               std::u16string_view start,
                                                               std::u16string_view end);
  // The parser of the language at the caret: an embedded region's, or this.
  CodeFormatParser* getCodeFormatParserByAccessoryType();
  // Moves `formatType` to the language of the region holding the selection.
  bool changeInputAccessoryView(TextRange selection);

  // ---- state ----------------------------------------------------------------
  std::size_t currentIndex = 0;
  std::size_t lastIndex = 0;
  const TextRange zeroRange{};
  bool isNeedEndSymbol = true;
  bool hasNoChangeCharacter = false;
  bool isHadParser = false;
  bool isIgnoreLastInput = false;
  bool isLineComment1 = false;
  bool isLineComment2 = false;
  bool isMultilineComment1 = false;
  bool isMultilineComment2 = false;
  char16_t escape = 0;
  std::u16string formatType;
  std::u16string formatInContainsType;
  std::size_t originIndex = 0;
  std::optional<std::u16string> endSymbol;
  TextStorage* textStorage = nullptr;
  Color defaultTextColor = editorDefaultColor();
  std::optional<Font> defaultFont;
  std::optional<CodeConfigItem> codeConfigItem;
  std::u16string extTag;
  std::shared_ptr<StxParser> stxParser = std::make_shared<StxParser>();
  std::u16string_view text;
  std::u16string searchTerm;
  std::size_t searchTermLocation = 0;
  std::u16string tag;
  std::vector<std::shared_ptr<CodeFormatParser>> otherFormatParser;
  std::vector<std::shared_ptr<CodeElement>> elementItems;
  std::vector<std::vector<CodeRangeItem>> keywordsItems;
  std::vector<CodeRangeItem> attributesItems;
  std::vector<CodeRangeItem> otherPatternItems;
  std::vector<CodeRangeItem> lineComment1Items;
  std::vector<CodeRangeItem> lineComment2Items;
  std::vector<CodeRangeItem> multilineComment1Items;
  std::vector<CodeRangeItem> multilineComment2Items;
  std::vector<CodeRangeItem> quotetion1Items;
  std::vector<CodeRangeItem> quotetion2Items;
  std::u16string lastInputString;
  std::map<std::u16string, std::map<std::u16string, std::vector<std::u16string>>>
      suggestAttributeAndValue;
  std::string folderPath;
  std::string fileName;
  TextRange visibleRange;

 protected:
  void addKeywordItem(int indexTag, TextRange r);
  // Points the parser at a storage and the span to scan, scanning nothing.
  void bindStorage(TextStorage& storage, std::size_t start, std::size_t end);
  // The word at the index: a delimiter under the index is stepped over.
  std::optional<TextRange> scanWord();
  bool isOtherDelimiter(char16_t c) const;
  static bool isOtherSpace(char16_t c);

 private:
  bool parserIncremental(TextStorage& storage);
  // At the top of the main loop, after the blanks from `gapStart`: records
  // the line start in the gap and answers whether a partial scan may stop.
  bool atTokenBoundary(std::size_t gapStart);
  void forgetIncrementalState();

  // Line starts where the last pass stood between tokens: a scan starting
  // at one of them sees what the whole pass saw from there on. `reach` is
  // how far the tokens before it read: an edit beyond it leaves them be.
  struct SyncPoint {
    std::size_t at;
    std::size_t reach;
  };
  std::vector<SyncPoint> syncPoints_;
  std::vector<SyncPoint> scanPoints_;
  // The farthest offset the scan read so far; searches for a closing marker
  // read far ahead, and a failed one to the end.
  mutable std::size_t reach_ = 0;
  void noteReach(std::size_t offset) const { reach_ = std::max(reach_, offset); }
  const TextStorage* passStorage_ = nullptr;
  std::size_t passLength_ = 0;
  bool incrementalReady_ = false;
  // The edits since the last pass: one span of the current text and the
  // total change of length.
  bool editPending_ = false;
  std::size_t editFrom_ = 0;
  std::size_t editTo_ = 0;
  std::ptrdiff_t editChange_ = 0;
  // Set while a partial scan runs.
  bool resyncing_ = false;
  bool passedEdit_ = false;
  std::size_t stoppedAt_ = 0;
  bool stopped_ = false;
  TextRange lastScanned_;

  struct OffSearch {
    std::u16string marker;
    std::size_t searchedFrom;
    std::size_t limit;
    std::size_t foundAt;
  };
  std::vector<OffSearch> offSearches_;
  std::shared_ptr<const std::u16string> textHolder_;
  // Delimiters: ASCII by table, others by list.
  std::array<bool, 128> asciiDelimiters_{};
  std::u16string otherDelimiters_;
};

}  // namespace harbor

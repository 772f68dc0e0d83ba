#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/TextStorage.h"

namespace harbor {

class CodeFormatParser;

// What an edit does to the text: replace `range` by `text`, then put the
// caret at `caret`.
struct TextEdit {
  TextRange range;
  std::u16string text;
  std::size_t caret = 0;
};

// Typing rules for code: an opening bracket or quote brings its closing
// partner, and deleting between a fresh pair removes both.
class CodeTextView {
 public:
  CodeTextView() { setup(); }
  void setup() { _autoPairCompletionEnabled = true; }

  bool _autoPairCompletionEnabled = false;
  const std::vector<std::u16string> _pairCharacters{u"()", u"[]", u"{}", u"\"\"", u"''", u"``"};

  // The closing text for a one-unit input, when pairing is on.
  std::optional<std::u16string> pariCharactor(const std::u16string& input) const;
  bool isInsertPairValue(const std::u16string& text, TextRange selection,
                         const std::u16string& input, const std::u16string& pairValue) const;
  // The edit typing `input` over `selection` makes.
  TextEdit insertText(const std::u16string& text, TextRange selection,
                      const std::u16string& input) const;
  // The edit Backspace makes; nothing at the start with nothing selected.
  std::optional<TextEdit> deleteBackward(const std::u16string& text, TextRange selection) const;

  static TextRange lineRange(const std::u16string& text, std::size_t offset);
  static std::u16string currentLine(const std::u16string& text, std::size_t offset);
  static bool isEndOfLine(const std::u16string& text, std::size_t offset);
  static bool isStartfLine(const std::u16string& text, std::size_t offset);
};

// Paragraph numbers for the gutter, with a cache of the last paragraph asked
// for so that numbering while scrolling walks only the distance moved.
class CYRLayoutManager {
 public:
  // The paragraph number (from 0) of the paragraph starting at `location`.
  std::size_t _paraNumberForRange(const std::u16string& text, std::size_t location);
  // An edit before the cached paragraph makes the cache unusable.
  void processEditingForTextStorage(std::size_t editedLocation);
  // The gutter text of the paragraph holding `offset`: its number from 1.
  std::string gutterText(const std::u16string& text, std::size_t offset);

  static std::size_t paragraphStart(const std::u16string& text, std::size_t offset);

  double _gutterWidth = 30;
  std::size_t _lastParaLocation = 0;
  std::size_t _lastParaNumber = 0;

 private:
  // Break counts before offsets every so many units, in text order: after
  // an edit above the cache, counting restarts at the last one before the
  // edit rather than at the top of a long text.
  static constexpr std::size_t kAnchorStep = 65536;
  std::vector<std::pair<std::size_t, std::size_t>> _anchors;
};

// A storage that colours itself: each edit runs the parser over the text.
class UTextStorage {
 public:
  explicit UTextStorage(std::shared_ptr<CodeFormatParser> parser, std::u16string text = {});

  void replaceCharactersInRange(TextRange range, const std::u16string& str);
  void setAttributes(const TextAttributes& attributes, TextRange range);
  void processEditing();
  const TextStorage& backingStore() const { return _backingStore; }
  TextStorage& backingStore() { return _backingStore; }

  std::shared_ptr<CodeFormatParser> _formatParser;
  TextStorage _backingStore;
  bool _isIgnore = false;
  bool _isLargeFile = false;
  bool _isLoadedProcess = false;
};

// A named regular expression and the attributes of its matches.
struct CYRToken {
  std::string name;
  std::u16string expression;
  TextAttributes attributes;
  static CYRToken tokenWithName(std::string name, std::u16string expression,
                                TextAttributes attributes) {
    return CYRToken{std::move(name), std::move(expression), std::move(attributes)};
  }
};

// The storage of the line-numbered view: edits widen to whole lines before
// styling, which this base class leaves alone.
class CYRTextStorage {
 public:
  std::vector<CYRToken> _tokens;
  Font _defaultFont{"monospace", 16};
  TextStorage _attributedString;

  void replaceCharactersInRange(TextRange range, const std::u16string& str);
  // The full lines around the last edit.
  TextRange lastStyledRange() const { return lastStyled_; }
  virtual void applyStylesToRange(TextRange) {}
  virtual ~CYRTextStorage() = default;

 private:
  TextRange lastStyled_;
};

}  // namespace harbor

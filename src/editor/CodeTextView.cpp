#include "editor/CodeTextView.h"

#include <algorithm>
#include <cstdint>

#include <fmt/format.h>

#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

bool isBreak(char16_t c) {
  return c == u'\n' || c == u'\r' || c == 0x2028 || c == 0x2029;
}

// Paragraph breaks in [from, to), a CR LF counting once.
std::size_t breaksBetween(const std::u16string& text, std::size_t from, std::size_t to) {
  std::size_t n = 0;
  for (std::size_t i = from; i < to; ++i) {
    if (!isBreak(text[i])) continue;
    if (text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    ++n;
  }
  return n;
}

}  // namespace

std::optional<std::u16string> CodeTextView::pariCharactor(const std::u16string& input) const {
  if (!_autoPairCompletionEnabled || input.size() != 1) return std::nullopt;
  switch (input[0]) {
    case u'"':
      return u"\"";
    case u'\'':
      return u"'";
    case u'`':
      return u"`";
    case u'(':
      return u")";
    case u'[':
      return u"]";
    case u'{':
      return u"}";
    default:
      return std::nullopt;
  }
}

bool CodeTextView::isInsertPairValue(const std::u16string& text, TextRange selection,
                                     const std::u16string& input,
                                     const std::u16string& pairValue) const {
  const std::size_t caret = selection.location;
  // A quote right after the same quote closes it instead of opening a pair.
  if (input == pairValue && caret > 0 && text[caret - 1] == input[0]) return false;
  const std::size_t after = selection.end();
  return after >= text.size() || text.compare(after, pairValue.size(), pairValue) != 0;
}

TextEdit CodeTextView::insertText(const std::u16string& text, TextRange selection,
                                  const std::u16string& input) const {
  if (auto pair = pariCharactor(input); pair && isInsertPairValue(text, selection, input, *pair)) {
    return TextEdit{selection, input + *pair, selection.location + input.size()};
  }
  return TextEdit{selection, input, selection.location + input.size()};
}

std::optional<TextEdit> CodeTextView::deleteBackward(const std::u16string& text,
                                                     TextRange selection) const {
  if (selection.length > 0) return TextEdit{selection, u"", selection.location};
  const std::size_t caret = selection.location;
  if (caret == 0 || caret > text.size()) return std::nullopt;
  // One code point back: a surrogate pair goes whole.
  std::size_t start = caret - 1;
  if (start > 0 && (text[start] & 0xFC00) == 0xDC00 && (text[start - 1] & 0xFC00) == 0xD800) {
    --start;
  }
  TextEdit plain{TextRange{start, caret - start}, u"", start};
  if (!_autoPairCompletionEnabled || caret >= text.size() || isStartfLine(text, caret) ||
      isEndOfLine(text, caret)) {
    return plain;
  }
  const std::u16string around = text.substr(caret - 1, 2);
  for (const auto& pair : _pairCharacters) {
    if (around == pair) return TextEdit{TextRange{caret - 1, 2}, u"", caret - 1};
  }
  return plain;
}

TextRange CodeTextView::lineRange(const std::u16string& text, std::size_t offset) {
  offset = std::min(offset, text.size());
  std::size_t start = CYRLayoutManager::paragraphStart(text, offset);
  std::size_t end = offset;
  while (end < text.size() && !isBreak(text[end])) ++end;
  return TextRange{start, end - start};
}

std::u16string CodeTextView::currentLine(const std::u16string& text, std::size_t offset) {
  TextRange r = lineRange(text, offset);
  return text.substr(r.location, r.length);
}

bool CodeTextView::isEndOfLine(const std::u16string& text, std::size_t offset) {
  return lineRange(text, offset).end() == offset;
}

bool CodeTextView::isStartfLine(const std::u16string& text, std::size_t offset) {
  return lineRange(text, offset).location == offset;
}

std::size_t CYRLayoutManager::paragraphStart(const std::u16string& text, std::size_t offset) {
  offset = std::min(offset, text.size());
  // Inside a CR LF counts as the end of the paragraph before.
  if (offset > 0 && offset < text.size() && text[offset - 1] == u'\r' && text[offset] == u'\n') {
    --offset;
  }
  while (offset > 0 && !isBreak(text[offset - 1])) --offset;
  return offset;
}

std::size_t CYRLayoutManager::_paraNumberForRange(const std::u16string& text,
                                                  std::size_t location) {
  location = std::min(location, text.size());
  if (_lastParaLocation > text.size()) _lastParaLocation = _lastParaNumber = 0;
  while (!_anchors.empty() && _anchors.back().first > text.size()) _anchors.pop_back();
  // Start from the cache or from the nearest anchor before, whichever is nearer.
  auto anchor =
      std::upper_bound(_anchors.begin(), _anchors.end(), std::make_pair(location, SIZE_MAX));
  if (anchor != _anchors.begin()) {
    --anchor;
    const std::size_t fromCache =
        location > _lastParaLocation ? location - _lastParaLocation : _lastParaLocation - location;
    if (location - anchor->first < fromCache) {
      _lastParaLocation = anchor->first;
      _lastParaNumber = anchor->second;
    }
  }
  std::size_t number = _lastParaNumber;
  if (location < _lastParaLocation) {
    number -= breaksBetween(text, location, _lastParaLocation);
  } else if (location > _lastParaLocation) {
    // Forward, leaving anchors behind past the last one.
    std::size_t at = _lastParaLocation;
    const std::size_t lastAnchor = _anchors.empty() ? 0 : _anchors.back().first;
    while (at < location) {
      std::size_t next = location;
      if (at >= lastAnchor && location - at > kAnchorStep) {
        next = at + kAnchorStep;
        // Never between the halves of a CR LF: it counts once.
        if (text[next - 1] == u'\r') ++next;
      }
      number += breaksBetween(text, at, next);
      at = next;
      if (at < location && (_anchors.empty() || _anchors.back().first < at)) {
        _anchors.emplace_back(at, number);
      }
    }
  }
  _lastParaLocation = location;
  _lastParaNumber = number;
  return number;
}

void CYRLayoutManager::processEditingForTextStorage(std::size_t editedLocation) {
  if (editedLocation < _lastParaLocation) _lastParaLocation = _lastParaNumber = 0;
  // Counts before the edit still hold; later ones may not.
  while (!_anchors.empty() && _anchors.back().first > editedLocation) _anchors.pop_back();
}

std::string CYRLayoutManager::gutterText(const std::u16string& text, std::size_t offset) {
  return fmt::format("{}", _paraNumberForRange(text, paragraphStart(text, offset)) + 1);
}

UTextStorage::UTextStorage(std::shared_ptr<CodeFormatParser> parser, std::u16string text)
    : _formatParser(std::move(parser)), _backingStore(std::move(text)) {}

void UTextStorage::replaceCharactersInRange(TextRange range, const std::u16string& str) {
  _backingStore.replaceCharacters(range, str);
  processEditing();
}

void UTextStorage::setAttributes(const TextAttributes& attributes, TextRange range) {
  _backingStore.setAttributes(attributes, range);
}

void UTextStorage::processEditing() {
  if (_formatParser && !_isIgnore && _formatParser->className() != "OtherTextFileFormatParser") {
    _formatParser->parserValueWithTextStorage(_backingStore, 0, _backingStore.length());
    _formatParser->addAttributesToTextStorage();
  }
  _isLoadedProcess = true;
}

void CYRTextStorage::replaceCharactersInRange(TextRange range, const std::u16string& str) {
  _attributedString.replaceCharacters(range, str);
  const std::u16string& text = _attributedString.string();
  TextRange edited{range.location, str.size()};
  TextRange first = CodeTextView::lineRange(text, edited.location);
  TextRange last = CodeTextView::lineRange(text, edited.end());
  lastStyled_ = TextRange{first.location, last.end() - first.location};
  applyStylesToRange(lastStyled_);
}

}  // namespace harbor

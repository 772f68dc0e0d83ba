#include "syntax/parsers/LanguageParsers.h"

#include <memory>

#include "syntax/CodeFactory.h"

namespace harbor {
namespace {

// After one of these a `/` starts a regular expression rather than a
// division: the start of the text, a line feed or an operator that expects
// an operand.
bool opensRegex(char16_t c) {
  switch (c) {
    case 0:
    case u'\n':
    case u'(':
    case u',':
    case u':':
    case u';':
    case u'=':
    case u'?':
      return true;
    default:
      return false;
  }
}

// The last character before `index` that isn't a space or a tab.
char16_t previousNonBlank(const CodeFormatParser& p, std::size_t index) {
  return p.previousOneCharWithCondition(&CodeFormatParser::isWhiteSpaceChar, index);
}

}  // namespace

// ---- JavaScript ----------------------------------------------------------------

bool JSFormatParser::scanOtherPattern() {
  if (currentCharStatic() != u'/' || !opensRegex(previousNonBlank(*this, currentIndex))) {
    return false;
  }
  const TextRange r = scanQuoteWithChar(u'/', false);
  if (!r.length) return false;
  otherPatternItems.push_back(CodeRangeItem::instanceWithRange(r, kOtherPattern));
  return true;
}

void JSFormatParser::setOtherAttributesToTextStorage(const TextAttributes& defaults,
                                                     RangeAttributes& rangeToAttributes) {
  CodeFormatParser::setOtherAttributesToTextStorage(defaults, rangeToAttributes);
  addToRangeAttributes(rangeToAttributes, otherPatternItems,
                       TextAttributes{defaults.font, otherColor()});
}

// ---- JSON ------------------------------------------------------------------------

void JsonFormatParser::loadStxParser(const std::optional<std::filesystem::path>& stxFile) {
  // What is loaded here goes into the registry's cache, where JavaScript
  // shares it, so it stays whole: initPara drops the keywords from a copy.
  CodeFormatParser::loadStxParser(stxFile);
}

void JsonFormatParser::initPara() {
  // A private copy, whether the description came from the cache or was just
  // loaded: emptying the shared one would strip JavaScript of its keywords.
  auto own = std::make_shared<StxParser>(*stxParser);
  own->keywordItems.clear();
  own->allKeywords.clear();
  stxParser = std::move(own);
  CodeFormatParser::initPara();
}

// ---- Perl ------------------------------------------------------------------------

bool PerlFormatParser::scanOtherPattern() {
  return parserEndSymbol() || parserRegex() || parseHereDoc() || parseEqualSymbol();
}

bool PerlFormatParser::parserEndSymbol() {
  const TextRange r = scanKeywords(u"__END__");
  if (!r.length) return false;
  // Whatever follows is data, not code.
  addRangeToMultiline1Items(TextRange{r.location, lastIndex - r.location});
  currentIndex = lastIndex;
  return true;
}

bool PerlFormatParser::parserRegex() {
  if (currentCharStatic() != u'/') return false;
  // `m/x/`, `qr/x/`, `s/x/y/` and `=~ /x/` as well.
  const char16_t before = previousNonBlank(*this, currentIndex);
  if (!opensRegex(before) && before != u'm' && before != u'r' && before != u's' && before != u'~') {
    return false;
  }
  const TextRange r = scanQuoteWithChar(u'/', false);
  if (!r.length) return false;
  quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kOtherPattern));
  return true;
}

bool PerlFormatParser::parseHereDoc() {
  const std::size_t start = currentIndex;
  if (currentCharStatic(start) != u'<' || currentCharStatic(start + 1) != u'<') return false;
  // Only names of exactly three units are taken, bare (letters) or quoted.
  const std::size_t at = start + 2;
  const char16_t q = currentCharStatic(at);
  const bool quoted = q == u'"' || q == u'\'';
  if (quoted) {
    currentIndex = at;
    const TextRange r = scanQuoteWithChar(q, false);
    currentIndex = start;
    if (r.length != 5 || text[r.end() - 1] != q) return false;
  } else {
    for (std::size_t i = at; i < at + 3; ++i) {
      if (!isAlpha(currentCharStatic(i))) return false;
    }
    if (isAlphaOrNumberOrUnderline(currentCharStatic(at + 3))) return false;
  }
  const std::u16string_view opener = text.substr(start, quoted ? 2 + 5 : 2 + 3);
  const std::u16string_view name = text.substr(quoted ? at + 1 : at, 3);
  const TextRange r = scanMultilineComment(opener, name);
  if (!r.length) return false;
  quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote1));
  return true;
}

bool PerlFormatParser::parseEqualSymbol() {
  if (currentCharStatic() != u'=') return false;
  // POD starts with `=` in the first column or at the start of the text;
  // a `=` right after a `0` is taken as one as well.
  const char16_t before = previousOneChar();
  if (before == u'\n' || before == u'0' || before == 0) return parseComment();
  return parserDeclare();
}

bool PerlFormatParser::parseComment() {
  // A POD block with no `=cut` runs to the end of the text.
  bool unclosed = false;
  const TextRange r = scanMultilineComment(u"=", u"\n=cut", true, &unclosed);
  if (!r.length) return false;
  addRangeToMultiline1Items(r);
  return true;
}

bool PerlFormatParser::parserDeclare() {
  const std::size_t start = currentIndex;
  if (currentCharStatic(start) != u'=' || currentCharStatic(start + 1) != u'>') return false;
  // `key => q{text}`: the braces and what they hold are a string.
  currentIndex = start + 2;
  skipWhiteChar();
  if (currentCharStatic() == u'q' && getNextOneChar() == u'{') {
    ++currentIndex;
    const TextRange r = scanMultilineComment(u"{", u"}");
    if (r.length) {
      quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote1));
      return true;
    }
  }
  currentIndex = start;
  return false;
}

// ---- Python ----------------------------------------------------------------------

// Block strings are comments (documentation) unless assigned to a name.
void PythonFormatParser::addRangeToMultiline1Items(TextRange r) {
  if (previousNonBlank(*this, r.location) == u'=') {
    quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote1));
  } else {
    CodeFormatParser::addRangeToMultiline1Items(r);
  }
}

void PythonFormatParser::addRangeToMultiline2Items(TextRange r) {
  if (previousNonBlank(*this, r.location) == u'=') {
    quotetion2Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote2));
  } else {
    CodeFormatParser::addRangeToMultiline2Items(r);
  }
}

// ---- Ruby ------------------------------------------------------------------------

bool RubyFormatParser::scanOtherPattern() {
  return parserRegex() || parseHereDoc();
}

bool RubyFormatParser::parserRegex() {
  const char16_t c = currentCharStatic();
  TextRange r;
  if (c == u'%') {
    r = scanMultilineComment(u"%r{", u"}");
  } else if (c == u'/') {
    // `a/b` divides; `puts /x/`, `if /x/` and `=~ /x/` match.
    if (isAlphaOrNumber(previousOneChar())) return false;
    const char16_t before = previousNonBlank(*this, currentIndex);
    if (!isAlpha(before) && !opensRegex(before) && before != u'~') return false;
    r = scanQuoteWithChar(u'/', false);
  }
  if (!r.length) return false;
  quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kOtherPattern));
  return true;
}

bool RubyFormatParser::parseHereDoc() {
  const std::size_t start = currentIndex;
  std::optional<TextRange> run;
  // `call(<<A, <<B)`: several here-documents open on one line and their
  // bodies follow one another; together they are one string.
  std::size_t at = start;
  while (currentCharStatic(at) == u'<' && currentCharStatic(at + 1) == u'<') {
    const std::size_t nameAt = at + 2;
    std::u16string_view name;
    std::size_t openEnd = nameAt;
    const char16_t q = currentCharStatic(nameAt);
    if (q == u'"' || q == u'\'') {
      currentIndex = nameAt;
      const TextRange quoted = scanQuoteWithChar(q, false);
      if (quoted.length < 3 || text[quoted.end() - 1] != q) break;
      name = text.substr(nameAt + 1, quoted.length - 2);
      openEnd = quoted.end();
    } else {
      while (openEnd < lastIndex && !isDeliterChar(text[openEnd]) &&
             (escape == 0 || text[openEnd] != escape) && text[openEnd] != 0) {
        ++openEnd;
      }
      if (openEnd == nameAt) break;
      name = text.substr(nameAt, openEnd - nameAt);
    }
    currentIndex = at;
    std::u16string close = u"\n";
    close += name;
    const TextRange r = scanMultilineComment(text.substr(at, openEnd - at), close);
    if (!r.length) break;
    run = run ? TextRange::unionRange(*run, r) : r;
    at = openEnd;
    while (at < lastIndex && isWhiteSpaceChar(text[at])) ++at;
    if (currentCharStatic(at) != u',') break;
    ++at;
    while (at < lastIndex && isWhiteSpaceChar(text[at])) ++at;
  }
  if (!run) {
    currentIndex = start;
    return false;
  }
  quotetion1Items.push_back(CodeRangeItem::instanceWithRange(*run, kQuote1));
  currentIndex = run->end();
  return true;
}

// ---- PHP -------------------------------------------------------------------------

void PhpFormatParser::initPara() {
  // The host page hands over after `<?php`; the code ends at `?>`.
  endSymbol = u"?>";
  isNeedEndSymbol = false;
  CodeFormatParser::initPara();
}

bool PhpFormatParser::scanOtherPattern() {
  const std::size_t start = currentIndex;
  if (start > lastIndex || lastIndex - start < 10) return false;
  if (text.compare(start, 3, u"<<<") != 0) return false;
  // Here-documents with a three-letter name: `<<<EOT` ... `EOT;`.
  for (std::size_t i = start + 3; i < start + 6; ++i) {
    if (!isAlpha(text[i])) return false;
  }
  if (isAlphaOrNumberOrUnderline(text[start + 6])) return false;
  std::u16string close(text.substr(start + 3, 3));
  close += u';';
  const TextRange r = scanMultilineComment(text.substr(start, 6), close);
  if (!r.length) return false;
  quotetion1Items.push_back(CodeRangeItem::instanceWithRange(r, kQuote1));
  return true;
}

// ---- key-value files -------------------------------------------------------------

void KeyValueFormatPaser::initPara() {
  CodeFormatParser::initPara();
  keySplitCharacterSet = keySplitString();
}

std::optional<std::u16string_view> KeyValueFormatPaser::scanKeyword() {
  // Every first word is a key; what follows a split character is its value.
  auto word = scanCommonKeyword();
  if (word) scanCheckSplitChar();
  return word;
}

void KeyValueFormatPaser::scanCheckSplitChar() {
  const char16_t c = currentCharStatic();
  if (c == 0 || keySplitCharacterSet.find(c) == std::u16string::npos) return;
  ++currentIndex;
  // The value runs to the line end; strings and a trailing comment in it
  // keep their colours.
  while (currentIndex < lastIndex) {
    if (text[currentIndex] == u'\n') break;
    if (scanQuote()) continue;
    if (isScanLineComment()) break;
    ++currentIndex;
  }
}

// ---- registration ----------------------------------------------------------------

bool RubyFormatParser::scanTemplatePattern(CodeFormatParser& host) {
  const char16_t c = host.currentCharStatic();
  if (c == u'<') return host.scanServerTag("rb", u"<%", u"%>");
  if (c == u'%') {
    const char16_t before = host.previousOneChar();
    if (before == 0 || before == u'\n') {
      TextRange r = host.scanLineComment(u"%");
      if (r.length >= 2 && host.textStorage) {
        host.loadOtherExtensionParser("rb", TextRange{r.location + 1, r.length - 1},
                                      *host.textStorage);
      }
      return r.length > 0;
    }
  }
  return false;
}

void registerLanguageParsers() {
  CodeFormatParser::registerEmbeddedScanner(u"rb", &RubyFormatParser::scanTemplatePattern);
  CodeFactory::registerParser<JSFormatParser>("JSFormatParser");
  CodeFactory::registerParser<JsonFormatParser>("JsonFormatParser");
  CodeFactory::registerParser<PerlFormatParser>("PerlFormatParser");
  CodeFactory::registerParser<PythonFormatParser>("PythonFormatParser");
  CodeFactory::registerParser<RubyFormatParser>("RubyFormatParser");
  CodeFactory::registerParser<PhpFormatParser>("PhpFormatParser");
  CodeFactory::registerParser<KeyValueFormatPaser>("KeyValueFormatPaser");
  CodeFactory::registerParser<KeyValueCfgParser>("KeyValueCfgParser");
}

}  // namespace harbor

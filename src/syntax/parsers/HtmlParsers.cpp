#include "syntax/parsers/HtmlParsers.h"

#include <algorithm>

#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {

constexpr std::size_t npos = std::u16string_view::npos;

// Tag names compare ignoring case; ASCII needs no case mapping.
bool sameName(std::u16string_view a, std::u16string_view b) {
  if (equalsIgnoringAsciiCase(a, b)) return true;
  const bool ascii = std::all_of(a.begin(), a.end(), [](char16_t c) { return c < 128; }) &&
                     std::all_of(b.begin(), b.end(), [](char16_t c) { return c < 128; });
  return !ascii && toLower(a) == toLower(b);
}

std::u16string withoutQuotes(std::u16string_view v) {
  std::u16string out;
  for (char16_t c : v) {
    if (c != u'"' && c != u'\'') out += c;
  }
  return out;
}

}  // namespace

// ---- MarkupScanner ---------------------------------------------------------------

std::u16string MarkupScanner::elementName(const CodeElement& e) const {
  return currentRange(e.range);
}

std::u16string MarkupScanner::attributeValue(const CodeElement& e, std::u16string_view name) const {
  auto v = e.findValueWithAttributeName(name, text);
  return v ? withoutQuotes(*v) : std::u16string();
}

const char* MarkupScanner::regionLanguage(int lanuageType) {
  switch (lanuageType) {
    case kPageLanguageCSharp:
      return "cs";
    case kPageLanguageVB:
      return "vb";
    default:
      return nullptr;
  }
}

TextRange MarkupScanner::scanElementName() {
  if (!isCanContinue() || !isAlphaOrUnderLine(currentCharStatic())) return zeroRange;
  const std::size_t start = currentIndex;
  while (isCanContinue() && isAlphaOrNumberOrUnderlineOrMinus(text[currentIndex])) ++currentIndex;
  return TextRange{start, currentIndex - start};
}

TextRange MarkupScanner::scanElementNameWithSpaceAndGreatAndEqual() {
  const std::size_t start = currentIndex;
  skipTextWithCondition([](char16_t c) { return c == u'>' || c == u'=' || isEmptySpaceChar(c); });
  return TextRange{start, currentIndex - start};
}

TextRange MarkupScanner::scanElementNameWithSpaceAndGreat() {
  const std::size_t start = currentIndex;
  skipTextWithCondition([](char16_t c) { return c == u'>' || isEmptySpaceChar(c); });
  return TextRange{start, currentIndex - start};
}

TextRange MarkupScanner::scanElementNameWithSpaceAndGreatAndSlash() {
  const std::size_t start = currentIndex;
  skipTextWithCondition([](char16_t c) { return c == u'>' || c == u'/' || isEmptySpaceChar(c); });
  return TextRange{start, currentIndex - start};
}

std::shared_ptr<CodeElement> MarkupScanner::scanElementAttributes(const Condition& cond) {
  if (!cond()) return nullptr;
  const TextRange name = scanElementNameWithSpaceAndGreatAndEqual();
  if (!name.length) return nullptr;
  auto attr = CodeElement::instanceWithRange(name, kAttributeName);
  const char16_t c = skipWhiteChar();
  if (c == u'=') {
    ++currentIndex;
    skipWhiteChar();
    const char16_t q = currentCharStatic();
    // Quoted values may run over lines.
    const TextRange value =
        (q == u'\'' || q == u'"') ? scanQuoteWithChar(q, true) : scanElementNameWithSpaceAndGreat();
    if (value.length) {
      attr->setValue(CodeElement::instanceWithRange(value, kAttributeValue));
      attr->attributeFlag = 0;
    }
    return attr;
  }
  // The slash of a self-closing tag ends the attributes.
  if (name.length == 1 && text[name.location] == u'/') return nullptr;
  return attr;
}

std::vector<std::shared_ptr<CodeElement>> MarkupScanner::scanElementAttributesItems(
    const Condition& cond) {
  std::vector<std::shared_ptr<CodeElement>> items;
  while (cond()) {
    if (skipWhiteChar() == u'>') break;
    auto attr = scanElementAttributes(cond);
    if (!attr) break;
    items.push_back(std::move(attr));
  }
  return items;
}

std::shared_ptr<CodeElement> MarkupScanner::scanHtmlElementWithCondition(const Condition& cond) {
  const std::size_t start = currentIndex;
  ++currentIndex;  // the '<'
  if (!isCanContinue()) {
    currentIndex = start;
    return nullptr;
  }
  const TextRange name = scanElementName();
  if (!name.length) {
    currentIndex = start;
    return nullptr;
  }
  auto element = CodeElement::instanceWithRange(name, kElementOpen);
  for (auto& attr : scanElementAttributesItems(cond)) element->addChild(std::move(attr));
  // After the slash of "<br/>" the '>' is still ahead.
  if (currentCharStatic() == u'>') ++currentIndex;
  element->fullRange = TextRange{start, currentIndex - start};
  return element;
}

TextRange MarkupScanner::scanEndNode(std::u16string_view name, bool returnStartIndex) {
  const std::size_t saved = currentIndex;
  const std::u16string_view scope = text.substr(0, lastIndex);
  std::size_t at = currentIndex;
  while ((at = scope.find(u'<', at)) != npos) {
    const std::size_t open = at++;
    currentIndex = at;
    if (skipWhiteChar() != u'/') continue;
    ++currentIndex;
    skipWhiteChar();
    // A run longer than the name can't match; stopping there keeps a
    // region full of "</xxxx" linear.
    const std::size_t nameStart = currentIndex;
    const std::size_t longest = std::min(lastIndex, nameStart + name.size() + 1);
    while (currentIndex < longest && text[currentIndex] != u'>' &&
           !isEmptySpaceChar(text[currentIndex])) {
      ++currentIndex;
    }
    const TextRange found{nameStart, currentIndex - nameStart};
    if (!sameName(text.substr(found.location, found.length), name)) continue;
    if (skipWhiteChar() != u'>') continue;
    ++currentIndex;
    auto close = CodeElement::instanceWithRange(found, kElementClose);
    close->fullRange = TextRange{open, currentIndex - open};
    elementItems.push_back(close);
    return close->fullRange;
  }
  currentIndex = returnStartIndex ? saved : lastIndex;
  return zeroRange;
}

TextRange MarkupScanner::scanElementBeginEnd(std::u16string_view name, TextRange& inner) {
  const std::size_t start = currentIndex;
  auto fail = [&] {
    currentIndex = start;
    return zeroRange;
  };
  if (currentCharStatic() != u'<') return fail();
  const std::size_t nameAt = start + 1;
  if (nameAt + name.size() > lastIndex || text.compare(nameAt, name.size(), name) != 0) {
    return fail();
  }
  // "<scripts>" isn't "<script>".
  const char16_t after = currentCharStatic(nameAt + name.size());
  if (after != u'>' && after != u'/' && !isEmptySpaceChar(after)) return fail();
  const std::u16string_view scope = text.substr(0, lastIndex);
  const std::size_t gt = scope.find(u'>', nameAt + name.size());
  if (gt == npos) return fail();
  std::u16string closing = u"</";
  closing += name;
  const std::size_t close = scope.find(closing, gt + 1);
  if (close == npos) return fail();
  currentIndex = close + closing.size();
  if (skipWhiteChar() != u'>') return fail();
  ++currentIndex;
  inner = TextRange{gt + 1, close - gt - 1};
  return TextRange{start, currentIndex - start};
}

std::shared_ptr<CodeElement> MarkupScanner::scanIncludeElement(std::u16string_view scriptBegin,
                                                               std::u16string_view scriptEnd,
                                                               TextRange range) {
  const std::size_t limit =
      range.length >= scriptEnd.size() ? range.end() - scriptEnd.size() : range.location;
  LimitGuard guard(*this, limit);
  currentIndex = std::min(range.location + scriptBegin.size(), lastIndex);
  skipNotAlphaOrUnderline();
  // The tag reader steps over one character, as over a '<'.
  if (currentIndex > range.location) --currentIndex;
  return scanHtmlElementWithCondition(canContinue());
}

int MarkupScanner::scanPageDirective() {
  const std::size_t saved = currentIndex;
  skipWhiteChar();
  const TextRange block = scanMultilineComment(u"<%", u"%>");
  if (!block.length) {
    currentIndex = saved;
    return kPageLanguageNone;
  }
  int type = kPageLanguageNone;
  if (auto e = scanIncludeElement(u"<%", u"%>", block)) {
    const std::u16string language = attributeValue(*e, u"Language");
    if (equalsIgnoringAsciiCase(language, u"C#")) {
      type = kPageLanguageCSharp;
    } else if (equalsIgnoringAsciiCase(language, u"vb")) {
      type = kPageLanguageVB;
    }
    elementItems.push_back(e);
  }
  currentIndex = block.end();
  return type;
}

// ---- HtmlFormatParser: the scan --------------------------------------------------

void HtmlFormatParser::parserDetail() {
  while (currentIndex < lastIndex) {
    skipWhiteChar();
    if (currentCharStatic() != u'<') {
      skipTextNoRetrun();
      continue;
    }
    if (scanOtherStartPattern()) continue;
    TextRange comment = scanMultilineComment1();
    if (comment.length) {
      if (!isCheckIncludFile() || !checkIncludFile(comment, [](char16_t c) { return c == u'#'; })) {
        multilineComment1Items.push_back(CodeRangeItem::instanceWithRange(comment, kBlockComment1));
      }
      continue;
    }
    comment = scanMultilineComment2();
    if (comment.length) {
      multilineComment2Items.push_back(CodeRangeItem::instanceWithRange(comment, kBlockComment2));
      continue;
    }
    // A script's closing tag is found while its opening tag is read; the
    // opening one still goes first so that the list stays in text order.
    const std::size_t at = elementItems.size();
    if (auto element = scanHtmlElement()) {
      elementItems.insert(elementItems.begin() + static_cast<std::ptrdiff_t>(at), element);
      continue;
    }
    if (skipEndNode()) continue;
    if (scanOtherPattern()) continue;
    ++currentIndex;
    skipTextNoRetrun();
  }
}

TextRange HtmlFormatParser::scanElementName() {
  // '<' and '>' end a name even if a definition file forgot to list them:
  // a run across tags would make the scan quadratic.
  auto ends = [this](char16_t c) { return c == u'<' || c == u'>' || isDeliterChar(c); };
  if (!isCanContinue() || ends(currentCharStatic())) return zeroRange;
  const std::size_t start = currentIndex;
  while (isCanContinue() && !ends(text[currentIndex])) ++currentIndex;
  return TextRange{start, currentIndex - start};
}

bool HtmlFormatParser::skipEndNode() {
  const std::size_t start = currentIndex;
  ++currentIndex;
  if (skipWhiteChar() != u'/') {
    currentIndex = start;
    return false;
  }
  ++currentIndex;
  skipWhiteChar();
  const TextRange name = scanElementName();
  if (!name.length || skipWhiteChar() != u'>') {
    currentIndex = start;
    return false;
  }
  ++currentIndex;
  auto close = CodeElement::instanceWithRange(name, kElementClose);
  close->fullRange = TextRange{start, currentIndex - start};
  elementItems.push_back(close);
  return true;
}

bool HtmlFormatParser::skipNotHtmlNode() {
  // Declarations and processing instructions no scanner took: <!x ...>, <?x ...?>.
  const char16_t next = getNextOneChar();
  if (currentCharStatic() != u'<' || (next != u'!' && next != u'?')) return false;
  const std::size_t gt = text.substr(0, lastIndex).find(u'>', currentIndex);
  currentIndex = gt == npos ? lastIndex : gt + 1;
  return true;
}

void HtmlFormatParser::skipTextNoRetrun() {
  const std::size_t lt = text.substr(0, lastIndex).find(u'<', currentIndex);
  currentIndex = lt == npos ? lastIndex : lt;
}

TextRange HtmlFormatParser::skipText() {
  const std::size_t start = currentIndex;
  skipTextNoRetrun();
  return TextRange{start, currentIndex - start};
}

bool HtmlFormatParser::isScriptLoadSource(const CodeElement& e) const {
  return !attributeValue(e, u"src").empty();
}

bool HtmlFormatParser::isJavascript(const CodeElement& e) const {
  std::optional<std::u16string> v = e.findValueWithAttributeName(u"LANGUAGE", text);
  if (!v) v = e.findValueWithAttributeName(u"TYPE", text);
  if (!v) return true;
  const std::u16string kind = withoutQuotes(*v);
  // language="VBScript" is the older spelling of type="text/vbscript".
  return !equalsIgnoringAsciiCase(kind, u"text/vbscript") &&
         !equalsIgnoringAsciiCase(kind, u"vbscript");
}

std::shared_ptr<CodeElement> HtmlFormatParser::scanHtmlElement(bool) {
  auto element = scanHtmlElementWithCondition(canContinue());
  if (!element) return nullptr;
  const std::u16string name = elementName(*element);
  const char* language = nullptr;
  TextRange closing;
  if (equalsIgnoringAsciiCase(name, u"style")) {
    closing = scanEndNode(u"style", false);
    language = "css";
  } else if (equalsIgnoringAsciiCase(name, u"script")) {
    // An external script: what follows is read as markup.
    if (isScriptLoadSource(*element)) return element;
    closing = scanEndNode(u"script", false);
    if (equalsIgnoringAsciiCase(attributeValue(*element, u"runat"), u"server")) {
      const std::u16string lang = attributeValue(*element, u"LANGUAGE");
      if (lang.empty() || equalsIgnoringAsciiCase(lang, u"cs") ||
          equalsIgnoringAsciiCase(lang, u"c#")) {
        language = "cs";
      } else if (equalsIgnoringAsciiCase(lang, u"vb")) {
        language = "vb";
      }
    } else {
      language = isJavascript(*element) ? "js" : "vbs";
    }
  }
  if (language && closing.length && textStorage) {
    const std::size_t from = element->fullRange.end();
    loadOtherExtensionParser(language, TextRange{from, closing.location - from}, *textStorage);
  }
  return element;
}

bool HtmlFormatParser::checkIncludFile(TextRange range,
                                       const std::function<bool(char16_t)>& block) {
  const std::u16string& on = stxParser->commentOn;
  const std::u16string& off = stxParser->commentOff;
  const std::size_t after = range.location + on.size();
  if (after >= range.end() || !block(text[after])) return false;
  currentIndex = after;
  {
    // The directive's tag may not read past the comment's closer.
    const std::size_t limit = range.end() - std::min(off.size(), range.end() - after);
    LimitGuard guard(*this, limit);
    if (auto element = scanHtmlElementWithCondition(canContinue())) {
      elementItems.push_back(element);
    } else {
      multilineComment1Items.push_back(CodeRangeItem::instanceWithRange(range, kBlockComment1));
    }
  }
  currentIndex = range.end();
  return true;
}

// ---- reading view ----------------------------------------------------------------

std::vector<std::shared_ptr<CodeElement>> HtmlFormatParser::sortedAllElementsRange() const {
  std::vector<std::shared_ptr<CodeElement>> all(elementItems.begin(), elementItems.end());
  for (const auto& other : otherFormatParser) {
    all.push_back(CodeElement::instanceWithRange(other->visibleRange, kLineComment1));
  }
  for (const auto& c : multilineComment1Items) {
    all.push_back(CodeElement::instanceWithRange(c.fullRange, kBlockComment1));
  }
  std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
    return a->fullRange.location > b->fullRange.location;
  });
  return all;
}

std::u16string HtmlFormatParser::replaceAllElementsWithEmpty(
    const std::vector<std::shared_ptr<CodeElement>>& items) const {
  // The list runs from last to first; copying the gaps front to back gives
  // the same text as deleting back to front, in one pass.
  std::u16string out;
  out.reserve(text.size());
  std::size_t kept = 0;
  for (auto it = items.rbegin(); it != items.rend(); ++it) {
    const TextRange r = (*it)->fullRange;
    const std::size_t from = std::min(r.location, text.size());
    const std::size_t to = std::min(r.end(), text.size());
    if (from > kept) out.append(text.substr(kept, from - kept));
    kept = std::max(kept, to);
  }
  if (kept < text.size()) out.append(text.substr(kept));
  return out;
}

std::u16string HtmlFormatParser::getHtmlText() {
  return replaceAllElementsWithEmpty(sortedAllElementsRange());
}

std::shared_ptr<CodeElement> HtmlFormatParser::findFirstElementByName(
    std::u16string_view name) const {
  for (const auto& e : elementItems) {
    if (e->type == kElementOpen && sameName(elementName(*e), name)) return e;
  }
  return nullptr;
}

std::u16string HtmlFormatParser::scanElementNameWithRange(TextRange range) {
  const std::size_t saved = currentIndex;
  std::u16string name;
  {
    LimitGuard guard(*this, std::min(range.end(), text.size()));
    currentIndex = range.location + 1;  // past the '<'
    name = currentRange(scanElementName());
  }
  currentIndex = saved;
  return name;
}

// ---- server pages ----------------------------------------------------------------

void AspxHtmlFormatParser::parserStart() {
  lanuageType = scanPageDirective();
}

bool AspxHtmlFormatParser::scanOtherPattern() {
  const TextRange block = scanMultilineComment(u"<%", u"%>");
  if (!block.length) return false;
  if (const char* language = regionLanguage(lanuageType); language && textStorage) {
    loadOtherExtensionParser(language, innerRange(block, u"<%", u"%>"), *textStorage);
  }
  return true;
}

void JspHtmlFormatParser::initPara() {
  // JSP comments are a second comment form. The description is shared with
  // plain pages through the cache, so this parser changes a copy of it.
  auto own = std::make_shared<StxParser>(*stxParser);
  own->commentOn2 = u"<%--";
  own->commentOff2 = u"--%>";
  setStxParser(std::move(own));
  HtmlFormatParser::initPara();
}

bool JspHtmlFormatParser::scanOtherStartPattern() {
  if (HtmlFormatParser::scanOtherStartPattern()) return true;
  for (std::u16string_view name : {u"jsp:scriptlet", u"jsp:declaration", u"jsp:expression"}) {
    TextRange inner;
    const TextRange whole = scanElementBeginEnd(name, inner);
    if (!whole.length) continue;
    // The action's tags join the element list, which keeps the keyword
    // bucket in text order and lets the closing one pair with its opener.
    auto open =
        CodeElement::instanceWithRange(TextRange{whole.location + 1, name.size()}, kElementOpen);
    open->fullRange = TextRange{whole.location, inner.location - whole.location};
    auto close =
        CodeElement::instanceWithRange(TextRange{inner.end() + 2, name.size()}, kElementClose);
    close->fullRange = TextRange{inner.end(), whole.end() - inner.end()};
    elementItems.push_back(open);
    elementItems.push_back(close);
    if (textStorage) loadOtherExtensionParser("jspcore", inner, *textStorage);
    return true;
  }
  return false;
}

bool PhpHtmlFormatParser::scanOtherPattern() {
  // "<?php" (any case), or the short echo tag "<?=".
  std::size_t marker = 0;
  if (currentIndex + 5 <= lastIndex && text[currentIndex + 1] == u'?' &&
      equalsIgnoringAsciiCase(text.substr(currentIndex + 2, 3), u"php")) {
    marker = 5;
  } else if (currentIndex + 3 <= lastIndex && text.compare(currentIndex, 3, u"<?=") == 0) {
    marker = 3;
  }
  if (!marker || text[currentIndex] != u'<') return false;
  auto tag = CodeElement::instanceWithRange(TextRange{currentIndex + 1, marker - 1}, kElementOpen);
  tag->fullRange = TextRange{currentIndex, marker};
  elementItems.push_back(tag);
  const std::size_t start = currentIndex + marker;
  currentIndex = lastIndex;
  if (textStorage && start < lastIndex) {
    // The PHP parser ends itself after "?>"; the page resumes there.
    auto php =
        loadOtherExtensionParser("phpcore", TextRange{start, lastIndex - start}, *textStorage);
    currentIndex = std::clamp(php->currentIndex, start, lastIndex);
    php->setVisibleRange(TextRange{start, currentIndex - start});
  }
  return true;
}

// ---- handler files ---------------------------------------------------------------

void AshxFormatParser::parserStart() {
  lanuageType = scanPageDirective();
  const char* language = regionLanguage(lanuageType);
  if (!language || !isCanContinue()) return;
  if (textStorage) {
    loadOtherExtensionParser(language, TextRange{currentIndex, lastIndex - currentIndex},
                             *textStorage);
  }
  currentIndex = lastIndex;
}

void AsaxFormatParser::parserStart() {
  lanuageType = scanPageDirective();
  // The application's code is the first <script> block after the directive.
  const std::size_t at = text.substr(0, lastIndex).find(u"<script", currentIndex);
  if (at == npos) return;
  currentIndex = at;
  TextRange inner;
  if (!scanElementBeginEnd(u"script", inner).length) return;
  if (const char* language = regionLanguage(lanuageType); language && textStorage) {
    loadOtherExtensionParser(language, inner, *textStorage);
  }
}

// ---- registry --------------------------------------------------------------------

void registerHtmlParsers() {
  CodeFactory::registerParser<HtmlFormatParser>("HtmlFormatParser");
  CodeFactory::registerParser<XmlFormatParser>("XmlFormatParser");
  CodeFactory::registerParser<XslFormatParser>("XslFormatParser");
  CodeFactory::registerParser<ShtmlFormatParser>("ShtmlFormatParser");
  CodeFactory::registerParser<HtcFormatParser>("HtcFormatParser");
  CodeFactory::registerParser<AspHtmlFormatParser>("AspHtmlFormatParser");
  CodeFactory::registerParser<AspxHtmlFormatParser>("AspxHtmlFormatParser");
  CodeFactory::registerParser<JspHtmlFormatParser>("JspHtmlFormatParser");
  CodeFactory::registerParser<PhpHtmlFormatParser>("PhpHtmlFormatParser");
  CodeFactory::registerParser<AshxFormatParser>("AshxFormatParser");
  CodeFactory::registerParser<AsaxFormatParser>("AsaxFormatParser");
}

}  // namespace harbor

// What the page parsers offer while typing: tag, attribute and value
// completions, file names for links, closing tags after '>' and "</".
#include <algorithm>
#include <map>
#include <system_error>

#include "platform/Unicode.h"
#include "syntax/parsers/HtmlParsers.h"

namespace harbor {
namespace {

namespace fs = std::filesystem;
using Values = std::vector<std::u16string>;
using AttributeValues = std::map<std::u16string, Values>;
using ElementTable = std::map<std::u16string, AttributeValues>;

bool contains(const std::vector<std::u16string>& list, std::u16string_view s) {
  return std::find(list.begin(), list.end(), s) != list.end();
}

std::u16string withoutQuotes(std::u16string_view v) {
  std::u16string out;
  for (char16_t c : v) {
    if (c != u'"' && c != u'\'') out += c;
  }
  return out;
}

// Values from the HTML standard, plus the presentational ones older pages
// still carry.
const ElementTable& valueTable() {
  static const ElementTable table = [] {
    const Values target{u"_blank", u"_self", u"_parent", u"_top"};
    const Values referrer{u"no-referrer",
                          u"no-referrer-when-downgrade",
                          u"origin",
                          u"origin-when-cross-origin",
                          u"same-origin",
                          u"strict-origin",
                          u"strict-origin-when-cross-origin",
                          u"unsafe-url"};
    const Values crossorigin{u"anonymous", u"use-credentials"};
    const Values preload{u"none", u"metadata", u"auto"};
    const Values loading{u"eager", u"lazy"};
    const Values priority{u"high", u"low", u"auto"};
    const Values method{u"get", u"post", u"dialog"};
    const Values enctype{u"application/x-www-form-urlencoded", u"multipart/form-data",
                         u"text/plain"};
    const Values onOff{u"on", u"off"};
    const Values blockAlign{u"left", u"right", u"center", u"justify"};
    const Values cellAlign{u"left", u"center", u"right", u"justify", u"char"};
    const Values valign{u"top", u"middle", u"bottom", u"baseline"};
    const Values imageAlign{u"left", u"right", u"top", u"middle", u"bottom"};
    const Values sideAlign{u"top", u"bottom", u"left", u"right"};
    const Values ordered{u"1", u"a", u"A", u"i", u"I"};
    const Values bullets{u"disc", u"square", u"circle"};
    const Values linkRel{u"alternate",      u"author",     u"bookmark", u"external",
                         u"help",           u"license",    u"next",     u"nofollow",
                         u"noopener",       u"noreferrer", u"opener",   u"prev",
                         u"privacy-policy", u"search",     u"tag",      u"terms-of-service"};
    const Values inputMode{u"none", u"text",   u"decimal", u"numeric",
                           u"tel",  u"search", u"email",   u"url"};
    const Values enterKey{u"enter", u"done", u"go", u"next", u"previous", u"search", u"send"};
    const Values autocomplete{u"on",
                              u"off",
                              u"name",
                              u"honorific-prefix",
                              u"given-name",
                              u"additional-name",
                              u"family-name",
                              u"honorific-suffix",
                              u"nickname",
                              u"email",
                              u"username",
                              u"new-password",
                              u"current-password",
                              u"one-time-code",
                              u"organization-title",
                              u"organization",
                              u"street-address",
                              u"address-line1",
                              u"address-line2",
                              u"address-line3",
                              u"address-level1",
                              u"address-level2",
                              u"country",
                              u"country-name",
                              u"postal-code",
                              u"cc-name",
                              u"cc-number",
                              u"cc-exp",
                              u"cc-csc",
                              u"transaction-currency",
                              u"transaction-amount",
                              u"language",
                              u"bday",
                              u"sex",
                              u"tel",
                              u"url",
                              u"photo"};
    const Values mediaTypes{u"all", u"screen", u"print"};
    const AttributeValues section{{u"align", blockAlign}};
    const AttributeValues rowGroup{{u"align", cellAlign}, {u"valign", valign}};

    ElementTable t{
        {u"a", {{u"target", target}, {u"rel", linkRel}, {u"referrerpolicy", referrer}}},
        {u"area",
         {{u"shape", {u"default", u"rect", u"circle", u"poly"}},
          {u"target", target},
          {u"rel", linkRel},
          {u"referrerpolicy", referrer}}},
        {u"audio", {{u"preload", preload}, {u"crossorigin", crossorigin}}},
        {u"base", {{u"target", target}}},
        {u"bdo", {{u"dir", {u"ltr", u"rtl"}}}},
        {u"br", {{u"clear", {u"left", u"right", u"all", u"none"}}}},
        {u"button",
         {{u"type", {u"submit", u"reset", u"button"}},
          {u"formmethod", method},
          {u"formenctype", enctype},
          {u"formtarget", target},
          {u"popovertargetaction", {u"toggle", u"show", u"hide"}}}},
        {u"caption", {{u"align", sideAlign}}},
        {u"col", rowGroup},
        {u"colgroup", rowGroup},
        {u"div", section},
        {u"embed", {{u"type", {u"application/pdf", u"image/svg+xml", u"text/html"}}}},
        {u"form",
         {{u"method", method},
          {u"enctype", enctype},
          {u"target", target},
          {u"autocomplete", onOff},
          {u"rel",
           {u"external", u"help", u"license", u"next", u"nofollow", u"noopener", u"noreferrer",
            u"opener", u"prev", u"search"}}}},
        {u"h1", section},
        {u"h2", section},
        {u"h3", section},
        {u"h4", section},
        {u"h5", section},
        {u"h6", section},
        {u"hr", {{u"align", {u"left", u"center", u"right"}}}},
        {u"html", {{u"xmlns", {u"http://www.w3.org/1999/xhtml"}}}},
        {u"iframe",
         {{u"loading", loading},
          {u"referrerpolicy", referrer},
          {u"sandbox",
           {u"allow-downloads", u"allow-forms", u"allow-modals", u"allow-orientation-lock",
            u"allow-pointer-lock", u"allow-popups", u"allow-popups-to-escape-sandbox",
            u"allow-presentation", u"allow-same-origin", u"allow-scripts", u"allow-top-navigation",
            u"allow-top-navigation-by-user-activation",
            u"allow-top-navigation-to-custom-protocols"}},
          {u"scrolling", {u"yes", u"no", u"auto"}},
          {u"frameborder", {u"0", u"1"}},
          {u"align", imageAlign}}},
        {u"img",
         {{u"loading", loading},
          {u"decoding", {u"sync", u"async", u"auto"}},
          {u"crossorigin", crossorigin},
          {u"referrerpolicy", referrer},
          {u"fetchpriority", priority},
          {u"align", imageAlign}}},
        {u"input",
         {{u"type", {u"button", u"checkbox", u"color", u"date",   u"datetime-local", u"email",
                     u"file",   u"hidden",   u"image", u"month",  u"number",         u"password",
                     u"radio",  u"range",    u"reset", u"search", u"submit",         u"tel",
                     u"text",   u"time",     u"url",   u"week"}},
          {u"autocomplete", autocomplete},
          {u"formmethod", method},
          {u"formenctype", enctype},
          {u"formtarget", target},
          {u"accept", {u"audio/*", u"video/*", u"image/*"}},
          {u"capture", {u"user", u"environment"}},
          {u"popovertargetaction", {u"toggle", u"show", u"hide"}}}},
        {u"legend", {{u"align", sideAlign}}},
        {u"li", {{u"type", {u"1", u"a", u"A", u"i", u"I", u"disc", u"square", u"circle"}}}},
        {u"link",
         {{u"rel",
           {u"alternate", u"author",         u"canonical",  u"dns-prefetch", u"expect",
            u"help",      u"icon",           u"license",    u"manifest",     u"modulepreload",
            u"next",      u"pingback",       u"preconnect", u"prefetch",     u"preload",
            u"prev",      u"privacy-policy", u"search",     u"stylesheet",   u"terms-of-service"}},
          {u"as",
           {u"audio", u"document", u"embed", u"fetch", u"font", u"image", u"object", u"script",
            u"style", u"track", u"video", u"worker"}},
          {u"type", {u"text/css", u"image/png", u"image/x-icon", u"image/svg+xml"}},
          {u"media", mediaTypes},
          {u"crossorigin", crossorigin},
          {u"referrerpolicy", referrer},
          {u"fetchpriority", priority}}},
        {u"meta",
         {{u"name",
           {u"application-name", u"author", u"color-scheme", u"description", u"generator",
            u"keywords", u"referrer", u"robots", u"theme-color", u"viewport"}},
          {u"http-equiv",
           {u"content-language", u"content-security-policy", u"content-type", u"default-style",
            u"refresh", u"set-cookie", u"x-ua-compatible"}},
          {u"charset", {u"utf-8"}}}},
        {u"object", {{u"type", {u"application/pdf", u"image/svg+xml", u"text/html"}}}},
        {u"ol", {{u"type", ordered}}},
        {u"p", section},
        {u"script",
         {{u"type",
           {u"text/javascript", u"module", u"importmap", u"application/json",
            u"application/ld+json", u"text/vbscript"}},
          {u"language", {u"javascript", u"vbscript"}},
          {u"runat", {u"server"}},
          {u"crossorigin", crossorigin},
          {u"referrerpolicy", referrer},
          {u"fetchpriority", priority}}},
        {u"select", {{u"autocomplete", autocomplete}}},
        {u"source",
         {{u"type",
           {u"audio/mpeg", u"audio/ogg", u"audio/wav", u"image/avif", u"image/webp", u"video/mp4",
            u"video/ogg", u"video/webm"}},
          {u"media", mediaTypes}}},
        {u"style", {{u"type", {u"text/css"}}, {u"media", mediaTypes}}},
        {u"table",
         {{u"align", {u"left", u"center", u"right"}},
          {u"frame",
           {u"void", u"above", u"below", u"hsides", u"lhs", u"rhs", u"vsides", u"box", u"border"}},
          {u"rules", {u"none", u"groups", u"rows", u"cols", u"all"}}}},
        {u"tbody", rowGroup},
        {u"td", rowGroup},
        {u"template", {{u"shadowrootmode", {u"open", u"closed"}}}},
        {u"textarea", {{u"wrap", {u"soft", u"hard"}}, {u"autocomplete", autocomplete}}},
        {u"tfoot", rowGroup},
        {u"th",
         {{u"scope", {u"row", u"col", u"rowgroup", u"colgroup"}},
          {u"align", cellAlign},
          {u"valign", valign}}},
        {u"thead", rowGroup},
        {u"tr", rowGroup},
        {u"track",
         {{u"kind", {u"subtitles", u"captions", u"descriptions", u"chapters", u"metadata"}}}},
        {u"ul", {{u"type", bullets}}},
        {u"video", {{u"preload", preload}, {u"crossorigin", crossorigin}}},
    };
    // Attributes every element takes; an element's own list wins.
    const AttributeValues global{
        {u"dir", {u"ltr", u"rtl", u"auto"}},
        {u"translate", {u"yes", u"no"}},
        {u"contenteditable", {u"true", u"false", u"plaintext-only"}},
        {u"draggable", {u"true", u"false"}},
        {u"spellcheck", {u"true", u"false"}},
        {u"autocapitalize", {u"off", u"none", u"on", u"sentences", u"words", u"characters"}},
        {u"inputmode", inputMode},
        {u"enterkeyhint", enterKey},
        {u"popover", {u"auto", u"manual"}},
    };
    for (auto& [element, attributes] : t) attributes.insert(global.begin(), global.end());
    return t;
  }();
  return table;
}

}  // namespace

std::map<std::u16string, std::map<std::u16string, std::vector<std::u16string>>>
HtmlFormatParser::elementWithAttributeValue() const {
  return valueTable();
}

bool HtmlFormatParser::isCurrentOffsetNoSuggest(std::size_t offset) const {
  // Attribute values are quotes here, and values are suggested.
  return isCurrentOffsetInComment(offset) || isCurrentOffsetInOther(offset);
}

bool HtmlFormatParser::isCanLoadSuggestItems(const std::u16string& input, TextRange selRange,
                                             SuggestField& stxFieldobj) {
  if (input.empty() || !isAlphaOrNumberOrUnderlineOrMinus(input.back())) return false;
  const std::size_t caret = std::min(selRange.location, text.size());
  if (isCurrentOffsetNoSuggest(caret > 0 ? caret - 1 : 0)) return false;
  // A '>' nearer than any '<' means the caret is outside a tag.
  const std::optional<std::size_t> lt = foundFirstPriority(caret, u'>', u'<');
  if (!lt || isCurrentOffsetInComment(*lt)) return false;

  const std::size_t savedIndex = currentIndex, savedLast = lastIndex;
  currentIndex = *lt;
  lastIndex = text.size();
  const auto element = scanHtmlElementWithCondition(canContinue());
  currentIndex = savedIndex;
  lastIndex = savedLast;
  if (!element) return false;
  const CodeElement* at = element->findElementByRange(caret);
  if (!at) return false;

  SuggestField field;
  field.eleName = elementName(*element);
  if (field.eleName.empty()) return false;
  if (at->type == kElementOpen) {
    field.fieldType = CodeKeywordItem::TagOrKeyword;
  } else if (at->type == kAttributeName) {
    field.fieldType = CodeKeywordItem::Attribute;
    field.attrName = currentRange(at->range);
  } else {
    if (!at->parent) return false;
    field.fieldType = CodeKeywordItem::AttributeValue;
    field.attrName = currentRange(at->parent->range);
    field.attrValueRange = at->range;
    const std::u16string attr = toLower(field.attrName);
    if (attr != u"href" && attr != u"src") {
      const auto e = suggestAttributeAndValue.find(toLower(field.eleName));
      if (e == suggestAttributeAndValue.end() || !e->second.count(attr)) return false;
    }
  }
  if (field.fieldType == CodeKeywordItem::Attribute && field.attrName.empty()) return false;
  if (field.fieldType == CodeKeywordItem::AttributeValue && field.attrName.empty()) return false;
  stxFieldobj = std::move(field);
  return true;
}

std::vector<std::u16string> HtmlFormatParser::searchText(std::u16string_view term, bool tail,
                                                         const SuggestField* attri,
                                                         long stxFieldType) {
  if (stxFieldType != CodeKeywordItem::AttributeValue || !attri) {
    return CodeFormatParser::searchText(term, tail, attri, stxFieldType);
  }
  const TextRange vr = attri->attrValueRange;
  const std::size_t from = std::min(vr.location, text.size());
  std::size_t upto = searchTermLocation;
  if (upto < from || upto > vr.end()) upto = vr.end();
  upto = std::min(upto, text.size());
  const std::u16string value = withoutQuotes(text.substr(from, upto - from));
  const std::u16string attr = toLower(attri->attrName);

  std::vector<std::u16string> out;
  if (attr == u"href" || attr == u"src") {
    if (folderPath.empty()) return out;
    std::u16string path = value;
    std::replace(path.begin(), path.end(), u'\\', u'/');
    const std::size_t slash = path.rfind(u'/');
    std::u16string dir = slash == std::u16string::npos ? u"" : path.substr(0, slash + 1);
    const std::u16string stem = slash == std::u16string::npos ? path : path.substr(slash + 1);
    while (!dir.empty() && dir.front() == u'/') dir.erase(0, 1);
    while (!dir.empty() && dir.back() == u'/') dir.pop_back();
    const fs::path folder = dir.empty() ? fs::path(folderPath) : fs::path(folderPath) / toUtf8(dir);
    std::vector<fs::path> found;
    searchFiles(folder, found, stem);
    for (const auto& p : found) {
      std::string rel = p.lexically_relative(folder).generic_string();
      while (!rel.empty() && rel.front() == '/') rel.erase(0, 1);
      if (!rel.empty()) out.push_back(toUtf16(rel));
    }
    return out;
  }

  const auto element = suggestAttributeAndValue.find(toLower(attri->eleName));
  if (element == suggestAttributeAndValue.end()) {
    return CodeFormatParser::searchText(term, tail, attri, CodeKeywordItem::AttributeValue);
  }
  const auto values = element->second.find(attr);
  if (values == element->second.end()) {
    return CodeFormatParser::searchText(term, tail, attri, CodeKeywordItem::AttributeValue);
  }
  const std::u16string lower = toLower(value);
  std::vector<std::u16string> inside;
  for (const auto& v : values->second) {
    const std::size_t at = toLower(v).find(lower);
    if (at == 0) {
      out.push_back(v);
    } else if (at != std::u16string::npos) {
      inside.push_back(v);
    }
  }
  out.insert(out.end(), inside.begin(), inside.end());
  return out;
}

void HtmlFormatParser::searchFiles(const fs::path& folder, std::vector<fs::path>& item,
                                   std::u16string_view keywords) const {
  auto listing = [](const fs::path& dir) {
    std::vector<fs::path> entries;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
  };
  const std::u16string key = toLower(keywords);
  for (const fs::path& p : listing(folder)) {
    if (toLower(toUtf16(p.filename().string())).find(key) == std::u16string::npos) continue;
    item.push_back(p);
    // A matching folder offers what it holds too.
    std::error_code ec;
    if (!fs::is_directory(p, ec)) continue;
    for (const fs::path& inner : listing(p)) item.push_back(inner);
  }
}

std::vector<std::u16string> HtmlFormatParser::greaterCharNoAction() const {
  return {u"!doctype", u"!--", u"?xml", u"?php"};
}

std::vector<std::u16string> HtmlFormatParser::greaterCharNoContent() const {
  // Void elements: they never take a closing tag.
  return {u"area", u"base", u"br",     u"col",   u"embed", u"hr",    u"img",    u"input",
          u"link", u"meta", u"source", u"track", u"wbr",   u"param", u"keygen", u"frame"};
}

long HtmlFormatParser::selectedKeywordsItemFocusDiff(const std::u16string& item) const {
  // An item ending in an empty quote pair leaves the caret between them.
  const std::size_t n = item.size();
  if (n >= 2 && (item[n - 1] == u'"' || item[n - 1] == u'\'') && item[n - 2] == item[n - 1]) {
    return -1;
  }
  return 0;
}

bool HtmlFormatParser::isSelfClosed(const CodeElement& e) const {
  const std::size_t end = e.fullRange.end();
  if (end == 0 || end > text.size() || text[end - 1] != u'>') return false;
  return previousCharIgnoreWhiteSpace(end - 1) == u'/';
}

std::optional<std::size_t> HtmlFormatParser::getRangeDistanceNearItems(
    std::size_t offset, const std::vector<std::shared_ptr<CodeElement>>& items) {
  if (items.empty()) return std::nullopt;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (items[i]->fullRange.location >= offset) return i;
  }
  return items.size() - 1;
}

std::shared_ptr<CodeElement> HtmlFormatParser::getElementItemNeedEnd(std::size_t index,
                                                                     const CodeElement* element) {
  if (elementItems.empty()) return nullptr;
  std::size_t from = std::min(index, elementItems.size() - 1);
  if (element && elementItems[from].get() != element) {
    for (std::size_t i = 0; i < elementItems.size(); ++i) {
      if (elementItems[i].get() == element) from = i;
    }
  }
  const std::vector<std::u16string> noContent = greaterCharNoContent();
  std::map<std::u16string, int> unpaired;  // closing tags still looking for their opener
  for (std::size_t i = from + 1; i-- > 0;) {
    const auto& e = elementItems[i];
    const std::u16string name = toLower(elementName(*e));
    if (name.empty()) continue;
    if (e->type == kElementClose) {
      ++unpaired[name];
    } else if (e->type == kElementOpen) {
      // Declarations, void and self-closed tags never wait for a partner.
      if (name[0] == u'!' || name[0] == u'?' || contains(noContent, name) || isSelfClosed(*e)) {
        continue;
      }
      auto it = unpaired.find(name);
      if (it != unpaired.end() && it->second > 0) {
        --it->second;
        continue;
      }
      return e;
    }
  }
  return nullptr;
}

void HtmlFormatParser::loadSuggestItems(ISuggestDelegate& delegate) {
  if (isIgnoreLastInput) {
    // The text we completed ourselves comes back as input once.
    isIgnoreLastInput = false;
    CodeFormatParser::loadSuggestItems(delegate);
    return;
  }
  const std::size_t caret = delegate.onSelectedRange().location;
  if (lastInputString == u">") {
    greaterCharTyped(delegate, caret);
  } else if (lastInputString == u"/") {
    slashCharTyped(delegate, caret);
  } else if (lastInputString == u"\n") {
    lineFeedTyped(delegate, caret);
  }
  CodeFormatParser::loadSuggestItems(delegate);
}

void HtmlFormatParser::greaterCharTyped(ISuggestDelegate& delegate, std::size_t caret) {
  if (caret == 0 || caret > text.size() || text[caret - 1] != u'>') return;
  const std::size_t gt = caret - 1;
  if (previousOneChar(gt) == u'/') return;
  const std::optional<std::size_t> lt = foundFirstPriority(gt, u'>', u'<');
  if (!lt) return;
  const std::u16string written = scanElementNameWithRange(TextRange{*lt, gt - *lt});
  const std::u16string name = toLower(written);
  if (name.empty() || name[0] == u'!' || name[0] == u'?' || contains(greaterCharNoAction(), name)) {
    return;
  }
  // The '>' must end this tag, not sit inside one of its quoted values.
  const std::size_t savedIndex = currentIndex, savedLast = lastIndex;
  currentIndex = *lt;
  lastIndex = text.size();
  const auto element = scanHtmlElementWithCondition(canContinue());
  currentIndex = savedIndex;
  lastIndex = savedLast;
  if (!element || element->fullRange.end() != caret) return;
  for (const auto& attr : element->children()) {
    if (attr->value() && attr->value()->range.end() >= caret) return;
  }

  if (contains(greaterCharNoContent(), name)) {
    if (previousCharIgnoreWhiteSpace(gt) == u'/') return;
    delegate.onReplaceString(isEmptySpaceChar(previousOneChar(gt)) ? u"/>" : u" />", gt, caret, 0);
    return;
  }
  // The caret stays between the tags: it moves back over the inserted text.
  const std::u16string closing = u"</" + written + u">";
  delegate.onReplaceString(closing, caret, caret, -static_cast<long>(closing.size()));
}

void HtmlFormatParser::slashCharTyped(ISuggestDelegate& delegate, std::size_t caret) {
  if (caret < 2 || caret > text.size() || text[caret - 1] != u'/' || text[caret - 2] != u'<') {
    return;
  }
  const std::optional<std::size_t> near = getRangeDistanceNearItems(caret - 2, elementItems);
  if (!near) return;
  std::size_t from = *near;
  if (elementItems[from]->fullRange.location >= caret - 2) {
    if (from == 0) return;
    --from;
  }
  const auto open = getElementItemNeedEnd(from, elementItems[from].get());
  if (!open) return;
  delegate.onInputString(elementName(*open) + u">", 0);
  isIgnoreLastInput = true;
}

void HtmlFormatParser::lineFeedTyped(ISuggestDelegate& delegate, std::size_t caret) {
  if (caret == 0 || caret > text.size() || text[caret - 1] != u'\n') return;
  std::size_t after = caret;
  while (after < text.size() && isWhiteSpaceChar(text[after])) ++after;
  std::size_t before = caret - 1;
  while (before > 0 && isWhiteSpaceChar(text[before - 1])) --before;
  std::shared_ptr<CodeElement> open, close;
  for (const auto& e : elementItems) {
    if (e->type == kElementOpen && e->fullRange.end() == before) open = e;
    if (e->type == kElementClose && e->fullRange.location == after) close = e;
  }
  if (!open || !close || isSelfClosed(*open) ||
      toLower(elementName(*open)) != toLower(elementName(*close))) {
    return;
  }
  // The opening tag must start its line; its indentation is the line's.
  std::size_t lineStart = open->fullRange.location;
  while (lineStart > 0 && text[lineStart - 1] != u'\n') --lineStart;
  std::size_t indentEnd = lineStart;
  while (indentEnd < open->fullRange.location && isWhiteSpaceChar(text[indentEnd])) ++indentEnd;
  if (indentEnd != open->fullRange.location) return;
  const std::u16string indent(text.substr(lineStart, indentEnd - lineStart));
  // An indented empty line for the content, the closing tag below it.
  const std::u16string insert = indent + u"\t\n" + indent;
  delegate.onReplaceString(insert, caret, after, -static_cast<long>(indent.size() + 1));
}

}  // namespace harbor

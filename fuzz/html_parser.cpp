// Pages come from anywhere: any UTF-16 text must give a page scan that ends,
// keeps its ranges inside the text and in order, hands out regions inside
// the pass, and survives the reading view and the typing reactions.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ParserChecks.h"
#include "platform/TextStorage.h"
#include "syntax/CodeFactory.h"
#include "syntax/parsers/HtmlParsers.h"

namespace {
using harbor::CodeElement;
using harbor::CodeFactory;
using harbor::CodeFormatParser;
using harbor::CodeRangeItem;
using harbor::HtmlFormatParser;
using harbor::SuggestField;
using harbor::TextRange;
using harbor::TextStorage;
using harbor::fuzz::checkList;

struct Delegate : harbor::ISuggestDelegate {
  TextRange selection;
  void onLoadSuggestItems(const std::vector<std::u16string>&) override {}
  void onReplaceString(const std::u16string&, std::size_t start, std::size_t end, long) override {
    CHECK(start <= end && end <= limit);
  }
  void onInputString(const std::u16string& text, long) override { CHECK(!text.empty()); }
  TextRange onSelectedRange() override { return selection; }
  std::size_t limit = 0;
};

void checkParser(const CodeFormatParser& p, std::size_t textLength) {
  CHECK(p.lastIndex <= textLength && p.currentIndex <= p.lastIndex);
  const std::size_t from = p.originIndex, to = p.lastIndex;
  for (const auto& bucket : p.keywordsItems) checkList(bucket, from, to);
  for (const auto* list : {&p.attributesItems, &p.multilineComment1Items, &p.multilineComment2Items,
                           &p.quotetion1Items}) {
    checkList(*list, from, to);
  }
  std::size_t last = from;
  for (const auto& e : p.elementItems) {
    // Tags hold their names, attributes and values.
    const TextRange whole = e->fullRange;
    CHECK(whole.location >= last && whole.end() <= to);
    CHECK(e->range.location >= whole.location && e->range.end() <= whole.end());
    for (const auto& attr : e->children()) {
      CHECK(attr->parent == e.get() && attr->range.end() <= whole.end());
      if (attr->value()) CHECK(attr->value()->range.end() <= whole.end());
    }
    last = whole.location;
  }
  for (const auto& region : p.otherFormatParser) {
    CHECK(region->originIndex >= from && region->lastIndex <= to);
    checkParser(*region, textLength);
  }
}

void runPage(const std::string& ext, const std::string& inside, const std::u16string& text,
             std::size_t caret) {
  TextStorage storage(text);
  auto parser = inside.empty()
                    ? CodeFactory::codeFormatParserWithExtension(ext)
                    : CodeFactory::codeFormatParserWithExtension(ext, inside, "f." + inside);
  parser->parserSmart(storage);
  checkParser(*parser, text.size());

  auto* page = dynamic_cast<HtmlFormatParser*>(parser.get());
  if (!page) return;
  CHECK(page->getHtmlText().size() <= text.size());
  SuggestField field;
  if (page->isCanLoadSuggestItems(u"a", TextRange{caret, 0}, field)) {
    page->searchTermLocation = caret;
    (void)page->searchText(u"a", false, &field, field.fieldType);
  }
  Delegate delegate;
  delegate.selection = TextRange{caret, 0};
  delegate.limit = text.size();
  for (const char16_t* typed : {u">", u"/", u"\n", u"a"}) {
    page->lastInputString = typed;
    page->loadSuggestItems(delegate);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Little-endian UTF-16; an odd last byte is dropped.
  std::u16string text(size / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  }
  const std::size_t caret = text.empty() ? 0 : (size * 7919) % (text.size() + 1);
  static const std::pair<const char*, const char*> kPages[] = {
      {"html", ""}, {"xml", ""},  {"shtml", ""}, {"aspx", ""},    {"jsp", ""},
      {"php", ""},  {"ashx", ""}, {"asax", ""},  {"erb", "html"},
  };
  for (const auto& [ext, inside] : kPages) runPage(ext, inside, text, caret);
  return 0;
}

// The scanner reads whatever a user opens: any UTF-16 text, lone surrogates
// and NUL characters included, must give a pass that ends, stays inside the
// text, and colours an edited text exactly as a fresh pass would.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ParserChecks.h"
#include "platform/TextStorage.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace {
using harbor::CodeFactory;
using harbor::CodeFormatParser;
using harbor::CodeRangeItem;
using harbor::TextRange;
using harbor::TextStorage;
using harbor::fuzz::checkList;

// `whole`: after a pass following an edit the lists cover the whole text,
// though only a span around the edit was scanned.
void checkParser(const CodeFormatParser& p, std::size_t textLength, bool whole = false) {
  CHECK(p.lastIndex <= textLength);
  CHECK(p.currentIndex <= p.lastIndex);
  CHECK(p.originIndex <= p.lastIndex);
  const std::size_t from = whole ? 0 : p.originIndex;
  const std::size_t to = whole ? textLength : p.lastIndex;
  for (const auto& bucket : p.keywordsItems) checkList(bucket, from, to);
  for (const auto* list : {&p.attributesItems, &p.otherPatternItems, &p.lineComment1Items,
                           &p.lineComment2Items, &p.multilineComment1Items,
                           &p.multilineComment2Items, &p.quotetion1Items, &p.quotetion2Items}) {
    checkList(*list, from, to);
  }
  for (const auto& region : p.otherFormatParser) {
    CHECK(region->originIndex >= from && region->lastIndex <= to);
    checkParser(*region, textLength);
  }
}

harbor::Color colourAt(const TextStorage& s, std::size_t i) {
  return s.attributesAt(i).foregroundColor.value_or(CodeFormatParser::editorDefaultColor());
}

std::shared_ptr<CodeFormatParser> makeParser(const std::string& ext, const std::string& inside) {
  if (inside.empty()) return CodeFactory::codeFormatParserWithExtension(ext);
  // A template: the page's language with Ruby inside.
  return CodeFactory::codeFormatParserWithExtension(ext, inside, "fuzz." + inside + "." + ext);
}

void runLanguage(const std::string& ext, const std::string& inside, const std::u16string& text,
                 std::size_t editAt) {
  TextStorage storage(text);
  auto parser = makeParser(ext, inside);
  // As in the editor, the parser hears of edits, so the next pass is the
  // partial one after a keystroke.
  storage.addEditObserver(
      [&](TextRange edited, std::ptrdiff_t change) { parser->noteEdit(edited, change); });
  parser->parserSmart(storage);
  checkParser(*parser, text.size());

  // A keystroke: the same parser again over the edited storage, writing
  // only what changed, must leave the colours of a first pass.
  const std::u16string quote = u"\"";
  storage.replaceCharacters(TextRange{editAt, editAt < text.size() ? 1u : 0u}, quote);
  parser->parserSmart(storage);
  checkParser(*parser, storage.length(), true);

  TextStorage fresh(storage.string());
  auto other = makeParser(ext, inside);
  other->parserSmart(fresh);
  // Within the span scanned: a pass that stops at an end marker (PHP's
  // `?>`) leaves what lies beyond to its host.
  for (std::size_t i = 0; i < other->lastIndex; ++i) {
    CHECK(colourAt(storage, i) == colourAt(fresh, i));
  }
  // And the lists the editor's queries read are a fresh pass's.
  CHECK(parser->keywordsItems == other->keywordsItems);
  for (auto list :
       {&CodeFormatParser::attributesItems, &CodeFormatParser::otherPatternItems,
        &CodeFormatParser::lineComment1Items, &CodeFormatParser::lineComment2Items,
        &CodeFormatParser::multilineComment1Items, &CodeFormatParser::multilineComment2Items,
        &CodeFormatParser::quotetion1Items, &CodeFormatParser::quotetion2Items}) {
    CHECK((*parser).*list == (*other).*list);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Little-endian UTF-16; an odd last byte is dropped.
  std::u16string text(size / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  }
  const std::size_t editAt = text.empty() ? 0 : (size * 7919) % text.size();
  static const std::pair<const char*, const char*> kLanguages[] = {
      {"cpp", ""},     {"js", ""},  {"json", ""}, {"pl", ""}, {"py", ""},    {"rb", ""},
      {"phpcore", ""}, {"yml", ""}, {"cfg", ""},  {"sh", ""}, {"erb", "js"},
  };
  for (const auto& [ext, inside] : kLanguages) runLanguage(ext, inside, text, editAt);
  return 0;
}

#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"
#include "syntax/LexicalParser.h"

namespace harbor {
namespace {

// A base scanner over a definition given inline.
std::shared_ptr<CodeFormatParser> scanner(std::u16string_view stx) {
  auto p = std::make_shared<CodeFormatParser>();
  p->stxParser->parserString(stx);
  p->initPara();
  return p;
}

const std::u16string kC =
    u"#QUOTATION1=\"\n#QUOTATION2='\n#LINECOMMENT=//\n#COMMENTON=/*\n#COMMENTOFF=*/\n"
    u"#DELIMITER=(){};,=*/+-<>\n#CASE=Y\n#KEYWORD=Keywords\nint\nreturn\nnever\n#KEYWORD=Types\n"
    u"size_t\n";

std::vector<TextRange> ranges(const std::vector<CodeRangeItem>& items) {
  std::vector<TextRange> out;
  for (const auto& i : items) out.push_back(i.range);
  return out;
}

struct Scan {
  std::shared_ptr<CodeFormatParser> parser;
  TextStorage storage;
};

Scan scan(std::u16string_view stx, std::u16string text) {
  Scan s{scanner(stx), TextStorage(std::move(text))};
  s.parser->parserValueWithTextStorage(s.storage);
  return s;
}

TEST(Scanner, QuotesAndEscapes) {
  auto s = scan(kC, u"x = \"abc\\\"def\"; y");
  EXPECT_EQ(ranges(s.parser->quotetion1Items), (std::vector<TextRange>{{4, 10}}));

  // Without CONTINUE_QUOTE a string stops before a real line feed; "\n" as
  // two characters does not end it.
  s = scan(kC, u"\"ab\\ncd\nint");
  EXPECT_EQ(ranges(s.parser->quotetion1Items), (std::vector<TextRange>{{0, 7}}));
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{8, 3}}));

  // A quote that opens at the end is a quote of one unit.
  s = scan(kC, u"int \"");
  EXPECT_EQ(ranges(s.parser->quotetion1Items), (std::vector<TextRange>{{4, 1}}));

  s = scan(kC, u"'a' \"b\"");
  EXPECT_EQ(ranges(s.parser->quotetion2Items), (std::vector<TextRange>{{0, 3}}));
  EXPECT_EQ(ranges(s.parser->quotetion1Items), (std::vector<TextRange>{{4, 3}}));
}

TEST(Scanner, DoubledQuoteEscapeRunsOn) {
  // With the quote as its own escape, a single closing quote is stepped over.
  auto s = scan(u"#QUOTATION1='\n#ESCAPE='\n#KEYWORD=k\nx\n", u"'it''s' x\ny");
  ASSERT_EQ(s.parser->quotetion1Items.size(), 1u);
  EXPECT_EQ(s.parser->quotetion1Items[0].range, (TextRange{0, 9}));
}

TEST(Scanner, BlockComments) {
  auto s = scan(kC, u"a /* x **/ int");
  EXPECT_EQ(ranges(s.parser->multilineComment1Items), (std::vector<TextRange>{{2, 8}}));
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{11, 3}}));

  // Unterminated is no comment: the words inside are scanned.
  s = scan(kC, u"/* never closed");
  EXPECT_TRUE(s.parser->multilineComment1Items.empty());
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{3, 5}}));

  // Block comments are tried before line comments.
  s = scan(kC, u"/*// */x");
  EXPECT_EQ(ranges(s.parser->multilineComment1Items), (std::vector<TextRange>{{0, 7}}));
  EXPECT_TRUE(s.parser->lineComment1Items.empty());
}

TEST(Scanner, LineComments) {
  auto s = scan(kC, u"int // c \"q\"\nint // end");
  EXPECT_EQ(ranges(s.parser->lineComment1Items), (std::vector<TextRange>{{4, 9}, {17, 6}}));
  EXPECT_TRUE(s.parser->quotetion1Items.empty()) << "comments beat quotes";
}

TEST(Scanner, WordsAndSections) {
  auto s = scan(kC, u"size_t n = int(return);");
  ASSERT_EQ(s.parser->keywordsItems.size(), 2u);
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{11, 3}, {15, 6}}));
  EXPECT_EQ(ranges(s.parser->keywordsItems[1]), (std::vector<TextRange>{{0, 6}}));
  // CASE=Y: "Int" is not "int".
  s = scan(kC, u"Int");
  EXPECT_TRUE(s.parser->keywordsItems[0].empty());
  // The escape character ends a word without being part of it.
  s = scan(kC, u"int\\return");
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{0, 3}}));
}

TEST(Scanner, NulStopsAndBomIsSkipped) {
  auto s = scan(kC, std::u16string(u"int \0 return", 12));
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{0, 3}}));
  s = scan(kC, u"\uFEFFint");
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{1, 3}}));
}

TEST(Scanner, EndSymbolEndsThePass) {
  auto p = scanner(kC);
  p->endSymbol = u"?>";
  TextStorage storage(u"int ?> return");
  p->parserValueWithTextStorage(storage);
  EXPECT_EQ(p->lastIndex, 6u);
  EXPECT_EQ(ranges(p->keywordsItems[0]), (std::vector<TextRange>{{0, 3}}));
}

TEST(Scanner, HostileTextsTerminate) {
  // Openers that never close must not make the pass quadratic or stuck.
  std::u16string openers;
  for (int i = 0; i < 100000; ++i) openers += u"/*a\n";
  auto s = scan(kC, openers);
  EXPECT_EQ(s.parser->currentIndex, openers.size());
  std::u16string surrogates(1000, u'\xD800');
  s = scan(kC, surrogates + u" int");
  EXPECT_EQ(ranges(s.parser->keywordsItems[0]), (std::vector<TextRange>{{1001, 3}}));
}

TEST(Scanner, PrimitivesAndQueries) {
  auto s = scan(kC, u"ab(cd ef // x\n\"q\"");
  CodeFormatParser& p = *s.parser;
  EXPECT_EQ(p.previousStringBySplitChar(5), u"cd");
  EXPECT_EQ(p.previousStringBySplitChar(0), u"");
  EXPECT_TRUE(p.isCurrentOffsetInComment(10));
  EXPECT_TRUE(p.isCurrentOffsetInQuote(15));
  EXPECT_FALSE(p.isCurrentOffsetNoSuggest(1));
  EXPECT_EQ(p.foundFirstPriority(5, u')', u'('), std::optional<std::size_t>(2));
  EXPECT_EQ(p.foundFirstPriority(2, u')', u'('), std::nullopt);
  EXPECT_EQ(p.searchText(u"RE", false, nullptr, 0), std::vector<std::u16string>{u"return"});
  EXPECT_TRUE(p.searchText(u"", false, nullptr, 0).empty());
}

TEST(CommentToggling, LineMarkersBothWays) {
  auto s = scan(kC, u"int a;\n  int b;\n");
  CodeFormatParser& p = *s.parser;
  auto commented = p.comments(TextRange{0, 16});
  ASSERT_TRUE(commented);
  EXPECT_EQ(*commented, u"//int a;\n//  int b;\n") << "the empty tail stays";

  TextStorage again(*commented);
  p.parserValueWithTextStorage(again);
  EXPECT_EQ(p.unComments(TextRange{0, again.length()}), u"int a;\n  int b;\n");

  // One line without the marker: nothing to uncomment, so the command comments.
  TextStorage mixed(u"//a\nb\n");
  p.parserValueWithTextStorage(mixed);
  EXPECT_FALSE(p.unComments(TextRange{0, mixed.length()}).has_value());

  // A marker after leading spaces goes; the spaces stay.
  EXPECT_EQ(CodeFormatParser::deleteStringToBeginLine(u"  //x\n\t//y", u"//"), u"  x\n\ty");
}

TEST(CommentToggling, BlockOnlyLanguages) {
  auto s = scan(u"#COMMENTON=/*\n#COMMENTOFF=*/\n#KEYWORD=k\ncolor\n", u"a { color: red; }");
  CodeFormatParser& p = *s.parser;
  auto on = p.comments(TextRange{0, p.text.size()});
  ASSERT_TRUE(on);
  EXPECT_EQ(*on, u"/*a { color: red; }*/");
  TextStorage again(*on);
  p.parserValueWithTextStorage(again);
  EXPECT_EQ(p.unComments(TextRange{0, again.length()}), u"a { color: red; }");
  EXPECT_FALSE(CodeFormatParser::deleteStringToBeginLine(u"x /* a */", u"/*", u"*/").has_value());

  auto none = scan(u"#KEYWORD=k\nx\n", u"text");
  EXPECT_FALSE(none.parser->comments(TextRange{0, 4}).has_value());
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

TEST(LexicalParser, PrimitivesStopAtTheEnd) {
  JsLexParser p;
  p.setText(u"ab");
  EXPECT_EQ(p.commentOn(), u"/*");
  EXPECT_EQ(p.currentChar(), u'a');
  EXPECT_EQ(p.currentStringStatic(), u"b");
  EXPECT_EQ(p.currentString(), u"b");
  EXPECT_EQ(p.currentChar(), 0);
  EXPECT_FALSE(p.isCanContinue());
  EXPECT_EQ(LexicalParser::currentRange(TextRange{1, 5}, u"ab"), u"b");
  EXPECT_EQ(LexicalParser::currentRange(TextRange{9, 1}, u"ab"), u"");
}

}  // namespace
}  // namespace harbor

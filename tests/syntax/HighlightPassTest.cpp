#include <gtest/gtest.h>

#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

const std::u16string kStx =
    u"#QUOTATION1=\"\n#LINECOMMENT=//\n#COMMENTON=/*\n#COMMENTOFF=*/\n#DELIMITER=(){};,=\n"
    u"#CASE=Y\n#KEYWORD=Keywords\nint\nreturn\n";

std::shared_ptr<CodeFormatParser> parser() {
  auto p = std::make_shared<CodeFormatParser>();
  p->stxParser->parserString(kStx);
  p->initPara();
  return p;
}

std::vector<std::pair<TextRange, Color>> colours(const TextStorage& s) {
  std::vector<std::pair<TextRange, Color>> out;
  s.enumerateForegroundColor(TextRange{0, s.length()}, false,
                             [&](const std::optional<Color>& c, TextRange r, bool&) {
                               if (c && *c != CodeFormatParser::editorDefaultColor()) {
                                 out.emplace_back(r, *c);
                               }
                             });
  return out;
}

const Color kKeyword = CodeFormatParser::keywordsColor();
const Color kComment = CodeFormatParser::commentColor();
const Color kQuote = CodeFormatParser::quotetionColor();

TEST(HighlightPass, FirstPassColoursTokensAndMergesAdjacentRuns) {
  auto p = parser();
  TextStorage s(u"int x; // c\n\"a\"\"b\" return");
  p->parserSmart(s);
  EXPECT_TRUE(p->isHadParser);
  EXPECT_EQ(colours(s),
            (std::vector<std::pair<TextRange, Color>>{
                {{0, 3}, kKeyword}, {{7, 5}, kComment}, {{12, 6}, kQuote}, {{19, 6}, kKeyword}}));
  EXPECT_EQ(s.attributesAt(0).font, CodeFormatParser::editorDefaultFont());
  EXPECT_EQ(s.attributesAt(5).font, CodeFormatParser::editorDefaultFont());
}

TEST(HighlightPass, EmptyAndOversizedTexts) {
  auto p = parser();
  TextStorage empty;
  p->parserSmart(empty);
  EXPECT_TRUE(p->isHadParser);
  EXPECT_EQ(empty.attributeWriteCount(), 0u);

  std::u16string big(524288, u' ');
  big.replace(0, 3, u"int");
  TextStorage atLimit(big);
  parser()->parserSmart(atLimit);
  EXPECT_TRUE(colours(atLimit).empty()) << "524288 units are not scanned";
  big.pop_back();
  TextStorage below(big);
  parser()->parserSmart(below);
  EXPECT_EQ(colours(below).size(), 1u);
}

TEST(HighlightPass, UnchangedTokensCostNoWrite) {
  auto p = parser();
  TextStorage s(u"int a; /* c */ return x;");
  p->parserSmart(s);
  const auto before = s.attributeWriteCount();
  // An edit in plain text moves nothing that is coloured.
  s.replaceCharacters(TextRange{24, 0}, u" y");
  p->parserSmart(s);
  EXPECT_EQ(s.attributeWriteCount(), before);
  // A second pass over the same text writes nothing either.
  p->parserSmart(s);
  EXPECT_EQ(s.attributeWriteCount(), before);
}

TEST(HighlightPass, TypingInsideACommentRewritesItsRun) {
  auto p = parser();
  TextStorage s(u"int /* ab */ x");
  p->parserSmart(s);
  s.replaceCharacters(TextRange{7, 0}, u"Z");
  p->parserSmart(s);
  EXPECT_EQ(colours(s),
            (std::vector<std::pair<TextRange, Color>>{{{0, 3}, kKeyword}, {{4, 9}, kComment}}));
}

TEST(HighlightPass, DeletingTheCloserResetsTheRun) {
  auto p = parser();
  TextStorage s(u"/* c */ int");
  p->parserSmart(s);
  ASSERT_EQ(colours(s).front(), (std::pair<TextRange, Color>{{0, 7}, kComment}));
  s.replaceCharacters(TextRange{5, 2}, u"");  // "/* c  int"
  p->parserSmart(s);
  EXPECT_EQ(colours(s), (std::vector<std::pair<TextRange, Color>>{{{6, 3}, kKeyword}}));
  EXPECT_EQ(s.attributesAt(0), p->defaultAttributes());
}

TEST(HighlightPass, RangeAttributesKeepTheLastWrite) {
  RangeAttributes m;
  const TextAttributes a{std::nullopt, kKeyword}, b{std::nullopt, kQuote};
  m.set(TextRange{5, 2}, a);
  m.set(TextRange{1, 2}, a);
  m.set(TextRange{5, 2}, b);
  m.finalize();
  EXPECT_EQ(m.size(), 2u);
  ASSERT_NE(m.find(TextRange{5, 2}), nullptr);
  EXPECT_EQ(m.find(TextRange{5, 2})->foregroundColor, kQuote);
  m.erase(TextRange{1, 2});
  EXPECT_EQ(m.find(TextRange{1, 2}), nullptr);
  EXPECT_EQ(m.size(), 1u);
}

}  // namespace
}  // namespace harbor

#include "syntax/StxParser.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace harbor {
namespace {

StxParser parse(std::u16string_view text) {
  StxParser p;
  p.parserString(text);
  return p;
}

std::vector<std::u16string> words(const StxParser& p, size_t section) {
  return section < p.keywordItems.size() ? p.keywordItems[section]->keywords
                                         : std::vector<std::u16string>{};
}

TEST(StxParser, FlagDirectivesNeedExactNameAndValueY) {
  EXPECT_TRUE(parse(u"#CASE=Y\n").caseSensive);
  EXPECT_TRUE(parse(u"#CASE=y\n").caseSensive);
  EXPECT_FALSE(parse(u"#CASE=yes\n").caseSensive);
  EXPECT_FALSE(parse(u"#case=y\n").caseSensive);
  EXPECT_FALSE(parse(u"#CASE=Y \n").caseSensive) << "values keep their spaces";
  StxParser p = parse(u"#CONTINUE_QUOTE=y\n#HTML_EMBEDDED=Y\n");
  EXPECT_TRUE(p.continueQuote);
  EXPECT_TRUE(p.isHtmlEmbeded);
}

TEST(StxParser, EscapeRules) {
  EXPECT_EQ(parse(u"#ESCAPE=\\\\\n").escape, u"\\");
  EXPECT_EQ(parse(u"#ESCAPE=\n").escape, u"\\");
  EXPECT_EQ(parse(u"#ESCAPE=ab\n").escape, u"a");
  EXPECT_EQ(parse(u"no directive at all\n").escape, u"\\");
  EXPECT_EQ(parse(u"#escape=x\n").escape, u"\\") << "known names are exact case";

  StxParser missing(std::filesystem::path("/nonexistent/definitely/missing.stx"));
  EXPECT_TRUE(missing.escape.empty());
  EXPECT_TRUE(missing.keywordItems.empty());
  EXPECT_EQ(missing.findKeyword(u"for"), -1);
}

TEST(StxParser, QuotesTakeTheFirstUnit) {
  StxParser p = parse(u"#QUOTATION1='x\n#QUOTATION2=\n");
  EXPECT_EQ(p.quotetion1, u'\'');
  EXPECT_EQ(p.quotetion2, 0);
  // A character outside the BMP gives its first surrogate, as the units do.
  EXPECT_EQ(parse(u"#QUOTATION1=\U0001F600\n").quotetion1, 0xD83D);
}

TEST(StxParser, LineCommentFallsBackToLineComment1) {
  EXPECT_EQ(parse(u"#LINECOMMENT=\n#LINECOMMENT1=//\n").lineComment, u"//");
  EXPECT_EQ(parse(u"#LINECOMMENT=--\n#LINECOMMENT1=//\n").lineComment, u"--");
  EXPECT_EQ(parse(u"#LINECOMMENT1=#\n#LINECOMMENT2=;\n").lineComment2, u";");
}

TEST(StxParser, DirectivesAcrossLineEndingsAndValues) {
  StxParser p = parse(u"#COMMENTON=/*\r\n#COMMENTOFF=*/\r\n#DELIMITER=,(){}\r\n#NOEQUALS\r\n");
  EXPECT_EQ(p.commentOn, u"/*");
  EXPECT_EQ(p.commentOff, u"*/");
  EXPECT_EQ(p.delimiter, u",(){}");
  // A bare name runs to the line feed, so it keeps a carriage return.
  EXPECT_EQ(p.formatInfo.count(u"NOEQUALS\r"), 1u);
  // A value may itself hold "=" and "#".
  EXPECT_EQ(parse(u"#COMMENTON2=<#=\n").commentOn2, u"<#=");
  // The later of two equal names wins.
  EXPECT_EQ(parse(u"#DELIMITER=a\n#DELIMITER=b\n").delimiter, u"b");
}

TEST(StxParser, SectionBodyLines) {
  StxParser p = parse(
      u"#KEYWORD=Keywords\n"
      u"; first comment\n"
      u"  for  \n"
      u"\n"
      u"^#define\n"
      u"#define\n"
      u"#\n"
      u";;  last comment  \n"
      u"^;\n"
      u"^\n"
      u"while");
  ASSERT_EQ(p.keywordItems.size(), 1u);
  EXPECT_EQ(words(p, 0),
            (std::vector<std::u16string>{u"for", u"#define", u"#define", u";", u"while"}));
  EXPECT_EQ(p.keywordItems[0]->comment, u"last comment");
  // "#define" in a body is also a directive line, harmlessly.
  EXPECT_EQ(p.formatInfo.count(u"define"), 1u);
  EXPECT_EQ(p.keywordItems[0]->keywordsCaseOptions.size(), p.keywordItems[0]->keywords.size());
}

TEST(StxParser, EmptySectionsAreDroppedWithoutATag) {
  StxParser p = parse(
      u"#KEYWORD=First\nalpha\n"
      u"#KEYWORD=Empty\n; only a comment\n"
      u"#KEYWORD=Third\nbeta\n"
      u"#KEYWORD=AtEnd");
  ASSERT_EQ(p.keywordItems.size(), 2u);
  EXPECT_EQ(p.keywordItems[1]->title, u"Third");
  EXPECT_EQ(p.keywordItems[1]->indexTag, 1);
  EXPECT_EQ(p.findKeyword(u"beta"), 1);
}

TEST(StxParser, LaterSectionWinsARepeatedWord) {
  StxParser p = parse(u"#KEYWORD=A\nfor\n#KEYWORD=B\nif\n#KEYWORD=C\nfor\n");
  EXPECT_EQ(p.findKeyword(u"for"), 2);
  EXPECT_EQ(p.findKeyword(u"if"), 1);
  EXPECT_EQ(p.findKeyword(u"nothing"), -1);
}

TEST(StxParser, CaseInsensitiveByDefault) {
  StxParser p = parse(u"#KEYWORD=Words\nfor\nFor\nSELECT\n");
  EXPECT_FALSE(p.caseSensive);
  EXPECT_EQ(p.findKeyword(u"FOR"), 0);
  EXPECT_EQ(p.findKeyword(u"select"), 0);

  StxParser cs = parse(u"#CASE=Y\n#KEYWORD=Words\nFor\n");
  EXPECT_EQ(cs.findKeyword(u"For"), 0);
  EXPECT_EQ(cs.findKeyword(u"for"), -1);
  EXPECT_EQ(cs.keywordItems[0]->patternHashTable.count(u"For"), 1u);
}

TEST(StxParser, HeaderWithoutEqualsDoesNotEndTheBody) {
  StxParser p = parse(u"#KEYWORD=One\nalpha\n#KEYWORD\nbeta\n#CASE=Y\n");
  // The running section swallows the bare header and the later directive...
  ASSERT_EQ(p.keywordItems.size(), 2u);
  EXPECT_EQ(words(p, 0), (std::vector<std::u16string>{u"alpha", u"#KEYWORD", u"beta", u"#CASE=Y"}));
  // ...which still opens a section of its own and still counts as a directive.
  EXPECT_EQ(p.keywordItems[1]->title, u"");
  EXPECT_EQ(words(p, 1), (std::vector<std::u16string>{u"beta", u"#CASE=Y"}));
  EXPECT_TRUE(p.caseSensive);
  // Lower-case headers with "=" do end a body.
  StxParser q = parse(u"#keyword=a\nx\n#Keyword=b\ny\n");
  EXPECT_EQ(words(q, 0), std::vector<std::u16string>{u"x"});
  EXPECT_EQ(words(q, 1), std::vector<std::u16string>{u"y"});
}

TEST(CodeKeywordItem, TypeFromTitleFirstRowWins) {
  struct Case {
    std::u16string title;
    long type;
  } cases[] = {
      {u"HTML Tags", CodeKeywordItem::TagOrKeyword},
      {u"Reserved Words", CodeKeywordItem::TagOrKeyword},
      {u"Attribute Value", CodeKeywordItem::Attribute},
      {u"CSS Properties", CodeKeywordItem::Attribute},
      {u"Built-in Functions", CodeKeywordItem::Function},
      {u"Methods", CodeKeywordItem::Function},
      {u"Classes", CodeKeywordItem::Object},
      {u"DOM Objects", CodeKeywordItem::Object},
      {u"Values", CodeKeywordItem::AttributeValue},
      {u"Quotes", CodeKeywordItem::AttributeValue},
      {u"Operators", CodeKeywordItem::Other},
      {u"", CodeKeywordItem::Other},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CodeKeywordItem(c.title).keywordType, c.type);
  }
}

TEST(CodeKeywordItem, PatternString) {
  CodeKeywordItem item(u"k");
  EXPECT_EQ(item.patternString(), u"");
  item.addItem(u"if");
  item.addItem(u"else");
  EXPECT_EQ(item.patternString(), u"\\b(?:if|else)\\b");
}

TEST(StxParser, FileDecoding) {
  test::ScratchDir dir;
  // UTF-16LE with a byte order mark.
  std::string le = "\xFF\xFE";
  for (char c : std::string("#LINECOMMENT=//\n#KEYWORD=K\nint\n")) {
    le += c;
    le += '\0';
  }
  test::writeFile(dir / "le.stx", le);
  StxParser p(dir / "le.stx");
  EXPECT_EQ(p.lineComment, u"//");
  EXPECT_EQ(p.findKeyword(u"int"), 0);

  test::writeFile(dir / "bom8.stx", "\xEF\xBB\xBF#LINECOMMENT=--\n");
  EXPECT_EQ(StxParser(dir / "bom8.stx").lineComment, u"--");

  // Not UTF-8: the encoding is detected.
  test::writeFile(dir / "latin1.stx", "; caf\xE9 au lait\n#LINECOMMENT=//\n#KEYWORD=K\ncaf\xE9\n");
  StxParser latin1(dir / "latin1.stx");
  EXPECT_EQ(latin1.lineComment, u"//");
  EXPECT_EQ(latin1.findKeyword(u"caf\u00E9"), 0);

  // Bytes that decode as nothing read as an unreadable file.
  test::writeFile(dir / "bad.stx", std::string("\xFE\xFF#\x00L", 5));
  StxParser bad(dir / "bad.stx");
  EXPECT_TRUE(bad.lineComment.empty());
  EXPECT_TRUE(bad.escape.empty());
}

TEST(StxParser, MalformedInputNeverBreaks) {
  const std::u16string nasty[] = {
      u"",
      u"#",
      u"##",
      u"#=",
      u"#KEYWORD=",
      u"#KEYWORD=\n",
      u"#KEYWORD=\n#KEYWORD=\n",
      std::u16string(u"#KEYWORD=x\n\0\0\n#\0", 17),
      u"\n\n\n#KEYWORD=t\n^\n;\n#\n",
      u"#QUOTATION1=\xD800\n",
      std::u16string(100000, u'#'),
  };
  for (const auto& text : nasty) {
    StxParser p = parse(text);
    for (const auto& item : p.keywordItems) EXPECT_FALSE(item->keywords.empty());
  }
  std::u16string longLine = u"#KEYWORD=big\n" + std::u16string(1 << 20, u'x');
  StxParser big = parse(longLine);
  ASSERT_EQ(big.keywordItems.size(), 1u);
  EXPECT_EQ(big.keywordItems[0]->keywords[0].size(), size_t{1} << 20);
}

}  // namespace
}  // namespace harbor

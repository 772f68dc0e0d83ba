// The page parsers: tags into elements, embedded regions handed to the
// parsers of their languages, server page blocks.
#include <gtest/gtest.h>

#include <chrono>

#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"
#include "syntax/parsers/HtmlParsers.h"

namespace harbor {
namespace {

using namespace std::string_literals;

struct Page {
  explicit Page(const std::string& ext, std::u16string source)
      : storage(std::move(source)), parser(CodeFactory::codeFormatParserWithExtension(ext)) {}
  TextStorage storage;
  std::shared_ptr<CodeFormatParser> parser;

  std::u16string at(TextRange r) const { return storage.string().substr(r.location, r.length); }
  // "9:a 11:href 12:x 10:a": every element, then its attributes and values.
  std::string elements() const {
    std::string out;
    for (const auto& e : parser->elementItems) {
      out += (out.empty() ? "" : " ") + std::to_string(e->type) + ":" + toUtf8(at(e->range));
      for (const auto& a : e->children()) {
        out += " " + std::to_string(a->type) + ":" + toUtf8(at(a->range));
        if (a->value())
          out += " " + std::to_string(a->value()->type) + ":" + toUtf8(at(a->value()->range));
      }
    }
    return out;
  }
  // "js{6,6}": each embedded parser with its region.
  std::string regions() const {
    std::string out;
    for (const auto& p : parser->otherFormatParser) {
      out += (out.empty() ? "" : " ") + toUtf8(p->extTag) + toString(p->visibleRange);
    }
    return out;
  }
  std::optional<Color> colourOf(std::u16string_view needle, std::size_t from = 0) const {
    const std::size_t at = storage.string().find(needle, from);
    EXPECT_NE(at, std::u16string::npos) << toUtf8(needle);
    return storage.attributesAt(at).foregroundColor;
  }
};

Page scan(const std::string& ext, std::u16string source) {
  Page page(ext, std::move(source));
  page.parser->parserValueWithTextStorage(page.storage);
  return page;
}

Page colour(const std::string& ext, std::u16string source) {
  Page page(ext, std::move(source));
  page.parser->parserSmart(page.storage);
  return page;
}

TEST(HtmlFormatParser, ReadsTagsAttributesAndValues) {
  Page p = scan("html", u"<a href=x title=\"t u\" hidden>text</a >");
  EXPECT_EQ(p.elements(), "9:a 11:href 12:x 11:title 12:\"t u\" 11:hidden 10:a");
  const auto& a = *p.parser->elementItems[0];
  EXPECT_EQ(a.fullRange, (TextRange{0, 29}));
  EXPECT_EQ(a.children()[0]->attributeFlag, 0) << "a value clears the flag";
  EXPECT_EQ(a.children()[2]->attributeFlag, 1);
  EXPECT_EQ(a.children()[0]->parent, &a);
  EXPECT_EQ(a.children()[0]->value()->parent, a.children()[0].get());
  EXPECT_EQ(p.parser->elementItems[1]->fullRange, (TextRange{33, 5}));
  // Text between tags is never inspected: no quotes or words out there.
  Page text = scan("html", u"<p>say \"hi\" <!-- c --> it's</p>");
  EXPECT_EQ(text.elements(), "9:p 10:p");
  EXPECT_EQ(text.parser->quotetion1Items.size(), 0u);
  EXPECT_EQ(text.parser->multilineComment1Items.size(), 1u);
}

TEST(HtmlFormatParser, SlashesStrayLessThanAndOddTags) {
  Page br = scan("html", u"<br/><img src=a.png />x");
  EXPECT_EQ(br.elements(), "9:br 9:img 11:src 12:a.png");
  EXPECT_EQ(br.parser->elementItems[0]->fullRange, (TextRange{0, 5}));
  EXPECT_EQ(br.parser->elementItems[1]->fullRange.end(), 22u);

  EXPECT_EQ(scan("html", u"a < b and c<\td> <").elements(), "");
  EXPECT_EQ(scan("html", u"< /p>").elements(), "10:p") << "space before the slash";
  EXPECT_EQ(scan("html", u"<!DOCTYPE html><p class = 'q'>").elements(),
            "9:!DOCTYPE 11:html 9:p 11:class 12:'q'");
  // '%' and '?' are delimiters: server markers are no element names.
  EXPECT_EQ(scan("html", u"<% x %><?xml v?><b>").elements(), "9:b");
  EXPECT_EQ(scan("html", u"</></ b >").elements(), "10:b") << "a closing tag needs a name";
}

TEST(HtmlFormatParser, UnterminatedCommentsTagsAndValues) {
  // No closer: no comment, and the opener reads as a tag up to its '>'.
  Page comment = scan("html", u"<!-- open <i>x");
  EXPECT_TRUE(comment.parser->multilineComment1Items.empty());
  EXPECT_EQ(comment.elements(), "9:!-- 11:open 11:<i");
  // An unfinished tag is still coloured, and a quoted value runs on.
  Page tag = scan("html", u"<div class=\"a\nb\" id='x");
  EXPECT_EQ(tag.elements(), "9:div 11:class 12:\"a\nb\" 11:id 12:'x");
  EXPECT_EQ(tag.parser->elementItems[0]->fullRange.end(), tag.storage.length());
  EXPECT_EQ(scan("html", u"<a").elements(), "9:a");
  EXPECT_EQ(scan("html", u"<a b=").elements(), "9:a 11:b");
}

TEST(HtmlFormatParser, ScriptAndStyleRegions) {
  Page src = colour("html", u"<script src=a.js>var x;</script>");
  EXPECT_EQ(src.regions(), "");
  EXPECT_EQ(src.elements(), "9:script 11:src 12:a.js 10:script");
  EXPECT_NE(src.colourOf(u"var"), CodeFormatParser::keywordsColor());

  Page js = colour("html", u"<script>var x;</script><b>");
  EXPECT_EQ(js.regions(), "js{8, 6}");
  EXPECT_EQ(js.elements(), "9:script 10:script 9:b") << "text order kept";
  EXPECT_EQ(js.colourOf(u"var"), CodeFormatParser::keywordsColor());

  EXPECT_EQ(scan("html", u"<script type=\"text/vbscript\">x</script>").regions(), "vbs{29, 1}");
  EXPECT_EQ(scan("html", u"<script language='VBScript'>x</script>").regions(), "vbs{28, 1}");
  EXPECT_EQ(scan("html", u"<script type=module>x</script>").regions(), "js{20, 1}");
  EXPECT_EQ(scan("html", u"<SCRIPT RUNAT='SERVER'>x</SCRIPT>").regions(), "cs{23, 1}");
  EXPECT_EQ(scan("html", u"<script runat=server language=\"vb\">x</script>").regions(),
            "vb{35, 1}");
  Page other = scan("html", u"<script runat=server language=perl><i>x</i></script><b>");
  EXPECT_EQ(other.regions(), "");
  EXPECT_EQ(other.elements(), "9:script 11:runat 12:server 11:language 12:perl 10:script 9:b");
  EXPECT_EQ(scan("html", u"<style>p { color: red }</style>").regions(), "css{7, 16}");
  EXPECT_EQ(scan("html", u"<script></script >").regions(), "js{8, 0}");

  // No closing tag: no region, and the rest isn't read as tags.
  Page open = scan("html", u"<script>var a; <b>x</b>");
  EXPECT_EQ(open.regions(), "");
  EXPECT_EQ(open.elements(), "9:script");
}

TEST(HtmlFormatParser, EachRegionColouredInItsOwnLanguage) {
  Page p = colour("aspx",
                  u"<%@ Page Language=\"C#\" %>\n"
                  u"<style>p { color: red; }</style>\n"
                  u"<script>var s = 'q';</script>\n"
                  u"<% int n = 1; %>\n"
                  u"<p class=x>for if var</p>");
  EXPECT_EQ(p.regions(), "css{33, 17} js{67, 12} cs{91, 12}");
  EXPECT_EQ(p.colourOf(u"color"), CodeFormatParser::keywordsColor());
  EXPECT_EQ(p.colourOf(u"var"), CodeFormatParser::keywordsColor());
  EXPECT_EQ(p.colourOf(u"'q'"), CodeFormatParser::quotetionColor());
  EXPECT_EQ(p.colourOf(u"int"), CodeFormatParser::keywordsColor());
  EXPECT_EQ(p.colourOf(u"Page"), CodeFormatParser::keywordsColor());
  EXPECT_EQ(p.colourOf(u"class"), CodeFormatParser::attributesColor());
  EXPECT_EQ(p.colourOf(u"x>"), CodeFormatParser::quotetionColor());
  EXPECT_NE(p.colourOf(u"for"), CodeFormatParser::keywordsColor()) << "page text stays plain";
}

TEST(HtmlFormatParser, RegionWritesAfterTheHost) {
  Page p = colour("html", u"<script>var s = \"q\";</script>");
  const TextRange quote{16, 3};
  ASSERT_EQ(p.at(quote), u"\"q\"");
  // Give the host a keyword over the region's quote: the region still wins.
  p.parser->keywordsItems[0].push_back(CodeRangeItem::instanceWithRange(quote, kKeyword));
  p.parser->addAttributesToTextStorage();
  EXPECT_EQ(p.storage.attributesAt(16).foregroundColor, CodeFormatParser::quotetionColor());
}

TEST(HtmlFormatParser, IncludeDirectivesInServerPages) {
  const std::u16string source = u"<!--#include file=\"a.html\" --><!-- plain --><b>";
  Page shtml = scan("shtml", source);
  EXPECT_EQ(shtml.elements(), "9:include 11:file 12:\"a.html\" 9:b");
  EXPECT_EQ(shtml.parser->multilineComment1Items.size(), 1u);
  EXPECT_EQ(shtml.parser->multilineComment1Items[0].range, (TextRange{30, 14}));
  // The directive's tag ends at the comment's closer, even unquoted.
  EXPECT_EQ(scan("shtml", u"<!--#echo var=x-->").elements(), "9:echo 11:var 12:x");
  EXPECT_EQ(scan("shtml", u"<!--#-->").parser->multilineComment1Items.size(), 1u);
  Page html = scan("html", source);
  EXPECT_EQ(html.elements(), "9:b");
  EXPECT_EQ(html.parser->multilineComment1Items.size(), 2u);
}

TEST(HtmlFormatParser, AspxDirectiveChoosesTheBlockLanguage) {
  Page cs = scan("aspx", u"  <%@ Page Language=\"C#\" %><% int a; %><b>");
  auto* aspx = dynamic_cast<AspxHtmlFormatParser*>(cs.parser.get());
  ASSERT_NE(aspx, nullptr);
  EXPECT_EQ(aspx->lanuageType, 1);
  EXPECT_EQ(cs.elements(), "9:Page 11:Language 12:\"C#\" 9:b");
  EXPECT_EQ(cs.regions(), "cs{29, 8}");

  Page vb = scan("aspx", u"<%@ Page Language='vb' %><% Dim a %>");
  EXPECT_EQ(dynamic_cast<AspxHtmlFormatParser&>(*vb.parser).lanuageType, 2);
  EXPECT_EQ(vb.regions(), "vb{27, 7}");

  // No directive: blocks are still stepped over whole, and read by nobody.
  Page none = scan("aspx", u"<p><% if (a <b> c) %><i>");
  EXPECT_EQ(dynamic_cast<AspxHtmlFormatParser&>(*none.parser).lanuageType, 0);
  EXPECT_EQ(none.regions(), "");
  EXPECT_EQ(none.elements(), "9:p 9:i");

  // A reused parser forgets the last page's language.
  Page again = scan("aspx", u"<%@ Page Language=\"C#\" %>");
  again.storage.replaceCharacters(TextRange{0, again.storage.length()}, u"<% int a; %>");
  again.parser->parserValueWithTextStorage(again.storage);
  EXPECT_EQ(dynamic_cast<AspxHtmlFormatParser&>(*again.parser).lanuageType, 0);
}

TEST(HtmlFormatParser, JspCommentsBlocksAndActions) {
  Page p = scan("jsp",
                u"<%-- <b> --%><% int a; %>"
                u"<jsp:scriptlet>int b;</jsp:scriptlet ><i>");
  ASSERT_EQ(p.parser->multilineComment2Items.size(), 1u);
  EXPECT_EQ(p.parser->multilineComment2Items[0].range, (TextRange{0, 13}));
  EXPECT_EQ(p.regions(), "jspcore{15, 8} jspcore{40, 6}");
  EXPECT_EQ(p.elements(), "9:jsp:scriptlet 10:jsp:scriptlet 9:i");
  EXPECT_EQ(p.parser->elementItems[1]->fullRange, (TextRange{46, 17}));
  // The JSP comment form belongs to JSP pages only.
  EXPECT_TRUE(scan("html", u"<%-- x --%>").parser->multilineComment2Items.empty());
}

TEST(HtmlFormatParser, ClassicAspBlocks) {
  auto parser = CodeFactory::instanceWithConfigItem("AspHtmlFormatParser", std::nullopt);
  parser->initPara();
  TextStorage storage(u"<p><% Response.Write(1) %></p>");
  parser->parserValueWithTextStorage(storage);
  ASSERT_EQ(parser->otherFormatParser.size(), 1u);
  EXPECT_EQ(parser->otherFormatParser[0]->extTag, u"aspcore");
  EXPECT_EQ(parser->otherFormatParser[0]->visibleRange, (TextRange{5, 19}));
  EXPECT_EQ(parser->defaultAccessoryType(), 4);
}

TEST(HtmlFormatParser, PhpBlocksStartAtTheMarker) {
  Page p = scan("php", u"<b><?php echo 1;");
  EXPECT_EQ(p.regions(), "phpcore{8, 8}") << "no ?>: the rest is PHP";
  EXPECT_EQ(p.elements(), "9:b 9:?php");
  EXPECT_EQ(scan("php", u"<?xml v?><b>").regions(), "") << "only <?php opens PHP";
}

TEST(HtmlFormatParser, PhpBlockHandsBackAfterItsEnd) {
  if (CodeFactory::makeParser("PhpFormatParser")->className() != "PhpFormatParser") {
    GTEST_SKIP() << "needs the PHP parser, which ends itself at ?>";
  }
  Page p = scan("php", u"<?php echo 1; ?><b>x</b>");
  EXPECT_EQ(p.elements(), "9:?php 9:b 10:b");
  EXPECT_EQ(p.regions(), "phpcore{5, 11}");
}

TEST(HtmlFormatParser, HandlerFilesReadTheDirective) {
  Page ashx = scan("ashx", u"<%@ WebHandler Language=\"C#\" Class=\"H\" %>\nusing System;");
  EXPECT_EQ(ashx.elements(), "9:WebHandler 11:Language 12:\"C#\" 11:Class 12:\"H\"");
  EXPECT_EQ(ashx.regions(), "cs{41, 14}");
  EXPECT_EQ(scan("ashx", u"<%@ WebHandler Class=\"H\" %>\nx").regions(), "");

  Page asax = scan("asax",
                   u"<%@ Application Language=\"VB\" %>\n"
                   u"<script runat=\"server\">Sub A()\nEnd Sub</script>");
  EXPECT_EQ(dynamic_cast<AsaxFormatParser&>(*asax.parser).lanuageType, 2);
  EXPECT_EQ(asax.regions(), "vb{56, 15}");
  EXPECT_EQ(scan("asax", u"<%@ Application Language=\"C#\" %><script>").regions(), "");
}

TEST(HtmlFormatParser, XmlKeepsPrefixedNames) {
  Page xml = scan("xml", u"<?xml version=\"1.0\"?><x:a y:b='1'/><![CDATA[<c>]]>");
  EXPECT_EQ(xml.elements(), "9:x:a 11:y:b 12:'1'");
  EXPECT_EQ(xml.parser->multilineComment2Items.size(), 1u);
  EXPECT_TRUE(xml.parser->suggestAttributeAndValue.empty());
  EXPECT_EQ(xml.parser->defaultAccessoryType(), 31);
  EXPECT_EQ(scan("xsl", u"<xsl:template match=\"/\">").elements(),
            "9:xsl:template 11:match 12:\"/\"");
}

TEST(HtmlFormatParser, ReadingTextDropsMarkupCommentsAndRegions) {
  Page p = scan("html",
                u"<p>Hello <!-- c --><b class=x>world</b></p>"
                u"<script>var x;</script><style>p{}</style>!");
  auto& html = dynamic_cast<HtmlFormatParser&>(*p.parser);
  EXPECT_EQ(html.getHtmlText(), u"Hello world!");
  const auto sorted = html.sortedAllElementsRange();
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    EXPECT_GE(sorted[i - 1]->fullRange.location, sorted[i]->fullRange.location);
  }
  ASSERT_NE(html.findFirstElementByName(u"B"), nullptr);
  EXPECT_EQ(html.findFirstElementByName(u"B")->range, (TextRange{20, 1}));
  EXPECT_EQ(html.findFirstElementByName(u"i"), nullptr);
}

TEST(HtmlFormatParser, ElementLookups) {
  Page p = scan("html", u"<a HREF='x%20y' t=\"\" n='b' m>");
  const CodeElement& a = *p.parser->elementItems[0];
  const std::u16string_view text = p.storage.string();
  EXPECT_EQ(a.findValueWithAttributeName(u"href", text), u"'x%20y'");
  EXPECT_EQ(a.findValueWithAttributeName(u"m", text), std::nullopt);
  EXPECT_EQ(a.findValueWithAttributeName(u"zz", text), std::nullopt);
  EXPECT_TRUE(a.findRangeWithAttriNameAndValue(u"href", u"X Y", text));
  EXPECT_TRUE(a.findRangeWithAttriNameAndValue(u"t", u"\"\"", text)) << "under 3 units: kept";
  EXPECT_TRUE(a.findRangeWithAttriNameAndValue(u"n", u"b", text));
  EXPECT_FALSE(a.findRangeWithAttriNameAndValue(u"m", u"", text));
  EXPECT_EQ(a.findValueWithAttributeRange(9, text), u"HREF");
  EXPECT_EQ(a.findValueWithAttributeRange(2, text), std::nullopt);
  EXPECT_EQ(a.findElementByRange(1), &a);
  EXPECT_EQ(a.findElementByRange(4), a.children()[0].get());
  EXPECT_EQ(a.findElementByRange(12), a.children()[0]->value().get());
  EXPECT_EQ(a.findElementByRange(0), nullptr);
  EXPECT_NE(a.description().find(">Range:{1, 1},FullRange:{0, 29}"), std::string::npos);
}

TEST(HtmlFormatParser, HostileInputEndsAndStaysInBounds) {
  auto check = [](const std::string& ext, std::u16string source) {
    Page p = scan(ext, std::move(source));
    const std::size_t n = p.storage.length();
    for (const auto& e : p.parser->elementItems) {
      EXPECT_LE(e->fullRange.end(), n);
      EXPECT_LE(e->range.end(), e->fullRange.end());
    }
    for (const auto& other : p.parser->otherFormatParser) EXPECT_LE(other->visibleRange.end(), n);
  };
  check("html", u"<a\0b <\xD800x=\xDC00> <\0/> <!--\0<script>\xDFFF"s);
  const std::size_t big = 10 * 1024 * 1024;
  auto repeat = [](std::u16string_view unit, std::size_t size) {
    std::u16string line;
    line.reserve(size + unit.size());
    while (line.size() < size) line += unit;
    return line;
  };
  for (std::u16string_view unit : {u"<", u"<!--", u"<a", u"</x"}) {
    check("php", repeat(unit, big));
  }
  // Every attribute is an object: a smaller page of them.
  check("html", repeat(u"<a b=\"", big / 10));
  check("html", repeat(u"<i x=y z>", big / 10));
  check("php", repeat(u"<?php ?>", 80000));
  std::u16string line = u"<script>";
  while (line.size() < big) line += u"</scrip";
  check("html", line);
  std::u16string nested;
  for (int i = 0; i < 100000; ++i) nested += u"<div>";
  check("html", nested);
  for (const char* ext : {"php", "aspx", "jsp", "shtml", "xml", "ashx", "asax"}) {
    check(ext, u"<%@ x %><?php <% <%-- <!--# <jsp:scriptlet> <script runat=server>");
  }
}

}  // namespace
}  // namespace harbor

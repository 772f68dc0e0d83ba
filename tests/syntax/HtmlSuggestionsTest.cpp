// What a page offers while typing: completions by place in the tag, file
// names for links, and the closing tags written for the user.
#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"
#include "syntax/parsers/HtmlParsers.h"

namespace harbor {
namespace {

struct Recorder : ISuggestDelegate {
  TextRange selection;
  std::vector<std::string> calls;
  void onLoadSuggestItems(const std::vector<std::u16string>&) override { calls.push_back("load"); }
  void onReplaceString(const std::u16string& text, std::size_t start, std::size_t end,
                       long focusDiff) override {
    calls.push_back("replace " + toUtf8(text) + " " + std::to_string(start) + "-" +
                    std::to_string(end) + " " + std::to_string(focusDiff));
  }
  void onInputString(const std::u16string& text, long diff) override {
    calls.push_back("input " + toUtf8(text) + " " + std::to_string(diff));
  }
  TextRange onSelectedRange() override { return selection; }
};

// A page whose caret sits at '|', scanned as the editor would before asking.
struct Typing {
  Typing(const std::string& ext, std::u16string withCaret, std::string path = {}) {
    caret = withCaret.find(u'|');
    withCaret.erase(caret, 1);
    storage = std::make_unique<TextStorage>(std::move(withCaret));
    parser = path.empty() ? CodeFactory::codeFormatParserWithExtension(ext)
                          : CodeFactory::codeFormatParserWithExtension(ext, "", path);
    parser->parserValueWithTextStorage(*storage);
    html = dynamic_cast<HtmlFormatParser*>(parser.get());
  }
  std::optional<SuggestField> field(const std::u16string& typed) {
    SuggestField f;
    if (!parser->isCanLoadSuggestItems(typed, TextRange{caret, 0}, f)) return std::nullopt;
    return f;
  }
  std::vector<std::string> typed(const std::u16string& input) {
    Recorder r;
    r.selection = TextRange{caret, 0};
    parser->lastInputString = input;
    parser->loadSuggestItems(r);
    return r.calls;
  }
  std::size_t caret;
  std::unique_ptr<TextStorage> storage;
  std::shared_ptr<CodeFormatParser> parser;
  HtmlFormatParser* html = nullptr;
};

std::vector<std::string> utf8(const std::vector<std::u16string>& items) {
  std::vector<std::string> out;
  for (const auto& i : items) out.push_back(toUtf8(i));
  return out;
}

TEST(HtmlSuggestions, FieldByPlaceInTheTag) {
  auto name = Typing("html", u"<p>x</p><di|\n<b>").field(u"i");
  ASSERT_TRUE(name);
  EXPECT_EQ(name->fieldType, 2);
  EXPECT_EQ(name->eleName, u"di");

  auto attr = Typing("html", u"<a hr|>").field(u"r");
  ASSERT_TRUE(attr);
  EXPECT_EQ(attr->fieldType, 4);
  EXPECT_EQ(attr->attrName, u"hr");

  auto value = Typing("html", u"<OL class=c TYPE=\"a|\">").field(u"a");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->fieldType, 32);
  EXPECT_EQ(value->eleName, u"OL");
  EXPECT_EQ(value->attrName, u"TYPE");
  EXPECT_EQ(value->attrValueRange, (TextRange{17, 3}));

  EXPECT_FALSE(Typing("html", u"<ol class=\"b|\">").field(u"b")) << "no values known";
  EXPECT_TRUE(Typing("html", u"<x src=\"b|\">").field(u"b")) << "files for any src";
  EXPECT_FALSE(Typing("html", u"<p>di|").field(u"i")) << "outside a tag";
  EXPECT_FALSE(Typing("html", u"<!-- <di| -->").field(u"i")) << "in a comment";
  EXPECT_FALSE(Typing("html", u"<di|").field(u" "));
}

TEST(HtmlSuggestions, ValuesThatBeginWithTheTermComeFirst) {
  Typing t("html", u"<input type=\"e|\">");
  auto f = t.field(u"e");
  ASSERT_TRUE(f);
  t.parser->searchTermLocation = t.caret;
  const auto items = utf8(t.parser->searchText(u"e", false, &*f, 32));
  ASSERT_FALSE(items.empty());
  EXPECT_EQ(items.front(), "email");
  EXPECT_NE(std::find(items.begin(), items.end(), "date"), items.end());
  EXPECT_EQ(std::find(items.begin(), items.end(), "radio"), items.end());

  EXPECT_EQ(t.parser->suggestAttributeAndValue.size(), 47u);
  EXPECT_EQ(t.parser->suggestAttributeAndValue.at(u"ul").at(u"type"),
            (std::vector<std::u16string>{u"disc", u"square", u"circle"}));
  EXPECT_EQ(t.parser->suggestAttributeAndValue.at(u"p").at(u"dir").size(), 3u);
}

TEST(HtmlSuggestions, LinksOfferFilesBesideTheDocument) {
  test::ScratchDir dir;
  test::writeFile(dir / "img/logo.png", "x");
  test::writeFile(dir / "img/Photo.jpg", "x");
  test::writeFile(dir / "img/logos/a.svg", "x");
  test::writeFile(dir / "index.css", "x");
  const std::string page = (dir / "page.html").string();

  Typing t("html", u"<img src=\"img\\lo|\">", page);
  auto f = t.field(u"o");
  ASSERT_TRUE(f);
  t.parser->searchTermLocation = t.caret;
  EXPECT_EQ(utf8(t.parser->searchText(u"lo", false, &*f, 32)),
            (std::vector<std::string>{"logo.png", "logos", "logos/a.svg"}));

  Typing root("html", u"<a href='/IND|'>", page);
  auto g = root.field(u"D");
  ASSERT_TRUE(g);
  root.parser->searchTermLocation = root.caret;
  EXPECT_EQ(utf8(root.parser->searchText(u"IND", false, &*g, 32)),
            (std::vector<std::string>{"index.css"}));
}

TEST(HtmlSuggestions, GreaterThanClosesTheTag) {
  EXPECT_EQ(Typing("html", u"<Div class='a'>|").typed(u">"),
            (std::vector<std::string>{"replace </Div> 15-15 -6", "load"}));
  EXPECT_EQ(Typing("html", u"<br>|").typed(u">"),
            (std::vector<std::string>{"replace  /> 3-4 0", "load"}));
  EXPECT_EQ(Typing("html", u"<br >|").typed(u">"),
            (std::vector<std::string>{"replace /> 4-5 0", "load"}));
  EXPECT_EQ(Typing("xml", u"<link>|").typed(u">"),
            (std::vector<std::string>{"replace </link> 6-6 -7", "load"}));
  // Nothing to close: self-closed, declarations, closing tags, quoted '>'.
  for (const char16_t* page :
       {u"<p/>|", u"<!DOCTYPE html>|", u"</p>|", u"a >|", u"<a title=\"x>|", u"<!-- x -->|"}) {
    EXPECT_EQ(Typing("html", page).typed(u">"), (std::vector<std::string>{"load"})) << toUtf8(page);
  }
}

TEST(HtmlSuggestions, SlashAfterLessThanNamesTheOpenElement) {
  Typing t("html", u"<div><p>x</p><br><img src=a/><i></i></|\n<b>y</b>");
  EXPECT_EQ(t.typed(u"/"), (std::vector<std::string>{"input div> 0", "load"}));
  EXPECT_TRUE(t.parser->isIgnoreLastInput);
  EXPECT_EQ(t.typed(u"div>"), (std::vector<std::string>{"load"})) << "our own input is swallowed";
  EXPECT_FALSE(t.parser->isIgnoreLastInput);

  EXPECT_EQ(Typing("html", u"<p></p></|").typed(u"/"), (std::vector<std::string>{"load"}));
}

TEST(HtmlSuggestions, LineFeedBetweenTagsIndents) {
  EXPECT_EQ(Typing("html", u"  <ul>\n|  </ul>").typed(u"\n"),
            (std::vector<std::string>{"replace   \t\n   7-9 -3", "load"}));
  EXPECT_EQ(Typing("html", u"<ul>\n|</ol>").typed(u"\n"), (std::vector<std::string>{"load"}));
  EXPECT_EQ(Typing("html", u"x <ul>\n|</ul>").typed(u"\n"), (std::vector<std::string>{"load"}));
}

TEST(HtmlSuggestions, OpenElementSkipsVoidAndPairedTags) {
  Typing t("html", u"<a><b></b><hr><c/>|");
  auto& items = t.parser->elementItems;
  ASSERT_EQ(items.size(), 5u);
  auto open = t.html->getElementItemNeedEnd(items.size() - 1, items.back().get());
  ASSERT_NE(open, nullptr);
  EXPECT_EQ(open->range, (TextRange{1, 1}));
  EXPECT_EQ(HtmlFormatParser::getRangeDistanceNearItems(4, items), 2u);
  EXPECT_EQ(HtmlFormatParser::getRangeDistanceNearItems(99, items), 4u);
  EXPECT_EQ(t.html->selectedKeywordsItemFocusDiff(u"href=\"\""), -1);
  EXPECT_EQ(t.html->selectedKeywordsItemFocusDiff(u"href"), 0);
}

}  // namespace
}  // namespace harbor

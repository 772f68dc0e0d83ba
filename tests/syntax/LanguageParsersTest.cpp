// The languages with hooks of their own, through the registry as the editor
// gets them, over the definition files that ship.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

using namespace std::literals;
using Ranges = std::vector<TextRange>;

Ranges ranges(const std::vector<CodeRangeItem>& items) {
  Ranges out;
  for (const auto& i : items) out.push_back(i.range);
  return out;
}

// Keyword ranges of every section, in text order.
Ranges keywords(const CodeFormatParser& p) {
  Ranges out;
  for (const auto& bucket : p.keywordsItems) {
    for (const auto& i : bucket) out.push_back(i.range);
  }
  std::sort(out.begin(), out.end());
  return out;
}

// Every range the pass reported lies inside the text.
bool allInside(const CodeFormatParser& p, std::size_t size) {
  auto inside = [&](const std::vector<CodeRangeItem>& items) {
    return std::all_of(items.begin(), items.end(),
                       [&](const CodeRangeItem& i) { return i.range.end() <= size; });
  };
  return std::all_of(p.keywordsItems.begin(), p.keywordsItems.end(), inside) &&
         inside(p.otherPatternItems) && inside(p.lineComment1Items) &&
         inside(p.lineComment2Items) && inside(p.multilineComment1Items) &&
         inside(p.multilineComment2Items) && inside(p.quotetion1Items) &&
         inside(p.quotetion2Items) && p.currentIndex <= size;
}

// Offset of the n-th occurrence of `needle`, so expectations read as text.
std::size_t at(std::u16string_view text, std::u16string_view needle, int n = 1) {
  std::size_t pos = std::u16string_view::npos;
  for (int i = 0; i < n; ++i) pos = text.find(needle, pos + 1);
  EXPECT_NE(pos, std::u16string_view::npos);
  return pos;
}

class LanguageParsers : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
    CodeFactory::removeAllCodeFormatContainer();
  }

  // A full highlighting pass, as the editor runs it.
  CodeFormatParser& pass(const std::string& ext, std::u16string text,
                         const std::string& path = {}) {
    parser = path.empty() ? CodeFactory::codeFormatParserWithExtension(ext)
                          : CodeFactory::codeFormatParserWithExtension(ext, "", path);
    storage = std::make_unique<TextStorage>(std::move(text));
    parser->parserSmart(*storage);
    return *parser;
  }
  std::optional<Color> colourAt(std::size_t i) const {
    return storage->attributesAt(i).foregroundColor;
  }

  std::shared_ptr<CodeFormatParser> parser;
  std::unique_ptr<TextStorage> storage;
};

TEST_F(LanguageParsers, JavaScriptRegexLiteralsAgainstDivision) {
  const std::u16string text = u"a = /x\\/y/g;\nb = a / b / c;\nf(/p/, q ? /r/ : 1)\nd = /open\n";
  auto& p = pass("js", text);
  EXPECT_EQ(p.className(), "JSFormatParser");
  EXPECT_EQ(
      ranges(p.otherPatternItems),
      (Ranges{{4, 6}, {at(text, u"/p/"), 3}, {at(text, u"/r/"), 3}, {at(text, u"/open"), 5}}));
  EXPECT_EQ(colourAt(4), CodeFormatParser::otherColor());
  EXPECT_EQ(colourAt(at(text, u"/ b")), std::nullopt);
}

TEST_F(LanguageParsers, JsonHasNoKeywordsAndLeavesJavaScriptItsOwn) {
  // JSON first, so that it loads the definition both share.
  auto& json = pass("json", u"{\"a\": true, \"b\": null, var: 1}");
  EXPECT_EQ(json.className(), "JsonFormatParser");
  EXPECT_TRUE(json.stxParser->keywordItems.empty());
  ASSERT_EQ(json.keywordsItems.size(), 1u);
  EXPECT_TRUE(json.keywordsItems[0].empty());
  EXPECT_EQ(ranges(json.quotetion1Items), (Ranges{{1, 3}, {12, 3}}));

  auto& js = pass("js", u"var x = true;");
  EXPECT_FALSE(js.stxParser->keywordItems.empty());
  EXPECT_EQ(ranges(js.keywordsItems[0]), (Ranges{{0, 3}, {8, 4}}));
  EXPECT_EQ(colourAt(0), CodeFormatParser::keywordsColor());
}

TEST_F(LanguageParsers, PerlHereDocumentsTakeThreeUnitNamesOnly) {
  std::u16string text = u"print <<EOF;\nsay \"x\"\nEOF\nmy $q = <<'END';\nEND\n";
  auto& p = pass("pl", text);
  EXPECT_EQ(ranges(p.quotetion1Items),
            (Ranges{{6, at(text, u"EOF", 2) + 3 - 6},
                    {at(text, u"<<'"), at(text, u"END", 2) + 3 - at(text, u"<<'")}}));
  EXPECT_EQ(keywords(p).back(), (TextRange{at(text, u"my"), 2}));

  text = u"print <<EOFX;\nsay\nEOFX\n";
  auto& q = pass("pl", text);
  EXPECT_TRUE(q.quotetion1Items.empty());
}

TEST_F(LanguageParsers, PerlEndPodRegexAndQuotedDeclarations) {
  std::u16string text = u"$s =~ /a b/;\nm/c/;\n%h = (k => q{v w});\n=pod\nmy\n=cut\nmy $x;\n";
  auto& p = pass("pl", text);
  const std::size_t pod = at(text, u"=pod");
  EXPECT_EQ(ranges(p.quotetion1Items),
            (Ranges{{6, 5}, {at(text, u"/c/"), 3}, {at(text, u"{v"), 5}}));
  EXPECT_EQ(p.quotetion1Items[0].type, kOtherPattern);
  EXPECT_EQ(ranges(p.multilineComment1Items), (Ranges{{pod, at(text, u"=cut") + 4 - pod}}));
  EXPECT_EQ(keywords(p).back(), (TextRange{at(text, u"my", 2), 2}));

  // __END__ and a POD block with no =cut both run to the end of the text.
  text = u"my $a;\n__END__\nmy \"data\"\n";
  auto& e = pass("pl", text);
  EXPECT_EQ(ranges(e.multilineComment1Items), (Ranges{{7, text.size() - 7}}));
  EXPECT_TRUE(e.quotetion1Items.empty());
  auto& u = pass("pl", u"=head1 T\nmy \"x\"");
  EXPECT_EQ(ranges(u.multilineComment1Items), (Ranges{{0, 15}}));
}

TEST_F(LanguageParsers, PythonBlockStringsAreQuotesOnlyWhenAssigned) {
  const std::u16string text = u"x = \"\"\"t\"\"\"\n\"\"\"doc\"\"\"\ny =\t'''a'''\n'''b'''\n";
  auto& p = pass("py", text);
  EXPECT_EQ(ranges(p.quotetion1Items), (Ranges{{4, 7}}));
  EXPECT_EQ(ranges(p.multilineComment1Items), (Ranges{{12, 9}}));
  EXPECT_EQ(ranges(p.quotetion2Items), (Ranges{{at(text, u"'''a"), 7}}));
  EXPECT_EQ(p.quotetion2Items[0].type, kQuote2);
  EXPECT_EQ(ranges(p.multilineComment2Items), (Ranges{{at(text, u"'''b"), 7}}));
  EXPECT_EQ(colourAt(4), CodeFormatParser::quotetionColor());
  EXPECT_EQ(colourAt(12), CodeFormatParser::commentColor());
}

TEST_F(LanguageParsers, RubyHereDocumentRunsAndRegexes) {
  std::u16string text = u"f(<<A, <<\"B\")\none\nA\ntwo\nB\nputs 1\n";
  auto& p = pass("rb", text);
  const std::size_t bodyEnd = at(text, u"\nB\n") + 2;
  ASSERT_EQ(ranges(p.quotetion1Items), (Ranges{{2, bodyEnd - 2}}));
  EXPECT_EQ(p.quotetion1Items[0].type, kQuote1);
  EXPECT_EQ(keywords(p), (Ranges{{at(text, u"puts"), 4}}));

  text = u"r = %r{a/b}\nputs /x y/ if s =~ /z/\nc = a/b/d\nx = <<EOS\nno end\n";
  auto& r = pass("rb", text);
  EXPECT_EQ(ranges(r.quotetion1Items),
            (Ranges{{4, 7}, {at(text, u"/x"), 5}, {at(text, u"/z/"), 3}}));
  for (const auto& item : r.quotetion1Items) EXPECT_EQ(item.type, kOtherPattern);
}

TEST_F(LanguageParsers, PhpStopsAtItsEndMarker) {
  const std::u16string text = u"$s = <<<EOT\nx \"y\"\nEOT;\necho \"?>\"; ?><b>$t = 1;</b>";
  auto& p = pass("phpcore", text);
  const std::size_t close = at(text, u"?>", 2);
  EXPECT_EQ(p.lastIndex, close + 2);
  EXPECT_EQ(ranges(p.quotetion1Items), (Ranges{{5, at(text, u"EOT;") + 4 - 5}, {close - 6, 4}}));
  EXPECT_EQ(colourAt(close + 5), std::nullopt);  // past the end: the host's

  auto& q = pass("phpcore", u"$s = <<<EOTX\nEOT;\n");
  EXPECT_TRUE(q.quotetion1Items.empty());
}

TEST_F(LanguageParsers, KeyValueFilesColourKeysNotValues) {
  std::u16string text = u"key: \"v\" # c\nother: plain words\n";
  auto& y = pass("yml", text);
  EXPECT_EQ(ranges(y.keywordsItems[0]), (Ranges{{0, 3}, {at(text, u"other"), 5}}));
  EXPECT_EQ(ranges(y.quotetion1Items), (Ranges{{5, 3}}));
  EXPECT_EQ(ranges(y.lineComment1Items), (Ranges{{9, 4}}));

  // Blanks split a key from its value in configuration files.
  text = u"worker_processes 4;\nhttp {\n  listen 80; # port\n}\n";
  auto& n = pass("conf", text, "/nonexistent/nginx.conf");
  EXPECT_EQ(n.className(), "KeyValueCfgParser");
  EXPECT_EQ(keywords(n), (Ranges{{0, 16}, {at(text, u"http"), 4}, {at(text, u"listen"), 6}}));
  EXPECT_EQ(ranges(n.lineComment1Items), (Ranges{{at(text, u"# port"), 7}}));
}

TEST_F(LanguageParsers, BadInputEndsInsideTheText) {
  const std::u16string nasty[] = {
      std::u16string(u"a = \"b\0c\" /x/ <<EOF\0 =pod"sv),
      u"\xD800 = /\xDC00/ \xDFFF<<ABC \xD800",
      u"/* open \"str <<EOF %r{ <<<ABC =pod /re q{ '''",
      u"<<A, <<B, <<\"C\n",
  };
  for (const char* ext : {"js", "json", "pl", "py", "rb", "phpcore", "yml", "cfg"}) {
    for (const auto& text : nasty) {
      EXPECT_TRUE(allInside(pass(ext, text), text.size())) << ext;
    }
  }
  // One 10 MB line: a pass must stay linear.
  std::u16string line;
  while (line.size() < 10'000'000) line += u"a = /x/ <<EOF b \"q\" 'r' <<<EOT =>q{ %r{ \"\"\" ";
  for (const char* ext : {"js", "pl", "py", "rb", "phpcore", "yml"}) {
    auto p = CodeFactory::codeFormatParserWithExtension(ext);
    TextStorage big(line);
    p->parserValueWithTextStorage(big);
    EXPECT_TRUE(allInside(*p, line.size())) << ext;
  }
}

}  // namespace
}  // namespace harbor

// The shipped definitions against what each language really has: its quote
// characters and comment markers, and keyword sections that the suggestion
// search can class.
#include <gtest/gtest.h>

#include <set>

#include "platform/Resources.h"
#include "platform/Unicode.h"
#include "syntax/StxParser.h"

namespace harbor {
namespace {

struct Expected {
  const char* file;
  char16_t quote1;
  char16_t quote2;
  std::u16string_view lineComment;
  std::u16string_view commentOn;
  std::u16string_view commentOff;
  bool caseSensitive;
};

// Every file the format registry names.
const Expected kExpected[] = {
    {"nginx.conf.stx", u'"', u'\'', u"#", u"", u"", true},
    {"htaccess.stx", u'"', 0, u"#", u"", u"", false},
    {"podfile.stx", u'"', u'\'', u"#", u"=begin", u"=end", true},
    {"CMakeLists.txt.stx", u'"', 0, u"#", u"#[[", u"]]", false},
    {"makefile.stx", u'"', u'\'', u"#", u"", u"", true},
    {"configure.stx", u'"', u'\'', u"#", u"", u"", true},
    {"js.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"html5.stx", u'"', u'\'', u"", u"<!--", u"-->", false},
    {"shtml.stx", u'"', u'\'', u"", u"<!--", u"-->", false},
    {"css3.stx", u'"', u'\'', u"", u"/*", u"*/", false},
    {"cs.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"asp.stx", u'"', 0, u"'", u"", u"", false},
    {"php.stx", u'"', u'\'', u"//", u"/*", u"*/", false},
    {"java.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"jsp.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"cpp.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"objc.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"masm.stx", u'\'', u'"', u";", u"", u"", false},
    {"sql.stx", u'\'', u'"', u"--", u"/*", u"*/", false},
    {"vbnet.stx", u'"', 0, u"'", u"", u"", false},
    {"vbscript.stx", u'"', 0, u"'", u"", u"", false},
    {"perl.stx", u'"', u'\'', u"#", u"", u"", true},
    {"python3.stx", u'"', u'\'', u"#", u"\"\"\"", u"\"\"\"", true},
    {"ruby.stx", u'"', u'\'', u"#", u"=begin", u"=end", true},
    {"erlang.stx", u'"', u'\'', u"%", u"", u"", true},
    {"xsl.stx", u'"', u'\'', u"", u"<!--", u"-->", true},
    {"xml.stx", u'"', u'\'', u"", u"<!--", u"-->", true},
    {"stx.stx", 0, 0, u";", u"", u"", true},
    {"groovy.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"scala.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"haskell.stx", u'"', u'\'', u"--", u"{-", u"-}", true},
    {"pascal.stx", u'\'', 0, u"//", u"{", u"}", false},
    {"shell.stx", u'"', u'\'', u"#", u"", u"", true},
    {"tcl.stx", u'"', 0, u"#", u"", u"", true},
    {"proto.stx", u'"', u'\'', u"//", u"/*", u"*/", true},
    {"m4.stx", u'"', 0, u"#", u"", u"", true},
    {"yml.stx", u'"', u'\'', u"#", u"", u"", false},
    {"cfg.stx", u'"', u'\'', u"#", u"", u"", false},
};

TEST(ShippedSyntax, EachLanguageHasItsQuotesCommentsAndKeywords) {
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.file);
    auto path = resourcePath(std::string("syntax/") + e.file);
    ASSERT_TRUE(path.has_value());
    StxParser p(*path);
    EXPECT_EQ(p.quotetion1, e.quote1);
    EXPECT_EQ(p.quotetion2, e.quote2);
    EXPECT_EQ(p.lineComment, e.lineComment);
    EXPECT_EQ(p.commentOn, e.commentOn);
    EXPECT_EQ(p.commentOff, e.commentOff);
    EXPECT_EQ(p.caseSensive, e.caseSensitive);
    ASSERT_FALSE(p.keywordItems.empty());
    // A directive written after a section opens would turn into a keyword.
    for (const auto& item : p.keywordItems) {
      for (const auto& w : item->keywords) {
        EXPECT_TRUE(w.find(u'=') == std::u16string::npos || w.front() != u'#')
            << toUtf8(w) << " looks like a misplaced directive";
      }
    }
  }
}

TEST(ShippedSyntax, PageFormatsListServerTagDelimiters) {
  for (const char* file : {"html5.stx", "shtml.stx", "xml.stx", "xsl.stx"}) {
    SCOPED_TRACE(file);
    StxParser p(*resourcePath(std::string("syntax/") + file));
    EXPECT_NE(p.delimiter.find(u'%'), std::u16string::npos);
    EXPECT_NE(p.delimiter.find(u'?'), std::u16string::npos);
  }
}

TEST(ShippedSyntax, HtmlSectionsServeSuggestionsByType) {
  StxParser p(*resourcePath("syntax/html5.stx"));
  std::set<long> types;
  for (const auto& item : p.keywordItems) types.insert(item->keywordType);
  EXPECT_TRUE(types.count(CodeKeywordItem::TagOrKeyword));
  EXPECT_TRUE(types.count(CodeKeywordItem::Attribute));
  EXPECT_GE(p.findKeyword(u"DIV"), 0);
  EXPECT_GE(p.findKeyword(u"href"), 0);
}

}  // namespace
}  // namespace harbor

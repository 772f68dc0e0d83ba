#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "editor/FindTextInString.h"
#include "editor/RegexUtils.h"
#include "platform/Cancellation.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

std::vector<std::size_t> locations(const std::vector<FindRangeObject>& hits) {
  std::vector<std::size_t> out;
  for (const auto& h : hits) out.push_back(h.range().location);
  return out;
}

std::vector<std::size_t> find(std::u16string_view text, std::u16string pattern, bool regex,
                              bool word, bool ignoreCase = false) {
  auto o = FindTextOptions::instanceWithString(std::move(pattern));
  o->_isRegex = regex;
  o->_isMatchWord = word;
  o->_isCaseSensitive = ignoreCase;
  Error error;
  auto hits = FindTextInString::findText(text, *o, &error);
  EXPECT_TRUE(error.message.empty()) << error.message;
  return locations(hits);
}

TEST(FindTextInStringTest, WordMatchingTreatsDashAndUnderscoreAsWordInLiteralModeOnly) {
  const std::u16string text = u"foo- foo_ foo. xfoo foo";
  EXPECT_EQ(find(text, u"foo", false, true), (std::vector<std::size_t>{10, 20}));
  // "\b" sees "-" as a boundary, so the regex mode takes "foo-" as well.
  EXPECT_EQ(find(text, u"foo", true, true), (std::vector<std::size_t>{0, 10, 20}));
  // Letters, marks and digits of any script count as word units.
  EXPECT_TRUE(find(u"\u00e9foo foo9 foo\u0301", u"foo", false, true).empty());
  // A hit at 0 or ending at the very end has no neighbour on that side.
  EXPECT_EQ(find(u"foo", u"foo", false, true), (std::vector<std::size_t>{0}));
}

TEST(FindTextInStringTest, TheCaseFlagIsReadAsIgnoreCaseInBothModes) {
  const std::u16string text = u"Foo foo FOO Straße STRASSE";
  EXPECT_EQ(find(text, u"foo", false, false, false), (std::vector<std::size_t>{4}));
  EXPECT_EQ(find(text, u"foo", false, false, true), (std::vector<std::size_t>{0, 4, 8}));
  EXPECT_EQ(find(text, u"foo", true, false, false), (std::vector<std::size_t>{4}));
  EXPECT_EQ(find(text, u"foo", true, false, true), (std::vector<std::size_t>{0, 4, 8}));
  EXPECT_EQ(find(u"ΣΊΣΥΦΟΣ σίσυφος", u"σίσυφοσ", false, false, true).size(), 2u);
  // Long texts fold ASCII runs in blocks; the other units one by one.
  const std::u16string mixed =
      std::u16string(40, u'x') + u"ΣΊΣΥΦΟΣ" + std::u16string(40, u'Y') + u"FOO";
  EXPECT_EQ(find(mixed, u"σίσυφοσ", false, false, true), (std::vector<std::size_t>{40}));
  EXPECT_EQ(find(mixed, u"yfoo", false, false, true), (std::vector<std::size_t>{86}));
  // findTextItems:pattern: always ignores case.
  EXPECT_EQ(FindTextInString::findTextItems(u"aB ab", u"(a)(b)"),
            (std::vector<std::u16string>{u"aB", u"a", u"B", u"ab", u"a", u"b"}));
}

TEST(FindTextInStringTest, LiteralHitsDoNotOverlapAndEmptyInputsFindNothing) {
  EXPECT_EQ(find(u"aaaaa", u"aa", false, false), (std::vector<std::size_t>{0, 2}));
  EXPECT_TRUE(find(u"", u"a", false, false).empty());
  EXPECT_TRUE(find(u"abc", u"", false, false).empty());
  EXPECT_TRUE(find(u"ab", u"abc", false, false).empty());
  // Long texts go through the vector scan; hits straddle its 8-unit blocks.
  std::u16string big(1000, u'x');
  big.replace(7, 3, u"abc");
  big.replace(995, 3, u"abc");
  EXPECT_EQ(find(big, u"abc", false, false), (std::vector<std::size_t>{7, 995}));
  EXPECT_EQ(FindTextItem::rangesOfStringInDocument(u"abc", big).size(), 2u);
}

TEST(FindTextInStringTest, ItemsCarryTheirLineAndTheReplacement) {
  const std::u16string text = u"foo one\nmid foo\nlast foo";
  auto o = FindTextOptions::instanceWithString(u"(f)oo");
  o->_isRegex = true;
  o->_replaceString = u"[$1$2\\$1]";
  Error error;
  auto items = FindTextInString::findTextItems(text, *o, &error);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0]._showedRange, (TextRange{0, 7}));  // first line starts at 0
  EXPECT_EQ(items[0]._showedText, u"foo one");
  EXPECT_EQ(items[1]._showedRange, (TextRange{8, 7}));
  EXPECT_EQ(items[1].rangeInShowRange(), (TextRange{4, 3}));
  EXPECT_EQ(items[2]._showedRange, (TextRange{16, 8}));  // last line ends at the text's end
  // $2 names no group and gives nothing; "\$" is a dollar sign.
  EXPECT_EQ(items[0]._replacedText, u"[f$1]");
  EXPECT_EQ(items[0].attributedString().range, (TextRange{0, 3}));

  o->_isRegex = false;
  o->_findString = u"foo";
  o->_replaceString = u"$1";
  items = FindTextInString::findTextItems(text, *o, &error);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0]._replacedText, u"$1");  // literal mode keeps the template as it stands

  o->_isRegex = true;
  o->_replaceString.clear();
  items = FindTextInString::findTextItems(text, *o, &error);
  EXPECT_EQ(items[0]._replacedText, u"");
}

TEST(FindTextInStringTest, WordMarksAreAddedOnceToTheSharedOptions) {
  auto o = FindTextOptions::instanceWithString(u"foo");
  o->_isRegex = true;
  o->_isMatchWord = true;
  Error error;
  FindTextInString::findText(u"foo", *o, &error);
  EXPECT_EQ(o->_findString, u"\\bfoo\\b");
  FindTextInString::findText(u"foo", *o, &error);
  EXPECT_EQ(o->_findString, u"\\bfoo\\b");
}

TEST(FindTextInStringTest, BadPatternsAndRunawayMatchesAreErrorsWhileACancelIsNot) {
  auto o = FindTextOptions::instanceWithString(u"(unclosed");
  o->_isRegex = true;
  Error error;
  EXPECT_TRUE(FindTextInString::findTextItems(u"text", *o, &error).empty());
  EXPECT_EQ(error.domain, kFindTextErrorDomain);
  EXPECT_NE(error.message.find("(unclosed"), std::string::npos);

  const auto saved = FindTextInString::regexTimeLimit();
  FindTextInString::setRegexTimeLimit(50);
  o->_findString = u"(a+)+$";
  const std::u16string evil = std::u16string(40, u'a') + u"b";
  error = {};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(FindTextInString::findTextItems(evil, *o, &error).empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(error.domain, kFindTextErrorDomain);

  CancellationToken token;
  token.cancel();
  {
    CurrentCancellationScope scope(token);
    error = {};
    EXPECT_TRUE(FindTextInString::findTextItems(evil, *o, &error).empty());
    EXPECT_TRUE(error.message.empty());
    o->_findString = u"a";
    o->_isRegex = false;
    // A literal search stops after the hit where it notices.
    EXPECT_EQ(FindTextInString::findTextItems(evil, *o, &error).size(), 1u);
  }
  FindTextInString::setRegexTimeLimit(saved);
}

TEST(FindTextInStringTest, EmptyMatchesAdvanceAndSurrogatesStayWhole) {
  // An empty match never repeats, nor splits a surrogate pair.
  const std::u16string text = u"a\U0001F600b";
  auto o = FindTextOptions::instanceWithString(u"x*");
  o->_isRegex = true;
  Error error;
  auto hits = FindTextInString::findText(text, *o, &error);
  EXPECT_EQ(locations(hits), (std::vector<std::size_t>{0, 1, 3, 4}));
  // Lone surrogates are searched like any other unit.
  const std::u16string lone = u"x\xD800y\xDC00";
  EXPECT_EQ(find(lone, u"\xD800", false, false), (std::vector<std::size_t>{1}));
  EXPECT_EQ(find(lone, u"y", false, true), (std::vector<std::size_t>{2}));
  o->_findString = u".";
  EXPECT_EQ(FindTextInString::findText(lone, *o, &error).size(), 4u);
}

TEST(FindTextInStringTest, HitsOnOneLongLineShareItsText) {
  std::u16string line;
  for (int i = 0; i < 100000; ++i) line += u"ab ";
  line += u"\nab\n";
  for (bool regex : {false, true}) {
    auto o = FindTextOptions::instanceWithString(regex ? u"a(b)" : u"ab");
    o->_isRegex = regex;
    o->_replaceString = u"<$1>";
    Error error;
    auto items = FindTextInString::findTextItems(line, *o, &error);
    ASSERT_EQ(items.size(), 100001u);
    std::size_t copies = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
      const auto& item = items[i];
      ASSERT_EQ(item._showedText, std::u16string_view(line).substr(item._showedRange.location,
                                                                   item._showedRange.length));
      if (i > 0 && item._showedText.view().data() !=
                       items[i - 1]._showedText.view().data() +
                           (item._showedRange.location - items[i - 1]._showedRange.location)) {
        ++copies;
      }
    }
    // One copy per stretch of the line, not one per hit; the last line is
    // its own.
    EXPECT_LT(copies, 10u);
    EXPECT_EQ(items.back()._showedText, u"ab");
    EXPECT_EQ(items.back()._replacedText, regex ? u"<b>" : u"<$1>");
  }
}

TEST(FindTextInStringTest, TooManyHitsStopWithAnErrorInEveryMode) {
  const std::u16string text(20000, u'a');
  FindTextInString::setItemMemoryLimit(64 * 1024);
  for (bool regex : {false, true}) {
    auto o = FindTextOptions::instanceWithString(u"a");
    o->_isRegex = regex;
    Error error;
    EXPECT_TRUE(FindTextInString::findTextItems(text, *o, &error).empty());
    EXPECT_EQ(error.message, FindTextInString::tooManyItemsError().message);
    error = {};
    EXPECT_TRUE(FindTextInString::findText(text, *o, &error).size() <= 64 * 1024 / 16);
    EXPECT_FALSE(error.message.empty());
    // A search within the limit is untouched.
    error = {};
    EXPECT_EQ(FindTextInString::findTextItems(text.substr(0, 100), *o, &error).size(), 100u);
    EXPECT_TRUE(error.message.empty());
  }
  FindTextInString::setItemMemoryLimit(FindTextInString::kDefaultItemMemoryLimit);
}

// The hits of several searches charged to one budget stay within it
// together, and a search that fails gives back all it took.
TEST(FindTextInStringTest, SearchesSharingABudgetStayWithinItTogether) {
  const std::u16string text(3000, u'a');
  auto o = FindTextOptions::instanceWithString(u"a");
  for (bool regex : {false, true}) {
    o->_isRegex = regex;
    ItemMemoryBudget budget(1000 * sizeof(FindTextItem));
    Error error;
    const auto first = FindTextInString::findTextItems(text.substr(0, 400), *o, &error, budget);
    ASSERT_EQ(first.size(), 400u);
    const std::size_t held = budget.used();
    // The list's whole capacity is counted, not only the hits in it.
    EXPECT_GE(held, first.capacity() * sizeof(FindTextItem));
    EXPECT_LE(held, budget.limit());

    EXPECT_TRUE(FindTextInString::findTextItems(text, *o, &error, budget).empty());
    EXPECT_TRUE(FindTextInString::isTooManyItemsError(error));
    EXPECT_EQ(budget.used(), held);

    // What is left still takes a smaller search.
    error = {};
    EXPECT_EQ(FindTextInString::findTextItems(text.substr(0, 100), *o, &error, budget).size(),
              100u);
    EXPECT_TRUE(error.message.empty());
    EXPECT_LE(budget.used(), budget.limit());
  }
}

// Over ASCII bytes a literal search gives the items the search over the
// same text as UTF-16 gives.
TEST(FindTextInStringTest, AsciiBytesGiveTheItemsOfTheWidenedText) {
  const std::string longLine = std::string(700, 'x') + " Foo " + std::string(700, 'y');
  const std::vector<std::string> texts = {
      "foo",
      "foo-bar foo_bar foo.bar xfoo FOO\nfOo\r\n",
      std::string("a\0foo\0", 6) + "\n" + longLine + "\nfoo",
      "kelvin Key KEY key\nlast foo",
      "",
  };
  struct Mode {
    std::u16string pattern, replacement;
    bool word, ignoreCase;
  };
  const std::vector<Mode> modes = {
      {u"foo", u"", false, false},      {u"foo", u"a replacement longer than inline", true, false},
      {u"FOO", u"r", false, true},      {u"foo", u"", true, true},
      {u"\u212Aey", u"", false, true},  // the Kelvin sign folds to "k"
      {u"\u212Aey", u"", false, false}, {u"caf\u00e9", u"", false, true},
      {u"o", u"", false, false},
  };
  for (const std::string& bytes : texts) {
    const std::u16string wide(bytes.begin(), bytes.end());
    for (const Mode& m : modes) {
      auto o = FindTextOptions::instanceWithString(m.pattern);
      o->_replaceString = m.replacement;
      o->_isMatchWord = m.word;
      o->_isCaseSensitive = m.ignoreCase;
      ItemMemoryBudget b1(FindTextInString::kDefaultItemMemoryLimit),
          b2(FindTextInString::kDefaultItemMemoryLimit);
      Error e1, e2;
      const auto expected = FindTextInString::findTextItems(wide, *o, &e1, b1);
      const auto got = FindTextInString::findTextItemsInAscii(bytes, *o, &e2, b2);
      const std::string label = toUtf8(m.pattern) + " in \"" + bytes.substr(0, 20) + "\"";
      ASSERT_EQ(got.size(), expected.size()) << label;
      for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i]._range, expected[i]._range) << label;
        EXPECT_EQ(got[i]._showedRange, expected[i]._showedRange) << label;
        EXPECT_EQ(got[i]._showedText.view(), expected[i]._showedText.view()) << label;
        EXPECT_EQ(got[i]._replacedText, expected[i]._replacedText) << label;
      }
      EXPECT_EQ(b1.used(), b2.used()) << label;
    }
  }
}

// A regular expression that starts with a literal run is tried only where
// the run occurs; it must find what trying every position finds (a group
// around the pattern hides the run).
TEST(FindTextInStringTest, ALiteralStartFindsWhatEveryPositionFinds) {
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"spin_(un)?lock"), u"spin_");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"\\bstatic int"), u"static int");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"abc?d"), u"ab");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"ab{0,2}"), u"a");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"ab+"), u"ab");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"ab|cd"), u"");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"a(b|c)"), u"a");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"[|]ab"), u"");
  EXPECT_EQ(FindTextInString::regexLiteralStart(u"(ab)"), u"");

  const std::u16string text =
      u"aab ab abab xab_ ab\nab\u00e9 spin_lock spin_unlock_irq( spin_spin_lock_irqsave(";
  for (const char16_t* pattern :
       {u"ab", u"ab\\b", u"\\bab", u"ab(?=a)", u"abab|x", u"spin_(un)?lock_irq[a-z]*\\(",
        u"spin_(spin_)?lock", u"a+b", u"ab(?<=xab)", u"ab$", u"ab\\w"}) {
    auto direct = FindTextOptions::instanceWithString(pattern);
    direct->_isRegex = true;
    auto grouped = FindTextOptions::instanceWithString(u"(?:" + std::u16string(pattern) + u")");
    grouped->_isRegex = true;
    Error e1, e2;
    std::vector<TextRange> a, b;
    for (const auto& m : FindTextInString::findTextWithRegex(text, *direct, &e1)) {
      a.push_back(m.range());
    }
    for (const auto& m : FindTextInString::findTextWithRegex(text, *grouped, &e2)) {
      b.push_back(m.range());
    }
    EXPECT_TRUE(e1.message.empty() && e2.message.empty());
    EXPECT_EQ(a, b) << toUtf8(pattern);
  }

  // A runaway match at one of the run's places is still a time-out.
  const auto saved = FindTextInString::regexTimeLimit();
  FindTextInString::setRegexTimeLimit(50);
  auto evil = FindTextOptions::instanceWithString(u"x(a+)+$");
  evil->_isRegex = true;
  Error error;
  EXPECT_TRUE(FindTextInString::findTextItems(u"x" + std::u16string(40, u'a') + u"b", *evil, &error)
                  .empty());
  EXPECT_EQ(error.domain, kFindTextErrorDomain);
  FindTextInString::setRegexTimeLimit(saved);
}

TEST(FindTextInStringTest, HugeLinesShowOnlyTheNeighbourhoodOfAHit) {
  std::u16string line(1 << 20, u'x');
  line.replace(line.size() / 2, 3, u"abc");
  auto o = FindTextOptions::instanceWithString(u"abc");
  Error error;
  auto items = FindTextInString::findTextItems(line, *o, &error);
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0]._showedText.size(), 2 * FindTextInString::kShowedContext + 3);
  EXPECT_EQ(items[0]._showedText.substr(items[0].rangeInShowRange().location, 3), u"abc");
  // The line helpers themselves are not bounded.
  EXPECT_EQ(FindTextInString::findPrevousNewLineOrFirst(line, items[0]._range), 0u);
  EXPECT_EQ(FindTextInString::findNextNewLineOrEnd(line, items[0]._range), line.size());
}

TEST(FindTextInStringTest, NeighbourUnitsAndLineEnds) {
  EXPECT_EQ(FindTextInString::getPreviousChar(u"ab", 0), 0);
  EXPECT_EQ(FindTextInString::getPreviousChar(u"ab", 1), u'a');
  EXPECT_EQ(FindTextInString::getNextChar(u"ab", 0), u'b');
  EXPECT_EQ(FindTextInString::getNextChar(u"ab", 1), 0);  // reads past the end: none
  EXPECT_EQ(FindTextInString::getNextChar(u"ab", 2), 0);
  EXPECT_EQ(FindTextInString::findPrevousNewLineOrFirst(u"a\nbc", TextRange{3, 1}), 2u);
  EXPECT_EQ(FindTextInString::findNextNewLineOrEnd(u"ab\nc", TextRange{0, 1}), 2u);
  EXPECT_EQ(FindTextInString::findNextNewLineOrEnd(u"ab\nc", TextRange{3, 1}), 4u);
}

TEST(RegexUtilsTest, QuotePatternsMatchEscapedQuotes) {
  const std::u16string js = u"x = \"a\\\"b\" + 'c\\'d';";
  auto groups = FindTextInString::findTextItems(js, RegexUtils::regexQuoteForJsString());
  ASSERT_GE(groups.size(), 1u);
  EXPECT_EQ(groups[0], u"\"a\\\"b\"");
  auto both = FindTextInString::findTextItems(js, RegexUtils::regexQuoteString(u'"', u'\'', u'\\'));
  ASSERT_GE(both.size(), 1u);
  EXPECT_EQ(both[0], u"\"a\\\"b\"");
  EXPECT_EQ(RegexUtils::regexQuoteString(0, 0, u'\\'), u"");
  EXPECT_EQ(RegexUtils::regexQuoteString(0, u'\'', u'\\'),
            RegexUtils::regexQuoteString(u'\'', u'\\'));
  EXPECT_TRUE(RegexUtils::isValidateMobile(u"13800138000"));
  EXPECT_FALSE(RegexUtils::isValidateMobile(u"1380013800"));
  EXPECT_TRUE(RegexUtils::isValidateCode(u"123456"));
  EXPECT_EQ(FindTextInString::transformStringToPattern(u"a.b"), u"\\a\\.\\b");
}

}  // namespace
}  // namespace harbor

#include "platform/TextStorage.h"

#include <gtest/gtest.h>

namespace harbor {
namespace {

const Color kRed = Color::rgb(255, 0, 0);
const Color kBlue = Color::rgb(0, 0, 255);

std::vector<std::pair<std::optional<Color>, TextRange>> runs(const TextStorage& s, bool reverse) {
  std::vector<std::pair<std::optional<Color>, TextRange>> out;
  s.enumerateForegroundColor(
      TextRange{0, s.length()}, reverse,
      [&](const std::optional<Color>& c, TextRange r, bool&) { out.emplace_back(c, r); });
  return out;
}

TEST(TextStorage, RunsMergeAndEnumerateBothWays) {
  TextStorage s(u"abcdefghij");
  s.addForegroundColor(kRed, TextRange{2, 3});
  s.addForegroundColor(kRed, TextRange{5, 2});  // adjacent, equal: one run
  s.addFont(Font{"mono", 12}, TextRange{0, 10});
  using V = std::vector<std::pair<std::optional<Color>, TextRange>>;
  EXPECT_EQ(runs(s, false), (V{{std::nullopt, {0, 2}}, {kRed, {2, 5}}, {std::nullopt, {7, 3}}}));
  EXPECT_EQ(runs(s, true).front().second, (TextRange{7, 3}));
  EXPECT_EQ(s.attributeWriteCount(), 3u);
  EXPECT_EQ(s.runCount(), 3u);

  s.setAttributes(TextAttributes{}, TextRange{0, 10});
  EXPECT_EQ(s.runCount(), 1u);
  // Writes past the end are clipped; empty writes cost nothing.
  s.addForegroundColor(kBlue, TextRange{8, 100});
  s.addForegroundColor(kBlue, TextRange{20, 1});
  EXPECT_EQ(runs(s, false).back(), (std::pair<std::optional<Color>, TextRange>{kBlue, {8, 2}}));
  EXPECT_EQ(s.attributeWriteCount(), 5u);
}

TEST(TextStorage, EditsShiftRunsAndInsertedTextTakesThePrecedingRun) {
  TextStorage s(u"aaBBcc");
  s.addForegroundColor(kRed, TextRange{2, 2});
  std::vector<std::pair<TextRange, std::ptrdiff_t>> edits;
  int second = 0;
  s.addEditObserver([&](TextRange r, std::ptrdiff_t d) { edits.emplace_back(r, d); });
  const auto token = s.addEditObserver([&](TextRange, std::ptrdiff_t) { ++second; });

  s.replaceCharacters(TextRange{4, 0}, u"X");  // after the red run: continues it
  EXPECT_EQ(s.string(), u"aaBBXcc");
  EXPECT_EQ(s.attributesAt(4).foregroundColor, kRed);
  s.replaceCharacters(TextRange{0, 1}, u"");  // shifts everything left
  EXPECT_EQ(s.attributesAt(1).foregroundColor, kRed);
  EXPECT_FALSE(s.attributesAt(0).foregroundColor.has_value());
  s.replaceCharacters(TextRange{1, 3}, u"");  // the whole red run goes
  EXPECT_EQ(s.string(), u"acc");
  EXPECT_EQ(runs(s, false).size(), 1u);
  s.replaceCharacters(TextRange{0, 0}, u"Q");  // at the start: takes what follows
  EXPECT_EQ(s.attributesAt(0), s.attributesAt(1));
  EXPECT_EQ(edits.size(), 4u);
  EXPECT_EQ(second, 4) << "every observer hears every edit";
  s.removeEditObserver(token);
  s.replaceCharacters(TextRange{0, 0}, u"R");
  EXPECT_EQ(second, 4);
  EXPECT_EQ(edits.size(), 5u);
  EXPECT_EQ(edits[2], (std::pair<TextRange, std::ptrdiff_t>{{1, 0}, -3}));
}

TEST(TextStorage, AttributeObserversHearTheClippedSpanAndWhichAttribute) {
  TextStorage s(u"abcdef");
  std::vector<std::pair<TextRange, TextStorage::Attribute>> heard;
  const auto token = s.addAttributeObserver(
      [&](TextRange r, TextStorage::Attribute a) { heard.emplace_back(r, a); });
  s.addForegroundColor(kRed, TextRange{4, 10});
  s.addFont(Font{"mono", 12}, TextRange{0, 2});
  s.removeForegroundColor(TextRange{9, 3});  // wholly past the end: nothing written
  s.setAttributes(TextAttributes{}, TextRange{1, 1});
  using A = TextStorage::Attribute;
  const std::vector<std::pair<TextRange, A>> want{{{4, 2}, A::ForegroundColor},
                                                  {{0, 2}, A::Font},
                                                  {{1, 1}, A::Font},
                                                  {{1, 1}, A::ForegroundColor}};
  EXPECT_EQ(heard, want);
  // Text edits are not attribute writes.
  s.replaceCharacters(TextRange{0, 1}, u"xy");
  EXPECT_EQ(heard.size(), want.size());
  s.removeAttributeObserver(token);
  s.addForegroundColor(kBlue, TextRange{0, 1});
  EXPECT_EQ(heard.size(), want.size());
}

}  // namespace
}  // namespace harbor

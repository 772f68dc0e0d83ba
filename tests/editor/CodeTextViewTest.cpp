#include <gtest/gtest.h>

#include <random>

#include "editor/CodeTextView.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

// Applies what the view decides to a text, as the editor does.
struct Typist {
  CodeTextView view;
  std::u16string text;
  TextRange sel;
  void type(const std::u16string& keys) {
    for (char16_t c : keys) apply(view.insertText(text, sel, std::u16string(1, c)));
  }
  void backspace() {
    if (auto edit = view.deleteBackward(text, sel)) apply(*edit);
  }
  void apply(const TextEdit& e) {
    text.replace(e.range.location, e.range.length, e.text);
    sel = TextRange{e.caret, 0};
  }
};

TEST(CodeTextView, PairsOpenCloseAndSkipWhenTheCloserIsAlreadyThere) {
  Typist t;
  t.type(u"f(");
  EXPECT_EQ(t.text, u"f()");
  EXPECT_EQ(t.sel.location, 2u);
  t.type(u"\"");
  EXPECT_EQ(t.text, u"f(\"\")");
  t.type(u"\"");  // right after the same quote: one quote only
  EXPECT_EQ(t.text, u"f(\"\"\")");
  t.text = u")";
  t.sel = {0, 0};
  t.type(u"(");  // before its closer: only the opener
  EXPECT_EQ(t.text, u"()");
  t.view._autoPairCompletionEnabled = false;
  t.text.clear();
  t.sel = {0, 0};
  t.type(u"[`");
  EXPECT_EQ(t.text, u"[`");
}

TEST(CodeTextView, BackspaceBetweenAPairRemovesBothButNotAtLineEdges) {
  Typist t;
  t.text = u"a()b";
  t.sel = {2, 0};
  t.backspace();
  EXPECT_EQ(t.text, u"ab");
  EXPECT_EQ(t.sel.location, 1u);
  t.text = u"x\n{}";
  t.sel = {3, 0};
  t.backspace();
  EXPECT_EQ(t.text, u"x\n");
  t.text = u"(\n)";
  t.sel = {2, 0};  // at the start of a line
  t.backspace();
  EXPECT_EQ(t.text, u"()");
  t.text = u"()\nz";
  t.sel = {2, 0};  // at the end of the line
  t.backspace();
  EXPECT_EQ(t.text, u"(\nz");
  t.text = u"a😀";
  t.sel = {3, 0};
  t.backspace();
  EXPECT_EQ(t.text, u"a");
  t.sel = {0, 0};
  EXPECT_FALSE(t.view.deleteBackward(t.text, t.sel));
}

TEST(CYRLayoutManager, NumbersStayRightWhenTheCacheMovesAndAfterEditsAbove) {
  std::u16string text = u"one\ntwo\r\nthree\rfour\n\nsix";
  CYRLayoutManager lines;
  EXPECT_EQ(lines.gutterText(text, 22), "6");
  EXPECT_EQ(lines.gutterText(text, 10), "3");  // backwards from the cache
  EXPECT_EQ(lines.gutterText(text, 8), "2");   // between CR and LF
  EXPECT_EQ(lines.gutterText(text, 0), "1");
  EXPECT_EQ(lines.gutterText(text, 20), "5");
  // Two lines inserted above the cached paragraph.
  text.insert(0, u"a\nb\n");
  lines.processEditingForTextStorage(0);
  EXPECT_EQ(lines._lastParaLocation, 0u);
  EXPECT_EQ(lines.gutterText(text, 24), "7");
  // An edit below the cache keeps it.
  text.insert(text.size(), u"\nend");
  lines.processEditingForTextStorage(text.size() - 4);
  EXPECT_EQ(lines._lastParaNumber, 6u);
  EXPECT_EQ(lines.gutterText(text, text.size()), "9");
}

TEST(CYRLayoutManager, LongTextsKeepTheirNumbersThroughEditsAnywhere) {
  // Long enough for the counts kept along the way; every kind of line end.
  std::u16string text;
  for (int i = 0; i < 30000; ++i)
    text += i % 7 == 0 ? u"line\r\n" : i % 11 == 0 ? u"mac\r" : u"row of text\n";
  CYRLayoutManager lines;
  std::mt19937 rng(7);
  const auto naive = [&](std::size_t offset) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < CYRLayoutManager::paragraphStart(text, offset); ++i) {
      if (text[i] == u'\n' || (text[i] == u'\r' && (i + 1 >= text.size() || text[i + 1] != u'\n')))
        ++n;
    }
    return std::to_string(n + 1);
  };
  for (int round = 0; round < 60; ++round) {
    const std::size_t at = rng() % text.size();
    const std::u16string inserted = round % 3 == 0 ? u"\r\n" : round % 3 == 1 ? u"\n\nx" : u"";
    text.replace(at, round % 2 ? rng() % 40 : 0, inserted);
    lines.processEditingForTextStorage(at);
    // The gutter asks from the top of the window down, near and far.
    for (std::size_t probe : {at, at + 500, text.size() / 3, text.size() - 1, std::size_t{3}}) {
      probe = std::min(probe, text.size());
      ASSERT_EQ(lines.gutterText(text, probe), naive(probe))
          << "round " << round << " at " << probe;
    }
  }
}

TEST(UTextStorage, EachEditRecoloursTheWholeText) {
  auto parser = CodeFactory::codeFormatParserWithExtension("c");
  ASSERT_TRUE(parser);
  UTextStorage storage(parser, u"int x;");
  storage.processEditing();
  EXPECT_TRUE(storage._isLoadedProcess);
  storage.replaceCharactersInRange({0, 0}, u"/* c */ ");
  auto colour = storage.backingStore().attributesAt(2).foregroundColor;
  ASSERT_TRUE(colour);
  EXPECT_EQ(*colour, CodeFormatParser::commentColor());
  storage._isIgnore = true;
  storage.replaceCharactersInRange({0, 8}, u"");
  EXPECT_EQ(storage.backingStore().string(), u"int x;");
}

TEST(CYRTextStorage, EditsWidenToTheirWholeLines) {
  CYRTextStorage storage;
  storage.replaceCharactersInRange({0, 0}, u"ab\ncd\nef");
  storage.replaceCharactersInRange({4, 0}, u"X");
  EXPECT_EQ(storage.lastStyledRange(), (TextRange{3, 3}));
}

}  // namespace
}  // namespace harbor

#include <gtest/gtest.h>

#include <random>

#include "editor/UnDoManager.h"

namespace harbor {
namespace {

TEST(UnDoManagerTest, UndoRedoRestoreTheTextExactlyIncludingDeletions) {
  UnDoManager journal(u"hello world");
  ASSERT_TRUE(journal.addUndoItem(5, 6, u""));       // delete " world"
  ASSERT_TRUE(journal.addUndoItem(0, 0, u"> "));     // insert
  ASSERT_TRUE(journal.addUndoItem(2, 5, u"HELLO"));  // replace
  EXPECT_EQ(journal.getSourceString(), u"> HELLO");
  journal.undo();
  EXPECT_EQ(journal.getSourceString(), u"> hello");
  EXPECT_EQ(journal.lastAppliedEnd(), 7u);
  journal.undo();
  journal.undo();
  EXPECT_EQ(journal.getSourceString(), u"hello world");
  EXPECT_EQ(journal.lastAppliedEnd(), 11u);
  EXPECT_FALSE(journal.isCanUndo());
  journal.redo();
  journal.redo();
  journal.redo();
  EXPECT_EQ(journal.getSourceString(), u"> HELLO");
  EXPECT_EQ(journal.undoStackSize(), 3u);
  EXPECT_EQ(journal.redoStackSize(), 0u);
}

TEST(UnDoManagerTest, EmptyStacksAndOutOfRangeEditsChangeNothing) {
  UnDoManager journal(u"abc");
  EXPECT_TRUE(journal.undo());
  EXPECT_TRUE(journal.redo());
  EXPECT_EQ(journal.getSourceString(), u"abc");
  EXPECT_FALSE(journal.addUndoItem(4, 0, u"x"));
  EXPECT_FALSE(journal.addUndoItem(2, 2, u"x"));
  EXPECT_FALSE(journal.addUndoItem(~0ull, 2, u"x"));  // no wrap-around in the bound check
  EXPECT_EQ(journal.getSourceString(), u"abc");
  EXPECT_FALSE(journal.isCanUndo());
}

TEST(UnDoManagerTest, NewEditAfterUndoEmptiesRedoAlsoInsideAGroup) {
  UnDoManager journal(u"");
  journal.addUndoItem(0, 0, u"a");
  journal.addUndoItem(1, 0, u"b");
  journal.undo();
  EXPECT_TRUE(journal.isCanRedo());
  journal.addUndoItem(1, 0, u"c");
  EXPECT_FALSE(journal.isCanRedo());
  journal.undo();
  journal.startGrouping();
  EXPECT_TRUE(journal.isCanRedo());
  journal.addUndoItem(1, 0, u"d");
  EXPECT_FALSE(journal.isCanRedo());
  EXPECT_EQ(journal.undoStackSize(), 2u);  // counts the open group's item
}

TEST(UnDoManagerTest, GroupsUndoAsOneEntryAndRedoInOrder) {
  UnDoManager journal(u"x");
  journal.startGrouping();
  journal.startGrouping();  // a second start keeps the same group
  journal.addUndoItem(1, 0, u"1");
  journal.addUndoItem(2, 0, u"2");
  journal.addUndoItem(0, 1, u"");
  EXPECT_TRUE(journal.isCanUndo());
  journal.undo();  // closes the open group first
  EXPECT_EQ(journal.getSourceString(), u"x");
  EXPECT_EQ(journal.undoStackSize(), 0u);
  EXPECT_EQ(journal.redoStackSize(), 1u);
  journal.redo();
  EXPECT_EQ(journal.getSourceString(), u"12");
  journal.undo();
  EXPECT_EQ(journal.getSourceString(), u"x");

  journal.startGrouping();
  journal.stopGrouping();  // an empty group leaves no entry
  EXPECT_EQ(journal.undoStackSize(), 0u);
  journal.startGrouping();
  journal.addUndoItem(0, 0, u"y");
  journal.undo();  // one item in an open group is one entry
  EXPECT_EQ(journal.getSourceString(), u"x");
}

TEST(UnDoManagerTest, RandomEditsUndoToTheStartAndRedoToTheEnd) {
  std::mt19937 rng(11);
  std::u16string start = u"int main() { return 0; }\r\n";
  UnDoManager journal(start);
  for (int i = 0; i < 300; ++i) {
    const auto& text = journal.getSourceString();
    std::uint64_t at = rng() % (text.size() + 1);
    std::uint64_t len = rng() % (text.size() - at + 1) % 4;
    if (i % 17 == 0) journal.startGrouping();
    if (i % 17 == 9) journal.stopGrouping();
    journal.addUndoItem(at, len, std::u16string(rng() % 3, char16_t(u'a' + i % 26)));
  }
  std::u16string end = journal.getSourceString();
  while (journal.isCanUndo()) journal.undo();
  EXPECT_EQ(journal.getSourceString(), start);
  while (journal.isCanRedo()) journal.redo();
  EXPECT_EQ(journal.getSourceString(), end);
}

TEST(UnDoManagerTest, ArchiveRoundTripKeepsBothStacksAndGroups) {
  UnDoManager journal(u"é😀");
  journal.addUndoItem(0, 1, u"e");
  journal.startGrouping();
  journal.addUndoItem(3, 0, u"!");
  journal.addUndoItem(0, 0, u"¡");
  journal.stopGrouping();
  journal.addUndoItem(0, 0, u"#");
  journal.undo();
  auto archive = journal.archive();
  EXPECT_EQ(archive["undoStack"]["items"][0]["replaceString"], "é");
  EXPECT_TRUE(archive["undoStack"]["items"][1].contains("items"));

  Error error;
  auto copy = UnDoManager::unarchive(nlohmann::json::parse(archive.dump()), &error);
  ASSERT_TRUE(copy) << error.message;
  EXPECT_EQ(copy->getSourceString(), journal.getSourceString());
  EXPECT_EQ(copy->undoStackSize(), 2u);
  EXPECT_EQ(copy->redoStackSize(), 1u);
  copy->redo();
  EXPECT_EQ(copy->getSourceString(), u"#¡e😀!");
  copy->undo();
  copy->undo();
  copy->undo();
  EXPECT_EQ(copy->getSourceString(), u"é😀");
}

TEST(UnDoManagerTest, ArchivesThatDoNotFitTheTextAreRefused) {
  auto refused = [](const char* text) {
    Error error;
    auto manager = UnDoManager::unarchive(nlohmann::json::parse(text), &error);
    return !manager && !error.message.empty();
  };
  EXPECT_TRUE(
      refused(R"({"sourceString":"ab","undoStack":{"items":[{"location":3,"length":0}]}})"));
  EXPECT_TRUE(
      refused(R"({"sourceString":"ab","undoStack":{"items":[{"location":1,"length":2}]}})"));
  // Each fits alone, but the lower item applies to the text the top one leaves.
  EXPECT_TRUE(refused(R"({"sourceString":"ab","redoStack":{"items":[
      {"location":0,"length":2,"replaceString":""},{"location":0,"length":2,"replaceString":""}]}})"));
  EXPECT_TRUE(
      refused(R"({"sourceString":"ab","undoStack":{"items":[{"location":-1,"length":0}]}})"));
  EXPECT_TRUE(refused(R"({"sourceString":"ab","undoStack":[]})"));
  EXPECT_TRUE(refused(R"({"undoStack":{"items":[]}})"));
  EXPECT_TRUE(refused(R"([1,2])"));
  EXPECT_FALSE(
      refused(R"({"sourceString":"ab","undoStack":{"items":[{"location":0,"length":2}]}})"));
}

}  // namespace
}  // namespace harbor

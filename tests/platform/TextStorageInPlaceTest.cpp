#include <gtest/gtest.h>

#include "platform/TextStorage.h"

namespace harbor {
namespace {

// Edits change an unshared text in place; a snapshot handed out before must
// keep the text as it was, and copies of the storage stay independent.
TEST(TextStorageInPlace, SnapshotsAndCopiesNeverSeeLaterEdits) {
  TextStorage storage(u"hello");
  storage.replaceCharacters({5, 0}, u" world");
  auto snapshot = storage.stringSnapshot();
  storage.replaceCharacters({0, 5}, u"HELLO");
  EXPECT_EQ(*snapshot, u"hello world");
  EXPECT_EQ(storage.string(), u"HELLO world");
  TextStorage copy = storage;
  storage.replaceCharacters({0, 0}, u">");
  EXPECT_EQ(copy.string(), u"HELLO world");
  EXPECT_EQ(storage.string(), u">HELLO world");
  snapshot.reset();
  storage.replaceCharacters({1, 5}, u"");
  EXPECT_EQ(storage.string(), u"> world");
  EXPECT_EQ(storage.length(), 7u);
}

}  // namespace
}  // namespace harbor

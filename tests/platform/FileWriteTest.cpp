#include <gtest/gtest.h>

#include <filesystem>

#include "platform/FileWrite.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

TEST(FileWrite, ReplacesWholeKeepsModeAndLeavesNoTemporaryFile) {
  test::ScratchDir dir;
  fs::path file = dir / "f.txt";
  test::writeFile(file, "a long old text");
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_FALSE(writeFileAtomically(file, "new"));
  EXPECT_EQ(test::readFile(file), "new");
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  auto failed = writeFileAtomically(dir / "missing" / "g.txt", "x");
  ASSERT_TRUE(failed);
  EXPECT_NE(failed->message.find("g.txt"), std::string::npos);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);
}

TEST(FileWrite, MoveNeverReplacesAnExistingTarget) {
  test::ScratchDir dir;
  test::writeFile(dir / "a", "A");
  test::writeFile(dir / "b", "B");
  auto refused = moveNoReplace(dir / "a", dir / "b");
  ASSERT_TRUE(refused);
  EXPECT_NE(refused->message.find("\"b\" already exists"), std::string::npos);
  EXPECT_EQ(test::readFile(dir / "a"), "A");
  EXPECT_EQ(test::readFile(dir / "b"), "B");
  EXPECT_FALSE(moveNoReplace(dir / "a", dir / "c"));
  EXPECT_EQ(test::readFile(dir / "c"), "A");
  EXPECT_TRUE(moveNoReplace(dir / "a", dir / "d"));  // gone already
}

}  // namespace
}  // namespace harbor

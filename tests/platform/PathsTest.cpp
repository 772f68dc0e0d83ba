#include <gtest/gtest.h>

#include "platform/Paths.h"

namespace harbor {
namespace {

TEST(Paths, InsideIsDecidedByWholeComponents) {
  EXPECT_TRUE(isPathAtOrBelow("/a/b", "/a/b"));
  EXPECT_TRUE(isPathAtOrBelow("/a/b/c", "/a/b/"));
  EXPECT_TRUE(isPathAtOrBelow("/a//b/./c", "/a/b"));
  EXPECT_TRUE(isPathAtOrBelow("/anything", "/"));
  EXPECT_FALSE(isPathAtOrBelow("/a/bc", "/a/b"));
  EXPECT_FALSE(isPathAtOrBelow("/a/bc/d", "/a/b"));
  EXPECT_FALSE(isPathAtOrBelow("/a", "/a/b"));
  EXPECT_FALSE(isPathAtOrBelow("/x/a/b", "/a/b"));

  EXPECT_EQ(relativePathBelow("/a/b/c/d", "/a/b"), "/c/d");
  EXPECT_EQ(relativePathBelow("/a/b/c/", "/a/b/"), "/c");
  EXPECT_EQ(relativePathBelow("/a/bc/d", "/a/b"), "");
  EXPECT_EQ(relativePathBelow("/a/b", "/a/b"), "");
  EXPECT_EQ(relativePathBelow("/x", "/"), "/x");
}

TEST(Paths, ClimbingOutIsNeverInside) {
  EXPECT_FALSE(isPathAtOrBelow("/r/../x", "/r"));
  EXPECT_FALSE(isPathAtOrBelow("/r/a/../../x", "/r"));
  EXPECT_TRUE(isPathAtOrBelow("/r/a/../b", "/r"));
  EXPECT_EQ(relativePathBelow("/r/a/../b", "/r"), "/b");
  EXPECT_TRUE(isPathAtOrBelow("/../r/a", "/r")) << "nothing is above the root";
  EXPECT_FALSE(isPathAtOrBelow("../r/a", "r"));
  EXPECT_FALSE(isPathAtOrBelow("r/../../r/a", "r"));
}

}  // namespace
}  // namespace harbor

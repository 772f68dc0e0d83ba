// harbor browse as a script drives it: one JSON line per thing shown.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "support/TestSupport.h"

namespace harbor {
namespace {

class BrowseCli : public test::TempHome {
 protected:
  test::CliResult browse(const std::string& script) {
    test::writeFile(home() / "script", script);
    return test::runHarbor({"browse", "--script", (home() / "script").string()});
  }
  // The JSON lines of the output, skipping plain `ls` lines.
  static std::vector<nlohmann::json> lines(const std::string& out) {
    std::vector<nlohmann::json> found;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
      auto j = nlohmann::json::parse(line, nullptr, false);
      if (!j.is_discarded() && j.is_object()) found.push_back(j);
    }
    return found;
  }
};

TEST_F(BrowseCli, CopyPasteLockAndListing) {
  std::filesystem::create_directories(root() / "docs");
  test::writeFile(root() / "docs" / "a.txt", "hello");
  auto r = browse(
      "mkdir safe pw\n"
      "cd docs\n"
      "select a.txt\n"
      "do Copy\n"
      "back\n"
      "tap safe\n"
      "answer OK pw\n"
      "paste\n"
      "ls --json\n");
  ASSERT_EQ(r.code, 0) << r.err;
  auto out = lines(r.out);
  ASSERT_FALSE(out.empty());
  bool asked = false;
  for (const auto& j : out) {
    if (j.value("ui", "") == "prompt") {
      asked = true;
      EXPECT_EQ(j["tag"], 2012);
      EXPECT_EQ(j["path"], "/");
    }
  }
  EXPECT_TRUE(asked);
  const auto& listing = out.back();
  EXPECT_EQ(listing["path"], "/safe");
  ASSERT_EQ(listing["items"].size(), 1u);
  EXPECT_EQ(listing["items"][0]["name"], "a.txt");
  EXPECT_TRUE(std::filesystem::exists(root() / "docs" / "a.txt"));
}

TEST_F(BrowseCli, BadLinesExitTwoEntriesNotOfferedExitThree) {
  test::writeFile(root() / "f.txt", "x");
  EXPECT_EQ(browse("fly away\n").code, 2);
  EXPECT_EQ(browse("tap missing.txt\n").code, 2);
  EXPECT_EQ(browse("answer OK\n").code, 2);
  EXPECT_EQ(browse("order colour\n").code, 2);
  auto r = browse("select f.txt\ndo Launch Rockets\n");
  EXPECT_EQ(r.code, 3);
  EXPECT_NE(r.err.find("line 2"), std::string::npos);
  EXPECT_EQ(browse("mkdir x pw\ntap x\nanswer Maybe pw\n").code, 3);
}

TEST_F(BrowseCli, CancelledCopyLeavesNothing) {
  std::filesystem::create_directories(root() / "src");
  std::filesystem::create_directories(root() / "dst");
  const std::string block(1 << 20, 'b');
  for (const char* n : {"1.bin", "2.bin", "3.bin"})
    test::writeFile(root() / "src" / n, block + block);
  auto r = browse(
      "cd src\n"
      "select 1.bin 2.bin 3.bin\n"
      "do Copy\n"
      "back\n"
      "cd dst\n"
      "cancel after 3000000\n"
      "paste\n"
      "ls\n");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("Copying files"), std::string::npos);
  EXPECT_NE(r.out.find("Cancelled"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(root() / "dst"));
}

TEST_F(BrowseCli, PropertyScreenPrintsItsFiguresOnceCounted) {
  test::writeFile(root() / "docs" / "a.txt", "hello");
  test::writeFile(root() / "docs" / "sub" / "b.txt", "world!");
  auto r = browse(
      "select docs\n"
      "do Property\n"
      "ls\n"
      "sheet\n"
      "back\n"
      "ls --json\n");
  EXPECT_EQ(r.code, 2) << "a browser command on the property screen is a bad line";
  auto out = lines(r.out);
  std::vector<nlohmann::json> props;
  for (const auto& j : out)
    if (j.value("ui", "") == "property") props.push_back(j);
  ASSERT_EQ(props.size(), 2u) << r.out;  // once counted, once for ls
  for (const auto& p : props) {
    EXPECT_EQ(p["path"], "/docs");
    EXPECT_EQ(p["kind"], "Folder");
    EXPECT_EQ(p["size"], 11);
    EXPECT_EQ(p["files"], 2);
    EXPECT_EQ(p["folders"], 1);
    EXPECT_EQ(p["complete"], true);
  }
  r = browse("select docs\ndo Property\nback\nls --json\n");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out).back()["path"], "/");
}

}  // namespace
}  // namespace harbor

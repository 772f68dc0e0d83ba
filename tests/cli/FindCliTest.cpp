// harbor find, replace, grep and syntax custom as scripts use them.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using nlohmann::json;
using test::runHarbor;

class FindCli : public test::TempHome {
 protected:
  std::string file(const std::string& name, const std::string& content) {
    fs::create_directories((dir_ / name).parent_path());
    test::writeFile(dir_ / name, content);
    return (dir_ / name).string();
  }
  test::ScratchDir dir_;
};

TEST_F(FindCli, FindPrintsLinesAndUtf16ColumnsAndTheJsonKeys) {
  const auto f = file("a.txt", "x foo\n\xf0\x9f\x98\x80 Foo foo-\nfoo.");
  auto r = runHarbor({"find", f, "foo", "--word", "--ignore-case"});
  ASSERT_EQ(r.code, 0) << r.err;
  // The emoji is two UTF-16 units; "foo-" is part of a longer word.
  EXPECT_EQ(r.out, "1:3:x foo\n2:4:\xf0\x9f\x98\x80 Foo foo-\n3:1:foo.\n");

  r = runHarbor({"find", f, "(f)oo", "--regex", "--replace", "<$1>", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  const json j = json::parse(r.out);
  EXPECT_EQ(j["count"], 3);
  const json& second = j["items"][1];
  EXPECT_EQ(second["location"], 13);
  EXPECT_EQ(second["length"], 3);
  EXPECT_EQ(second["showedLocation"], 6);
  EXPECT_EQ(second["showedText"], "\xf0\x9f\x98\x80 Foo foo-");
  EXPECT_EQ(second["replacedText"], "<f>");

  r = runHarbor({"find", f, "(", "--regex"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("regular expression"), std::string::npos) << r.err;
  r = runHarbor({"find", f});
  EXPECT_EQ(r.code, 2);
}

TEST_F(FindCli, ARunawayPatternEndsByTheTimeLimit) {
  const auto f = file("evil.txt", std::string(64, 'a') + "!");
  auto r = runHarbor({"find", f, "(a|aa)+$", "--regex"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("too long"), std::string::npos) << r.err;
}

TEST_F(FindCli, ReplaceRewritesFromTheLastHitAndCountsOnStandardError) {
  const auto f = file("r.txt", "a1 b2 a3\n");
  auto r = runHarbor({"replace", f, "a(\\d)", "[$1]", "--regex"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "[1] b2 [3]\n");
  EXPECT_EQ(r.err, "2\n");
  // Literal mode keeps "$1" as it stands.
  r = runHarbor({"replace", f, "b2", "$1"});
  EXPECT_EQ(r.out, "a1 $1 a3\n");

  const auto latin = file("l.txt", "caf\xe9 caf\xe9\n");  // not UTF-8: saved as UTF-8
  r = runHarbor({"replace", latin, "caf\xc3\xa9", "tea", "--in-place"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(test::readFile(latin), "tea tea\n");
}

TEST_F(FindCli, GrepWalksHiddenFilesSkipsBinariesAndExitsAsGrep) {
  file("t/b.txt", "one\nneedle here\n");
  file("t/.hidden/a.txt", "needle\n");
  file("t/bin.dat", std::string("needle\0", 7));
  const std::string tree = (dir_ / "t").string();
  fs::create_symlink(dir_ / "t" / "b.txt", dir_ / "t" / "z-link.txt");

  auto r = runHarbor({"grep", "needle", tree});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, tree + "/.hidden/a.txt:1:needle\n" + tree + "/b.txt:2:needle here\n");

  r = runHarbor({"grep", "NEEDLE", tree, "--ignore-case", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  const json j = json::parse(r.out);
  EXPECT_EQ(j["findResultNumber"], 2);
  ASSERT_EQ(j["files"].size(), 2u);
  EXPECT_EQ(j["files"][1]["path"], tree + "/b.txt");
  EXPECT_EQ(j["files"][1]["items"][0]["location"], 4);

  EXPECT_EQ(runHarbor({"grep", "absent", tree}).code, 1);
  EXPECT_EQ(runHarbor({"grep", "(", tree, "--regex"}).code, 2);
  EXPECT_EQ(runHarbor({"grep", "x", (dir_ / "none").string()}).code, 2);
  EXPECT_EQ(runHarbor({"grep", "x", tree, "--encoding", "no-such"}).code, 2);
}

TEST_F(FindCli, CustomSyntaxAssignmentsShowInWhich) {
  const auto stx = file("mine.stx", "#LINECOMMENT=;;\n#KEYWORD=Keywords\nk\n");
  const auto other = file("other.stx", "#KEYWORD=Keywords\nk\n");
  auto r = runHarbor({"syntax", "custom", "add", stx, "zork; makefile,,"});
  ASSERT_EQ(r.code, 0) << r.err;
  r = runHarbor({"syntax", "custom", "add", other, "zork"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("zork"), std::string::npos) << r.err;
  r = runHarbor({"syntax", "custom", "add", stx, "makefile", "--only-file"});
  ASSERT_EQ(r.code, 0) << r.err;

  r = runHarbor({"syntax", "custom", "list", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  json j = json::parse(r.out);
  ASSERT_EQ(j["entries"].size(), 1u);
  EXPECT_EQ(j["entries"][0]["stxFileName"], "mine.stx");
  EXPECT_EQ(j["entries"][0]["value"], "zork; makefile,,");

  r = runHarbor({"syntax", "which", "x.zork", "--json"});
  j = json::parse(r.out);
  EXPECT_EQ(j["configType"], 1);
  // A user's file name beats every other row.
  r = runHarbor({"syntax", "which", "Makefile", "--json"});
  j = json::parse(r.out);
  EXPECT_EQ(j["configType"], 2);

  // The same values again for the same file pass; a new file replaces it.
  r = runHarbor({"syntax", "custom", "edit", "mine.stx", "zork", "--stx", other});
  ASSERT_EQ(r.code, 0) << r.err;
  r = runHarbor({"syntax", "custom", "list"});
  EXPECT_EQ(r.out, "other.stx\tzork\n");
  r = runHarbor({"syntax", "custom", "remove", "other.stx"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(runHarbor({"syntax", "custom", "remove", "other.stx"}).code, 1);
  r = runHarbor({"syntax", "which", "x.zork", "--json"});
  EXPECT_TRUE(json::parse(r.out)["configType"].is_null());
}

}  // namespace
}  // namespace harbor

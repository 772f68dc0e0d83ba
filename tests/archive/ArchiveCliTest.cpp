#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ArchiveTestUtil.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class ArchiveCli : public TempHome {
 protected:
  CliResult harbor(const std::vector<std::string>& args) { return test::runHarbor(args); }
  void makeSource() {
    fs::create_directories(dir / "docs/sub");
    writeFile(dir / "docs/a.txt", "alpha");
    writeFile(dir / "docs/sub/b.txt", "beta");
  }
  ScratchDir dir;
};

TEST_F(ArchiveCli, CreateListExtractWithPassword) {
  makeSource();
  const std::string zip = (dir / "out.zip").string();
  ASSERT_EQ(harbor({"archive", "create", zip, (dir / "docs").string(), "--password", "pw"}).code,
            0);
  auto locked = harbor({"archive", "list", zip, "--json"});
  EXPECT_EQ(locked.code, 2);
  EXPECT_NE(locked.err.find("password"), std::string::npos) << locked.err;
  // What was listed before the first encrypted entry is still printed.
  auto partial = nlohmann::json::parse(locked.out);
  ASSERT_EQ(partial["entries"].size(), 1u);
  EXPECT_EQ(partial["entries"][0]["path"], "docs/");
  auto list = harbor({"archive", "list", zip, "--json", "--password", "pw"});
  ASSERT_EQ(list.code, 0) << list.err;
  auto j = nlohmann::json::parse(list.out);
  EXPECT_EQ(j["format"], "zip");
  EXPECT_EQ(j["encrypted"], true);
  EXPECT_EQ(j["encryptedFileName"], false);
  ASSERT_EQ(j["entries"].size(), 4u);
  for (const auto& e : j["entries"]) {
    for (const char* key : {"path", "isLeaf", "size", "packedSize", "crc", "date"})
      EXPECT_TRUE(e.contains(key)) << key;
  }

  const std::string dest = (dir / "x").string();
  auto missing = harbor({"archive", "extract", zip, dest});
  EXPECT_EQ(missing.code, 2);
  EXPECT_NE(missing.err.find("password"), std::string::npos);
  auto wrong = harbor({"archive", "extract", zip, dest, "--password", "nope"});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_NE(wrong.err.find("password"), std::string::npos);
  EXPECT_FALSE(fs::exists(dir / "x/docs/a.txt"));

  auto ok = harbor(
      {"archive", "extract", zip, (dir / "y").string(), "--password", "pw", "--entry", "docs/sub"});
  ASSERT_EQ(ok.code, 0) << ok.err;
  EXPECT_EQ(treeOf(dir / "y"), (std::vector<std::string>{"sub", "sub/b.txt"}));
}

TEST_F(ArchiveCli, CreateFailsWholeOnAnUnreadableSource) {
  makeSource();
  // A socket cannot be opened for reading, not even by root.
  ASSERT_TRUE(runPython(dir / "docs", R"(
import socket
socket.socket(socket.AF_UNIX).bind('sock')
)"));
  fs::remove(dir / "docs/make.py");
  const std::string zip = (dir / "out.zip").string();
  for (const std::vector<std::string>& extra :
       {std::vector<std::string>{}, std::vector<std::string>{"--password", "pw"}}) {
    std::vector<std::string> args{"archive", "create", zip, (dir / "docs").string()};
    args.insert(args.end(), extra.begin(), extra.end());
    auto r = harbor(args);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find((dir / "docs/sock").string()), std::string::npos) << r.err;
    // Neither the archive nor its unfinished temporary stays behind.
    EXPECT_EQ(treeOf(dir.path()), (std::vector<std::string>{"docs", "docs/a.txt", "docs/sock",
                                                            "docs/sub", "docs/sub/b.txt"}));
  }
  fs::remove(dir / "docs/sock");
  ASSERT_EQ(harbor({"archive", "create", zip, (dir / "docs").string()}).code, 0);
  EXPECT_TRUE(fs::is_regular_file(zip));
}

TEST_F(ArchiveCli, RefusalsAreReportedAndBadInputFails) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
with zipfile.ZipFile('evil.zip', 'w') as z:
    z.writestr('../escape.txt', 'x')
    z.writestr('fine.txt', 'y')
)"));
  fs::create_directories(dir / "d/e");
  auto r = harbor({"archive", "extract", (dir / "evil.zip").string(), (dir / "d/e").string()});
  // The rest is extracted, but a refusal is not a clean run.
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("refused ../escape.txt"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(dir / "d/escape.txt"));
  EXPECT_EQ(readFile(dir / "d/e/fine.txt"), "y");

  writeFile(dir / "junk.zip", "not a zip at all");
  EXPECT_EQ(harbor({"archive", "list", (dir / "junk.zip").string()}).code, 1);
  EXPECT_EQ(harbor({"archive", "list", (dir / "none.zip").string()}).code, 1);
  EXPECT_EQ(harbor({"archive", "list"}).code, 2);
}

}  // namespace
}  // namespace harbor::test

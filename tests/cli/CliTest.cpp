// The `harbor` command as scripts use it: exit codes, JSON shapes, files.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/Resources.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

using Result = test::CliResult;

Result harbor(const std::vector<std::string>& args) {
  return test::runHarbor(args);
}

class Cli : public test::TempHome {};

TEST_F(Cli, HelpVersionAndUsageErrors) {
  EXPECT_EQ(harbor({"--help"}).code, 0);
  Result v = harbor({"--version"});
  EXPECT_EQ(v.code, 0);
  EXPECT_NE(v.out.find("harbor "), std::string::npos);
  EXPECT_EQ(harbor({"no-such-command"}).code, 2);
  EXPECT_EQ(harbor({"syntax"}).code, 2);
  EXPECT_EQ(harbor({"syntax", "dump"}).code, 2);
  EXPECT_EQ(harbor({"syntax", "dump", "/no/such/file.stx"}).code, 1);
}

TEST_F(Cli, SyntaxWhichNamesTheRule) {
  test::ScratchDir dir;
  test::writeFile(dir / "backup", "#!/usr/bin/env bash\nset -e\n");
  test::writeFile(dir / "notes", "plain words\n");
  Result r = harbor({"syntax", "which", "--json", (dir / "backup").string()});
  ASSERT_EQ(r.code, 0) << r.err;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["class"], "ShellFormatParser");
  EXPECT_EQ(j["stxFilePath"], "shell.stx");
  EXPECT_EQ(j["rule"], "interpreter");

  j = nlohmann::json::parse(harbor({"syntax", "which", "--json", (dir / "notes").string()}).out);
  EXPECT_EQ(j["class"], "OtherTextFileFormatParser");
  EXPECT_EQ(j["rule"], "none");
  j = nlohmann::json::parse(harbor({"syntax", "which", "--json", "page.html"}).out);
  EXPECT_EQ(j["rule"], "extension");
  r = harbor({"syntax", "which", "Makefile"});
  EXPECT_NE(r.out.find("rule: file-name"), std::string::npos) << r.out;
}

TEST_F(Cli, MainJobListsTheRoot) {
  test::ScratchDir dir;
  test::writeFile(dir / "hello.txt", "hi");
  fs::create_directories(dir / "sub");
  Result r = harbor({"--root", dir.path().string()});
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out.find(dir.path().string()), std::string::npos);
  EXPECT_NE(r.out.find("hello.txt"), std::string::npos);
  EXPECT_NE(r.out.find("sub/"), std::string::npos);
  EXPECT_NE(r.out.find(" html"), std::string::npos);
  EXPECT_NE(r.out.find("makefile"), std::string::npos);
}

TEST_F(Cli, SyntaxDumpOfEveryShippedFile) {
  int files = 0;
  for (const auto& e : fs::directory_iterator(resourceDirectory() / "syntax")) {
    if (e.path().extension() != ".stx") continue;
    ++files;
    SCOPED_TRACE(e.path().filename().string());
    Result r = harbor({"syntax", "dump", "--json", e.path().string()});
    ASSERT_EQ(r.code, 0);
    auto j = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_TRUE(j.is_object());
    for (const char* key :
         {"formatInfo", "continueQuote", "caseSensive", "isHtmlEmbeded", "quotetion1", "quotetion2",
          "escape", "lineComment", "lineComment2", "commentOn", "commentOff", "commentOn2",
          "commentOff2", "delimiter", "scriptBegin", "scriptEnd", "keywordItems", "allKeywords"}) {
      EXPECT_TRUE(j.contains(key)) << key;
    }
    ASSERT_FALSE(j["keywordItems"].empty());
    for (const auto& item : j["keywordItems"]) {
      for (const char* key : {"keywordType", "title", "comment", "indexTag", "keywords"}) {
        EXPECT_TRUE(item.contains(key)) << key;
      }
      EXPECT_FALSE(item["keywords"].empty());
    }
    EXPECT_TRUE(j["quotetion1"].is_number());
    // Every language here has comments of some form.
    EXPECT_FALSE(j["lineComment"].get<std::string>().empty() &&
                 j["commentOn"].get<std::string>().empty());
    EXPECT_FALSE(j["allKeywords"].empty());
  }
  EXPECT_GE(files, 38);
}

TEST_F(Cli, ImportedNamesNeverCollide) {
  test::ScratchDir src;
  test::writeFile(src / "a" / "notes.txt", "1");
  test::writeFile(src / "b" / "notes.txt", "2");
  test::writeFile(src / "a" / "report.tar.gz", "x");
  test::writeFile(src / "b" / "report.tar.gz", "y");
  Result r = harbor({"import", (src / "a/notes.txt").string(), (src / "b/notes.txt").string(),
                     (src / "a/report.tar.gz").string(), (src / "b/report.tar.gz").string()});
  ASSERT_EQ(r.code, 0);
  const fs::path imported = root() / "Imported";
  EXPECT_EQ(test::readFile(imported / "notes.txt"), "1");
  EXPECT_EQ(test::readFile(imported / "notes 2.txt"), "2");
  EXPECT_EQ(test::readFile(imported / "report 2.tar.gz"), "y");
  EXPECT_NE(r.out.find("notes 2.txt"), std::string::npos);
  EXPECT_TRUE(fs::is_empty(root() / "Inbox"));

  EXPECT_EQ(harbor({"import", (src / "missing").string()}).code, 1);
  EXPECT_EQ(harbor({"import"}).code, 2);
}

TEST_F(Cli, ImportKeepsTheFilesMode) {
  test::ScopedUmask mask(022);
  test::ScratchDir src;
  test::writeFile(src / "plain.txt", "1");
  fs::permissions(src / "plain.txt", static_cast<fs::perms>(0644));
  test::writeFile(src / "tool.sh", "2");
  fs::permissions(src / "tool.sh", static_cast<fs::perms>(0755));
  ASSERT_EQ(harbor({"import", (src / "plain.txt").string(), (src / "tool.sh").string()}).code, 0);
  EXPECT_EQ(test::modeOf(root() / "Imported" / "plain.txt"), 0644u);
  EXPECT_EQ(test::modeOf(root() / "Imported" / "tool.sh"), 0755u);
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

class FileCommands : public test::TempHome {};

TEST_F(FileCommands, ListSizeAndCopyAsScriptsSeeThem) {
  test::writeFile(root() / "b.txt", "bb");
  test::writeFile(root() / "a.cpp", "a");
  test::writeFile(root() / "sub" / "c.txt", "ccc");
  test::writeFile(root() / "Inbox" / "hidden.txt", "h");

  Result ls = harbor({"ls", "--order", "name", "--json"});
  ASSERT_EQ(ls.code, 0);
  auto j = nlohmann::json::parse(ls.out, nullptr, false);
  ASSERT_TRUE(j.is_object());
  EXPECT_EQ(j["path"], root().string());
  std::vector<std::string> items;
  for (const auto& section : j["sections"]) {
    EXPECT_TRUE(section.contains("title"));
    for (const auto& item : section["items"]) items.push_back(item.get<std::string>());
  }
  EXPECT_EQ(items.size(), 3u) << "Inbox is hidden at the root";
  EXPECT_NE(std::find(items.begin(), items.end(), (root() / "sub").string()), items.end());

  Result du = harbor({"du", root().string(), "--json"});
  ASSERT_EQ(du.code, 0);
  auto d = nlohmann::json::parse(du.out, nullptr, false);
  ASSERT_TRUE(d.is_object());
  EXPECT_EQ(d["totalSize"], 7);  // 2 + 1 + 3 + 1
  EXPECT_GE(d["fileNumber"].get<int>(), 4);

  test::ScratchDir dest;
  ASSERT_EQ(
      harbor({"cp", (root() / "b.txt").string(), (root() / "sub").string(), dest.path().string()})
          .code,
      0);
  EXPECT_EQ(test::readFile(dest / "b.txt"), "bb");
  EXPECT_EQ(test::readFile(dest / "sub" / "c.txt"), "ccc");
  // A second copy never overwrites: it lands under a free name.
  ASSERT_EQ(harbor({"cp", (root() / "b.txt").string(), dest.path().string()}).code, 0);
  EXPECT_TRUE(fs::exists(dest / "b 2.txt"));
  EXPECT_NE(harbor({"cp", (root() / "missing").string(), dest.path().string()}).code, 0);
}

TEST_F(FileCommands, ASearchCutAtItsLimitSaysSo) {
  for (int d = 0; d < 30; ++d) {
    for (int f = 0; f < 40; ++f) {
      test::writeFile(root() / ("d" + std::to_string(d)) / ("hit" + std::to_string(f)), "");
    }
  }
  Result cut = harbor({"ls", "--search", "hit", "--json"});
  ASSERT_EQ(cut.code, 0);
  auto j = nlohmann::json::parse(cut.out, nullptr, false);
  EXPECT_EQ(j["truncated"], true);
  // The keys scripts already read keep their place.
  EXPECT_EQ(j.begin().key(), "path");
  Result text = harbor({"ls", "--search", "hit"});
  ASSERT_EQ(text.code, 0);
  const std::string lastLine = text.out.substr(text.out.rfind('\n', text.out.size() - 2) + 1);
  EXPECT_NE(lastLine.find("cut"), std::string::npos) << lastLine;

  Result whole = harbor({"ls", "--search", "hit39", "--json"});
  ASSERT_EQ(whole.code, 0);
  EXPECT_FALSE(nlohmann::json::parse(whole.out, nullptr, false).contains("truncated"));
  EXPECT_EQ(harbor({"ls", "--search", "hit39"}).out.find("cut"), std::string::npos);
}

TEST_F(FileCommands, DuCountsALinkByItselfWhereverItStands) {
  test::ScratchDir dir;
  test::writeFile(dir / "big" / "data", std::string(5000, 'd'));
  test::writeFile(dir / "sub" / "f", "ff");
  fs::create_directory_symlink(dir / "big", dir / "sub" / "direct");
  const auto linkSize = fs::symlink_status(dir / "sub" / "direct").type() == fs::file_type::symlink
                            ? fs::read_symlink(dir / "sub" / "direct").string().size()
                            : 0;
  auto total = [&](const fs::path& p) {
    Result r = harbor({"du", p.string(), "--json"});
    EXPECT_EQ(r.code, 0);
    return nlohmann::json::parse(r.out, nullptr, false)["totalSize"].get<std::uint64_t>();
  };
  EXPECT_EQ(total(dir / "sub"), 2 + linkSize);
  EXPECT_EQ(total(dir.path()), 5000 + 2 + linkSize);
}

}  // namespace
}  // namespace harbor

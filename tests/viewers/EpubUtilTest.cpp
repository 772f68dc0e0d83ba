#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "BookBuilder.h"
#include "platform/UserDefaults.h"
#include "support/TestSupport.h"
#include "viewers/epub/EpubReader.h"
#include "viewers/epub/EpubUtil.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class EpubUtilTest : public TempHome {
 protected:
  fs::path book(const std::string& name, const BookFiles& files = epub3Book()) {
    fs::path p = root() / name;
    fs::create_directories(p.parent_path());
    EXPECT_TRUE(writeBook(p, files));
    return p;
  }
  std::optional<EpubUtil::OpenedBook> open(const fs::path& p) {
    Error e;
    auto r = EpubUtil::openBook(p.string(), &e);
    if (!r) lastError = e;
    return r;
  }
  void setCreateDate(const std::string& key, std::chrono::hours age) {
    auto all = EpubUtil::getAllEpubDictionary();
    (*all.at(key).asMap())[std::string(EpubUtil::kCreateDateKey)] =
        std::chrono::system_clock::now() - age;
    UserDefaults::standard().setObject(EpubUtil::kDirectoryKey, all);
  }
  Error lastError;
};

TEST_F(EpubUtilTest, UnpacksOnceThenServesTheCachedFolder) {
  const fs::path p = book("shelf/novel.epub");
  auto first = open(p);
  ASSERT_TRUE(first) << lastError.message;
  EXPECT_FALSE(first->cached);
  EXPECT_TRUE(EpubUtil::isInsideEpubDirectory(first->folder));
  EXPECT_TRUE(fs::exists(fs::path(first->folder) / "OEBPS/content.opf"));
  auto all = EpubUtil::getAllEpubDictionary();
  ASSERT_EQ(all.count("/shelf/novel.epub"), 1u);
  const auto& record = *all.at("/shelf/novel.epub").asMap();
  // Stored relative to the document root, which the cache folder is not under.
  EXPECT_EQ(record.at(std::string(EpubUtil::kRelativePathKey)).asString()->rfind("..", 0), 0u);
  EXPECT_EQ(*record.at(std::string(EpubUtil::kFileSizeKey)).asInteger(),
            static_cast<std::int64_t>(fs::file_size(p)));

  auto second = open(p);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->cached);
  EXPECT_EQ(fs::weakly_canonical(second->folder), fs::weakly_canonical(first->folder));
  EpubReader reader(second->folder);
  reader.parser();
  EXPECT_EQ(reader.chapters().size(), 4u);
}

TEST_F(EpubUtilTest, SizeChangeUnpacksAnewAndDeletesTheOldFolder) {
  const fs::path p = book("a.epub");
  auto first = open(p);
  ASSERT_TRUE(first);
  BookFiles bigger = epub3Book();
  bigger["OEBPS/Text/chapter2.xhtml"] += "<!-- longer -->";
  ASSERT_TRUE(writeBook(p, bigger));
  auto second = open(p);
  ASSERT_TRUE(second);
  EXPECT_FALSE(second->cached);
  EXPECT_NE(second->folder, first->folder);
  EXPECT_FALSE(fs::exists(first->folder));
  EXPECT_EQ(EpubUtil::getAllEpubDictionary().size(), 1u);
}

TEST_F(EpubUtilTest, SameSizeChangeKeepsTheCache) {
  const fs::path p = root() / "a.epub";
  ASSERT_TRUE(writeBook(p, epub3Book(), true));
  auto first = open(p);
  ASSERT_TRUE(first);
  BookFiles same = epub3Book();
  auto& ch = same["OEBPS/Text/chapter2.xhtml"];
  ch.replace(ch.find("Deux"), 4, "DEUX");
  ASSERT_TRUE(writeBook(p, same, true));
  fs::last_write_time(p, fs::last_write_time(p) + std::chrono::hours(1));
  auto second = open(p);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->cached);
}

TEST_F(EpubUtilTest, MissingFolderClearsTheRecord) {
  const fs::path p = book("a.epub");
  auto first = open(p);
  ASSERT_TRUE(first);
  fs::remove_all(first->folder);
  EXPECT_FALSE(EpubUtil::getEpubDirectory(p.string()));
  EXPECT_TRUE(EpubUtil::getAllEpubDictionary().empty());
}

TEST_F(EpubUtilTest, BookOutsideTheRootIsNotCached) {
  ScratchDir elsewhere;
  ASSERT_TRUE(writeBook(elsewhere / "x.epub", epub2Book()));
  auto opened = open(elsewhere / "x.epub");
  ASSERT_TRUE(opened);
  EXPECT_FALSE(opened->cached);
  EXPECT_FALSE(EpubUtil::isInsideEpubDirectory(opened->folder));
  EXPECT_TRUE(fs::exists(fs::path(opened->folder) / "content.opf"));
  EXPECT_TRUE(EpubUtil::getAllEpubDictionary().empty());
  fs::remove_all(opened->folder);
}

TEST_F(EpubUtilTest, OnlyFoldersInsideTheCacheAreEverDeleted) {
  const fs::path p = book("a.epub");
  ASSERT_TRUE(open(p));
  // A tampered record pointing at the user's own folder.
  fs::create_directories(root() / "precious");
  writeFile(root() / "precious/keep.txt", "keep");
  auto all = EpubUtil::getAllEpubDictionary();
  (*all.at("/a.epub").asMap())[std::string(EpubUtil::kRelativePathKey)] = "precious";
  UserDefaults::standard().setObject(EpubUtil::kDirectoryKey, all);
  EpubUtil::removeEpubItem("/a.epub");
  EXPECT_TRUE(fs::exists(root() / "precious/keep.txt"));
  EXPECT_TRUE(EpubUtil::getAllEpubDictionary().empty());
  EXPECT_FALSE(EpubUtil::isInsideEpubDirectory(FileOpertion::getEpubDirectory()));
  EXPECT_FALSE(EpubUtil::isInsideEpubDirectory(FileOpertion::getEpubDirectory() + "/../x"));
}

TEST_F(EpubUtilTest, PruningDropsGoneBooksAndOldRecordsAtMostDaily) {
  auto gone = open(book("gone.epub"));
  auto old = open(book("old.epub"));
  auto fresh = open(book("fresh.epub"));
  ASSERT_TRUE(gone && old && fresh);
  fs::remove(root() / "gone.epub");
  EXPECT_EQ(EpubUtil::removeCacheEpubFolders(), 1u);
  EXPECT_FALSE(fs::exists(gone->folder));

  setCreateDate("/old.epub", std::chrono::hours(24 * 31));
  EXPECT_EQ(EpubUtil::removeMoreTimeCache(), 1u);
  EXPECT_FALSE(fs::exists(old->folder));
  EXPECT_TRUE(fs::exists(fresh->folder));
  ASSERT_TRUE(EpubUtil::getRemoveEpubDate());

  // Swept today already: an aged record waits for tomorrow's sweep.
  setCreateDate("/fresh.epub", std::chrono::hours(24 * 40));
  EXPECT_EQ(EpubUtil::removeMoreTimeCache(), 0u);
  EpubUtil::saveRemoveEpubDate(std::chrono::system_clock::now() - std::chrono::hours(25));
  EXPECT_EQ(EpubUtil::removeMoreTimeCache(), 1u);
  EXPECT_TRUE(EpubUtil::getAllEpubDictionary().empty());
}

TEST_F(EpubUtilTest, HighlyCompressedBookIsRefusedAndLeavesNothing) {
  BookFiles bomb = epub3Book();
  bomb["OEBPS/zeros.bin"] = std::string(8u << 20, '\0');  // deflates far beyond 100:1
  const fs::path p = book("bomb.epub", bomb);
  ASSERT_LT(fs::file_size(p) * EpubUtil::kMaxExpansion, 8u << 20);
  EXPECT_FALSE(open(p));
  EXPECT_NE(lastError.message.find("more than"), std::string::npos) << lastError.message;
  EXPECT_TRUE(fs::is_empty(FileOpertion::getEpubDirectory()));
  EXPECT_TRUE(EpubUtil::getAllEpubDictionary().empty());
  EXPECT_EQ(EpubUtil::unpackLimit(1u << 20), 100u << 20);
  EXPECT_EQ(EpubUtil::unpackLimit(std::uint64_t{1} << 40), EpubUtil::kMaxUnpackedBytes);
}

TEST_F(EpubUtilTest, BuiltBooksAreValidEpubs) {
  const char* jar = "/usr/share/java/epubcheck.jar";
  if (!fs::exists(jar) || std::system("java -version >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "epubcheck not installed";
  for (const auto& [name, files] :
       {std::pair{"three.epub", epub3Book()}, {"two.epub", epub2Book()}}) {
    const fs::path p = book(name, files);
    const std::string cmd = std::string("java -jar ") + jar + " '" + p.string() + "' >'" +
                            (home() / "epubcheck.log").string() + "' 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << readFile(home() / "epubcheck.log");
  }
}

TEST_F(EpubUtilTest, CommandPrintsTheBookAndTheCache) {
  const fs::path p = book("cli.epub", epub2Book());
  auto r = runHarbor({"--root", root().string(), "epub", "open", p.string(), "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_FALSE(j["cached"].get<bool>());
  EXPECT_EQ(j["containFullPath"], "content.opf");
  EXPECT_EQ(j["metadata"]["dc:title"], "Über Straßen");
  EXPECT_EQ(j["manifest"]["ch1"]["media-type"], "application/xhtml+xml");
  EXPECT_EQ(j["spine"], nlohmann::json({"cover", "ch1"}));
  EXPECT_EQ(j["guide"][1]["href"], "ch1.xhtml#start");
  EXPECT_EQ(j["chapters"], nlohmann::json({"cover.xhtml", "ch1.xhtml"}));
  EXPECT_TRUE(
      fs::exists(fs::path(j["folder"].get<std::string>()) / j["chapters"][1].get<std::string>()));

  r = runHarbor({"--root", root().string(), "epub", "open", p.string(), "--streaming", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  j = nlohmann::json::parse(r.out);
  EXPECT_TRUE(j["cached"].get<bool>());
  EXPECT_TRUE(j["guide"].empty());

  r = runHarbor({"--root", root().string(), "epub", "cache", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  j = nlohmann::json::parse(r.out);
  ASSERT_EQ(j.size(), 1u);
  EXPECT_EQ(j[0]["path"], "/cli.epub");

  r = runHarbor({"--root", root().string(), "epub", "open", (root() / "nope.epub").string()});
  EXPECT_EQ(r.code, 1);
}

}  // namespace
}  // namespace harbor::test

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ArchiveTestUtil.h"
#include "SevenZipTestUtil.h"
#include "archive/7z/LV_LZMAUtil.h"
#include "archive/7z/U7ZArchive.h"
#include "archive/7z/U7zZip.h"
#include "platform/Cancellation.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

unsigned modeOf(const fs::path& p) {
  struct stat st {};
  return ::lstat(p.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Same names, kinds, bytes, link targets and (for files) modes.
void expectSameTree(const fs::path& a, const fs::path& b) {
  ASSERT_EQ(pathsBelow(a), pathsBelow(b));
  for (const auto& rel : pathsBelow(a)) {
    const fs::path x = a / rel, y = b / rel;
    ASSERT_EQ(fs::is_symlink(x), fs::is_symlink(y)) << rel;
    if (fs::is_symlink(x)) {
      EXPECT_EQ(fs::read_symlink(x), fs::read_symlink(y)) << rel;
    } else if (fs::is_regular_file(x)) {
      EXPECT_EQ(readFile(x), readFile(y)) << rel;
      EXPECT_EQ(modeOf(x), modeOf(y)) << rel;
    }
  }
}

class SevenZipTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    src = dir / "src";
    fs::create_directories(src / "sub/deeper");
    fs::create_directories(src / "emptydir");
    std::string text;
    for (int i = 0; i < 4000; ++i) text += "line " + std::to_string(i * 7919 % 1000) + "\n";
    writeFile(src / "text.txt", text);
    writeFile(src / "sub/deeper/日本語 😀.txt", "名前");
    writeFile(src / "empty.txt", "");
    fs::copy_file("/bin/ls", src / "sub/tool.elf");  // an executable for the branch filters
    fs::permissions(src / "sub/tool.elf", fs::perms(0750));
    fs::create_symlink("text.txt", src / "link");
  }
  bool peer(const std::string& args, const std::string& out = "peer.7z") {
    return run("cd '" + dir.path().string() + "' && 7zz a -t7z -snl " + args + " " + out +
               " src >/dev/null 2>&1");
  }
  // Extracts everything with our reader into a fresh folder.
  bool extractAll(const std::string& archive, const std::string& password, fs::path& out) {
    out = dir / ("x" + std::to_string(++extractions));
    U7ZArchive reader(archive, nullptr, nullptr, password);
    if (!reader.listFiles()) return false;
    return reader.unArchivePath(out.string());
  }
  std::string ours(const std::string& password = "", const std::string& name = "ours.7z") {
    const std::string path = (dir / name).string();
    ZipPropertyOptions options;
    options.password = password;
    auto writer = ArchiveFactory::createZipFactory({src.string()}, nullptr, path, options);
    EXPECT_TRUE(writer && !writer->error())
        << (writer && writer->error() ? writer->error()->message : "");
    return path;
  }
  ScratchDir dir;
  fs::path src;
  int extractions = 0;
};

TEST_F(SevenZipTest, ReadsEveryMethodThePeerWrites) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz not installed";
  for (const std::string method : {"LZMA", "LZMA2", "Copy", "BZip2", "Deflate", "Delta"}) {
    for (const std::string solid : {"on", "off"}) {
      SCOPED_TRACE(method + " solid " + solid);
      const std::string name = method + solid + ".7z";
      ASSERT_TRUE(peer("-m0=" + method + " -mf=BCJ -ms=" + solid, name));
      fs::path out;
      ASSERT_TRUE(extractAll((dir / name).string(), "", out));
      expectSameTree(src, out / "src");
    }
  }
}

TEST_F(SevenZipTest, MethodsWeDoNotDecodeListButFailNamingThem) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz not installed";
  ASSERT_TRUE(peer("-m0=PPMd", "ppmd.7z"));
  ASSERT_TRUE(run("cd '" + dir.path().string() +
                  "' && 7zz a -t7z -mx9 -mf=BCJ2 bcj2.7z src/sub/tool.elf >/dev/null"));
  for (const auto& [file, method] : {std::pair{"ppmd.7z", "PPMD"}, std::pair{"bcj2.7z", "BCJ2"}}) {
    U7ZArchive reader((dir / file).string(), nullptr, nullptr, "");
    ASSERT_TRUE(reader.listFiles()) << file;
    EXPECT_FALSE(entryPaths(reader).empty());
    const fs::path out = dir / (std::string("out-") + file);
    EXPECT_FALSE(reader.unArchivePath(out.string()));
    ASSERT_TRUE(reader.archiveError());
    EXPECT_EQ(reader.archiveError()->domain, "ArchiveErrorDomain");
    EXPECT_NE(reader.archiveError()->message.find(method), std::string::npos)
        << reader.archiveError()->message;
    EXPECT_FALSE(reader.isPasswordFailure());
    for (const auto& p : pathsBelow(out))
      EXPECT_FALSE(fs::is_regular_file(out / p) && fs::file_size(out / p) > 0) << p;
  }
}

TEST_F(SevenZipTest, PeerPasswordsWithAndWithoutEncryptedNames) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz not installed";
  ASSERT_TRUE(peer("-p'Zaubérwörter' -mf=BCJ", "content.7z"));
  ASSERT_TRUE(peer("-psecret -mhe=on", "names.7z"));

  U7ZArchive content((dir / "content.7z").string(), nullptr, nullptr, "");
  ASSERT_TRUE(content.listFiles());  // names are readable
  EXPECT_TRUE(content.isEncrypted());
  EXPECT_FALSE(content.isEncryptedFileName());
  const fs::path none = dir / "none";
  EXPECT_FALSE(content.unArchivePath(none.string()));
  EXPECT_TRUE(content.isPasswordFailure());
  content.setPassword("wrong");
  EXPECT_FALSE(content.unArchivePath(none.string()));
  EXPECT_TRUE(content.isPasswordFailure());
  EXPECT_FALSE(fs::exists(none / "src/text.txt"));
  EXPECT_FALSE(fs::exists(none / "src/sub/tool.elf"));
  fs::path out;
  ASSERT_TRUE(extractAll((dir / "content.7z").string(), "Zaubérwörter", out));
  expectSameTree(src, out / "src");

  U7ZArchive names((dir / "names.7z").string(), nullptr, nullptr, "");
  EXPECT_FALSE(names.listFiles());
  EXPECT_TRUE(names.isEncryptedFileName());
  EXPECT_TRUE(names.isEncrypted());
  EXPECT_TRUE(names.isPasswordFailure());
  EXPECT_TRUE(names.rootEntry()->children().empty());
  names.setPassword("nope");
  EXPECT_FALSE(names.listFiles());
  names.setPassword("secret");
  ASSERT_TRUE(names.listFiles());
  EXPECT_FALSE(entryPaths(names).empty());
  ASSERT_TRUE(extractAll((dir / "names.7z").string(), "secret", out));
  expectSameTree(src, out / "src");
}

TEST_F(SevenZipTest, PeerReadsWhatWeWrite) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz not installed";
  const std::string plain = ours();
  const std::string locked = ours("pässword", "locked.7z");
  const std::string d = dir.path().string();
  ASSERT_TRUE(run("7zz t '" + plain + "' >/dev/null"));
  ASSERT_TRUE(run("7zz t -p'pässword' '" + locked + "' >/dev/null"));
  ASSERT_TRUE(run("7zz l -slt '" + plain + "' > '" + d + "/plain.txt'"));
  ASSERT_TRUE(run("7zz l -slt -p'pässword' '" + locked + "' > '" + d + "/locked.txt'"));
  const std::string listing = readFile(dir / "plain.txt");
  EXPECT_NE(listing.find("Solid = +"), std::string::npos);
  EXPECT_NE(listing.find("LZMA2"), std::string::npos);
  EXPECT_NE(listing.find("Modified = \n"), std::string::npos);
  EXPECT_EQ(listing.find("Modified = 2"), std::string::npos);
  // The empty folder has an entry of its own; a folder with content is only
  // implied by its files.
  EXPECT_NE(listing.find("Path = src/emptydir\n"), std::string::npos);
  EXPECT_EQ(listing.find("Path = src/sub\n"), std::string::npos);
  EXPECT_NE(listing.find("Path = src/sub/tool.elf\n"), std::string::npos);
  EXPECT_NE(readFile(dir / "locked.txt").find("7zAES"), std::string::npos);
  // Without the password even the names stay hidden.
  EXPECT_FALSE(run("7zz l -p '" + locked + "' </dev/null >/dev/null 2>&1"));
  ASSERT_TRUE(run("cd '" + d + "' && 7zz x -p'pässword' -opeer '" + locked + "' >/dev/null"));
  expectSameTree(src, dir / "peer/src");
}

TEST_F(SevenZipTest, OurArchivesRoundTripWithTheTreeRules) {
  const std::string path = ours("pw");
  U7ZArchive reader(path, nullptr, nullptr, "");
  EXPECT_FALSE(reader.listFiles());  // names are encrypted too
  EXPECT_TRUE(reader.isEncryptedFileName());
  reader.setPassword("pw");
  ASSERT_TRUE(reader.listFiles());
  EXPECT_EQ(entryPaths(reader),
            (std::vector<std::string>{"src/", "src/empty.txt", "src/emptydir/", "src/link",
                                      "src/sub/", "src/sub/deeper/", "src/sub/deeper/日本語 😀.txt",
                                      "src/sub/tool.elf", "src/text.txt"}));
  auto root = reader.rootEntry();
  // Folders with content are implied, yet made of the 7z entry class with an
  // item, so they can be extracted; nothing carries a date.
  auto sub = root->findPath("src/sub/");
  ASSERT_TRUE(sub);
  auto* entry = dynamic_cast<U7zEntry*>(sub.get());
  ASSERT_NE(entry, nullptr);
  ASSERT_TRUE(entry->source());
  EXPECT_TRUE(entry->source()->isDirectory());
  EXPECT_EQ(entry->source()->index(), -1);
  EXPECT_EQ(sub->totalNumber(), 3);
  EXPECT_FALSE(root->findPath("src/text.txt")->date());
  EXPECT_FALSE(root->findPath("src/emptydir/")->isLeaf());

  const fs::path part = dir / "part";
  ASSERT_TRUE(reader.unArchivePath(sub.get(), part.string()));
  EXPECT_EQ(pathsBelow(part), (std::vector<std::string>{
                                  "sub", "sub/deeper", "sub/deeper/日本語 😀.txt", "sub/tool.elf"}));
  EXPECT_EQ(readFile(part / "sub/tool.elf"), readFile(src / "sub/tool.elf"));
  EXPECT_EQ(modeOf(part / "sub/tool.elf"), 0750u);
  const fs::path all = dir / "all";
  ASSERT_TRUE(reader.unArchivePath(all.string()));
  expectSameTree(src, all / "src");
}

TEST_F(SevenZipTest, WriterLeavesNothingWhenItFails) {
  const std::string path = (dir / "fails.7z").string();
  Archive7zWriter writer(path);
  ASSERT_TRUE(writer.open(nullptr));
  ASSERT_TRUE(writer.addPath((src / "text.txt").string(), "text.txt"));
  ASSERT_TRUE(writer.addPath((src / "sub/tool.elf").string(), "tool.elf"));
  fs::remove(src / "sub/tool.elf");  // gone by the time it is read
  EXPECT_FALSE(writer.write());
  ASSERT_TRUE(writer.lastError());
  for (const auto& p : pathsBelow(dir.path())) EXPECT_EQ(p.find("fails"), std::string::npos) << p;
}

// Cancels the work of the current thread at the first progress report.
struct CancelAtFirstReport : Archive7zReaderDelegate, Archive7zWriterDelegate {
  explicit CancelAtFirstReport(CancellationToken t) : token(std::move(t)) {}
  void onArchive7zReaderExtractProgress(Archive7zReader&, float) override { token.cancel(); }
  void onArchive7zWriterWriteProgress(Archive7zWriter&, float) override { token.cancel(); }
  CancellationToken token;
};

TEST_F(SevenZipTest, CancellingLeavesNoPartialFiles) {
  std::string big(6 << 20, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>((i * 2654435761u) >> 13);
  writeFile(src / "big.bin", big);
  CancellationToken token;
  CurrentCancellationScope scope(token);
  CancelAtFirstReport cancel(token);

  const std::string path = (dir / "cancelled.7z").string();
  Archive7zWriter writer(path);
  writer.setDelegate(&cancel);
  ASSERT_TRUE(writer.addPath((src / "big.bin").string(), "big.bin"));
  EXPECT_FALSE(writer.write());
  ASSERT_TRUE(writer.lastError());
  EXPECT_EQ(writer.lastError()->code, 100);
  for (const auto& p : pathsBelow(dir.path()))
    EXPECT_EQ(p.find("cancelled"), std::string::npos) << p;

  token = CancellationToken();  // a fresh token for writing the archive to read
  const std::string full = ours();
  CurrentCancellationScope again(token);
  Archive7zReader reader(full);
  ASSERT_TRUE(reader.open(nullptr));
  CancelAtFirstReport cancelRead(token);
  reader.setDelegate(&cancelRead);
  const fs::path out = dir / "cancelled-out";
  EXPECT_FALSE(reader.extract(reader.items(), out.string(), true));
  ASSERT_TRUE(reader.lastError());
  EXPECT_EQ(reader.lastError()->code, 100);
  EXPECT_FALSE(fs::exists(out / "src/big.bin"));
  for (const auto& p : pathsBelow(out)) EXPECT_EQ(p.find(".part"), std::string::npos) << p;
}

TEST_F(SevenZipTest, ClassLevelServiceListsAndExtracts) {
  const std::string path = ours();
  std::vector<std::string> names;
  ASSERT_TRUE(LV_LZMAUtil::listFiles(
      path,
      [](void* p, const LV_LZMAUtil::ItemRecord& r) {
        static_cast<std::vector<std::string>*>(p)->push_back(r.name + (r.time.empty() ? "" : "@"));
      },
      &names));
  EXPECT_EQ(names.size(), 6u);  // files, the link and the empty folder
  const fs::path out = dir / "lv";
  ASSERT_TRUE(
      LV_LZMAUtil::extract7zArchive(path, out.string(), nullptr, "src/text.txt", false, nullptr));
  EXPECT_EQ(pathsBelow(out), std::vector<std::string>{"text.txt"});
  EXPECT_FALSE(
      LV_LZMAUtil::extract7zArchive((dir / "missing.7z").string(), out.string(), nullptr, nullptr));
}

class SevenZipCli : public SevenZipTest {};

TEST_F(SevenZipCli, ListExtractCreate) {
  const std::string archive = (dir / "cli.7z").string();
  ASSERT_EQ(runHarbor({"archive", "create", archive, src.string(), "--password", "pw"}).code, 0);
  auto locked = runHarbor({"archive", "list", archive, "--json"});
  EXPECT_EQ(locked.code, 2);
  auto j = nlohmann::json::parse(locked.out);
  EXPECT_EQ(j["format"], "7z");
  EXPECT_EQ(j["encryptedFileName"], true);
  EXPECT_TRUE(j["entries"].empty());

  auto listed = runHarbor({"archive", "list", archive, "--json", "--password", "pw"});
  ASSERT_EQ(listed.code, 0) << listed.err;
  j = nlohmann::json::parse(listed.out);
  EXPECT_EQ(j["encrypted"], true);
  ASSERT_FALSE(j["entries"].empty());
  for (const auto& e : j["entries"]) EXPECT_TRUE(e["date"].is_null());

  const fs::path out = dir / "out";
  auto wrong = runHarbor({"archive", "extract", archive, out.string(), "--password", "bad"});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_FALSE(fs::exists(out / "src/text.txt"));
  auto ok = runHarbor(
      {"archive", "extract", archive, out.string(), "--password", "pw", "--entry", "src/sub"});
  ASSERT_EQ(ok.code, 0) << ok.err;
  EXPECT_EQ(readFile(out / "sub/deeper/日本語 😀.txt"), "名前");

  // Content-only encryption from the peer: names listed, marked encrypted.
  if (haveTool("7zz")) {
    ASSERT_TRUE(peer("-ppw", "peer.7z"));
    auto names = runHarbor({"archive", "list", (dir / "peer.7z").string(), "--json"});
    EXPECT_EQ(names.code, 0);
    j = nlohmann::json::parse(names.out);
    EXPECT_EQ(j["encrypted"], true);
    EXPECT_EQ(j["encryptedFileName"], false);
    EXPECT_FALSE(j["entries"].empty());
    auto missing =
        runHarbor({"archive", "extract", (dir / "peer.7z").string(), (dir / "o2").string()});
    EXPECT_EQ(missing.code, 2);
  }
  EXPECT_EQ(runHarbor({"archive", "create", (dir / "x.rar").string(), src.string()}).code, 2);
}

}  // namespace
}  // namespace harbor::test

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "ArchiveTestUtil.h"
#include "archive/ZipBase.h"
#include "archive/zip/UZipArchive.h"
#include "archive/zip/UZipFileArchive.h"
#include "encoding/EncodingUtil.h"
#include "platform/Cancellation.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class ZipArchiveTest : public ::testing::Test {
 protected:
  // src/top/{a.txt, sub/b.bin, link -> a.txt}
  void makeSource() {
    fs::create_directories(dir / "src/top/sub");
    writeFile(dir / "src/top/a.txt", "hello\n");
    std::string big;
    for (int i = 0; i < 200000; ++i) big += static_cast<char>('a' + (i * 7) % 26);
    writeFile(dir / "src/top/sub/b.bin", big);
    fs::create_symlink("a.txt", dir / "src/top/link");
  }
  std::unique_ptr<UZipArchive> reader(const fs::path& zip, const std::string& password = "") {
    return std::make_unique<UZipArchive>(zip.string(), nullptr, nullptr, password);
  }
  bool create(const fs::path& out, const std::string& password = "") {
    ZipPropertyOptions options;
    options.password = password;
    auto w = ArchiveFactory::createZipFactory({(dir / "src/top").string()}, nullptr, out.string(),
                                              options);
    return w && w->zipMsg().empty() && dynamic_cast<UZipFileArchive&>(*w).close();
  }
  ScratchDir dir;
};

TEST_F(ZipArchiveTest, WrittenArchiveReadsBackWithModesAndLinks) {
  makeSource();
  const fs::path zip = dir / "out.zip";
  ASSERT_TRUE(create(zip));
  if (haveTool("unzip")) {
    EXPECT_TRUE(run("unzip -tq '" + zip.string() + "' >/dev/null"));
  }
  auto r = reader(zip);
  ASSERT_TRUE(r->listFiles());
  // The selected folder is the top folder: names are relative to its parent.
  EXPECT_EQ(entryPaths(*r), (std::vector<std::string>{"top/", "top/a.txt", "top/link", "top/sub/",
                                                      "top/sub/b.bin"}));
  EXPECT_FALSE(r->isEncrypted());
  const auto created = r->rootEntry()->findPath("top/a.txt")->date();
  ASSERT_TRUE(created);
  // Entries carry the time of compression, not the files' dates.
  EXPECT_LT(std::chrono::abs(std::chrono::system_clock::now() - *created), std::chrono::minutes(2));

  ASSERT_TRUE(r->unArchivePath(dir / "x"));
  EXPECT_EQ(readFile(dir / "x/top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
  EXPECT_EQ(fs::read_symlink(dir / "x/top/link"), "a.txt");
  EXPECT_TRUE(r->refusedEntries().empty());
}

TEST_F(ZipArchiveTest, SubtreeKeepsItsOwnName) {
  makeSource();
  const fs::path zip = dir / "out.zip";
  ASSERT_TRUE(create(zip));
  auto r = reader(zip);
  ASSERT_TRUE(r->listFiles());
  auto sub = r->rootEntry()->findPath("top/sub/");
  ASSERT_TRUE(sub);
  ASSERT_TRUE(r->unArchivePath(sub.get(), (dir / "y").string()));
  EXPECT_EQ(treeOf(dir / "y"), (std::vector<std::string>{"sub", "sub/b.bin"}));
}

TEST_F(ZipArchiveTest, PasswordWriteAndRead) {
  makeSource();
  const fs::path zip = dir / "enc.zip";
  ASSERT_TRUE(create(zip, "s3cret"));
  if (haveTool("unzip")) {
    EXPECT_TRUE(run("unzip -tq -P s3cret '" + zip.string() + "' >/dev/null"));
    EXPECT_FALSE(run("unzip -tq -P wrong '" + zip.string() + "' >/dev/null 2>&1"));
  }
  auto r = reader(zip);
  // Entries are opened while listing: without the password the list ends at
  // the first encrypted entry (the folder before it stays), as error 4.
  EXPECT_FALSE(r->listFiles());
  EXPECT_TRUE(r->isPasswordFailure());
  EXPECT_EQ(r->archiveError()->code, kArchiveErrorArchive);
  EXPECT_EQ(entryPaths(*r), (std::vector<std::string>{"top/"}));
  EXPECT_TRUE(r->isEncrypted());
  r->setPassword("wrong");
  EXPECT_FALSE(r->listFiles());
  EXPECT_TRUE(r->isPasswordFailure());
  // Missing, then wrong: a password failure, and no file under any name.
  r->setPassword("");
  EXPECT_FALSE(r->unArchivePath(dir / "none"));
  EXPECT_TRUE(r->isPasswordFailure());
  r->setPassword("wrong");
  EXPECT_FALSE(r->unArchivePath(dir / "bad"));
  EXPECT_TRUE(r->isPasswordFailure());
  for (const auto& p : treeOf(dir / "bad")) EXPECT_TRUE(fs::is_directory(dir / "bad" / p)) << p;
  r->setPassword("s3cret");
  ASSERT_TRUE(r->listFiles());
  EXPECT_EQ(entryPaths(*r).size(), 5u);
  ASSERT_TRUE(r->unArchivePath(dir / "good"));
  EXPECT_EQ(readFile(dir / "good/top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
}

TEST_F(ZipArchiveTest, ReadsWhatZipAnd7zzMake) {
  if (!haveTool("zip")) GTEST_SKIP() << "zip missing";
  makeSource();
  const std::string src = (dir / "src").string();
  ASSERT_TRUE(run("cd '" + src + "' && zip -qry ../plain.zip top && zip -qry -P pw ../pw.zip top"));
  for (const auto& [name, pw] : {std::pair{"plain.zip", ""}, std::pair{"pw.zip", "pw"}}) {
    auto r = reader(dir / name, pw);
    ASSERT_TRUE(r->listFiles()) << name;
    EXPECT_EQ(r->isEncrypted(), std::string(pw) == "pw");
    const fs::path out = dir / (std::string("out-") + name);
    ASSERT_TRUE(r->unArchivePath(out.string())) << name;
    EXPECT_EQ(readFile(out / "top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
    EXPECT_EQ(fs::read_symlink(out / "top/link"), "a.txt");
  }
  if (haveTool("7zz")) {
    ASSERT_TRUE(run("cd '" + src + "' && 7zz a -tzip -bd ../seven.zip top >/dev/null"));
    auto r = reader(dir / "seven.zip");
    ASSERT_TRUE(r->listFiles());
    ASSERT_TRUE(r->unArchivePath(dir / "out7"));
    EXPECT_EQ(readFile(dir / "out7/top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
  }
}

TEST_F(ZipArchiveTest, OddNamesBackslashesHiddenAndEmptyFolders) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
with zipfile.ZipFile('odd.zip', 'w') as z:
    z.writestr('win\\dir\\file.txt', 'w')
    z.writestr('empty/', '')
    z.writestr('__MACOSX/._file.txt', 'junk')
    z.writestr('d/.DS_Store', 'junk')
)"));
  auto r = reader(dir / "odd.zip");
  ASSERT_TRUE(r->listFiles());
  EXPECT_EQ(entryPaths(*r),
            (std::vector<std::string>{"empty/", "win/", "win/dir/", "win/dir/file.txt"}));
  ASSERT_TRUE(r->unArchivePath(dir / "o"));
  EXPECT_TRUE(fs::is_directory(dir / "o/empty"));
  EXPECT_EQ(readFile(dir / "o/win/dir/file.txt"), "w");
  EXPECT_FALSE(fs::exists(dir / "o/__MACOSX"));
}

TEST_F(ZipArchiveTest, LegacyNameEncodingsAreDetected) {
  // Placeholder names of the same byte length are swapped for raw legacy
  // bytes, with no UTF-8 flag, as old tools wrote them.
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
def legacy(path, encoding, names):
    raw = [n.encode(encoding) for n in names]
    with zipfile.ZipFile(path, 'w') as z:
        for i, r in enumerate(raw):
            z.writestr(('%d' % i) * len(r), 'x')
    data = open(path, 'rb').read()
    for i, r in enumerate(raw):
        data = data.replace((('%d' % i) * len(r)).encode(), r)
    open(path, 'wb').write(data)
legacy('sjis.zip', 'shift_jis',
       ['日本語のファイル名です.txt', '東京都の資料一覧.txt', '新しいフォルダー/説明書.txt'])
legacy('cp437.zip', 'cp437', ['Übersicht der Größen.txt', 'Café Menü.txt', 'Straße/Grüße.txt'])
)"));
  auto dos = reader(dir / "cp437.zip");
  ASSERT_TRUE(dos->listFiles());
  EXPECT_EQ(entryPaths(*dos),
            (std::vector<std::string>{"Café Menü.txt", "Straße/", "Straße/Grüße.txt",
                                      "Übersicht der Größen.txt"}))
      << "detected as " << dos->encodingName();

  auto r = reader(dir / "sjis.zip");
  ASSERT_TRUE(r->listFiles());
  auto paths = entryPaths(*r);
  EXPECT_NE(std::find(paths.begin(), paths.end(), "東京都の資料一覧.txt"), paths.end())
      << "detected as " << r->encodingName();
  EXPECT_NE(std::find(paths.begin(), paths.end(), "新しいフォルダー/説明書.txt"), paths.end());

  // A forced encoding wins for each name it decodes; a name it cannot decode
  // (0x81 has no windows-1252 character) falls back to the detected one, and
  // forcing UTF-8 on Shift_JIS bytes changes nothing.
  auto forcedDos = reader(dir / "cp437.zip");
  forcedDos->setFileEncoding(EncodingUtil::convertStringToNSStringEncoding("windows-1252"));
  ASSERT_TRUE(forcedDos->listFiles());
  EXPECT_TRUE(forcedDos->rootEntry()->findPath("šbersicht der Gr”áen.txt"))
      << ::testing::PrintToString(entryPaths(*forcedDos));
  EXPECT_TRUE(forcedDos->rootEntry()->findPath("Café Menü.txt"));
  auto forcedUtf8 = reader(dir / "sjis.zip");
  forcedUtf8->setFileEncoding(kUTF8StringEncoding);
  ASSERT_TRUE(forcedUtf8->listFiles());
  EXPECT_EQ(entryPaths(*forcedUtf8), paths);
}

TEST_F(ZipArchiveTest, LongLinkTargetsKeptOrClearlyRefused) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
def link(z, name, target):
    info = zipfile.ZipInfo(name)
    info.create_system = 3
    info.external_attr = 0o120777 << 16
    z.writestr(info, target)
with zipfile.ZipFile('fits.zip', 'w') as z:
    link(z, 'l', 'y' * 4000)
with zipfile.ZipFile('long.zip', 'w') as z:
    link(z, 'l', 'x' * 5000)
)"));
  auto fits = reader(dir / "fits.zip");
  ASSERT_TRUE(fits->listFiles());
  ASSERT_TRUE(fits->unArchivePath(dir / "f"));
  EXPECT_EQ(fs::read_symlink(dir / "f/l"), std::string(4000, 'y'));
  // Even cut to 4096 bytes, the target is longer than the system takes: a clear
  // error naming the link, not a silent failure.
  auto cut = reader(dir / "long.zip");
  ASSERT_TRUE(cut->listFiles());
  EXPECT_FALSE(cut->unArchivePath(dir / "c"));
  ASSERT_TRUE(cut->archiveError());
  EXPECT_EQ(cut->archiveError()->code, kArchiveErrorCreateFile);
  EXPECT_NE(cut->archiveError()->message.find(" l"), std::string::npos);
}

TEST_F(ZipArchiveTest, DamagedEntryLeavesNoFile) {
  std::string big;
  for (int i = 0; i < 300000; ++i) big += static_cast<char>((i * 2654435761u) >> 24);
  writeFile(dir / "big.bin", big);
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
with zipfile.ZipFile('ok.zip', 'w', zipfile.ZIP_DEFLATED) as z:
    z.write('big.bin')
data = bytearray(open('ok.zip', 'rb').read())
data[2000] ^= 0xff
data[2001] ^= 0x55
open('bad.zip', 'wb').write(data)
)"));
  auto r = reader(dir / "bad.zip");
  ASSERT_TRUE(r->listFiles());
  EXPECT_FALSE(r->unArchivePath(dir / "o"));
  ASSERT_TRUE(r->archiveError());
  EXPECT_EQ(r->archiveError()->code, 5);
  EXPECT_TRUE(treeOf(dir / "o").empty());

  writeFile(dir / "garbage.zip", "PK\x03\x04 not really a zip");
  auto g = reader(dir / "garbage.zip");
  EXPECT_FALSE(g->listFiles());
  EXPECT_EQ(g->archiveError()->code, 1);
}

TEST_F(ZipArchiveTest, CancelledExtractionIsError100) {
  makeSource();
  ASSERT_TRUE(create(dir / "out.zip"));
  auto r = reader(dir / "out.zip");
  ASSERT_TRUE(r->listFiles());
  CancellationToken token;
  token.cancel();
  CurrentCancellationScope scope(token);
  EXPECT_FALSE(r->unArchivePath(dir / "c"));
  ASSERT_TRUE(r->archiveError());
  EXPECT_EQ(r->archiveError()->code, 100);
  EXPECT_EQ(r->archiveError()->domain, "ArchiveErrorDomain");
  EXPECT_TRUE(treeOf(dir / "c").empty());
}

}  // namespace
}  // namespace harbor::test

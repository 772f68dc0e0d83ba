#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>

#include "ArchiveTestUtil.h"
#include "archive/ZipBase.h"
#include "archive/zip/SSZipArchive.h"
#include "archive/zip/UZipFileArchive.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class SSZipArchiveTest : public ::testing::Test {
 protected:
  std::optional<Error> unzip(const fs::path& zip, const fs::path& dest, bool overwrite = true,
                             const std::string& password = "",
                             IActionProgress* delegate = nullptr) {
    std::optional<Error> error;
    const bool ok = SSZipArchive::unzipFileAtPath(zip.string(), dest.string(), overwrite, password,
                                                  &error, delegate, &refused);
    EXPECT_EQ(ok, !error);
    return error;
  }
  ScratchDir dir;
  std::vector<RefusedEntry> refused;
};

std::time_t localTime(int y, int mo, int d, int h, int mi, int s) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

std::time_t mtimeOf(const fs::path& p) {
  struct stat st {};
  ::stat(p.c_str(), &st);
  return st.st_mtime;
}

TEST_F(SSZipArchiveTest, NamesDatesFoldersAndProgress) {
  // Raw GB 18030 bytes with no UTF-8 flag, a backslash name, a UTF-8 name,
  // a folder entry that comes after its file, and a link.
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
gb = '中文目录/说明.txt'.encode('gb18030')
with zipfile.ZipFile('t.zip', 'w', zipfile.ZIP_DEFLATED) as z:
    i = zipfile.ZipInfo('X' * len(gb), (2001, 2, 3, 4, 5, 6))
    z.writestr(i, 'gb')
    z.writestr(zipfile.ZipInfo('win\\sub\\w.txt', (2010, 7, 8, 9, 10, 12)), 'w' * 10000)
    z.writestr('Grüße/ü.txt', 'u')
    z.writestr(zipfile.ZipInfo('late/f.txt', (2000, 1, 1, 0, 0, 0)), 'f')
    z.writestr(zipfile.ZipInfo('late/', (1999, 12, 31, 23, 59, 58)), '')
    link = zipfile.ZipInfo('late/link')
    link.create_system = 3
    link.external_attr = 0o120777 << 16
    z.writestr(link, 'f.txt')
data = open('t.zip', 'rb').read().replace(b'X' * len(gb), gb)
open('t.zip', 'wb').write(data)
)"));
  ActionProgressCounter progress;
  const fs::path out = dir / "out";
  ASSERT_FALSE(unzip(dir / "t.zip", out, true, "", &progress));
  EXPECT_EQ(readFile(out / "中文目录/说明.txt"), "gb");
  EXPECT_EQ(readFile(out / "win/sub/w.txt"), std::string(10000, 'w'));
  EXPECT_EQ(readFile(out / "Grüße/ü.txt"), "u");
  EXPECT_EQ(fs::read_symlink(out / "late/link"), "f.txt");
  // Stored DOS times (two-second steps), folders dated after their files.
  EXPECT_EQ(mtimeOf(out / "中文目录/说明.txt"), localTime(2001, 2, 3, 4, 5, 6));
  EXPECT_EQ(mtimeOf(out / "win/sub/w.txt"), localTime(2010, 7, 8, 9, 10, 12));
  EXPECT_EQ(mtimeOf(out / "late"), localTime(1999, 12, 31, 23, 59, 58));
  EXPECT_EQ(progress.currentSize(), 2u + 10000u + 1u + 1u);
  EXPECT_TRUE(refused.empty());
}

TEST_F(SSZipArchiveTest, ExistingFilesAreKeptUnlessOverwriting) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
with zipfile.ZipFile('t.zip', 'w') as z:
    z.writestr('a.txt', 'from zip')
    z.writestr('b.txt', 'new')
)"));
  writeFile(dir / "out/a.txt", "mine");
  ASSERT_FALSE(unzip(dir / "t.zip", dir / "out", false));
  EXPECT_EQ(readFile(dir / "out/a.txt"), "mine");
  EXPECT_EQ(readFile(dir / "out/b.txt"), "new");
  ASSERT_FALSE(unzip(dir / "t.zip", dir / "out", true));
  EXPECT_EQ(readFile(dir / "out/a.txt"), "from zip");
  // The short forms overwrite.
  writeFile(dir / "out/a.txt", "mine");
  EXPECT_TRUE(SSZipArchive::unzipFileAtPath((dir / "t.zip").string(), (dir / "out").string()));
  EXPECT_EQ(readFile(dir / "out/a.txt"), "from zip");
}

TEST_F(SSZipArchiveTest, FailuresNameTheirCauseAndLeaveNoFile) {
  auto missing = unzip(dir / "none.zip", dir / "o");
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->domain, "SSZipArchiveErrorDomain");
  EXPECT_EQ(missing->code, -1);
  EXPECT_EQ(missing->message, "failed to open zip file");
  writeFile(dir / "junk.zip", "PK\x05\x06 nothing like a directory");
  EXPECT_EQ(unzip(dir / "junk.zip", dir / "o")->message, "failed to open zip file");

  // Encrypted by our writer: no password, a wrong one, then the right one.
  fs::create_directories(dir / "src/top");
  writeFile(dir / "src/top/secret.txt", std::string(50000, 's'));
  ZipPropertyOptions options;
  options.password = "pw";
  auto writer = ArchiveFactory::createZipFactory({(dir / "src/top").string()}, nullptr,
                                                 (dir / "enc.zip").string(), options);
  ASSERT_TRUE(writer && dynamic_cast<UZipFileArchive&>(*writer).close());
  EXPECT_NE(unzip(dir / "enc.zip", dir / "e")->message.find("password"), std::string::npos);
  EXPECT_NE(unzip(dir / "enc.zip", dir / "e", true, "nope")->message.find("wrong password"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(dir / "e/top/secret.txt"));
  ASSERT_FALSE(unzip(dir / "enc.zip", dir / "e", true, "pw"));
  EXPECT_EQ(readFile(dir / "e/top/secret.txt"), std::string(50000, 's'));

  // A damaged entry: an error, and nothing under the file's name.
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile, random
random.seed(7)
with zipfile.ZipFile('ok.zip', 'w', zipfile.ZIP_DEFLATED) as z:
    z.writestr('big.bin', bytes(random.getrandbits(8) for _ in range(200000)))
data = bytearray(open('ok.zip', 'rb').read())
data[5000] ^= 0xff
open('bad.zip', 'wb').write(data)
)"));
  auto damaged = unzip(dir / "bad.zip", dir / "d");
  ASSERT_TRUE(damaged);
  EXPECT_EQ(damaged->message, "failed to write big.bin: CRC mismatch");
  EXPECT_TRUE(treeOf(dir / "d").empty());
}

TEST_F(SSZipArchiveTest, CancellationStopsBeforeWriting) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import zipfile
with zipfile.ZipFile('t.zip', 'w') as z:
    z.writestr('a.txt', 'a')
)"));
  CancellationToken token;
  token.cancel();
  CurrentCancellationScope scope(token);
  auto error = unzip(dir / "t.zip", dir / "c");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, 100);
  EXPECT_FALSE(fs::exists(dir / "c/a.txt"));
}

}  // namespace
}  // namespace harbor::test

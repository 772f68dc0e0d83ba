#include <gtest/gtest.h>

#include <filesystem>

#include "ArchiveTestUtil.h"
#include "archive/ZipBase.h"
#include "archive/gzip/SingleStreamArchive.h"
#include "archive/tar/UTarManager.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class TarArchiveTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    fs::create_directories(dir / "src/top/sub");
    writeFile(dir / "src/top/a.txt", "hello\n");
    std::string big(70000, 'z');
    writeFile(dir / "src/top/sub/b.bin", big);
    fs::create_symlink("a.txt", dir / "src/top/link");
    longName = "top/" + std::string(120, 'n') + ".txt";
    writeFile(dir / "src" / longName, "long");
  }
  std::string tar(const std::string& args) {
    return "cd '" + (dir / "src").string() + "' && tar " + args + " >/dev/null 2>&1";
  }
  void expectSameTree(const fs::path& out) {
    EXPECT_EQ(readFile(out / "top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
    EXPECT_EQ(readFile(out / longName), "long");
    EXPECT_EQ(fs::read_symlink(out / "top/link"), "a.txt");
  }
  ScratchDir dir;
  std::string longName;
};

TEST_F(TarArchiveTest, ReadsGnuUstarAndPaxTars) {
  for (const std::string format : {"gnu", "ustar", "pax"}) {
    const std::string name = format + ".tar";
    if (format == "ustar") {
      // ustar keeps long names in the prefix field: a folder deep enough.
      ASSERT_TRUE(run(tar("--format=ustar -cf ../" + name + " top/a.txt top/sub top/link")));
    } else {
      ASSERT_TRUE(run(tar("--format=" + format + " -cf ../" + name + " top")));
    }
    UTarManager t((dir / name).string(), nullptr, nullptr, "");
    ASSERT_TRUE(t.listFiles()) << format;
    auto a = t.rootEntry()->findPath("top/a.txt");
    ASSERT_TRUE(a) << format;
    EXPECT_EQ(a->size(), 6u);
    // Dates count from 1970 GMT.
    EXPECT_LT(std::chrono::abs(std::chrono::system_clock::now() - *a->date()),
              std::chrono::minutes(5));
    const fs::path out = dir / ("out-" + format);
    ASSERT_TRUE(t.unArchivePath(out.string())) << format;
    EXPECT_EQ(readFile(out / "top/sub/b.bin"), readFile(dir / "src/top/sub/b.bin"));
    EXPECT_EQ(fs::read_symlink(out / "top/link"), "a.txt");
    if (format != "ustar") {
      EXPECT_EQ(readFile(out / longName), "long");
      // pax records are skipped, never shown as entries.
      EXPECT_EQ(t.rootEntry()->findPath("top")->children().size(), 4u) << format;
    }
  }
}

TEST_F(TarArchiveTest, LongNameAppliesToNextEntryOnly) {
  ASSERT_TRUE(run(tar("--format=gnu -cf ../l.tar '" + longName + "' top/a.txt")));
  UTarManager t((dir / "l.tar").string(), nullptr, nullptr, "");
  ASSERT_TRUE(t.listFiles());
  EXPECT_EQ(entryPaths(t), (std::vector<std::string>{"top/", "top/a.txt", longName}));
  auto entry = t.rootEntry()->findPath(longName);
  ASSERT_TRUE(entry);
  ASSERT_TRUE(t.unArchivePath(entry.get(), (dir / "one").string()));
  EXPECT_EQ(treeOf(dir / "one"), (std::vector<std::string>{std::string(120, 'n') + ".txt"}));
}

TEST_F(TarArchiveTest, UnknownTypesAreReportedAndTruncationIsAnError) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import io, tarfile
with tarfile.open('t.tar', 'w', format=tarfile.USTAR_FORMAT) as t:
    for name in ['first.txt', 'second.txt']:
        i = tarfile.TarInfo(name); i.size = 3
        t.addfile(i, io.BytesIO(b'abc'))
data = bytearray(open('t.tar', 'rb').read())
bad = bytearray(data)
bad[1024 + 156] = ord('9')
bad[1024 + 148:1024 + 156] = b'        '
bad[1024 + 148:1024 + 155] = b'%06o\0' % sum(bad[1024:1536])
open('unknown.tar', 'wb').write(bad)
open('cut.tar', 'wb').write(data[:512 + 1])
# Many trailing zero blocks are just the end.
open('zeros.tar', 'wb').write(data + bytes(512 * 40))
)"));
  // A kind not read here is skipped and named in the report, never dropped
  // silently; what follows it still comes out.
  UTarManager unknown((dir / "unknown.tar").string(), nullptr, nullptr, "");
  EXPECT_TRUE(unknown.listFiles());
  EXPECT_EQ(entryPaths(unknown), (std::vector<std::string>{"first.txt"}));
  EXPECT_TRUE(unknown.unArchivePath((dir / "unknownout").string()));
  EXPECT_EQ(treeOf(dir / "unknownout"), (std::vector<std::string>{"first.txt"}));
  ASSERT_EQ(unknown.refusedEntries().size(), 1u);
  EXPECT_EQ(unknown.refusedEntries()[0].path, "second.txt");
  EXPECT_NE(unknown.refusedEntries()[0].reason.find("'9'"), std::string::npos);

  UTarManager cut((dir / "cut.tar").string(), nullptr, nullptr, "");
  EXPECT_FALSE(cut.listFiles());
  EXPECT_FALSE(cut.unArchivePath((dir / "cutout").string()));
  EXPECT_TRUE(treeOf(dir / "cutout").empty());

  UTarManager zeros((dir / "zeros.tar").string(), nullptr, nullptr, "");
  EXPECT_TRUE(zeros.listFiles());
  EXPECT_EQ(entryPaths(zeros), (std::vector<std::string>{"first.txt", "second.txt"}));
}

TEST_F(TarArchiveTest, HeaderChecksums) {
  ASSERT_TRUE(runPython(dir.path(), R"(
import io, tarfile
def tar(path, names):
    with tarfile.open(path, 'w', format=tarfile.USTAR_FORMAT) as t:
        for name in names:
            i = tarfile.TarInfo(name); i.size = 3
            t.addfile(i, io.BytesIO(b'abc'))
    return bytearray(open(path, 'rb').read())
def restamp(data, at, signed):
    data[at + 148:at + 156] = b'        '
    total = sum((b - 256 if signed and b > 127 else b) for b in data[at:at + 512])
    data[at + 148:at + 156] = b'%06o\0 ' % (total & 0o7777777)
data = tar('t.tar', ['first.txt', 'second.txt'])
damaged = bytearray(data)
damaged[1024 + 136] ^= 1  # one bit of the second entry's date
open('damaged.tar', 'wb').write(damaged)
# Old tars summed signed bytes; with a high byte in the name the sums differ.
old = tar('u.tar', ['\u00e9t\u00e9.txt'])
restamp(old, 0, True)
open('signed.tar', 'wb').write(old)
)"));
  UTarManager damaged((dir / "damaged.tar").string(), nullptr, nullptr, "");
  EXPECT_FALSE(damaged.listFiles());
  ASSERT_TRUE(damaged.archiveError());
  EXPECT_EQ(damaged.archiveError()->code, 4);
  EXPECT_EQ(entryPaths(damaged), (std::vector<std::string>{"first.txt"}));
  EXPECT_FALSE(damaged.unArchivePath((dir / "damaged-out").string()));
  EXPECT_EQ(damaged.archiveError()->code, 4);

  UTarManager signedSum((dir / "signed.tar").string(), nullptr, nullptr, "");
  ASSERT_TRUE(signedSum.listFiles());
  EXPECT_EQ(entryPaths(signedSum), (std::vector<std::string>{"\u00e9t\u00e9.txt"}));
}

TEST_F(TarArchiveTest, OctalAndBase256Sizes) {
  EXPECT_EQ(UTarManager::charToUnsignedLongLong("00000000012\0", 12), 10u);
  EXPECT_EQ(UTarManager::charToUnsignedLongLong("   777 \0", 8), 0777u);
  const char big[12] = {'\x80', 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_EQ(UTarManager::charToUnsignedLongLong(big, 12), 1ull << 32);
}

TEST_F(TarArchiveTest, GzipAndBzip2HoldingTars) {
  ASSERT_TRUE(run(tar("-czf ../a.tgz top")));
  ASSERT_TRUE(run(tar("-czf ../a.tar.gz top")));
  ASSERT_TRUE(run(tar("-cjf ../a.tar.bz2 top")));
  ASSERT_TRUE(run(tar("-cjf ../a.tbz top")));
  for (const std::string name : {"a.tgz", "a.tar.gz", "a.tar.bz2", "a.tbz"}) {
    auto r = ArchiveFactory::createReader((dir / name).string());
    ASSERT_TRUE(r) << name;
    ASSERT_TRUE(r->listFiles()) << name;
    EXPECT_TRUE(r->rootEntry()->findPath("top/sub/b.bin")) << name;
    const fs::path out = dir / ("out-" + name);
    ASSERT_TRUE(r->unArchivePath(out.string())) << name;
    expectSameTree(out);
  }
}

TEST_F(TarArchiveTest, PlainCompressedFilesAndConcatenatedStreams) {
  ASSERT_TRUE(run("cd '" + dir.path().string() +
                  "' && printf 'one ' | bzip2 > notes.bz2 && printf 'two' | bzip2 >> notes.bz2"
                  " && printf 'hello' | gzip > hello.gz"));
  Bz2Manager bz((dir / "notes.bz2").string(), nullptr, nullptr, "");
  ASSERT_TRUE(bz.listFiles());
  EXPECT_EQ(entryPaths(bz), (std::vector<std::string>{"notes"}));
  ASSERT_TRUE(bz.unArchivePath((dir / "o").string()));
  EXPECT_EQ(readFile(dir / "o/notes"), "one two");

  UGZipArchive gz((dir / "hello.gz").string(), nullptr, nullptr, "");
  ASSERT_TRUE(gz.listFiles());
  EXPECT_EQ(entryPaths(gz), (std::vector<std::string>{"hello"}));
  ASSERT_TRUE(gz.unArchivePath((dir / "o").string()));
  EXPECT_EQ(readFile(dir / "o/hello"), "hello");
  // A name already taken gets a free one.
  ASSERT_TRUE(gz.unArchivePath((dir / "o").string()));
  EXPECT_EQ(readFile(dir / "o/hello 2"), "hello");

  // A damaged stream leaves neither a temporary file nor an output.
  writeFile(dir / "bad.gz", std::string("\x1f\x8b\x08\x00garbage-garbage", 19));
  UGZipArchive bad((dir / "bad.gz").string(), nullptr, nullptr, "");
  EXPECT_FALSE(bad.listFiles());
  EXPECT_TRUE(bad.tempFile().empty());
}

}  // namespace
}  // namespace harbor::test

#include <gtest/gtest.h>

#include <filesystem>

#include "ArchiveTestUtil.h"
#include "SevenZipTestUtil.h"
#include "archive/7z/Archive7zWriter.h"
#include "archive/7z/U7ZArchive.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

std::string pattern(std::size_t size, unsigned seed) {
  std::string s(size, '\0');
  std::uint32_t x = seed * 2654435761u + 1;
  for (auto& c : s) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x % 7 == 0 ? x : 'a' + x % 3);
  }
  return s;
}

class SevenZipFormat : public ::testing::Test {
 protected:
  // Writes the named files (name -> content) with our writer and reads them
  // back with our reader.
  std::map<std::string, std::string> roundTrip(const std::map<std::string, std::string>& files,
                                               const std::string& password = "") {
    fs::create_directories(dir / "in");
    const std::string path = (dir / "t.7z").string();
    Archive7zWriter writer(path);
    writer.setPasswordGetter([&] { return password; });
    writer.setEncodeContent(true);
    writer.setEncodeHeader(true);
    int n = 0;
    for (const auto& [name, content] : files) {
      const fs::path p = dir / "in" / std::to_string(n++);
      writeFile(p, content);
      EXPECT_TRUE(writer.addPath(p.string(), name));
    }
    EXPECT_TRUE(writer.write());
    U7ZArchive reader(path, nullptr, nullptr, password);
    EXPECT_TRUE(reader.listFiles());
    const fs::path out = dir / "out";
    fs::remove_all(out);
    EXPECT_TRUE(reader.unArchivePath(out.string()));
    std::map<std::string, std::string> back;
    for (const auto& p : pathsBelow(out))
      if (fs::is_regular_file(out / p)) back[p] = readFile(out / p);
    return back;
  }
  ScratchDir dir;
};

TEST_F(SevenZipFormat, SizesAcrossEveryNumberWidth) {
  // Sizes on both sides of each width of the header's variable-length
  // numbers, in one solid folder, so every substream boundary must be right.
  std::map<std::string, std::string> files;
  int n = 0;
  for (std::size_t size : {1ul, 127ul, 128ul, 16383ul, 16384ul, 65537ul}) {
    files["f" + std::to_string(n) + ".bin"] = pattern(size, static_cast<unsigned>(n));
    ++n;
  }
  EXPECT_EQ(roundTrip(files), files);
  EXPECT_EQ(roundTrip(files, "pw"), files);
}

TEST_F(SevenZipFormat, ManyFilesAndLongNames) {
  std::map<std::string, std::string> files;
  const std::string longName(200, 'n');
  for (int i = 0; i < 300; ++i)
    files["d" + std::to_string(i % 7) + "/" + longName + std::to_string(i)] = pattern(i * 3, i);
  files["d0/empty"] = "";
  EXPECT_EQ(roundTrip(files), files);
}

TEST_F(SevenZipFormat, HiddenNamesAreNeitherListedNorExtracted) {
  const auto back = roundTrip({{"a.txt", "a"},
                               {"__MACOSX/a.txt", "mac"},
                               {"sub/.DS_Store", "ds"},
                               {"sub/Thumbs.db", "th"},
                               {"sub/b.txt", "b"}});
  EXPECT_EQ(back, (std::map<std::string, std::string>{{"a.txt", "a"}, {"sub/b.txt", "b"}}));
}

TEST_F(SevenZipFormat, AnArchiveWithNothingInIt) {
  for (const std::string password : {"", "pw"}) {
    const std::string path = (dir / "empty.7z").string();
    Archive7zWriter writer(path);
    writer.setPasswordGetter([&] { return password; });
    writer.setEncodeHeader(true);
    ASSERT_TRUE(writer.write());
    U7ZArchive reader(path, nullptr, nullptr, password);
    EXPECT_TRUE(reader.listFiles());
    EXPECT_FALSE(reader.archiveError());
    EXPECT_TRUE(reader.rootEntry()->children().empty());
    if (haveTool("7zz")) {
      EXPECT_TRUE(run("7zz t -p'" + password + "' '" + path + "' >/dev/null 2>&1"));
    }
  }
}

TEST_F(SevenZipFormat, EveryBranchFilterThePeerWrites) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz not installed";
  fs::create_directories(dir / "src");
  fs::copy_file("/bin/ls", dir / "src/tool");
  writeFile(dir / "src/text", pattern(100000, 3));
  for (const std::string filter : {"ARM", "ARMT", "ARM64", "PPC", "SPARC", "IA64", "Delta:4"}) {
    for (const std::string method : {"LZMA2", "LZMA", "Copy"}) {
      SCOPED_TRACE(filter + " on " + method);
      const std::string name = "f.7z";
      fs::remove(dir / name);
      ASSERT_TRUE(run("cd '" + dir.path().string() + "' && 7zz a -t7z -m0=" + method +
                      " -mf=" + filter + " " + name + " src >/dev/null 2>&1"));
      U7ZArchive reader((dir / name).string(), nullptr, nullptr, "");
      ASSERT_TRUE(reader.listFiles());
      const fs::path out = dir / "out";
      fs::remove_all(out);
      ASSERT_TRUE(reader.unArchivePath(out.string()))
          << (reader.archiveError() ? reader.archiveError()->message : "");
      EXPECT_EQ(readFile(out / "src/tool"), readFile(dir / "src/tool"));
      EXPECT_EQ(readFile(out / "src/text"), readFile(dir / "src/text"));
    }
  }
}

TEST_F(SevenZipFormat, HandMadeStoredArchiveWithChecks) {
  // A stored file with its check in the substreams: right data extracts,
  // a wrong check leaves nothing.
  const std::vector<std::uint8_t> data = {'h', 'e', 'l', 'l', 'o'};
  for (const bool good : {true, false}) {
    Bytes7z sub;
    sub.byte(0x08).byte(0x0A).byte(1).u32(good ? crcOf(data) : crcOf(data) ^ 1).byte(0x00);
    const auto header = oneFileHeader("hello.txt", data.size(), data.size(), {0x00}, {}, sub.b);
    writeFile(dir / "h.7z", archive7z(data, header));
    U7ZArchive reader((dir / "h.7z").string(), nullptr, nullptr, "");
    ASSERT_TRUE(reader.listFiles());
    ASSERT_EQ(entryPaths(reader), std::vector<std::string>{"hello.txt"});
    const fs::path out = dir / (good ? "good" : "bad");
    EXPECT_EQ(reader.unArchivePath(out.string()), good);
    EXPECT_EQ(fs::exists(out / "hello.txt"), good);
    if (good) {
      EXPECT_EQ(readFile(out / "hello.txt"), "hello");
    }
  }
}

}  // namespace
}  // namespace harbor::test

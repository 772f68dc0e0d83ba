#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "ArchiveTestUtil.h"
#include "SevenZipTestUtil.h"
#include "archive/7z/Archive7zWriter.h"
#include "archive/7z/SevenZipFormat.h"
#include "archive/7z/U7ZArchive.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class SevenZipSecurity : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dest); }
  // Lists and extracts; answers whether extraction succeeded.
  bool extract(const std::string& bytes, const std::string& password = "") {
    const fs::path path = dir / "crafted.7z";
    writeFile(path, bytes);
    reader = std::make_unique<U7ZArchive>(path.string(), nullptr, nullptr, password);
    reader->listFiles();
    return reader->unArchivePath(dest.string());
  }
  std::vector<std::string> outside() {
    std::vector<std::string> out;
    for (const auto& p : pathsBelow(dir.path()))
      if (!p.starts_with("a/b/dest") && p != "a" && p != "a/b" &&
          p.find(".7z") == std::string::npos && p != "src" && !p.starts_with("src/"))
        out.push_back(p);
    return out;
  }
  ScratchDir dir;
  fs::path dest = dir / "a/b/dest";
  std::unique_ptr<U7ZArchive> reader;
};

TEST_F(SevenZipSecurity, NamesThatLeaveTheDestinationAreRefused) {
  fs::create_directories(dir / "src");
  writeFile(dir / "src/f", "evil");
  writeFile(dir / "src/inner", "inside");
  fs::create_symlink("../..", dir / "src/up");
  fs::create_symlink("/tmp", dir / "src/abs");
  fs::create_symlink("inner.txt", dir / "src/ok");
  fs::remove("/tmp/harbor-7z-abs-evil.txt");
  const std::string path = (dir / "evil.7z").string();
  Archive7zWriter writer(path);
  ASSERT_TRUE(writer.open(nullptr));
  const std::string f = (dir / "src/f").string();
  writer.addPath((dir / "src/inner").string(), "inner.txt");
  for (const char* name :
       {"../evil1.txt", "a/../../evil2.txt", "/tmp/harbor-7z-abs-evil.txt", "..\\evil4.txt"})
    writer.addPath(f, name);
  writer.addPath((dir / "src/up").string(), "lnk");
  writer.addPath((dir / "src/abs").string(), "abslink");
  writer.addPath((dir / "src/ok").string(), "ok");
  writer.addPath(f, "lnk/evil3.txt");
  ASSERT_TRUE(writer.write());

  for (bool whole : {true, false}) {
    U7ZArchive archive(path, nullptr, nullptr, "");
    ASSERT_TRUE(archive.listFiles());
    if (whole) {
      EXPECT_TRUE(archive.unArchivePath(dest.string()));
    } else {
      for (const auto& child : archive.rootEntry()->children())
        archive.unArchivePath(child.get(), dest.string());
    }
    EXPECT_EQ(outside(), std::vector<std::string>{});
    EXPECT_FALSE(fs::exists("/tmp/harbor-7z-abs-evil.txt"));
    EXPECT_EQ(readFile(dest / "inner.txt"), "inside");
    EXPECT_FALSE(fs::is_symlink(dest / "lnk"));
    EXPECT_FALSE(fs::is_symlink(dest / "abslink"));
    EXPECT_EQ(fs::read_symlink(dest / "ok"), "inner.txt");
  }
}

TEST_F(SevenZipSecurity, DamageNeverCrashesAndLeavesNoDamagedFile) {
  // One file's bytes behind a checked header: every cut and every flipped
  // byte must fail cleanly or give the original.
  fs::create_directories(dir / "src");
  std::string text;
  for (int i = 0; i < 300; ++i) text += "row " + std::to_string(i) + "\n";
  writeFile(dir / "src/t.txt", text);
  const std::string path = (dir / "good.7z").string();
  for (const std::string password : {"", "pw"}) {
    Archive7zWriter writer(path);
    writer.setPasswordGetter([&] { return password; });
    writer.setEncodeContent(true);
    ASSERT_TRUE(writer.addPath((dir / "src/t.txt").string(), "t.txt"));
    ASSERT_TRUE(writer.write());
    const std::string good = readFile(path);
    for (std::size_t cut = 0; cut < good.size(); cut += 3) {
      fs::remove_all(dest);
      EXPECT_FALSE(extract(good.substr(0, cut), password)) << cut;
      EXPECT_FALSE(fs::exists(dest / "t.txt")) << cut;
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
      std::string bad = good;
      bad[at] = static_cast<char>(bad[at] ^ 0x41);
      fs::remove_all(dest);
      if (extract(bad, password)) {
        EXPECT_EQ(readFile(dest / "t.txt"), text) << at;
      } else {
        EXPECT_FALSE(fs::exists(dest / "t.txt")) << at;
      }
    }
  }
}

TEST_F(SevenZipSecurity, DeclaredSizesDoNotDriveAllocation) {
  // A header claiming to be 2^62 bytes.
  Bytes7z start;
  start.u64(0).u64(std::uint64_t{1} << 62).u32(0);
  Bytes7z huge;
  huge.bytes({'7', 'z', 0xBC, 0xAF, 0x27, 0x1C, 0, 4}).u32(crcOf(start.b)).bytes(start.b);
  EXPECT_FALSE(extract(std::string(huge.b.begin(), huge.b.end())));

  // Ten stored bytes declared as 2^60.
  const std::vector<std::uint8_t> data(10, 'x');
  EXPECT_FALSE(
      extract(archive7z(data, oneFileHeader("big.bin", 10, std::uint64_t{1} << 60, {0x00}))));
  EXPECT_FALSE(fs::exists(dest / "big.bin"));

  // Counts far beyond the header's bytes are refused before anything is made.
  for (std::uint8_t section : {0x05 /* files */}) {
    Bytes7z h;
    h.byte(0x01).byte(section).num(std::uint64_t{1} << 40).byte(0);
    sevenzip::Database db;
    sevenzip::StreamsInfo enc;
    bool isEncoded = false;
    std::string why;
    EXPECT_FALSE(sevenzip::parseHeader(h.b.data(), h.b.size(), db, enc, isEncoded, why));
  }
  Bytes7z folders;
  folders.byte(0x01).byte(0x04).byte(0x07).byte(0x0B).num(std::uint64_t{1} << 50).byte(0);
  sevenzip::Database db;
  sevenzip::StreamsInfo enc;
  bool isEncoded = false;
  std::string why;
  EXPECT_FALSE(sevenzip::parseHeader(folders.b.data(), folders.b.size(), db, enc, isEncoded, why));

  // The same archive under a small address-space limit: a clean failure.
  // (An address-sanitized program reserves terabytes of shadow memory and
  // cannot start under such a limit; the check belongs to ordinary builds.)
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "address space limits do not apply to sanitized builds";
#endif
  writeFile(dir / "big.7z",
            archive7z(data, oneFileHeader("big.bin", 10, std::uint64_t{1} << 60, {0x00})));
  const std::string cmd = "ulimit -v 400000; '" + std::string(HARBOR_BINARY_DIR) +
                          "/harbor' archive extract '" + (dir / "big.7z").string() + "' '" +
                          (dir / "lim").string() + "' >/dev/null 2>&1";
  EXPECT_EQ(WEXITSTATUS(std::system(("sh -c \"" + cmd + "\"").c_str())), 1);
}

TEST_F(SevenZipSecurity, ExcessiveKeyDerivationIsRefusedAtOnce) {
  // AES with a cost of 2^63 rounds (power 63, IV present).
  std::vector<std::uint8_t> props = {0x3F | 0x40, 0x0F};
  props.resize(18, 0);
  const std::vector<std::uint8_t> data(16, 0);
  const auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(
      extract(archive7z(data, oneFileHeader("x.bin", 16, 16, {0x06, 0xF1, 0x07, 0x01}, props)),
              "password"));
  EXPECT_FALSE(fs::exists(dest / "x.bin"));
  ASSERT_TRUE(reader->archiveError());
  EXPECT_NE(reader->archiveError()->message.find("cost"), std::string::npos)
      << reader->archiveError()->message;
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
}

TEST_F(SevenZipSecurity, BrokenCoderGraphsAreRefused) {
  // Two stored coders where the second feeds itself: not a chain.
  Bytes7z h;
  h.byte(0x01).byte(0x04);
  h.byte(0x06).num(0).num(1).byte(0x09).num(4).byte(0x00);
  h.byte(0x07).byte(0x0B).num(1).byte(0).num(2).byte(0x01).byte(0x00).byte(0x01).byte(0x00);
  h.num(1).num(1);  // in 1 <- out 1
  h.byte(0x0C).num(4).num(4).byte(0x00).byte(0x00);
  Bytes7z names;
  names.byte(0).name("loop.bin");
  h.byte(0x05).num(1).byte(0x11).num(names.b.size()).bytes(names.b).byte(0).byte(0);
  EXPECT_FALSE(extract(archive7z({1, 2, 3, 4}, h.b)));
  EXPECT_FALSE(fs::exists(dest / "loop.bin"));
}

TEST_F(SevenZipSecurity, NamesMustBeProperText) {
  auto parse = [](const std::vector<std::uint8_t>& nameBytes) {
    Bytes7z h;
    h.byte(0x01).byte(0x05).num(1).byte(0x0E).num(1).byte(0x80);
    h.byte(0x11).num(nameBytes.size() + 1).byte(0).bytes(nameBytes).byte(0);
    h.byte(0);
    sevenzip::Database db;
    sevenzip::StreamsInfo enc;
    bool isEncoded = false;
    std::string why;
    return sevenzip::parseHeader(h.b.data(), h.b.size(), db, enc, isEncoded, why);
  };
  EXPECT_TRUE(parse({'a', 0, 0, 0}));
  EXPECT_FALSE(parse({'a', 0, 0x00, 0xD8, 0, 0}));    // lone high surrogate
  EXPECT_FALSE(parse({0x00, 0xDC, 0, 0}));            // lone low surrogate
  EXPECT_FALSE(parse({'a', 0, 0, 0, 'b', 0, 0, 0}));  // a NUL inside: two names for one file
  Bytes7z external;
  external.byte(0x01).byte(0x05).num(1).byte(0x11).num(2).byte(1).byte(0).byte(0);
  sevenzip::Database db;
  sevenzip::StreamsInfo enc;
  bool isEncoded = false;
  std::string why;
  EXPECT_FALSE(
      sevenzip::parseHeader(external.b.data(), external.b.size(), db, enc, isEncoded, why));
}

}  // namespace
}  // namespace harbor::test

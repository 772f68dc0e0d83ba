#include <gtest/gtest.h>

#include <filesystem>

#include "ArchiveTestUtil.h"
#include "archive/rar/URarArchive.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

// RAR cannot be made here: small stored archives are written byte by byte
// from the format's public description, RAR 4 and RAR 5, plus one with
// enciphered headers and one with an enciphered file.
constexpr const char* kMakeRar = R"(
import struct, zlib, time
files = [('docs/readme.txt', b'hello rar\n'), ('docs/sub/data.bin', bytes(range(256)) * 4)]

def rar4(path, file_flags=0x8000):
    out = bytearray(b'Rar!\x1a\x07\x00')
    def block(htype, flags, body, data=b''):
        size = 7 + len(body)
        head = struct.pack('<BHH', htype, flags, size) + body
        crc = zlib.crc32(head) & 0xffff
        return struct.pack('<H', crc) + head + data
    out += block(0x73, 0, b'\x00' * 6)
    for name, data in files:
        n = name.replace('/', '\\').encode()
        dostime = (2024 - 1980) << 25 | 5 << 21 | 17 << 16 | 12 << 11 | 30 << 5
        body = struct.pack('<IIBIIBBHI', len(data), len(data), 2, zlib.crc32(data), dostime,
                           20, 0x30, len(n), 0x20) + n
        out += block(0x74, file_flags, body, data)
    out += block(0x7b, 0x4000, b'')
    open(path, 'wb').write(out)

def vint(v):
    b = bytearray()
    while True:
        c = v & 0x7f
        v >>= 7
        if v:
            b.append(c | 0x80)
        else:
            b.append(c)
            return bytes(b)

def rar5block(fields, data=b''):
    size = vint(len(fields))
    return struct.pack('<I', zlib.crc32(size + fields)) + size + fields + data

def rar5(path, encrypted_headers=False):
    out = bytearray(b'Rar!\x1a\x07\x01\x00')
    if encrypted_headers:
        # Archive encryption header: version 0, flags 1 (check present), KDF 15, salt, check.
        out += rar5block(vint(4) + vint(0) + vint(0) + vint(1) + bytes([15]) + b'S' * 16 + b'C' * 12)
        out += b'\x55' * 64  # headers would follow enciphered
        open(path, 'wb').write(out)
        return
    out += rar5block(vint(1) + vint(0) + vint(0))
    for name, data in files:
        n = name.encode()
        fields = (vint(2) + vint(0x0002) + vint(len(data)) + vint(0x0002 | 0x0004) +
                  vint(len(data)) + vint(0o644) + struct.pack('<I', 1700000000) +
                  struct.pack('<I', zlib.crc32(data)) + vint(0) + vint(1) + vint(len(n)) + n)
        out += rar5block(fields, data)
    out += rar5block(vint(5) + vint(0) + vint(0))
    open(path, 'wb').write(out)

rar4('four.rar')
rar5('five.rar')
rar5('locked.rar', True)
rar4('locked4.rar', 0x8004)
)";

class RarArchiveTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(runPython(dir.path(), kMakeRar)); }
  ScratchDir dir;
};

TEST_F(RarArchiveTest, ListsAndExtractsRar4AndRar5) {
  for (const std::string name : {"four.rar", "five.rar"}) {
    URarArchive rar((dir / name).string(), nullptr, nullptr, "");
    ASSERT_TRUE(rar.listFiles()) << name << " " << rar.archiveError()->message;
    // Backslashes of RAR 4 names become folders.
    EXPECT_EQ(entryPaths(rar), (std::vector<std::string>{"docs/", "docs/readme.txt", "docs/sub/",
                                                         "docs/sub/data.bin"}))
        << name;
    EXPECT_FALSE(rar.isEncrypted());
    EXPECT_EQ(rar.rootEntry()->findPath("docs/sub/data.bin")->size(), 1024u);
    const fs::path out = dir / ("out-" + name);
    ASSERT_TRUE(rar.unArchivePath(out.string())) << name;
    EXPECT_EQ(readFile(out / "docs/readme.txt"), "hello rar\n");
    EXPECT_EQ(fs::file_size(out / "docs/sub/data.bin"), 1024u);

    auto sub = rar.rootEntry()->findPath("docs/sub/");
    ASSERT_TRUE(rar.unArchivePath(sub.get(), (dir / ("sub-" + name)).string()));
    EXPECT_EQ(treeOf(dir / ("sub-" + name)), (std::vector<std::string>{"sub", "sub/data.bin"}));
  }
}

TEST_F(RarArchiveTest, EncryptedArchivesGiveAClearError) {
  URarArchive locked((dir / "locked.rar").string(), nullptr, nullptr, "");
  EXPECT_FALSE(locked.listFiles());
  EXPECT_TRUE(locked.isEncryptedFileName());
  EXPECT_TRUE(locked.isPasswordFailure());
  EXPECT_NE(locked.archiveError()->message.find("encrypted"), std::string::npos);

  URarArchive data((dir / "locked4.rar").string(), nullptr, nullptr, "pw");
  ASSERT_TRUE(data.listFiles());
  EXPECT_TRUE(data.isEncrypted());
  EXPECT_FALSE(data.unArchivePath((dir / "out").string()));
  EXPECT_TRUE(data.isPasswordFailure());
  EXPECT_NE(data.archiveError()->message.find("encrypted"), std::string::npos);
  for (const auto& p : treeOf(dir / "out")) EXPECT_TRUE(fs::is_directory(dir / "out" / p)) << p;
}

TEST(RarNames, PartsOfMultiVolumeSets) {
  EXPECT_TRUE(URarArchive::isRarPart("/x/a.part2.rar"));
  EXPECT_TRUE(URarArchive::isRarPart("a.Part01.rar"));
  EXPECT_FALSE(URarArchive::isRarPart("a.rar"));
}

}  // namespace
}  // namespace harbor::test

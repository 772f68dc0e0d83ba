#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "ArchiveTestUtil.h"
#include "archive/tar/UTarManager.h"
#include "archive/zip/SSZipArchive.h"
#include "archive/zip/UZipArchive.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

// Entries that try to leave the destination, in both formats: "..", absolute
// names, backslashes, links pointing out, and a file written through such a
// link. The destination sits two levels deep so that escapes land in the
// scratch folder, where they would be seen.
constexpr const char* kCorpus = R"(
import io, tarfile, zipfile, time
bad = ['../evil1.txt', 'a/../../evil2.txt', '/tmp/harbor-archive-abs-evil.txt', '..\\evil4.txt']
links = [('lnk', '../..'), ('abslink', '/tmp'), ('ok', 'inner.txt')]
through = ['lnk/evil3.txt', 'abslink/harbor-archive-evil5.txt']

with zipfile.ZipFile('corpus.zip', 'w') as z:
    z.writestr('inner.txt', 'inside')
    for n in bad:
        z.writestr(zipfile.ZipInfo(n), 'evil')
    for name, target in links:
        info = zipfile.ZipInfo(name)
        info.create_system = 3
        info.external_attr = 0o120777 << 16
        z.writestr(info, target)
    for n in through:
        z.writestr(n, 'evil')

with tarfile.open('corpus.tar', 'w', format=tarfile.GNU_FORMAT) as t:
    def add(name, data=b'evil'):
        info = tarfile.TarInfo(name)
        info.size = len(data)
        info.mtime = time.time()
        t.addfile(info, io.BytesIO(data))
    add('inner.txt', b'inside')
    for n in bad:
        add(n)
    for name, target in links:
        info = tarfile.TarInfo(name)
        info.type = tarfile.SYMTYPE
        info.linkname = target
        t.addfile(info)
    for n in through:
        add(n)
)";

class TraversalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove("/tmp/harbor-archive-abs-evil.txt");
    fs::remove("/tmp/harbor-archive-evil5.txt");
    ASSERT_TRUE(runPython(dir.path(), kCorpus));
    fs::create_directories(dest);
  }
  void expectNothingOutside(const IArchive& archive) {
    expectNothingOutside(archive.refusedEntries());
  }
  void expectNothingOutside(const std::vector<RefusedEntry>& refusedEntries) {
    std::vector<std::string> outside;
    for (const auto& p : treeOf(dir.path()))
      if (!p.starts_with("a/b/dest/")) outside.push_back(p);
    EXPECT_EQ(outside, (std::vector<std::string>{"a", "a/b", "a/b/dest", "corpus.tar", "corpus.zip",
                                                 "make.py"}));
    EXPECT_FALSE(fs::exists("/tmp/harbor-archive-abs-evil.txt"));
    EXPECT_FALSE(fs::exists("/tmp/harbor-archive-evil5.txt"));
    // What stayed inside was written; what tried to leave was reported.
    EXPECT_EQ(readFile(dest / "inner.txt"), "inside");
    EXPECT_EQ(fs::read_symlink(dest / "ok"), "inner.txt");
    // The refused links are not made; files meant to go through them land in
    // plain folders of those names.
    EXPECT_FALSE(fs::is_symlink(dest / "lnk"));
    EXPECT_FALSE(fs::is_symlink(dest / "abslink"));
    std::vector<std::string> refused;
    for (const auto& r : refusedEntries) refused.push_back(r.path);
    for (const char* name : {"../evil1.txt", "a/../../evil2.txt", "lnk", "abslink"})
      EXPECT_NE(std::find(refused.begin(), refused.end(), name), refused.end()) << name;
  }
  ScratchDir dir;
  fs::path dest = dir / "a/b/dest";
};

TEST_F(TraversalTest, ZipNeverWritesOutside) {
  UZipArchive zip((dir / "corpus.zip").string(), nullptr, nullptr, "");
  ASSERT_TRUE(zip.listFiles());
  EXPECT_TRUE(zip.unArchivePath(dest.string()));
  expectNothingOutside(zip);
}

TEST_F(TraversalTest, OneCallZipExtractorNeverWritesOutside) {
  std::vector<RefusedEntry> refused;
  std::optional<Error> error;
  EXPECT_TRUE(SSZipArchive::unzipFileAtPath((dir / "corpus.zip").string(), dest.string(), true, "",
                                            &error, nullptr, &refused));
  expectNothingOutside(refused);
}

TEST_F(TraversalTest, TarNeverWritesOutside) {
  UTarManager tar((dir / "corpus.tar").string(), nullptr, nullptr, "");
  ASSERT_TRUE(tar.listFiles());
  EXPECT_TRUE(tar.unArchivePath(dest.string()));
  expectNothingOutside(tar);
}

TEST_F(TraversalTest, LinkMadeBeforeExtractionIsNotFollowed) {
  // A link already in the destination is as dangerous as one from the archive.
  fs::create_directory_symlink(dir / "a", dest / "lnk");
  UZipArchive zip((dir / "corpus.zip").string(), nullptr, nullptr, "");
  ASSERT_TRUE(zip.listFiles());
  EXPECT_TRUE(zip.unArchivePath(dest.string()));
  EXPECT_FALSE(fs::exists(dir / "a/evil3.txt"));
}

// Stored modes come out without setuid/setgid/sticky and masked by the
// umask: an archive cannot make a world-writable or set-id file.
constexpr const char* kModes = R"(
import io, tarfile, zipfile
modes = {'wide': 0o777, 'setid': 0o4755, 'plain': 0o644, 'open': 0o666, 'ro': 0o444}
with tarfile.open('modes.tar', 'w') as t:
    for name, mode in modes.items():
        info = tarfile.TarInfo(name)
        info.size = 1
        info.mode = mode
        t.addfile(info, io.BytesIO(b'x'))
with zipfile.ZipFile('modes.zip', 'w') as z:
    for name, mode in modes.items():
        info = zipfile.ZipInfo(name)
        info.create_system = 3
        info.external_attr = (0o100000 | mode) << 16
        z.writestr(info, 'x')
)";

void expectMaskedModes(const fs::path& out) {
  EXPECT_EQ(modeOf(out / "wide"), 0755u);
  EXPECT_EQ(modeOf(out / "setid"), 0755u);
  EXPECT_EQ(modeOf(out / "plain"), 0644u);
  EXPECT_EQ(modeOf(out / "open"), 0644u);
  EXPECT_EQ(modeOf(out / "ro"), 0444u);
}

TEST(ExtractedModes, StoredModesAreMaskedAndStripped) {
  ScopedUmask mask(022);
  ScratchDir dir;
  ASSERT_TRUE(runPython(dir.path(), kModes));
  {
    SCOPED_TRACE("tar");
    UTarManager tar((dir / "modes.tar").string(), nullptr, nullptr, "");
    ASSERT_TRUE(tar.unArchivePath((dir / "tar").string()));
    expectMaskedModes(dir / "tar");
  }
  {
    SCOPED_TRACE("zip");
    UZipArchive zip((dir / "modes.zip").string(), nullptr, nullptr, "");
    ASSERT_TRUE(zip.listFiles());
    ASSERT_TRUE(zip.unArchivePath((dir / "zip").string()));
    expectMaskedModes(dir / "zip");
  }
  {
    SCOPED_TRACE("one-call zip");
    std::optional<Error> error;
    ASSERT_TRUE(SSZipArchive::unzipFileAtPath((dir / "modes.zip").string(),
                                              (dir / "sszip").string(), true, "", &error, nullptr));
    expectMaskedModes(dir / "sszip");
  }
}

}  // namespace
}  // namespace harbor::test

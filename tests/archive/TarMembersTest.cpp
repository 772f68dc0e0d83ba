// Tar members beyond plain files: hard links, pax records and GNU long
// links, and kinds not extracted, which are reported rather than dropped.
// Each archive is made by GNU tar or Python's tarfile and checked against
// what GNU tar itself extracts.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ArchiveTestUtil.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::run;
using test::runHarbor;

class TarMembers : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    src_ = dir_ / "src";
    fs::create_directories(src_ / "sub");
    test::writeFile(src_ / "a.txt", std::string(5000, 'a'));
    fs::create_hard_link(src_ / "a.txt", src_ / "sub" / "hard.txt");
    const std::string longName(120, 'n');
    fs::create_directories(src_ / "deep" / longName);
    test::writeFile(src_ / "deep" / longName / "file.txt", "long");
    fs::create_symlink("../deep/" + longName + "/file.txt", src_ / "sub" / "far-link");
  }
  // Extracts with harbor and with GNU tar; the trees must match byte for byte.
  void expectSameAsTar(const fs::path& archive) {
    const fs::path ours = dir_ / (archive.stem().string() + "-ours");
    const fs::path theirs = dir_ / (archive.stem().string() + "-tar");
    auto r = runHarbor({"archive", "extract", archive.string(), ours.string()});
    ASSERT_EQ(r.code, 0) << r.err;
    fs::create_directories(theirs);
    ASSERT_TRUE(run("tar xf '" + archive.string() + "' -C '" + theirs.string() + "'"));
    EXPECT_TRUE(run("diff -r --no-dereference '" + ours.string() + "' '" + theirs.string() + "'"));
  }
  test::ScratchDir dir_;
  fs::path src_;
};

TEST_F(TarMembers, EveryGnuFormatExtractsAsTarDoes) {
  for (const std::string format : {"gnu", "pax", "ustar", "v7"}) {
    SCOPED_TRACE(format);
    const fs::path archive = dir_ / (format + ".tar");
    // v7 and ustar cannot hold the long name; those archives skip it.
    const std::string what = format == "gnu" || format == "pax" ? "." : "a.txt sub/hard.txt";
    ASSERT_TRUE(run("cd '" + src_.string() + "' && tar --format=" + format + " -cf '" +
                    archive.string() + "' " + what + " 2>/dev/null"));
    expectSameAsTar(archive);
    const fs::path hard = dir_ / (format + "-ours") / "sub" / "hard.txt";
    ASSERT_TRUE(fs::exists(hard));
    EXPECT_EQ(test::readFile(hard), std::string(5000, 'a'));
    EXPECT_EQ(fs::hard_link_count(hard), 2u) << "a hard link, not a copy, where it can be";

    auto list = runHarbor({"archive", "list", archive.string(), "--json"});
    ASSERT_EQ(list.code, 0) << list.err;
    bool hardListed = false;
    const auto listing = nlohmann::json::parse(list.out);
    for (const auto& e : listing["entries"]) {
      const std::string path = e["path"];
      if (path == "sub/hard.txt" || path == "./sub/hard.txt") {
        hardListed = true;
        EXPECT_EQ(e["size"], 5000) << "the target's size";
      }
    }
    EXPECT_TRUE(hardListed) << list.out;
  }
}

TEST_F(TarMembers, PaxRecordsGiveSizeTimeAndNames) {
  // The real size only in a pax record (the header says 0), a fractional
  // time, and a global record.
  ASSERT_TRUE(test::runPython(dir_.path(), R"(
import io, tarfile
body = b'x' * 3000
with tarfile.open('p.tar', 'w', format=tarfile.PAX_FORMAT) as t:
    i = tarfile.TarInfo('sized.bin'); i.size = len(body); i.mtime = 1234567890
    i.pax_headers = {'size': str(len(body)), 'mtime': '1234567890.75'}
    t.addfile(i, io.BytesIO(body))
    j = tarfile.TarInfo('after.txt'); j.size = 2
    t.addfile(j, io.BytesIO(b'ok'))
data = bytearray(open('p.tar', 'rb').read())
# Find sized.bin's own header (after its pax header) and zero its size field.
at = data.find(b'sized.bin', 512)
at -= at % 512
data[at + 124:at + 136] = b'0' * 11 + b'\0'
data[at + 148:at + 156] = b' ' * 8
data[at + 148:at + 155] = b'%06o\0' % sum(data[at:at + 512])
open('p.tar', 'wb').write(data)
)"));
  const fs::path out = dir_ / "pout";
  auto r = runHarbor({"archive", "extract", (dir_ / "p.tar").string(), out.string()});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(test::readFile(out / "sized.bin"), std::string(3000, 'x'));
  EXPECT_EQ(test::readFile(out / "after.txt"), "ok");
  struct stat st {};
  ASSERT_EQ(::stat((out / "sized.bin").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, 1234567890);
}

TEST_F(TarMembers, KindsNotExtractedAreNamedAndTheRestComesOut) {
  ASSERT_TRUE(run("cd '" + src_.string() + "' && mkfifo pipe && tar -cf '" +
                  (dir_ / "odd.tar").string() + "' pipe a.txt"));
  const fs::path out = dir_ / "oddout";
  auto r = runHarbor({"archive", "extract", (dir_ / "odd.tar").string(), out.string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("pipe: a named pipe is not extracted"), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(out / "a.txt"), std::string(5000, 'a'));
}

// Allocated bytes of a file: holes take none.
std::uint64_t allocated(const fs::path& p) {
  struct stat st {};
  return ::stat(p.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_blocks) * 512 : ~0ull;
}

TEST_F(TarMembers, SparseFilesExpandWithTheirHolesInEveryFormat) {
  // 8 MiB with three stretches of data, the last at the very end.
  const fs::path holes = src_ / "holes.bin";
  ASSERT_TRUE(run("cd '" + src_.string() +
                  "' && truncate -s 8M holes.bin && "
                  "printf start | dd of=holes.bin conv=notrunc status=none && "
                  "printf middle | dd of=holes.bin bs=1 seek=3000000 conv=notrunc status=none && "
                  "printf end | dd of=holes.bin bs=1 seek=8388605 conv=notrunc status=none"));
  if (allocated(holes) > 1024 * 1024) GTEST_SKIP() << "this file system keeps no holes";
  for (const std::string how :
       {"--format=gnu", "--format=pax --sparse-version=0.0", "--format=pax --sparse-version=0.1",
        "--format=pax --sparse-version=1.0"}) {
    SCOPED_TRACE(how);
    const fs::path archive = dir_ / "sparse.tar";
    fs::remove(archive);
    ASSERT_TRUE(run("cd '" + src_.string() + "' && tar " + how + " --sparse -cf '" +
                    archive.string() + "' holes.bin a.txt"));
    auto list = runHarbor({"archive", "list", archive.string(), "--json"});
    ASSERT_EQ(list.code, 0) << list.err;
    bool listed = false;
    const auto listing = nlohmann::json::parse(list.out);
    for (const auto& e : listing["entries"]) {
      if (e["path"] == "holes.bin") {
        listed = true;
        EXPECT_EQ(e["size"], 8u << 20);
      }
    }
    EXPECT_TRUE(listed) << list.out;
    const fs::path out = dir_ / "sparse-out";
    fs::remove_all(out);
    auto r = runHarbor({"archive", "extract", archive.string(), out.string()});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(run("cmp '" + holes.string() + "' '" + (out / "holes.bin").string() + "'"));
    EXPECT_LT(allocated(out / "holes.bin"), 1024u * 1024) << "holes stay holes";
    EXPECT_EQ(test::readFile(out / "a.txt"), std::string(5000, 'a'));
  }
  // A map that promises more data than the member holds is damage.
  ASSERT_TRUE(run("cd '" + src_.string() + "' && tar --format=gnu --sparse -cf '" +
                  (dir_ / "bad.tar").string() + "' holes.bin"));
  std::string bytes = test::readFile(dir_ / "bad.tar");
  // The first piece's length field (offset 386 + 12) grows by one.
  std::string field = bytes.substr(398, 11);
  const unsigned long grown = std::stoul(field, nullptr, 8) + 1;
  char text[12];
  std::snprintf(text, sizeof text, "%011lo", grown);
  bytes.replace(398, 11, text);
  unsigned sum = 0;
  for (int i = 0; i < 512; ++i)
    sum += (i >= 148 && i < 156) ? ' ' : static_cast<unsigned char>(bytes[i]);
  char chk[8];
  std::snprintf(chk, sizeof chk, "%06o", sum);
  bytes.replace(148, 7, std::string(chk, 6) + '\0');
  test::writeFile(dir_ / "bad.tar", bytes);
  auto bad =
      runHarbor({"archive", "extract", (dir_ / "bad.tar").string(), (dir_ / "badout").string()});
  EXPECT_EQ(bad.code, 1);
  EXPECT_NE(bad.err.find("sparse map"), std::string::npos) << bad.err;
  EXPECT_FALSE(fs::exists(dir_ / "badout" / "holes.bin"));
}

}  // namespace
}  // namespace harbor

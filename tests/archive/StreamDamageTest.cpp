// Damage in single-stream and empty archives is named, never passed off as
// a complete result; valid corner cases (no entries, several members) read.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ArchiveTestUtil.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::run;
using test::runHarbor;

class StreamDamage : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    std::string text;
    for (int i = 0; i < 3000; ++i) text += "row " + std::to_string(i * 7919 % 1000) + "\n";
    test::writeFile(dir_ / "data.txt", text);
    const std::string d = dir_.path().string();
    ASSERT_TRUE(
        run("cd '" + d + "' && gzip -c data.txt > data.gz && bzip2 -c data.txt > data.bz2"));
  }
  // Writes `name` as the first `keep` bytes of `from`, or all of it with one byte flipped.
  fs::path variant(const std::string& from, const std::string& name, long keep, long flipFromEnd) {
    std::string bytes = test::readFile(dir_ / from);
    if (keep >= 0) bytes.resize(static_cast<std::size_t>(keep));
    if (flipFromEnd > 0) bytes[bytes.size() - static_cast<std::size_t>(flipFromEnd)] ^= 0x01;
    test::writeFile(dir_ / name, bytes);
    return dir_ / name;
  }
  test::CliResult extract(const fs::path& archive) {
    return runHarbor({"archive", "extract", archive.string(),
                      (dir_ / ("out-" + archive.filename().string())).string()});
  }
  test::ScratchDir dir_;
};

TEST_F(StreamDamage, GzipAndBzip2SayWhatIsWrong) {
  const long gzSize = static_cast<long>(fs::file_size(dir_ / "data.gz"));
  const long bzSize = static_cast<long>(fs::file_size(dir_ / "data.bz2"));
  struct Row {
    fs::path file;
    const char* says;
  };
  for (const Row& row : {Row{variant("data.gz", "crc.gz", -1, 6), "CRC"},
                         Row{variant("data.gz", "cut.gz", gzSize / 2, 0), "truncated"},
                         Row{variant("data.gz", "tail.gz", gzSize - 4, 0), "truncated"},
                         Row{variant("data.bz2", "cut.bz2", bzSize / 2, 0), "truncated"}}) {
    SCOPED_TRACE(row.file.filename().string());
    auto r = extract(row.file);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find(row.says), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(dir_ / ("out-" + row.file.filename().string()) / row.file.stem()));
  }
}

TEST_F(StreamDamage, ValidCornerCasesRead) {
  // Two gzip members one after the other, with padding zeros, as some tools write.
  const std::string gz = test::readFile(dir_ / "data.gz");
  test::writeFile(dir_ / "two.gz", gz + gz + std::string(5, '\0'));
  auto r = extract(dir_ / "two.gz");
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string text = test::readFile(dir_ / "data.txt");
  EXPECT_EQ(test::readFile(dir_ / "out-two.gz" / "two"), text + text);

  // A zip with no entries lists as empty.
  ASSERT_TRUE(
      test::runPython(dir_.path(), "import zipfile\nzipfile.ZipFile('none.zip', 'w').close()\n"));
  auto list = runHarbor({"archive", "list", (dir_ / "none.zip").string(), "--json"});
  ASSERT_EQ(list.code, 0) << list.err;
  EXPECT_TRUE(nlohmann::json::parse(list.out)["entries"].empty());
  EXPECT_EQ(extract(dir_ / "none.zip").code, 0);
}

}  // namespace
}  // namespace harbor

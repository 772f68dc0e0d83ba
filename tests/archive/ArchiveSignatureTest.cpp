// Which reader a file gets: the extension's, unless the content is plainly
// another format or the extension is unknown.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ArchiveTestUtil.h"
#include "archive/ArchiveSignature.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

class ArchiveSignature : public test::TempHome {
 protected:
  test::ScratchDir dir_;
};

TEST_F(ArchiveSignature, ContentDecidesWhenTheNameIsWrongOrUnknown) {
  test::writeFile(dir_ / "a.txt", "some text\n");
  const std::string d = dir_.path().string();
  ASSERT_TRUE(test::run("cd '" + d +
                        "' && zip -q real.zip a.txt && cp real.zip wheel.whl && "
                        "cp real.zip renamed.bin && cp real.zip lying.tar && "
                        "tar cf plain.tar a.txt && cp plain.tar noext && "
                        "tar --format=v7 -cf old.tar a.txt && cp old.tar old.data && "
                        "gzip -c a.txt > a.gz && cp a.gz gz.zip && "
                        "bzip2 -c a.txt > a.bz2 && cp a.bz2 bz.dat && "
                        "(printf 'MZ-program-bytes'; cat real.zip) > setup.exe"));
  struct Row {
    const char* file;
    ArchiveKind kind;
    const char* format;
  };
  for (const Row& row :
       {Row{"wheel.whl", ArchiveKind::Zip, "zip"}, Row{"renamed.bin", ArchiveKind::Zip, "zip"},
        Row{"lying.tar", ArchiveKind::Zip, "zip"}, Row{"noext", ArchiveKind::Tar, "tar"},
        Row{"old.data", ArchiveKind::Tar, "tar"}, Row{"gz.zip", ArchiveKind::Gzip, "gzip"},
        Row{"bz.dat", ArchiveKind::Bzip2, "bzip2"}, Row{"setup.exe", ArchiveKind::Zip, "zip"}}) {
    SCOPED_TRACE(row.file);
    const std::string path = (dir_ / row.file).string();
    EXPECT_EQ(archiveKindOf(path), row.kind);
    auto r = test::runHarbor({"archive", "list", path, "--json"});
    EXPECT_EQ(r.code, 0) << r.err;
    if (r.code == 0) {
      EXPECT_EQ(nlohmann::json::parse(r.out)["format"], row.format);
    }
  }
  // Text that is no archive stays no archive, whatever its name.
  test::writeFile(dir_ / "notes.zip", "just words, no archive at all");
  EXPECT_EQ(archiveKindBySignature((dir_ / "notes.zip").string()), ArchiveKind::None);
  EXPECT_EQ(archiveKindOf((dir_ / "notes.zip").string()), ArchiveKind::Zip) << "the name's guess";
  EXPECT_EQ(archiveKindOf((dir_ / "a.txt").string()), ArchiveKind::None);
  auto text = test::runHarbor({"archive", "list", (dir_ / "wheel.whl").string()});
  EXPECT_EQ(text.out.rfind("Format: zip\n", 0), 0u) << text.out;
}

}  // namespace
}  // namespace harbor

// Permission bits of what the file manager makes: nothing may come out
// executable or group/world-writable unless the source or the umask says so.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "filemanager/FileModes.h"
#include "filemanager/FilePropertyCopyFile.h"
#include "filemanager/FileUtil.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::modeOf;
using test::ScopedUmask;
using test::ScratchDir;
using test::writeFile;

TEST(FileModes, RulesFollowTheUmask) {
  ScopedUmask mask(027);
  EXPECT_EQ(FileModes::umask(), 027u);
  EXPECT_EQ(FileModes::forNewFile(), 0640u);
  EXPECT_EQ(FileModes::forNewFolder(), 0750u);
  // setuid, setgid and sticky never carry over; group/world write only as
  // far as the umask lets them.
  EXPECT_EQ(FileModes::forCopy(S_IFREG | 06777), 0750u);
  EXPECT_EQ(FileModes::forArchiveEntry(07777, false), 0750u);
  EXPECT_EQ(FileModes::forArchiveEntry(0444, false), 0440u);
  EXPECT_EQ(FileModes::forArchiveEntry(0, false), 0640u);
  // A folder must stay writable by its owner while its entries go in.
  EXPECT_EQ(FileModes::forArchiveEntry(0555, true), 0750u);
}

TEST(FileModes, NewFilesAreNotExecutable) {
  ScopedUmask mask(022);
  ScratchDir dir;
  ASSERT_TRUE(FileUtil::createFile((dir / "new").string()));
  EXPECT_EQ(modeOf(dir / "new"), 0644u);
  ASSERT_TRUE(FileUtil::createFolder((dir / "folder").string()));
  EXPECT_EQ(modeOf(dir / "folder"), 0755u);

  writeFile(dir / "wide", "x");
  fs::permissions(dir / "wide", fs::perms::all);
  ASSERT_TRUE(FileUtil::setfullPermission((dir / "wide").string()));
  EXPECT_EQ(modeOf(dir / "wide"), 0644u);
  ASSERT_TRUE(FileUtil::setfullPermission((dir / "folder").string()));
  EXPECT_EQ(modeOf(dir / "folder"), 0755u);
}

TEST(FileModes, CopiesKeepTheSourceBitsLessTheUmask) {
  ScopedUmask mask(022);
  ScratchDir dir;
  writeFile(dir / "plain", "text");
  fs::permissions(dir / "plain", static_cast<fs::perms>(0644));
  writeFile(dir / "script", "#!/bin/sh\n");
  fs::permissions(dir / "script", static_cast<fs::perms>(04777));
  writeFile(dir / "private", std::string(FilePropertyCopyFile::kBlockSize * 3, 'p'));
  fs::permissions(dir / "private", static_cast<fs::perms>(0600));

  ASSERT_TRUE(FileUtil::copyFile((dir / "plain").string(), (dir / "plain.copy").string(), true,
                                 false, nullptr));
  EXPECT_EQ(modeOf(dir / "plain.copy"), 0644u);
  ASSERT_TRUE(
      FileUtil::copyItem((dir / "script").string(), (dir / "script.copy").string(), nullptr));
  EXPECT_EQ(modeOf(dir / "script.copy"), 0755u);

  // A target that is already there, wide open, is replaced with the
  // source's bits by both copy routes.
  for (const char* name : {"over1", "over2"}) {
    writeFile(dir / name, "old");
    fs::permissions(dir / name, fs::perms::all);
  }
  ASSERT_TRUE(FilePropertyCopyFile::execute((dir / "private").string(), (dir / "over1").string(),
                                            true, false, nullptr));
  EXPECT_EQ(modeOf(dir / "over1"), 0600u);
  ASSERT_TRUE(FileUtil::copyFile((dir / "private").string(), (dir / "over2").string(), true, false,
                                 nullptr));
  EXPECT_EQ(modeOf(dir / "over2"), 0600u);
}

}  // namespace
}  // namespace harbor

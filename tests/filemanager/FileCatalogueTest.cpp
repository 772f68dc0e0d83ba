#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/GlobalObject.h"
#include "filemanager/USupportFile.h"
#include "platform/UserDefaults.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::writeFile;

TEST(FileCatalogue, KindsComeFromTheLastExtension) {
  EXPECT_TRUE(USupportFile::isArchive("/x/FILE.ZIP"));
  EXPECT_TRUE(USupportFile::isZip("book.CBZ"));
  EXPECT_FALSE(USupportFile::isArchiveWithExteinsion("ZIP"));  // taken as given
  EXPECT_TRUE(USupportFile::isArchiveWithExteinsion("zip"));
  for (const char* name : {"a.tgz", "a.tar", "a.bz2", "a.7z", "a.rar", "a.war"}) {
    EXPECT_TRUE(USupportFile::isArchive(name)) << name;
  }
  EXPECT_TRUE(USupportFile::isGZ("a.tar.gz"));
  EXPECT_FALSE(USupportFile::isTar("a.tar.gz"));
  EXPECT_TRUE(USupportFile::isDefauttArchives("a.rar"));
  EXPECT_FALSE(USupportFile::isDefauttArchives("a.7z"));
  EXPECT_TRUE(USupportFile::isOtherSupportArchives("a.tbz2"));
  EXPECT_EQ(&USupportFile::archiveExtension(false), &USupportFile::defaultSupportArchives());

  EXPECT_TRUE(USupportFile::isSysMusicMedia("a.aac"));
  EXPECT_TRUE(USupportFile::isMusicMedia("a.AAC"));
  EXPECT_TRUE(GlobalObject::getSupportMediaTypes().count("flac"));
  EXPECT_FALSE(USupportFile::isMusicMedia("a.flac"));
  EXPECT_FALSE(USupportFile::isMediasExtension("a.flac"));
  EXPECT_TRUE(USupportFile::isMoveMedia("clip.3G2"));
  EXPECT_TRUE(USupportFile::isFFMPEGMedia("a.hlv"));
  EXPECT_TRUE(USupportFile::isPhp("index.PHP"));
  EXPECT_FALSE(USupportFile::isJs("a.json"));
  EXPECT_FALSE(USupportFile::isArchive(".zip"));  // a hidden name, not an extension
  EXPECT_FALSE(USupportFile::isSystemPreview("noextension"));

  // The type sections use the narrower image set: no "heic".
  EXPECT_TRUE(USupportFile::isSystemPreview("a.heic"));
  EXPECT_FALSE(GlobalObject::getSupportImageTypes().count("heic"));
  EXPECT_EQ(GlobalObject::getSupportImageTypes().size() + 1, USupportFile::imageExtension().size());
  EXPECT_EQ(GlobalObject::getSupportDocTypes(), USupportFile::docTypesExtension());
  EXPECT_TRUE(USupportFile::isSupportImportToPhotoLib("a.HEIC"));
}

// The text rule asks the format registry, which reads the user's own
// assignments from the preferences: keep those private.
class IconLookup : public test::TempHome {};

TEST_F(IconLookup, OwnImageThenTableThenTextThenUnknown) {
  EXPECT_EQ(CommonUtil::getFileTypeImageByName("noext"), "unknow.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension(""), "unknow.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByName("a.EXE"), "exec.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension("war"), "zip.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension("cpp"), "text.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension("qqq"), "unknow.png");

  // An extension with an image of its own beats the table and the text rule.
  test::ScratchDir resources;
  fs::create_directories(resources / "strings");
  writeFile(resources / "images/filetypes/war.png", "png");
  writeFile(resources / "images/filetypes/cpp.png", "png");
  const char* old = std::getenv("HARBOR_RESOURCES");
  const std::string saved = old ? old : "";
  setenv("HARBOR_RESOURCES", resources.path().c_str(), 1);
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension("WAR"), "war.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByName("main.cpp"), "cpp.png");
  EXPECT_EQ(CommonUtil::getFileTypeImageByExtension("../war"), "unknow.png");
  if (old) {
    setenv("HARBOR_RESOURCES", saved.c_str(), 1);
  } else {
    unsetenv("HARBOR_RESOURCES");
  }
  EXPECT_EQ(CommonUtil::getEmailMimeType("/a/b.PDF"), "application/pdf");
  EXPECT_EQ(CommonUtil::getEmailMimeType("/a/b.nothing"), "application/octet-stream");
}

class FilePasswords : public test::TempHome {
 protected:
  std::string at(const std::string& relative) const { return (root() / relative).string(); }
  PlistValue::Map stored() const {
    return defaults()
        ->dictionaryForKey(FileManagerUtil::kFilePasswordKey)
        .value_or(PlistValue::Map{});
  }
};

TEST_F(FilePasswords, StoredScrambledAndDecodedExactly) {
  const std::vector<std::string> passwords{"p", "correct horse battery staple", "пароль🔑",
                                           std::string(1000, 'x') + "\t\n", "0123456789abcdef"};
  for (const auto& password : passwords) {
    ASSERT_TRUE(FileManagerUtil::saveFilePassword(at("a.txt"), password));
    const PlistValue::Map map = stored();
    const std::string* value = map.at("/a.txt").asString();
    ASSERT_NE(value, nullptr);
    if (password.size() > 3) {
      EXPECT_EQ(value->find(password), std::string::npos);
    }
    EXPECT_EQ(FileManagerUtil::getFilePassword(at("a.txt")), password);
    EXPECT_TRUE(FileManagerUtil::isSamePasswordFile(at("a.txt"), password));
    EXPECT_FALSE(FileManagerUtil::isSamePasswordFile(at("a.txt"), password + "!"));
    EXPECT_TRUE(FileManagerUtil::isSamePassword(*value, password));  // in encoded form
  }
  EXPECT_TRUE(FileManagerUtil::isSamePassword("", "anything"));
  EXPECT_TRUE(FileManagerUtil::isSamePassword("plain", "plain"));

  // An empty password unlocks; the key goes with the last entry.
  EXPECT_TRUE(FileManagerUtil::saveFilePassword(at("a.txt"), ""));
  EXPECT_FALSE(FileManagerUtil::isPasswordFile(at("a.txt")));
  EXPECT_FALSE(defaults()->objectForKey(FileManagerUtil::kFilePasswordKey).has_value());

  // Outside the document root nothing is stored.
  EXPECT_FALSE(FileManagerUtil::saveFilePassword("/elsewhere/x", "p"));
  // A value that does not decode counts as no password.
  defaults()->setObject(FileManagerUtil::kFilePasswordKey, PlistValue::Map{{"/b", "not-base64!"}});
  EXPECT_FALSE(FileManagerUtil::getFilePassword(at("b")).has_value());
  EXPECT_FALSE(FileManagerUtil::isPasswordFile(at("b")));
  EXPECT_TRUE(FileManagerUtil::isSamePasswordFile(at("b"), "whatever"));
}

TEST_F(FilePasswords, LocksFollowTheTree) {
  FileManagerUtil::saveFilePassword(at("ab"), "1");
  FileManagerUtil::saveFilePassword(at("abc/x"), "2");
  FileManagerUtil::saveFilePassword(at("ab/deep/y"), "3");
  EXPECT_EQ(FileManagerUtil::getAllPasswordFileList(at("ab")),
            (std::vector<std::string>{at("ab"), at("ab/deep/y")}));
  EXPECT_TRUE(FileManagerUtil::isExistsPasswordInPathComponents("/ab/deep/z/w"));
  EXPECT_TRUE(FileManagerUtil::isExistsPasswordInPathComponents(at("abc/x")));
  EXPECT_FALSE(FileManagerUtil::isExistsPasswordInPathComponents("/abc/y"));
  // The nearest locked level answers, as a relative path however it was asked.
  EXPECT_EQ(FileManagerUtil::getPasswordPathInPathComponents("/ab/deep/y/z"), "/ab/deep/y");
  EXPECT_EQ(FileManagerUtil::getPasswordPathInPathComponents(at("ab/deep")), "/ab");
  EXPECT_EQ(FileManagerUtil::getPasswordPathInPathComponents("abc/x/"), "/abc/x");
  EXPECT_FALSE(FileManagerUtil::getPasswordPathInPathComponents("/abc"));

  // Moving a folder keeps every locked child locked at its new place.
  FileManagerUtil::cutFileAndPassword(at("ab"), at("moved/ab"));
  EXPECT_EQ(FileManagerUtil::getFilePassword(at("moved/ab/deep/y")), "3");
  EXPECT_EQ(FileManagerUtil::getFilePassword(at("moved/ab")), "1");
  EXPECT_FALSE(FileManagerUtil::isPasswordFile(at("ab")));
  FileManagerUtil::copyFileAndPassword(at("moved"), at("copy"));
  EXPECT_EQ(FileManagerUtil::getFilePassword(at("copy/ab/deep/y")), "3");
  EXPECT_EQ(FileManagerUtil::getFilePassword(at("moved/ab/deep/y")), "3");

  std::vector<std::string> rows{at("moved/ab"), at("abc/x"), at("moved/abc")};
  FileManagerUtil::removeFileAndChildrenPassword(at("moved/ab"), rows);
  EXPECT_EQ(rows, (std::vector<std::string>{at("abc/x"), at("moved/abc")}));
  EXPECT_FALSE(FileManagerUtil::isPasswordFile(at("moved/ab/deep/y")));
  EXPECT_TRUE(FileManagerUtil::isPasswordFile(at("copy/ab")));

  // Removing a locked folder takes its entries with it.
  writeFile(root() / "copy/ab/deep/y", "");
  EXPECT_TRUE(FileManagerUtil::removePath(at("copy")));
  EXPECT_FALSE(fs::exists(root() / "copy"));
  EXPECT_EQ(stored().size(), 1u);  // abc/x
}

TEST_F(FilePasswords, ThumbnailsFollowCopiesAndRenames) {
  writeFile(root() / "pics/cat.jpg", "jpg");
  int made = 0;
  FileManagerUtil::setThumbnailGenerator(
      [&](const std::string&, const std::string& thumb, const std::string& screen) {
        ++made;
        writeFile(thumb, "t");
        writeFile(screen, "s");
        return true;
      });
  const std::string cat = at("pics/cat.jpg");
  const std::string thumb = FileManagerUtil::getThumbnailImage(cat);
  EXPECT_EQ(thumb, FileManagerUtil::thumbnailCacheFolder(cat) + "/cat.jpg_75_75.jpg");
  EXPECT_FALSE(FileManagerUtil::getFullScreenImage(cat).empty());
  EXPECT_EQ(made, 1);  // fresh images are not made again

  // A renamed copy brings images named after it.
  fs::copy_file(root() / "pics/cat.jpg", root() / "pics/dog.jpg");
  FileManagerUtil::dealwithThumbnailAndScreenImage(cat, at("pics/dog.jpg"), true);
  EXPECT_TRUE(fs::exists(FileManagerUtil::thumbnailCacheFolder(at("pics/dog.jpg")) +
                         "/dog.jpg_screen.jpg"));
  // A moved folder brings the caches of everything in it.
  fs::rename(root() / "pics", root() / "album");
  FileManagerUtil::dealwithThumbnailAndScreenImage(at("pics"), at("album"), false);
  EXPECT_TRUE(fs::exists(FileManagerUtil::thumbnailCacheFolder(at("album/cat.jpg")) +
                         "/cat.jpg_75_75.jpg"));
  EXPECT_FALSE(fs::exists(FileManagerUtil::thumbnailDirectory() + "/pics"));
  EXPECT_EQ(made, 1);

  FileManagerUtil::removeFileImageLocalCache();
  EXPECT_TRUE(fs::is_empty(FileManagerUtil::thumbnailDirectory()));
  FileManagerUtil::setThumbnailGenerator(nullptr);
  EXPECT_EQ(FileManagerUtil::getThumbnailImage(at("album/cat.jpg")), "");
}

TEST(FileNames, HiddenAndIgnored) {
  EXPECT_TRUE(FileManagerUtil::isHiddenDirectory("/a/.git"));
  EXPECT_FALSE(FileManagerUtil::isHiddenDirectory("/a/git"));
  EXPECT_EQ(FileManagerUtil::trimLeftPoingOfFileName("/a/..x"), ".x");
  std::vector<std::string> files{"/a/.DS_Store", "__MACOSX", "Thumbs.db", ".keep"};
  FileManagerUtil::ignoreFile(files);
  EXPECT_EQ(files, (std::vector<std::string>{".keep"}));
  EXPECT_EQ(FileManagerUtil::getRelativeTo("/a/b/c", "/a/b"), "/c");
  EXPECT_EQ(FileManagerUtil::getRelativeTo("/x/b/c", "/a/b"), "");
  // A sibling whose name only starts like the base is not inside it.
  EXPECT_EQ(FileManagerUtil::getRelativeTo("/a/bc/d", "/a/b"), "");
  EXPECT_EQ(FileManagerUtil::getRelativeTo("/a/b/c/", "/a/b/"), "/c");
}

}  // namespace
}  // namespace harbor

#include "filemanager/USupportFile.h"

#include <initializer_list>

#include "filemanager/FileUtil.h"
#include "platform/Unicode.h"
#include "prefs/TextExtensions.h"

namespace harbor {
namespace {

ExtensionMap setOf(std::initializer_list<const char*> members) {
  ExtensionMap map;
  for (const char* m : members) map.emplace(m, std::string());
  return map;
}

ExtensionMap unionOf(std::initializer_list<const ExtensionMap*> parts) {
  ExtensionMap map;
  for (const ExtensionMap* part : parts) map.insert(part->begin(), part->end());
  return map;
}

bool has(const ExtensionMap& map, std::string_view extension) {
  return map.find(extension) != map.end();
}

}  // namespace

std::string USupportFile::lowerExtension(std::string_view path) {
  return toLower(FileUtil::getFileExtension(path));
}

// ---- Sets ------------------------------------------------------------------

const ExtensionMap& USupportFile::imageMimeType() {
  static const ExtensionMap set = setOf({"image/bmp", "image/png", "image/gif", "image/jpeg",
                                         "image/tiff", "image/vnd.microsoft.icon"});
  return set;
}

const ExtensionMap& USupportFile::webExtension() {
  static const ExtensionMap set = setOf({"html", "htm", "xhtml"});
  return set;
}

const ExtensionMap& USupportFile::imageExtension() {
  static const ExtensionMap set =
      setOf({"bmp", "png", "gif", "jpeg", "jpg", "tiff", "tif", "ico", "heic"});
  return set;
}

const ExtensionMap& USupportFile::docTypesExtension() {
  static const ExtensionMap set =
      setOf({"pdf", "txt", "doc", "ppt", "xls", "docx", "xlsx", "pptx", "rtf", "pub", "csv"});
  return set;
}

const ExtensionMap& USupportFile::mediaTypesExtension() {
  static const ExtensionMap set =
      setOf({"aa",     "a52", "ac3",  "aif", "aifc", "aiff", "au",  "snd",  "cda", "cue", "dis",
             "diswav", "fla", "flac", "mid", "midi", "rmi",  "ape", "mac",  "mp1", "mp2", "mp3",
             "mpa",    "m4a", "mpc",  "ra",  "tak",  "tta",  "ogg", "wav",  "wma", "m3u", "ttbl",
             "ttpl",   "wmv", "asf",  "asx", "rm",   "rmvb", "mpg", "mpeg", "mpe", "3gp", "mov",
             "mp4",    "m4v", "avi",  "dat", "mkv",  "flv",  "vob"});
  return set;
}

const ExtensionMap& USupportFile::documentExtension() {
  static const ExtensionMap set =
      setOf({"docx", "xlsx", "pptx", "ppt", "xls", "doc", "dot", "csv", "rtf"});
  return set;
}

const ExtensionMap& USupportFile::movieExtension() {
  static const ExtensionMap set = setOf({"mp4", "m4v", "mov", "3gp", "3g2"});
  return set;
}

const ExtensionMap& USupportFile::sysMusicExtension() {
  static const ExtensionMap set = setOf({"mp3", "m4a", "aac", "wav", "m4r", "caf", "aif"});
  return set;
}

const ExtensionMap& USupportFile::musicTypesExtension() {
  static const ExtensionMap set = setOf({"wav", "mp3", "aac", "m4a"});
  return set;
}

const ExtensionMap& USupportFile::mediasExtension() {
  static const ExtensionMap set = unionOf({&movieExtension(), &sysMusicExtension()});
  return set;
}

const ExtensionMap& USupportFile::ffmpegExtension(bool flag) {
  (void)flag;
  static const ExtensionMap set = setOf(
      {"mp4", "mov", "flv", "avi", "mpg", "rmvb", "asf", "wmv", "3gp", "mkv", "wma", "hlv", "rm"});
  return set;
}

const ExtensionMap& USupportFile::ffmpegExtension() {
  return ffmpegExtension(true);
}

const ExtensionMap& USupportFile::zipExtensions() {
  static const ExtensionMap set = setOf({"zip", "cbz", "jar", "ear", "war"});
  return set;
}

const ExtensionMap& USupportFile::rarExtensions() {
  static const ExtensionMap set = setOf({"rar", "cbr"});
  return set;
}

const ExtensionMap& USupportFile::gzipExtensions() {
  static const ExtensionMap set = setOf({"gz", "tgz", "gzip"});
  return set;
}

const ExtensionMap& USupportFile::tarExtensions() {
  static const ExtensionMap set = setOf({"tar"});
  return set;
}

const ExtensionMap& USupportFile::bz2Extensions() {
  static const ExtensionMap set = setOf({"bz", "bz2", "tbz", "tbz2"});
  return set;
}

const ExtensionMap& USupportFile::archive7ZExtensions() {
  static const ExtensionMap set = setOf({"7z"});
  return set;
}

const ExtensionMap& USupportFile::defaultSupportArchives() {
  static const ExtensionMap set = unionOf({&zipExtensions(), &rarExtensions()});
  return set;
}

const ExtensionMap& USupportFile::otherSupportArchives() {
  static const ExtensionMap set =
      unionOf({&gzipExtensions(), &tarExtensions(), &bz2Extensions(), &archive7ZExtensions()});
  return set;
}

const ExtensionMap& USupportFile::archiveExtension(bool all) {
  static const ExtensionMap set = unionOf({&defaultSupportArchives(), &otherSupportArchives()});
  return all ? set : defaultSupportArchives();
}

const ExtensionMap& USupportFile::archiveExtension() {
  return archiveExtension(true);
}

const ExtensionMap& USupportFile::importToPhotoLibExtension() {
  static const ExtensionMap set = setOf({"mp4", "mov", "m4v", "3gp", "jpg", "jpeg", "bmp", "gif",
                                         "ico", "png", "tiff", "tif", "heic"});
  return set;
}

const ExtensionMap& USupportFile::execType() {
  static const ExtensionMap table = {
      {"exe", "exec.png"}, {"dmg", "exec.png"}, {"pkg", "exec.png"}, {"app", "exec.png"}};
  return table;
}

const ExtensionMap& USupportFile::directlyDisplayType() {
  static const ExtensionMap table = [] {
    ExtensionMap t;
    auto add = [&t](const char* image, std::initializer_list<const char*> extensions) {
      for (const char* e : extensions) t.emplace(e, image);
    };
    add("video.png", {"3gp", "3g2", "dat", "rm", "hlv"});
    add("audio.png", {"wav", "caf", "wma", "aif"});
    add("doc.png", {"dot"});
    add("image.png", {"svg", "heic"});
    add("zip.png", {"ear", "war"});
    add("html.png", {"shtml", "shtm", "stm"});
    t.insert(execType().begin(), execType().end());
    return t;
  }();
  return table;
}

// ---- Path predicates -------------------------------------------------------

bool USupportFile::isDocumentView(std::string_view path) {
  return has(documentExtension(), lowerExtension(path));
}
bool USupportFile::is7Z(std::string_view path) {
  return has(archive7ZExtensions(), lowerExtension(path));
}
bool USupportFile::isZip(std::string_view path) {
  return has(zipExtensions(), lowerExtension(path));
}
bool USupportFile::isGZ(std::string_view path) {
  return has(gzipExtensions(), lowerExtension(path));
}
bool USupportFile::isTar(std::string_view path) {
  return has(tarExtensions(), lowerExtension(path));
}
bool USupportFile::isRar(std::string_view path) {
  return has(rarExtensions(), lowerExtension(path));
}
bool USupportFile::isBZ2(std::string_view path) {
  return has(bz2Extensions(), lowerExtension(path));
}
bool USupportFile::isArchive(std::string_view path) {
  return has(archiveExtension(), lowerExtension(path));
}
bool USupportFile::isSystemPreview(std::string_view path) {
  return has(imageExtension(), lowerExtension(path));
}
bool USupportFile::isFFMPEGMedia(std::string_view path) {
  return has(ffmpegExtension(), lowerExtension(path));
}
bool USupportFile::isMoveMedia(std::string_view path) {
  return has(movieExtension(), lowerExtension(path));
}
bool USupportFile::isMediasExtension(std::string_view path) {
  return has(mediasExtension(), lowerExtension(path));
}
bool USupportFile::isMusicMedia(std::string_view path) {
  return has(musicTypesExtension(), lowerExtension(path));
}
bool USupportFile::isSysMusicMedia(std::string_view path) {
  return has(sysMusicExtension(), lowerExtension(path));
}
bool USupportFile::isDefauttArchives(std::string_view path) {
  return has(defaultSupportArchives(), lowerExtension(path));
}
bool USupportFile::isOtherSupportArchives(std::string_view path) {
  return has(otherSupportArchives(), lowerExtension(path));
}
bool USupportFile::isSupportImportToPhotoLib(std::string_view path) {
  return has(importToPhotoLibExtension(), lowerExtension(path));
}
bool USupportFile::isPhp(std::string_view path) {
  return lowerExtension(path) == "php";
}
bool USupportFile::isJs(std::string_view path) {
  return lowerExtension(path) == "js";
}

bool USupportFile::isSystemEdit(std::string_view path) {
  return isSystemEditExtension(lowerExtension(path));
}

bool USupportFile::isSystemEditExtension(std::string_view extension) {
  return TextExtensions::contains(extension);
}

// ---- Extension forms -------------------------------------------------------

bool USupportFile::isArchiveWithExteinsion(std::string_view extension) {
  return has(archiveExtension(), extension);
}
bool USupportFile::isSystemPreviewWithExtension(std::string_view extension) {
  return has(imageExtension(), extension);
}
bool USupportFile::isSystemPreviewExtension(std::string_view extension) {
  return has(imageExtension(), extension);
}
bool USupportFile::isSystemPreviewByExtension(std::string_view extension) {
  return has(imageExtension(), extension);
}
bool USupportFile::isMoveMediaWithExtension(std::string_view extension) {
  return has(movieExtension(), extension);
}
bool USupportFile::isMusicMediaExtension(std::string_view extension) {
  return has(musicTypesExtension(), extension);
}
bool USupportFile::isSysMusicMediaExtension(std::string_view extension) {
  return has(sysMusicExtension(), extension);
}

}  // namespace harbor

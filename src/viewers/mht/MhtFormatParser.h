#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "syntax/CodeFormatParser.h"
#include "viewers/mht/MhtFile.h"

namespace harbor {

// Unpacks a web archive (a MIME multipart text) into a fresh folder of plain
// files and points the pages' and style sheets' references at those files.
// It runs on the scanner's character cursor but colours nothing.
class MhtFormatParser : public CodeFormatParser {
 public:
  // Deeper multiparts are ignored: no real page nests more than a few.
  static constexpr int kMaxMultipartDepth = 32;
  // Base64 bodies of this size or more (images, fonts) are decoded to disk
  // while an archive file is read, rather than held in memory.
  static constexpr std::size_t kMinSpooledBody = 64 * 1024;

  static std::shared_ptr<MhtFormatParser> instanceWithFileURL(const std::string& path);
  static std::shared_ptr<MhtFormatParser> instanceWithData(std::string data);
  // FileUtil's temporary folder + "Mht".
  static std::string mhtTempDirectory();

  std::string className() const override { return "MhtFormatParser"; }

  // The full path of the root file on disk, or empty. Stops (empty) when the
  // current thread is cancelled between stages.
  std::string parser();
  const std::shared_ptr<MhtFile>& rootFile() const { return _rootFile; }
  const std::vector<std::shared_ptr<MhtFile>>& files() const { return _files; }
  // The folder the archive was unpacked into (empty before `parser`).
  const std::string& tempRootPath() const { return _tempRootPath; }
  const std::string& subject() const { return _subject; }
  const std::string& encodingName() const { return _encodingName; }

  // ---- stages, public for tests and fuzzing ----------------------------------
  // Finds the line end of the archive; false when there is none.
  bool findReturnCode();
  // Sets the text to parse (the decoded archive) and its line end.
  void setText(std::u16string text);
  void parserText(std::u16string_view part);
  void parserText() { parserText(text); }
  std::map<std::string, std::u16string> splitHeader(std::u16string_view head) const;
  std::shared_ptr<MhtFile> parseHeader(const std::map<std::string, std::u16string>& header);

  // ---- codecs ---------------------------------------------------------------
  // Head value parameters: the first token without "=" under "_" (with
  // `mimeType`, only if it holds "/"), quotes stripped, RFC 2231 pieces
  // joined and decoded.
  static std::map<std::string, std::u16string> parseValue(std::u16string_view value, bool mimeType);
  // Encoded words ("=?charset?Q|B?text?=") at the start of a value.
  static std::u16string decodeEW(std::u16string_view value);
  static std::u16string decodeRFC2231(std::u16string_view value);
  static std::string decodeQuotedPrintable(std::string_view bytes);
  static std::string unescape(std::string_view bytes);
  static std::string atob(std::u16string_view text);
  static std::string atob(std::string_view text);
  static std::string btoa(std::string_view bytes);

  // atob a piece at a time: the same bytes for the same text, however it is
  // cut.
  class Base64Stream {
   public:
    void feed(std::string_view text, std::string& out);
    // The bytes of a last, unfinished group.
    void finish(std::string& out);
    // The letters of the unfinished group, to decode later with what follows.
    std::string unfinished() const;

   private:
    int quad_[4] = {0, 0, 0, 0};
    int n_ = 0;
  };

  // Where bodies start going to disk; tests and fuzzing lower it so that
  // small archives take the disk path too.
  std::size_t _minSpooledBody = kMinSpooledBody;
  bool _alternative = false;
  std::int64_t _mode = 0;
  std::vector<std::shared_ptr<MhtFile>> _files;
  std::shared_ptr<MhtFile> _rootFile;
  std::string _fileURL;
  std::string _data;
  std::u16string _returnCode;
  std::u16string _returnCode2;
  std::string _encodingName;
  std::string _start;
  std::string _subject;
  std::string _boundary;
  std::string _originalURISpec;
  std::vector<std::string> _boundaryStack;

 private:
  using FindObjects = std::map<MhtFile*, std::vector<MhtFindObject>>;

  void deleteEmptyFile();
  std::string tempRootFolder();
  // Gives the part its folder below the root; `usedPaths` holds the
  // lower-cased relative paths already taken.
  void computeFolderPath(MhtFile& file, std::unordered_set<std::string>& usedPaths) const;
  std::vector<TextRange> findLocation(const MhtFile& html, const MhtFile& item) const;
  static void addFindObjects(MhtFile& file, const std::u16string& replaceString,
                             const std::vector<TextRange>& ranges, FindObjects& findObjects);
  static void orderedFindObjects(FindObjects& findObjects);
  static void replaceFileFindObjects(FindObjects& findObjects);
  void retypeOctetStream(MhtFile& file) const;

  // A base64 body decoded to disk while the archive was read.
  struct Spool {
    std::string path;
    std::int64_t size = 0;
  };
  // Reads the archive file into `_data`, each large base64 body replaced by
  // a marker line and decoded into a file of `_spoolFolder`.
  bool readSpooled(const std::string& path);
  // The spool a part's body stands for, or null when it is no marker;
  // `rest` is what follows the marker.
  const Spool* spoolOfBody(std::u16string_view body, std::u16string_view* rest) const;
  void removeSpools();
  // Parses the archive file from memory and takes on the result.
  std::string parseWholeFile();

  // The archive's first bytes as they are on disk: the charset is told from
  // them, as it would be from the whole text.
  std::string _fileHead;
  std::string _spoolFolder;
  std::string _spoolToken;
  std::vector<Spool> _spools;
  std::size_t _claimedSpools = 0;

  std::u16string _textHolder;
  std::string _tempRootPath;
  int _depth = 0;
};

}  // namespace harbor

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextStorage.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {

// One MIME part of a web archive: its head, its body (encoded, then decoded),
// and where it lands on disk.
class MhtFile {
 public:
  enum Encoding : std::int64_t {
    kEncodingNone = 0,
    kEncodingQuotedPrintable = 1,
    kEncodingBase64 = 2,
    kEncoding7bit = 3,
  };

  // "<_basePath>/<_folderPath>/<_fileName>".
  std::string fullPath() const;
  // "<_folderPath>/<_fileName>" below the archive's folder, starting with "/".
  std::string fullRelativePath() const;
  // The folder the file lands in.
  std::string fullFolderPath() const;
  bool isHtmlFormat() const;
  bool isCssFormat() const;
  bool isImageFormat() const;
  // Parts kept as text (decoded, rewritten, written back in their charset).
  bool isTextPart() const;

  // `_content` (still encoded) to `_binContent`. Quoted-printable works on
  // the text's bytes in the archive's own encoding.
  void decodeContent(const std::string& archiveEncoding);
  // `_binContent` to `_binContentString` for text parts.
  void genBinContentString();
  // Text parts get their text; pages also their tag tree for the rewriting.
  void loadFormatParser();
  // Ranges of the values of attributes `attriName` (any case) equal to
  // `attriValue`, quotes excluded. Pages only.
  std::vector<TextRange> findAttriNameAndValue(std::u16string_view attriName,
                                               std::u16string_view attriValue) const;
  // Writes the file under its folder, atomically.
  bool saveToFile() const;

  std::string _charset;
  std::string _filetype;
  std::string _cid;
  std::string _location;
  std::string _leafName;
  std::string _extension;
  std::string _disposition;
  std::string _dispositionType;
  std::u16string _content;
  std::string _binContent;
  // A large binary body already decoded into this file (then `_binContent`
  // stays empty and `_size` is its length); saving moves it into place.
  std::string _spoolPath;
  std::int64_t _encoding = kEncodingNone;
  std::int64_t _size = 0;
  std::string _fileName;
  std::string _folderPath;
  std::string _basePath;
  std::u16string _binContentString;
  std::shared_ptr<CodeFormatParser> _formatParser;
};

// One pending replacement in a file's text.
struct MhtFindObject {
  TextRange _range;
  std::u16string _replaceObject;
  MhtFile* _file = nullptr;
};

}  // namespace harbor

#include "viewers/mht/MhtFormatParser.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <system_error>

#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "encoding/StringEncodings.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "viewers/mht/MhtCharset.h"
#include "viewers/mht/MhtLocation.h"

namespace harbor {
namespace {

bool startsWithIgnoreCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && equalsIgnoreCase(s.substr(0, prefix.size()), prefix);
}

std::string ascii(std::u16string_view s) {
  return toUtf8(s);
}

std::u16string_view trimBlanks(std::u16string_view s) {
  auto blank = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

std::u16string stripQuotes(std::u16string_view s) {
  s = trimBlanks(s);
  if (s.size() >= 2 && (s.front() == u'"' || s.front() == u'\'') && s.back() == s.front()) {
    s = s.substr(1, s.size() - 2);
  }
  return std::u16string(s);
}

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "=XX" (or "%XX") to one byte while two more bytes follow the marker.
std::string decodeEscapes(std::string_view bytes, char marker) {
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == marker && i + 2 < bytes.size()) {
      const int hi = hexValue(static_cast<unsigned char>(bytes[i + 1]));
      const int lo = hexValue(static_cast<unsigned char>(bytes[i + 2]));
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += bytes[i];
  }
  return out;
}

// Removes every occurrence of `what` while copying.
std::u16string removeAll(std::u16string_view s, std::u16string_view what) {
  std::u16string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t j = s.find(what, i);
    if (j == std::u16string_view::npos) {
      out.append(s.substr(i));
      break;
    }
    out.append(s.substr(i, j - i));
    i = j + what.size();
  }
  return out;
}

std::string findParam(const std::map<std::string, std::u16string>& params, const char* key) {
  auto it = params.find(key);
  return it == params.end() ? std::string() : ascii(it->second);
}

}  // namespace

// ---- creation -------------------------------------------------------------------------

std::shared_ptr<MhtFormatParser> MhtFormatParser::instanceWithFileURL(const std::string& path) {
  auto p = std::make_shared<MhtFormatParser>();
  p->_fileURL = path;
  return p;
}

std::shared_ptr<MhtFormatParser> MhtFormatParser::instanceWithData(std::string data) {
  auto p = std::make_shared<MhtFormatParser>();
  p->_data = std::move(data);
  return p;
}

std::string MhtFormatParser::mhtTempDirectory() {
  std::string t = FileUtil::tempDirectory();
  if (!t.empty() && t.back() != '/') t += '/';
  return t + "Mht";
}

void MhtFormatParser::setText(std::u16string t) {
  _textHolder = std::move(t);
  text = _textHolder;
  currentIndex = 0;
  lastIndex = text.size();
}

// ---- the whole run ----------------------------------------------------------------------

std::string MhtFormatParser::parser() {
  if (isCurrentThreadCancelled()) return {};
  // Whatever happens, no decoded body outlives the run outside the archive's
  // folder.
  struct SpoolCleanup {
    MhtFormatParser* self;
    ~SpoolCleanup() { self->removeSpools(); }
  } cleanup{this};
  if (!_fileURL.empty() && !readSpooled(_fileURL)) return {};
  // Archives are almost always pure ASCII (the parts carry their own
  // charsets); such bytes read the same in every candidate, so skip detection.
  bool allAscii = true;
  for (unsigned char c : _data) {
    if (c >= 0x80) {
      allAscii = false;
      break;
    }
  }
  std::string encoding;
  std::optional<std::u16string> decoded;
  if (!allAscii && !_spools.empty()) {
    // The bodies set aside were whole lines of ASCII. UTF-8 reads the rest
    // the same without them; for another charset the guess could turn on
    // the missing letters, so the archive is read whole after all.
    if (!DetectorCharacter::readsAsUtf8(_fileHead, _data)) return parseWholeFile();
    decoded =
        StringEncodings::decode(_data, EncodingUtil::convertStringToNSStringEncoding("UTF-8"));
    encoding = "UTF-8";
  }
  if (!allAscii && !decoded) decoded = DetectorCharacter::detectorWithData(_data, &encoding);
  if (decoded) {
    _encodingName = encoding;
    setText(std::move(*decoded));
  } else {
    // ASCII, or bytes no charset takes whole (a NUL, a binary part): one
    // character per byte keeps every part's bytes as they were.
    _encodingName = allAscii ? "UTF-8" : "ISO-8859-1";
    std::u16string t(_data.size(), u'\0');
    std::transform(_data.begin(), _data.end(), t.begin(),
                   [](char c) { return static_cast<char16_t>(static_cast<unsigned char>(c)); });
    setText(std::move(t));
  }
  std::string().swap(_data);
  if (isCurrentThreadCancelled()) return {};

  if (!findReturnCode()) return {};
  parserText(text);
  if (_claimedSpools != _spools.size()) {
    // A damaged archive whose parts the reading bounded otherwise than the
    // parser: a body set aside would be read as something else, so the
    // archive is read whole instead.
    return parseWholeFile();
  }
  // The archive's text is not needed once the parts hold their bodies.
  text = {};
  std::u16string().swap(_textHolder);
  lastIndex = currentIndex = 0;
  if (_files.empty() || isCurrentThreadCancelled()) return {};

  _rootFile = _files.front();
  if (!_start.empty()) {
    for (const auto& f : _files) {
      if (f->_cid == "cid:" + _start) {
        _rootFile = f;
        break;
      }
    }
  }
  deleteEmptyFile();
  if (_files.empty()) return {};
  if (std::find(_files.begin(), _files.end(), _rootFile) == _files.end())
    _rootFile = _files.front();

  for (auto& f : _files) {
    f->decodeContent(_encodingName);
    if (isCurrentThreadCancelled()) return {};
  }

  const std::string base = tempRootFolder();
  if (base.empty()) return {};
  for (auto& f : _files) {
    f->_basePath = base;
    f->loadFormatParser();
    if (isCurrentThreadCancelled()) return {};
  }

  if (_files.front() != _rootFile) {
    _files.erase(std::find(_files.begin(), _files.end(), _rootFile));
    _files.insert(_files.begin(), _rootFile);
  }
  if (_rootFile->isHtmlFormat()) _rootFile->_fileName = "index.html";

  std::unordered_set<std::string> used;
  for (auto& f : _files) computeFolderPath(*f, used);

  std::vector<MhtFile*> pages, others;
  for (auto& f : _files) (f->isHtmlFormat() ? pages : others).push_back(f.get());

  FindObjects findObjects;
  // A base element would send every rewritten reference elsewhere.
  for (MhtFile* page : pages) {
    if (!page->_formatParser) continue;
    for (const auto& e : page->_formatParser->elementItems) {
      if (!e || e->type != kElementOpen) continue;
      const std::u16string_view t = page->_formatParser->text;
      if (e->range.location >= t.size()) continue;
      std::u16string_view name = t.substr(e->range.location, e->range.length);
      if (!equalsIgnoreCase(ascii(name), "base")) continue;
      // The whole tag, "<" to ">" (an unfinished one up to where it stops).
      TextRange whole = e->fullRange;
      if (whole.end() > t.size()) whole.length = t.size() - std::min(whole.location, t.size());
      addFindObjects(*page, u"", {whole}, findObjects);
      break;
    }
  }
  if (isCurrentThreadCancelled()) return {};

  std::vector<MhtFile*> cssAndImages;
  for (MhtFile* f : others) {
    if (f->isCssFormat() || f->isImageFormat()) cssAndImages.push_back(f);
  }
  for (MhtFile* css : cssAndImages) {
    if (!css->isCssFormat() || !css->isTextPart()) continue;
    const std::u16string_view cssText = css->_binContentString;
    for (MhtFile* other : cssAndImages) {
      if (other == css || other->_location.empty()) continue;
      const std::u16string needle = toUtf16(other->_location);
      std::vector<TextRange> ranges;
      for (std::size_t at = cssText.find(needle); at != std::u16string_view::npos;
           at = cssText.find(needle, at + needle.size())) {
        ranges.push_back({at, needle.size()});
      }
      if (ranges.empty()) continue;
      const std::string rel = mht::pathRelativeTo(other->fullRelativePath(), css->_folderPath);
      addFindObjects(*css, mht::urlEscapePath(rel), ranges, findObjects);
    }
  }
  if (isCurrentThreadCancelled()) return {};

  auto link = [&](MhtFile& page, MhtFile& item) {
    const auto ranges = findLocation(page, item);
    if (ranges.empty()) return;
    const std::string rel = mht::pathRelativeTo(item.fullRelativePath(), page._folderPath);
    addFindObjects(page, mht::urlEscapePath(rel), ranges, findObjects);
  };
  for (MhtFile* a : pages) {
    for (MhtFile* b : pages) {
      if (a != b) link(*a, *b);
    }
  }
  for (MhtFile* page : pages) {
    for (MhtFile* other : others) link(*page, *other);
  }
  if (isCurrentThreadCancelled()) return {};

  orderedFindObjects(findObjects);
  replaceFileFindObjects(findObjects);
  for (auto& f : _files) f->_formatParser.reset();

  for (auto& f : _files) {
    if (isCurrentThreadCancelled()) return {};
    f->saveToFile();
  }
  return _rootFile->fullPath();
}

bool MhtFormatParser::findReturnCode() {
  currentIndex = 0;
  lastIndex = text.size();
  while (isCanContinue()) {
    const char16_t c = currentCharStatic();
    if (c == u'\r' || c == u'\n') {
      if ((c == u'\r' && getNextOneChar() == u'\n') || (c == u'\n' && previousOneChar() == u'\r')) {
        _returnCode = u"\r\n";
      } else {
        _returnCode = std::u16string(1, c);
      }
      _returnCode2 = _returnCode + _returnCode;
      currentIndex = 0;
      return true;
    }
    ++currentIndex;
  }
  currentIndex = 0;
  return false;
}

void MhtFormatParser::deleteEmptyFile() {
  std::erase_if(_files, [](const std::shared_ptr<MhtFile>& f) {
    if (!f->_spoolPath.empty()) return f->_size == 0;
    return f->_content.empty() && f->_binContent.empty();
  });
}

std::string MhtFormatParser::tempRootFolder() {
  const std::string folder = mhtTempDirectory() + "/" + detail::makeUUID();
  if (!FileUtil::createFolder(folder)) {
    HB_LOG("MhtFormatParser", "cannot create " + folder);
    return {};
  }
  _tempRootPath = folder;
  return folder;
}

// ---- parts ------------------------------------------------------------------------------

void MhtFormatParser::parserText(std::u16string_view part) {
  if (_returnCode2.empty()) return;
  const std::size_t headEnd = part.find(_returnCode2);
  if (headEnd == std::u16string_view::npos) return;
  // A part's head may only change the boundary for its own body.
  const std::string outerBoundary = _boundary;
  const std::size_t outerDepth = _boundaryStack.size();
  auto header = splitHeader(part.substr(0, headEnd));
  auto file = parseHeader(header);
  if (!file) return;
  std::u16string_view body = part.substr(headEnd + _returnCode2.size());

  if (startsWithIgnoreCase(file->_filetype, "multipart/")) {
    if (equalsIgnoreCase(file->_filetype, "multipart/alternative")) _alternative = true;
    const bool ownBoundary =
        _boundaryStack.size() > outerDepth || (outerBoundary.empty() && !_boundary.empty());
    const std::string boundary = ownBoundary ? _boundary : std::string();
    if (!boundary.empty() && _depth < kMaxMultipartDepth) {
      ++_depth;
      const std::u16string open = u"--" + toUtf16(boundary) + _returnCode;
      const std::u16string close = u"--" + toUtf16(boundary) + u"--";
      // The line end before a delimiter belongs to the delimiter.
      auto bodyOf = [&](std::u16string_view piece) {
        if (piece.size() >= _returnCode.size() &&
            piece.substr(piece.size() - _returnCode.size()) == _returnCode) {
          piece.remove_suffix(_returnCode.size());
        }
        return piece;
      };
      std::size_t at = body.find(open);
      while (at != std::u16string_view::npos) {
        const std::size_t start = at + open.size();
        const std::size_t next = body.find(open, start);
        if (next != std::u16string_view::npos) {
          auto piece = bodyOf(body.substr(start, next - start));
          if (!piece.empty()) parserText(piece);
          at = next;
          continue;
        }
        const std::size_t end = body.find(close, start);
        auto piece = bodyOf(body.substr(
            start, end == std::u16string_view::npos ? std::u16string_view::npos : end - start));
        if (!piece.empty()) parserText(piece);
        break;
      }
      --_depth;
    }
    _alternative = false;
    _boundary = outerBoundary;
    _boundaryStack.resize(outerDepth);
    return;
  }

  if (file->_encoding == MhtFile::kEncodingQuotedPrintable) {
    file->_content = removeAll(body, u"=" + _returnCode);
  } else if (file->_encoding == MhtFile::kEncodingBase64) {
    std::u16string_view rest;
    if (const Spool* spool = spoolOfBody(body, &rest)) {
      ++_claimedSpools;
      file->_spoolPath = spool->path;
      file->_size = spool->size;
      if (const std::string more = atob(rest); !more.empty()) {
        std::ofstream out(spool->path, std::ios::binary | std::ios::app);
        out.write(more.data(), static_cast<std::streamsize>(more.size()));
        file->_size += static_cast<std::int64_t>(more.size());
      }
    } else {
      // Decoded straight from the archive's text (line ends are skipped): a
      // copy of every image as UTF-16 would double the memory of a large
      // page.
      file->_binContent = atob(body);
    }
  } else {
    file->_content = std::u16string(body);
  }
  retypeOctetStream(*file);
  _files.push_back(std::move(file));
}

std::string MhtFormatParser::parseWholeFile() {
  std::string().swap(_data);
  text = {};
  std::u16string().swap(_textHolder);
  _files.clear();
  std::optional<FileBytes> whole = FileBytes::read(_fileURL);
  if (!whole) return {};
  auto again = instanceWithData(std::string(whole->view()));
  const std::string root = again->parser();
  _alternative = again->_alternative;
  _mode = again->_mode;
  _returnCode = std::move(again->_returnCode);
  _returnCode2 = std::move(again->_returnCode2);
  _files = std::move(again->_files);
  _rootFile = std::move(again->_rootFile);
  _encodingName = std::move(again->_encodingName);
  _start = std::move(again->_start);
  _subject = std::move(again->_subject);
  _boundary = std::move(again->_boundary);
  _originalURISpec = std::move(again->_originalURISpec);
  _boundaryStack = std::move(again->_boundaryStack);
  _tempRootPath = std::move(again->_tempRootPath);
  return root;
}

void MhtFormatParser::retypeOctetStream(MhtFile& file) const {
  if (!equalsIgnoreCase(file._filetype, "application/octet-stream")) return;
  const std::u16string_view c = file._content;
  if (c.size() < 2) return;
  const bool looksLikeMarkup = c[0] == u'<' || c[1] == u'<' || c.substr(0, 10) == u"=EF=BB=BF<";
  if (!looksLikeMarkup || c.find(_returnCode) == std::u16string_view::npos) return;
  file._filetype = "text/html";
  const std::string ext = toLower(FileUtil::getFileExtension(file._fileName));
  if (ext != "html" && ext != "htm") {
    file._fileName =
        mht::safeFileName(file._fileName.empty() ? "file.html" : file._fileName + ".html");
    file._extension = "html";
  }
}

std::map<std::string, std::u16string> MhtFormatParser::splitHeader(std::u16string_view head) const {
  // One line end for all: a head may mix them.
  std::u16string lines;
  lines.reserve(head.size());
  for (std::size_t i = 0; i < head.size(); ++i) {
    if (head[i] == u'\r') {
      lines += u'\n';
      if (i + 1 < head.size() && head[i + 1] == u'\n') ++i;
    } else {
      lines += head[i];
    }
  }
  std::vector<std::pair<std::string, std::u16string>> fields;
  std::size_t i = 0;
  while (i <= lines.size()) {
    std::size_t j = lines.find(u'\n', i);
    if (j == std::u16string::npos) j = lines.size();
    std::u16string_view line = std::u16string_view(lines).substr(i, j - i);
    i = j + 1;
    if (line.empty()) continue;
    if ((line.front() == u' ' || line.front() == u'\t')) {
      if (!fields.empty()) {
        auto rest = trimBlanks(line);
        if (!rest.empty()) {
          if (!fields.back().second.empty()) fields.back().second += u' ';
          fields.back().second += rest;
        }
      }
      continue;
    }
    const std::size_t colon = line.find(u':');
    if (colon == std::u16string_view::npos) continue;
    fields.emplace_back(toLower(ascii(trimBlanks(line.substr(0, colon)))),
                        std::u16string(trimBlanks(line.substr(colon + 1))));
  }
  std::map<std::string, std::u16string> out;
  for (auto& [name, value] : fields) {
    if (name.empty() || out.count(name)) continue;
    out.emplace(name, decodeEW(value));
  }
  return out;
}

std::shared_ptr<MhtFile> MhtFormatParser::parseHeader(
    const std::map<std::string, std::u16string>& header) {
  auto file = std::make_shared<MhtFile>();
  file->_charset = "UTF-8";
  auto get = [&](const char* key) -> const std::u16string* {
    auto it = header.find(key);
    return it == header.end() ? nullptr : &it->second;
  };

  const std::u16string* contentType = get("content-type");
  const auto params = parseValue(contentType ? *contentType : u"text/html", true);
  file->_filetype = trim(findParam(params, "_"));
  if (file->_filetype.empty()) file->_filetype = "text/html";
  if (auto cs = trim(findParam(params, "charset")); !cs.empty()) file->_charset = cs;
  const bool multipart = startsWithIgnoreCase(file->_filetype, "multipart/");
  if (multipart) {
    if (auto boundary = findParam(params, "boundary");
        !boundary.empty() || params.count("boundary")) {
      if (!_boundary.empty()) _boundaryStack.push_back(_boundary);
      _boundary = boundary;
    }
    if (auto start = trim(findParam(params, "start")); !start.empty() && _start.empty()) {
      if (start.front() == '<') start.erase(0, 1);
      if (!start.empty() && start.back() == '>') start.pop_back();
      _start = start;
    }
  }
  if (const auto* subject = get("subject"); subject && _subject.empty()) _subject = ascii(*subject);
  if (multipart) return file;

  if (const auto* disposition = get("content-disposition")) {
    const auto d = parseValue(*disposition, false);
    file->_dispositionType = toLower(findParam(d, "_"));
    file->_disposition = findParam(d, "filename");
  }
  if (const auto* location = get("content-location"))
    file->_location = ascii(trimBlanks(*location));
  if (const auto* id = get("content-id")) {
    std::string cid = ascii(trimBlanks(*id));
    if (auto lt = cid.find('<'); lt != std::string::npos) cid.erase(lt, 1);
    if (auto gt = cid.rfind('>'); gt != std::string::npos) cid.erase(gt, 1);
    if (!cid.empty()) file->_cid = "cid:" + cid;
  }

  std::string leaf = mht::leafOfLocation(file->_location);
  if (leaf.empty() && !file->_disposition.empty()) leaf = mht::leafOfLocation(file->_disposition);
  if (leaf.empty() && !file->_cid.empty()) leaf = file->_cid.substr(4);
  if (leaf.empty()) leaf = "file";
  leaf = mht::safeFileName(leaf);
  std::string ext = toLower(FileUtil::getFileExtension(leaf));
  if (ext.empty() && !file->isHtmlFormat()) {
    // A name without an extension still opens as what it is.
    ext = mht::extensionForType(file->_filetype);
    if (!ext.empty()) leaf = mht::safeFileName(leaf + "." + ext);
  }
  file->_leafName = leaf;

  if (const auto* te = get("content-transfer-encoding")) {
    const std::string e = toLower(ascii(trimBlanks(*te)));
    if (e == "quoted-printable")
      file->_encoding = MhtFile::kEncodingQuotedPrintable;
    else if (e == "base64")
      file->_encoding = MhtFile::kEncodingBase64;
    else if (e == "7bit")
      file->_encoding = MhtFile::kEncoding7bit;
  }

  file->_fileName = leaf;
  if (file->isHtmlFormat() && ext != "html" && ext != "htm") {
    file->_fileName = mht::safeFileName(leaf + ".html");
    ext = "html";
  }
  file->_extension = ext;
  return file;
}

// ---- where the parts land -----------------------------------------------------------------

void MhtFormatParser::computeFolderPath(MhtFile& file,
                                        std::unordered_set<std::string>& usedPaths) const {
  auto relativeKey = [](const std::string& folder, const std::string& name) {
    std::string p = folder == "/" ? name : folder.substr(1) + "/" + name;
    return toLower(p);
  };
  if (&file == _rootFile.get()) {
    file._folderPath = "/";
    usedPaths.insert(relativeKey("/", file._fileName));
    return;
  }
  const mht::Location self = mht::parseLocation(file._location);
  const mht::Location root = mht::parseLocation(_rootFile->_location);
  const std::string selfDir = mht::folderOfPath(self.path);
  const std::string rootDir = mht::folderOfPath(root.path);
  std::string folder;
  if (self.isFileURL() == root.isFileURL()) {
    // Parts without a real path (cid:, none) sit beside the root.
    if (self.path.empty() || (!self.hasAuthority && !self.isFileURL() && !self.scheme.empty()))
      folder.clear();
    else
      folder = mht::pathRelativeTo(selfDir, rootDir);
  } else if (self.isFileURL()) {
    folder = selfDir;
  } else {
    std::string host = self.host;
    if (host.rfind("www.", 0) == 0) host.erase(0, 4);
    if (auto dot = host.rfind('.'); dot != std::string::npos) host.erase(dot);
    folder = host + "/" + selfDir;
  }
  std::replace(folder.begin(), folder.end(), ':', '_');
  folder = mht::safeFolderPath(folder);
  file._folderPath = folder;

  if (usedPaths.count(relativeKey(folder, file._fileName))) {
    std::string stem = FileUtil::getFileNameNoExtension(file._fileName);
    const std::string ext = FileUtil::getFileExtension(file._fileName);
    // Room for " NNNNNNN" in a name already near the length limit.
    const std::size_t room = 255 - 8 - (ext.empty() ? 0 : ext.size() + 1);
    if (stem.size() > room) stem.resize(room);
    const std::string path = FileUtil::getCreateFileName(
        folder == "/" ? std::string() : folder.substr(1), stem, ext, usedPaths);
    file._fileName = FileUtil::getFileName(path);
  }
  usedPaths.insert(relativeKey(folder, file._fileName));
}

std::vector<TextRange> MhtFormatParser::findLocation(const MhtFile& html,
                                                     const MhtFile& item) const {
  std::vector<TextRange> out;
  auto collect = [&](const std::string& value) {
    if (value.empty()) return;
    const std::u16string v = toUtf16(value);
    for (const char16_t* name : {u"href", u"src"}) {
      auto r = html.findAttriNameAndValue(name, v);
      out.insert(out.end(), r.begin(), r.end());
    }
  };
  collect(item._cid);
  collect(item._location);
  return out;
}

void MhtFormatParser::addFindObjects(MhtFile& file, const std::u16string& replaceString,
                                     const std::vector<TextRange>& ranges,
                                     FindObjects& findObjects) {
  auto& list = findObjects[&file];
  for (const auto& r : ranges) list.push_back(MhtFindObject{r, replaceString, &file});
}

void MhtFormatParser::orderedFindObjects(FindObjects& findObjects) {
  for (auto& [file, list] : findObjects) {
    std::stable_sort(list.begin(), list.end(), [](const MhtFindObject& a, const MhtFindObject& b) {
      return a._range.location > b._range.location;
    });
  }
}

void MhtFormatParser::replaceFileFindObjects(FindObjects& findObjects) {
  for (auto& [file, list] : findObjects) {
    std::u16string& s = file->_binContentString;
    // From the last range back, so earlier ranges stay where they were; a
    // range overlapping one already applied is dropped.
    std::size_t limit = s.size();
    std::vector<const MhtFindObject*> kept;
    for (const auto& o : list) {
      if (o._range.end() > limit) continue;
      kept.push_back(&o);
      limit = o._range.location;
    }
    if (kept.empty()) continue;
    std::u16string out;
    out.reserve(s.size() + kept.size() * 16);
    std::size_t at = 0;
    for (auto it = kept.rbegin(); it != kept.rend(); ++it) {
      out.append(s, at, (*it)->_range.location - at);
      out += (*it)->_replaceObject;
      at = (*it)->_range.end();
    }
    out.append(s, at, std::u16string::npos);
    s = std::move(out);
  }
}

// ---- codecs -------------------------------------------------------------------------------

std::map<std::string, std::u16string> MhtFormatParser::parseValue(std::u16string_view value,
                                                                  bool mimeType) {
  std::map<std::string, std::u16string> raw;
  std::vector<std::string> order;
  std::size_t i = 0;
  auto delimiter = [](char16_t c) { return c == u' ' || c == u'\t' || c == u';'; };
  while (i < value.size()) {
    while (i < value.size() && delimiter(value[i])) ++i;
    if (i >= value.size()) break;
    const std::size_t start = i;
    char16_t quote = 0;
    while (i < value.size()) {
      const char16_t c = value[i];
      if (quote) {
        if (c == u'\\' && i + 1 < value.size()) {
          i += 2;
          continue;
        }
        if (c == quote) quote = 0;
      } else if (c == u'"' || c == u'\'') {
        // Quotes open only at the start of a value, so "it's" stays a word.
        if (i == start || value[i - 1] == u'=') quote = c;
      } else if (delimiter(c)) {
        break;
      }
      ++i;
    }
    std::u16string_view token = value.substr(start, i - start);
    const std::size_t eq = token.find(u'=');
    if (eq == std::u16string_view::npos) {
      if (!raw.count("_") && (!mimeType || token.find(u'/') != std::u16string_view::npos))
        raw["_"] = stripQuotes(token);
      continue;
    }
    std::string name = toLower(ascii(trimBlanks(token.substr(0, eq))));
    // "_" is the slot of the leading token, not a name a head may use.
    if (name.empty() || name == "_") continue;
    std::u16string v = stripQuotes(token.substr(eq + 1));
    if (!raw.count(name)) order.push_back(name);
    raw[name] = std::move(v);
  }

  // RFC 2231: name*=charset'lang'%XX, or pieces name*0, name*1*, ...
  std::map<std::string, std::u16string> out;
  for (const auto& [k, v] : raw) {
    if (k.find('*') == std::string::npos) out[k] = v;
  }
  for (const auto& k : order) {
    const std::size_t star = k.find('*');
    if (star == std::string::npos || star == 0) continue;
    const std::string name = k.substr(0, star);
    if (name == "_") continue;
    if (k == name + "*") {
      out[name] = decodeRFC2231(raw[k]);
      continue;
    }
    if (k != name + "*0" && k != name + "*0*") continue;
    std::string charset;
    std::string bytes;
    bool extended = false;
    for (int n = 0; n < 1000; ++n) {
      const std::string plain = name + "*" + std::to_string(n);
      auto it = raw.find(plain + "*");
      if (it != raw.end()) {
        std::string piece = ascii(it->second);
        if (n == 0) {
          const auto q1 = piece.find('\'');
          const auto q2 = q1 == std::string::npos ? q1 : piece.find('\'', q1 + 1);
          if (q2 != std::string::npos) {
            charset = piece.substr(0, q1);
            piece.erase(0, q2 + 1);
          }
        }
        bytes += unescape(piece);
        extended = true;
        continue;
      }
      it = raw.find(plain);
      if (it == raw.end()) break;
      bytes += ascii(it->second);
    }
    if (extended) {
      auto text = mht::decodeCharset(bytes, charset.empty() ? "UTF-8" : charset, false);
      out[name] = text ? *text : toUtf16(bytes);
    } else {
      out[name] = toUtf16(bytes);
    }
  }
  return out;
}

std::u16string MhtFormatParser::decodeRFC2231(std::u16string_view value) {
  const std::string s = ascii(value);
  const auto q1 = s.find('\'');
  const auto q2 = q1 == std::string::npos ? q1 : s.find('\'', q1 + 1);
  const std::string charset = q2 == std::string::npos ? "UTF-8" : s.substr(0, q1);
  const std::string bytes = unescape(q2 == std::string::npos ? s : s.substr(q2 + 1));
  auto text = mht::decodeCharset(bytes, charset.empty() ? "UTF-8" : charset, false);
  return text ? *text : std::u16string(value);
}

std::u16string MhtFormatParser::decodeEW(std::u16string_view value) {
  if (value.substr(0, 2) != u"=?") return std::u16string(value);
  std::u16string out;
  std::u16string_view rest = value;
  bool first = true;
  while (rest.substr(0, 2) == u"=?") {
    const std::size_t q1 = rest.find(u'?', 2);
    if (q1 == std::u16string_view::npos) break;
    const std::size_t q2 = rest.find(u'?', q1 + 1);
    if (q2 == std::u16string_view::npos || q2 != q1 + 2) break;
    const std::size_t end = rest.find(u"?=", q2 + 1);
    if (end == std::u16string_view::npos) break;
    std::string charset = ascii(rest.substr(2, q1 - 2));
    if (auto star = charset.find('*'); star != std::string::npos) charset.erase(star);
    const char16_t mode = rest[q1 + 1];
    const std::string payload = ascii(rest.substr(q2 + 1, end - q2 - 1));
    std::string bytes;
    if (mode == u'Q' || mode == u'q') {
      std::string p = payload;
      std::replace(p.begin(), p.end(), '_', ' ');
      bytes = decodeQuotedPrintable(p);
    } else if (mode == u'B' || mode == u'b') {
      bytes = atob(std::string_view(payload));
    } else {
      return first ? std::u16string(value) : out + std::u16string(rest);
    }
    auto text = mht::decodeCharset(bytes, charset, true);
    if (!text) return {};
    out += *text;
    first = false;
    rest.remove_prefix(end + 2);
    // Blanks between two encoded words are not text.
    std::size_t k = 0;
    while (k < rest.size() && (rest[k] == u' ' || rest[k] == u'\t')) ++k;
    if (rest.substr(k, 2) == u"=?") rest.remove_prefix(k);
  }
  out += rest;
  return out;
}

std::string MhtFormatParser::decodeQuotedPrintable(std::string_view bytes) {
  return decodeEscapes(bytes, '=');
}

std::string MhtFormatParser::unescape(std::string_view bytes) {
  return decodeEscapes(bytes, '%');
}

std::string MhtFormatParser::atob(std::u16string_view text) {
  // Units past 0xFF are never base64; the rest go through as bytes, a
  // stretch at a time.
  Base64Stream stream;
  std::string out;
  out.reserve(text.size() / 4 * 3 + 3);
  std::string bytes;
  constexpr std::size_t kStretch = 1 << 16;
  for (std::size_t at = 0; at < text.size(); at += kStretch) {
    bytes.clear();
    for (char16_t unit : text.substr(at, kStretch))
      if (unit <= 0xFF) bytes += static_cast<char>(unit);
    stream.feed(bytes, out);
  }
  stream.finish(out);
  return out;
}

std::string MhtFormatParser::atob(std::string_view text) {
  Base64Stream stream;
  std::string out;
  out.reserve(text.size() / 4 * 3 + 3);
  stream.feed(text, out);
  stream.finish(out);
  return out;
}

std::string MhtFormatParser::btoa(std::string_view bytes) {
  static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) |
                       (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                       static_cast<unsigned char>(bytes[i + 2]);
    out += alphabet[(v >> 18) & 63];
    out += alphabet[(v >> 12) & 63];
    out += alphabet[(v >> 6) & 63];
    out += alphabet[v & 63];
  }
  if (i < bytes.size()) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += alphabet[(v >> 18) & 63];
    out += alphabet[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? alphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace harbor

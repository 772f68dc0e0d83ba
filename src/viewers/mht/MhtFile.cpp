#include "viewers/mht/MhtFile.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "archive/SafeExtraction.h"
#include "encoding/EncodingUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"
#include "viewers/mht/MhtCharset.h"
#include "viewers/mht/MhtFormatParser.h"

namespace harbor {
namespace {

bool startsWithIgnoreCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && equalsIgnoreCase(s.substr(0, prefix.size()), prefix);
}

std::string joinFolder(const std::string& base, const std::string& folder) {
  if (folder.empty() || folder == "/") return base;
  if (!base.empty() && base.back() == '/') return base + folder.substr(1);
  return base + folder;
}

// An attribute value as the page means it: "&amp;" in a URL is "&".
bool sameValue(std::u16string_view written, std::u16string_view wanted) {
  if (written == wanted) return true;
  if (written.find(u"&amp;") == std::u16string_view::npos) return false;
  std::u16string plain;
  plain.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    plain += written[i];
    if (written.compare(i, 5, u"&amp;") == 0) i += 4;
  }
  return plain == wanted;
}

}  // namespace

std::string MhtFile::fullFolderPath() const {
  return joinFolder(_basePath, _folderPath);
}

std::string MhtFile::fullPath() const {
  const std::string folder = fullFolderPath();
  return folder + (folder.empty() || folder.back() != '/' ? "/" : "") + _fileName;
}

std::string MhtFile::fullRelativePath() const {
  if (_folderPath.empty() || _folderPath == "/") return "/" + _fileName;
  return _folderPath + "/" + _fileName;
}

bool MhtFile::isHtmlFormat() const {
  return equalsIgnoreCase(_filetype, "text/html");
}

bool MhtFile::isCssFormat() const {
  return equalsIgnoreCase(_filetype, "text/css");
}

bool MhtFile::isImageFormat() const {
  return startsWithIgnoreCase(_filetype, "image/");
}

bool MhtFile::isTextPart() const {
  return _encoding != kEncodingBase64 || isHtmlFormat();
}

void MhtFile::decodeContent(const std::string& archiveEncoding) {
  if (_encoding == kEncodingQuotedPrintable) {
    // The escapes stand for bytes of the archive's own encoding.
    _binContent = MhtFormatParser::decodeQuotedPrintable(
        mht::encodeCharset(_content, archiveEncoding.empty() ? "UTF-8" : archiveEncoding, false));
  } else if (_encoding == kEncodingBase64) {
    // Usually decoded already while the archive was scanned.
    if (!_content.empty()) _binContent = MhtFormatParser::atob(_content);
  } else {
    _binContent = toUtf8(_content);
    _charset = "UTF-8";
  }
  if (_spoolPath.empty()) _size = static_cast<std::int64_t>(_binContent.size());
  // Binary parts never need the encoded text again.
  if (!isTextPart()) {
    _content.clear();
    _content.shrink_to_fit();
  }
}

void MhtFile::genBinContentString() {
  if (!isTextPart()) return;
  auto text = mht::decodeCharset(_binContent, _charset, false);
  if (!text || (text->empty() && !_binContent.empty())) {
    std::string detected;
    text = EncodingUtil::detectWithData(_binContent, &detected);
    if (text && !detected.empty()) _charset = detected;
  }
  _binContentString = text ? std::move(*text) : std::u16string();
}

void MhtFile::loadFormatParser() {
  genBinContentString();
  if (isHtmlFormat()) {
    _formatParser = CodeFactory::codeFormatParserWithExtension("html");
    if (_formatParser) {
      TextStorage storage(_binContentString);
      _formatParser->parserValueWithTextStorage(storage, 0, storage.length());
      _formatParser->textStorage = nullptr;
    }
  }
  _content.clear();
  _content.shrink_to_fit();
}

std::vector<TextRange> MhtFile::findAttriNameAndValue(std::u16string_view attriName,
                                                      std::u16string_view attriValue) const {
  std::vector<TextRange> out;
  if (!_formatParser || attriValue.empty()) return out;
  const std::u16string_view text = _formatParser->text;
  auto slice = [&](TextRange r) -> std::u16string_view {
    if (r.location >= text.size()) return {};
    return text.substr(r.location, r.length);
  };
  for (const auto& element : _formatParser->elementItems) {
    if (!element) continue;
    for (const auto& attr : element->children()) {
      if (!attr || !attr->value()) continue;
      if (!equalsIgnoringAsciiCase(slice(attr->range), attriName)) continue;
      TextRange r = attr->value()->range;
      std::u16string_view v = slice(r);
      if (v.size() >= 2 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front()) {
        r = {r.location + 1, r.length - 2};
        v = slice(r);
      }
      // Browsers ignore blanks around a URL attribute; so do we.
      while (!v.empty() && (v.front() == u' ' || v.front() == u'\t' || v.front() == u'\n' ||
                            v.front() == u'\r')) {
        v.remove_prefix(1);
        ++r.location;
        --r.length;
      }
      while (!v.empty() &&
             (v.back() == u' ' || v.back() == u'\t' || v.back() == u'\n' || v.back() == u'\r')) {
        v.remove_suffix(1);
        --r.length;
      }
      if (sameValue(v, attriValue)) out.push_back(r);
    }
  }
  return out;
}

bool MhtFile::saveToFile() const {
  const std::string folder = fullFolderPath();
  if (!FileUtil::createFolder(folder)) {
    HB_LOG("MhtFile", "cannot create " + folder);
    return false;
  }
  if (!_spoolPath.empty() && !isTextPart()) {
    std::error_code ec;
    std::filesystem::rename(_spoolPath, fullPath(), ec);
    if (ec) {
      std::filesystem::copy_file(_spoolPath, fullPath(),
                                 std::filesystem::copy_options::overwrite_existing, ec);
    }
    if (ec) HB_LOG("MhtFile", "cannot write " + fullPath());
    return !ec;
  }
  const std::string bytes = isTextPart()
                                ? mht::encodeCharset(_binContentString, _charset, isHtmlFormat())
                                : std::string();
  const std::string& data = isTextPart() ? bytes : _binContent;
  // A short hidden name beside the target: a name near the 255-byte limit
  // leaves no room for the usual temporary-name prefix and suffix.
  const std::string target = fullPath();
  const std::string temp = folder + "/.mht-" + extraction::uniqueName() + ".part";
  std::error_code ec;
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (out) out.write(data.data(), static_cast<std::streamsize>(data.size()));
    if (!out || !out.flush()) {
      std::filesystem::remove(temp, ec);
      HB_LOG("MhtFile", "cannot write " + target);
      return false;
    }
  }
  std::filesystem::rename(temp, target, ec);
  if (ec) {
    std::filesystem::remove(temp, ec);
    HB_LOG("MhtFile", "cannot write " + target);
    return false;
  }
  return true;
}

}  // namespace harbor

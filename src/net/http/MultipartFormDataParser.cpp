#include "net/http/MultipartFormDataParser.h"

#include <cctype>
#include <cstring>

#include "platform/Log.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

// A head that has not ended after this much is no head.
constexpr std::size_t kMaxHeadSize = 64 * 1024;

std::optional<std::string> toText(std::string_view bytes, unsigned encoding) {
  if (encoding == kFormEncodingLatin1) {
    std::string out;
    for (unsigned char c : bytes) {
      if (c < 0x80) {
        out += static_cast<char>(c);
      } else {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
      }
    }
    return out;
  }
  // UTF-8 must be well formed.
  std::size_t i = 0;
  while (i < bytes.size()) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    std::size_t n;
    if (c < 0x80)
      n = 0;
    else if (c >= 0xC2 && c <= 0xDF)
      n = 1;
    else if ((c & 0xF0) == 0xE0)
      n = 2;
    else if (c >= 0xF0 && c <= 0xF4)
      n = 3;
    else
      return std::nullopt;
    if (i + n >= bytes.size() && n > 0) return std::nullopt;
    for (std::size_t k = 1; k <= n; ++k) {
      if ((static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) return std::nullopt;
    }
    i += n + 1;
  }
  return std::string(bytes);
}

// One surrounding pair of quotes dropped, then every backslash removed with
// the character after it kept.
std::string unquote(std::string text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size())
      ++i;
    else if (text[i] == '\\')
      continue;
    out += text[i];
  }
  return out;
}

std::string_view trimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

int base64Value(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

// ---- Head fields --------------------------------------------------------------

std::optional<MultipartMessageHeaderField> MultipartMessageHeaderField::initWithData(
    std::string_view data, unsigned contentEncoding) {
  std::size_t colon = data.find(':');
  if (colon == std::string_view::npos || colon + 1 == data.size()) {
    HB_LOG("MultipartMessageHeaderField", "no value in a head line");
    return std::nullopt;
  }
  MultipartMessageHeaderField field;
  for (unsigned char c : data.substr(0, colon)) {
    if (c >= 0x80) return std::nullopt;  // names are ASCII
  }
  field.name = std::string(trimBlanks(data.substr(0, colon)));
  std::size_t start = colon + 1;
  if (start < data.size() && data[start] == ' ') ++start;
  std::string_view rest = data.substr(start);
  std::size_t semi = rest.find(';');
  if (semi == std::string_view::npos) {
    auto text = toText(rest, contentEncoding);
    if (!text) return std::nullopt;
    field.value = *text;
    return field;
  }
  auto text = toText(rest.substr(0, semi), contentEncoding);
  if (!text) return std::nullopt;
  field.value = *text;
  if (!field.parseHeaderValueBytes(rest.substr(semi + 1), contentEncoding)) {
    HB_LOG("MultipartMessageHeaderField", "bad parameters in " + field.name);
  }
  return field;
}

bool MultipartMessageHeaderField::parseHeaderValueBytes(std::string_view bytes, unsigned encoding) {
  bool inQuotes = false;
  std::size_t start = 0;
  std::optional<std::string> name;
  auto store = [&](std::string_view raw) {
    auto text = toText(trimBlanks(raw), encoding);
    if (!text) {
      HB_LOG("MultipartMessageHeaderField", "a parameter value does not convert");
      return;
    }
    params[*name] = unquote(*text);
  };
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    char c = bytes[i];
    if (c == '"' && (i == 0 || bytes[i - 1] != '\\')) {
      inQuotes = !inQuotes;
      continue;
    }
    if (inQuotes) continue;
    if (c == '=') {
      if (name) return false;  // a second "=" in one parameter
      name = std::string(trimBlanks(bytes.substr(start, i - start)));
      start = i + 1;
    } else if (c == ';') {
      if (!name) return false;
      store(bytes.substr(start, i - start));
      name.reset();
      start = i + 1;
    }
  }
  if (inQuotes) HB_LOG("MultipartMessageHeaderField", "an unclosed quote");
  if (name) {
    store(bytes.substr(start));
  } else if (!trimBlanks(bytes.substr(start)).empty()) {
    return false;
  }
  return true;
}

// ---- Heads --------------------------------------------------------------------

std::unique_ptr<MultipartMessageHeader> MultipartMessageHeader::initWithData(
    std::string_view data, unsigned formEncoding) {
  auto header = std::make_unique<MultipartMessageHeader>();
  std::size_t start = 0;
  auto takeLine = [&](std::string_view line) {
    if (line.empty()) return;
    auto field = MultipartMessageHeaderField::initWithData(line, formEncoding);
    if (!field) {
      HB_LOG("MultipartMessageHeader", "a head line was skipped");
      return;
    }
    std::string key = field->name;
    header->fields[key] = std::move(*field);
  };
  for (std::size_t i = 0; i + 1 < data.size(); ++i) {
    if (data[i] != '\r' || data[i + 1] != '\n') continue;
    // A line that goes on after a blank is folded into this one.
    if (i + 2 < data.size()) {
      unsigned char next = static_cast<unsigned char>(data[i + 2]);
      if (next < 0x80 && (next == ' ' || next == '\t')) continue;
    }
    takeLine(data.substr(start, i - start));
    start = i + 2;
    ++i;
  }
  if (start < data.size()) takeLine(data.substr(start));
  if (header->fields.empty()) {
    MultipartMessageHeaderField f;
    f.name = "Content-Type";
    f.value = "text/plain";
    header->fields[f.name] = f;
  }
  for (const auto& [name, field] : header->fields) {
    if (equalsIgnoreCase(name, "Content-Transfer-Encoding")) {
      std::string v = toLower(field.value);
      if (v == "base64")
        header->encoding = contentTransferEncoding_base64;
      else if (v == "quoted-printable")
        header->encoding = contentTransferEncoding_quotedPrintable;
      else if (v == "7bit")
        header->encoding = contentTransferEncoding_7bit;
      else if (v == "8bit")
        header->encoding = contentTransferEncoding_8bit;
      else if (v == "binary")
        header->encoding = contentTransferEncoding_binary;
    } else if (equalsIgnoreCase(name, "Content-Disposition")) {
      auto it = field.params.find("name");
      if (it != field.params.end()) header->contentDispositionName = it->second;
    }
  }
  return header;
}

// ---- The parser ---------------------------------------------------------------

std::unique_ptr<MultipartFormDataParser> MultipartFormDataParser::initWithBoundary(
    const std::string& boundary, unsigned formEncoding) {
  if (boundary.empty()) {
    HB_LOG("MultipartFormDataParser", "no boundary");
    return nullptr;
  }
  auto parser = std::unique_ptr<MultipartFormDataParser>(new MultipartFormDataParser());
  parser->boundaryData_ = "\r\n--" + boundary;
  parser->formEncoding_ = formEncoding;
  return parser;
}

std::size_t MultipartFormDataParser::numberOfBytesToLeavePending(std::string_view data,
                                                                 int encoding) const {
  if (encoding == contentTransferEncoding_base64) {
    // Only whole lines are decoded.
    std::size_t crlf = data.rfind("\r\n");
    return crlf == std::string_view::npos ? data.size() : data.size() - (crlf + 2);
  }
  // An escape or soft break is never cut, however short the piece.
  if (encoding == contentTransferEncoding_quotedPrintable && !data.empty()) {
    if (data[data.size() - 1] == '=') return 1;
    if (data.size() >= 2 && data[data.size() - 2] == '=') return 2;
  }
  return 0;
}

void MultipartFormDataParser::deliverContent(std::string_view data) {
  if (!delegate_ || !currentHeader_ || data.empty()) return;
  std::string decoded = decodedDataFromData(data, currentEncoding_);
  delegate_->processContent(decoded, *currentHeader_);
}

bool MultipartFormDataParser::appendData(std::string_view data) {
  if (failed_) return false;
  pendingData_.append(data);
  while (true) {
    if (reachedEpilogue_ && !waitingForCRLF_ && !checkForContentEnd_) {
      if (delegate_ && !pendingData_.empty()) delegate_->processEpilogueData(pendingData_);
      pendingData_.clear();
      return true;
    }
    if (!processedPreamble_) {
      // The first boundary may open the body with no CR LF before it.
      std::string_view first = std::string_view(boundaryData_).substr(2);
      std::size_t pos = pendingData_.find(first);
      if (pos == std::string::npos) {
        std::size_t keep = std::min(pendingData_.size(), first.size() - 1);
        std::size_t give = pendingData_.size() - keep;
        if (delegate_ && give)
          delegate_->processPreambleData(std::string_view(pendingData_).substr(0, give));
        pendingData_.erase(0, give);
        return true;
      }
      if (delegate_ && pos)
        delegate_->processPreambleData(std::string_view(pendingData_).substr(0, pos));
      pendingData_.erase(0, pos + first.size());
      processedPreamble_ = true;
      checkForContentEnd_ = true;
      continue;
    }
    if (checkForContentEnd_) {
      if (pendingData_.size() < 2) return true;
      if (pendingData_.compare(0, 2, "--") == 0) {
        reachedEpilogue_ = true;
        pendingData_.erase(0, 2);
      }
      checkForContentEnd_ = false;
      waitingForCRLF_ = true;
      continue;
    }
    if (waitingForCRLF_) {
      std::size_t crlf = pendingData_.find("\r\n");
      if (crlf == std::string::npos) {
        // Padding after a boundary is dropped; a trailing CR may start the line end.
        bool cr = !pendingData_.empty() && pendingData_.back() == '\r';
        pendingData_ = cr ? "\r" : "";
        return true;
      }
      pendingData_.erase(0, crlf + 2);
      waitingForCRLF_ = false;
      continue;
    }
    if (!currentHeader_) {
      std::size_t end;
      std::size_t skip;
      if (pendingData_.compare(0, 2, "\r\n") == 0) {
        end = 0;  // a part without head lines
        skip = 2;
      } else {
        end = pendingData_.find("\r\n\r\n");
        skip = 4;
        if (end == std::string::npos) {
          if (pendingData_.size() > kMaxHeadSize) {
            HB_LOG("MultipartFormDataParser", "a part head without an end");
            failed_ = true;
            return false;
          }
          return true;
        }
      }
      if (pendingData_.size() < 2) return true;
      currentHeader_ = MultipartMessageHeader::initWithData(
          std::string_view(pendingData_).substr(0, end), formEncoding_);
      if (!currentHeader_) {
        HB_LOG("MultipartFormDataParser", "a part head that cannot be read");
        failed_ = true;
        return false;
      }
      currentEncoding_ = currentHeader_->encoding;
      pendingData_.erase(0, end + skip);
      if (delegate_) delegate_->processStartOfPartWithHeader(*currentHeader_);
      continue;
    }
    std::size_t pos = pendingData_.find(boundaryData_);
    if (pos != std::string::npos) {
      deliverContent(std::string_view(pendingData_).substr(0, pos));
      if (delegate_) delegate_->processEndOfPartWithHeader(*currentHeader_);
      currentHeader_.reset();
      pendingData_.erase(0, pos + boundaryData_.size());
      checkForContentEnd_ = true;
      continue;
    }
    if (pendingData_.size() <= boundaryData_.size()) return true;
    std::size_t size = pendingData_.size() - boundaryData_.size();
    std::string_view candidate = std::string_view(pendingData_).substr(0, size);
    size -= numberOfBytesToLeavePending(candidate, currentEncoding_);
    if (size == 0) return true;
    deliverContent(std::string_view(pendingData_).substr(0, size));
    pendingData_.erase(0, size);
    return true;
  }
}

std::string MultipartFormDataParser::decodedDataFromData(std::string_view data, int encoding) {
  if (encoding == contentTransferEncoding_base64) {
    std::string out;
    unsigned buffer = 0;
    int bits = 0;
    for (unsigned char c : data) {
      if (c == '=') break;
      int v = base64Value(c);
      if (v < 0) continue;  // line breaks and blanks
      buffer = (buffer << 6) | static_cast<unsigned>(v);
      bits += 6;
      if (bits >= 8) {
        bits -= 8;
        out += static_cast<char>((buffer >> bits) & 0xFF);
      }
    }
    return out;
  }
  if (encoding == contentTransferEncoding_quotedPrintable) {
    return decodedDataFromQuotedPrintableData(data);
  }
  return std::string(data);
}

std::string MultipartFormDataParser::decodedDataFromQuotedPrintableData(std::string_view data) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (data[i] != '=') {
      out += data[i];
      continue;
    }
    if (i + 2 >= data.size()) {
      HB_LOG("MultipartFormDataParser", "a cut quoted-printable escape");
      break;
    }
    if (data[i + 1] == '\r') {
      i += 2;  // a soft line break
      continue;
    }
    // Lower-case digits are not in the table and count as 0, as senders expect.
    auto digit = [&](char c) {
      const char* p = std::strchr(hex, c);
      return p && c ? static_cast<int>(p - hex) : 0;
    };
    out += static_cast<char>(digit(data[i + 1]) * 16 + digit(data[i + 2]));
    i += 2;
  }
  return out;
}

}  // namespace harbor

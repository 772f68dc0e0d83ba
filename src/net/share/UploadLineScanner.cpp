#include "net/share/UploadLineScanner.h"

namespace harbor {
namespace {
constexpr std::string_view kOctetStream = "Content-Type: application/octet-stream";
}

UploadLineScanner::UploadLineScanner(std::string boundary)
    : boundaryData_(boundary.empty() ? std::string() : "--" + boundary) {}

UploadLineScanner::Start UploadLineScanner::scanHead(std::string_view piece) {
  Start out;
  if (piece.size() == 2 || boundaryData_.empty() || postHeaderOK_) return out;
  std::size_t dataStartIndex = 0;
  while (true) {
    std::size_t crlf = piece.find("\r\n", dataStartIndex);
    if (crlf == std::string_view::npos) break;
    std::string_view line = piece.substr(dataStartIndex, crlf - dataStartIndex);
    dataStartIndex = crlf + 2;
    if (line.empty()) {
      if (!multipartData_.empty() && multipartData_.back() == kOctetStream) {
        postHeaderOK_ = true;
        break;
      }
      continue;
    }
    // Only the first few lines matter; a long preamble must not grow this.
    if (multipartData_.size() < 64) multipartData_.emplace_back(line);
  }
  if (!postHeaderOK_) return out;
  if (multipartData_.size() < 5) {
    out.dropped = true;
    return out;
  }
  std::string_view disposition = multipartData_[4];
  std::size_t at = disposition.rfind("; filename=");
  std::string_view tail = at == std::string_view::npos ? disposition : disposition.substr(at + 11);
  std::size_t q1 = tail.find('"');
  if (q1 == std::string_view::npos) {
    out.dropped = true;
    return out;
  }
  std::size_t q2 = tail.find('"', q1 + 1);
  out.name = std::string(
      tail.substr(q1 + 1, q2 == std::string_view::npos ? std::string_view::npos : q2 - q1 - 1));
  out.found = true;
  std::string_view rest = piece.substr(dataStartIndex);
  std::size_t b = piece.find(boundaryData_, dataStartIndex);
  if (b != std::string_view::npos && b > dataStartIndex + 2) {
    rest = piece.substr(dataStartIndex, b - 2 - dataStartIndex);
    fileEnded_ = true;
  } else if (b != std::string_view::npos) {
    rest = {};
    fileEnded_ = true;
  }
  out.data = rest;
  return out;
}

std::string_view UploadLineScanner::fileData(std::string_view piece) {
  if (fileEnded_) return {};  // what follows the closing boundary is not the file's
  std::size_t b = piece.find(boundaryData_);
  if (b == std::string_view::npos) return piece;
  fileEnded_ = true;
  return piece.substr(0, b >= 2 ? b - 2 : 0);
}

std::string UploadLineScanner::uploadLeafName(std::string_view name) {
  if (name.find('\0') != std::string_view::npos) return {};
  std::size_t cut = name.find_last_of("/\\");
  if (cut != std::string_view::npos) name = name.substr(cut + 1);
  if (name.empty() || name == "." || name == "..") return "untitle";
  return std::string(name);
}

}  // namespace harbor

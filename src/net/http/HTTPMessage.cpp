#include "net/http/HTTPMessage.h"

#include <algorithm>
#include <cctype>

namespace harbor {
namespace {

// Heads this server reads are at most 100 lines of 8190 bytes; a message fed
// more than that by another caller is refused rather than held.
constexpr std::size_t kMaxPending = 64 * 1024;

bool isTokenChar(unsigned char c) {
  if (std::isalnum(c)) return true;
  switch (c) {
    case '!':
    case '#':
    case '$':
    case '%':
    case '&':
    case '\'':
    case '*':
    case '+':
    case '-':
    case '.':
    case '^':
    case '_':
    case '`':
    case '|':
    case '~':
      return true;
    default:
      return false;
  }
}

bool isToken(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
    return isTokenChar(static_cast<unsigned char>(c));
  });
}

// "HTTP/" digit "." digit; other versions are answered 505 later, not refused.
bool isVersion(std::string_view v) {
  if (v.size() < 8 || v.substr(0, 5) != "HTTP/") return false;
  std::string_view rest = v.substr(5);
  std::size_t dot = rest.find('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == rest.size()) return false;
  auto digits = [](std::string_view s) {
    return s.size() <= 3 &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
  };
  return digits(rest.substr(0, dot)) && digits(rest.substr(dot + 1));
}

std::string_view trimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

}  // namespace

std::unique_ptr<HTTPMessage> HTTPMessage::initEmptyRequest() {
  return std::unique_ptr<HTTPMessage>(new HTTPMessage());
}

std::unique_ptr<HTTPMessage> HTTPMessage::initEmptyResponse() {
  auto m = std::unique_ptr<HTTPMessage>(new HTTPMessage());
  m->isRequest_ = false;
  return m;
}

std::unique_ptr<HTTPMessage> HTTPMessage::initRequestWithMethod(std::string method, std::string url,
                                                                std::string version) {
  auto m = initEmptyRequest();
  m->method_ = std::move(method);
  m->url_ = std::move(url);
  m->version_ = std::move(version);
  m->sawStartLine_ = true;
  m->complete_ = true;
  return m;
}

std::unique_ptr<HTTPMessage> HTTPMessage::initResponseWithStatusCode(int code,
                                                                     std::string description,
                                                                     std::string version) {
  auto m = initEmptyResponse();
  m->status_ = code;
  m->description_ = description.empty() ? reasonPhrase(code) : std::move(description);
  m->version_ = std::move(version);
  m->sawStartLine_ = true;
  m->complete_ = true;
  return m;
}

bool HTTPMessage::appendData(std::string_view data) {
  if (failed_) return false;
  if (complete_) {
    failed_ = true;  // bytes after the blank line belong to the body, not here
    return false;
  }
  pending_.append(data);
  std::size_t start = 0;
  while (!complete_) {
    std::size_t lf = pending_.find('\n', start);
    if (lf == std::string::npos) break;
    if (lf == start || pending_[lf - 1] != '\r') {
      failed_ = true;  // a bare LF
      return false;
    }
    if (!takeLine(std::string_view(pending_).substr(start, lf - 1 - start))) {
      failed_ = true;
      return false;
    }
    start = lf + 1;
  }
  pending_.erase(0, start);
  if (complete_ && !pending_.empty()) {
    failed_ = true;
    return false;
  }
  if (pending_.size() > kMaxPending) {
    failed_ = true;
    return false;
  }
  return true;
}

bool HTTPMessage::takeLine(std::string_view line) {
  if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) return false;
  if (!sawStartLine_) {
    if (line.empty()) return true;  // blank lines before a request line are tolerated
    return takeStartLine(line);
  }
  if (line.empty()) {
    complete_ = true;
    return true;
  }
  return takeFieldLine(line);
}

bool HTTPMessage::takeStartLine(std::string_view line) {
  std::size_t sp1 = line.find(' ');
  if (sp1 == std::string_view::npos) return false;
  if (isRequest_) {
    std::size_t sp2 = line.find(' ', sp1 + 1);
    if (sp2 == std::string_view::npos || line.find(' ', sp2 + 1) != std::string_view::npos) {
      return false;
    }
    std::string_view method = line.substr(0, sp1);
    std::string_view url = line.substr(sp1 + 1, sp2 - sp1 - 1);
    std::string_view version = line.substr(sp2 + 1);
    if (!isToken(method) || url.empty() || !isVersion(version)) return false;
    for (unsigned char c : url) {
      if (c <= 0x20 || c == 0x7f) return false;
    }
    method_ = method;
    url_ = url;
    version_ = version;
  } else {
    std::string_view version = line.substr(0, sp1);
    std::string_view rest = line.substr(sp1 + 1);
    if (!isVersion(version) || rest.size() < 3) return false;
    int code = 0;
    for (int i = 0; i < 3; ++i) {
      if (rest[i] < '0' || rest[i] > '9') return false;
      code = code * 10 + (rest[i] - '0');
    }
    if (rest.size() > 3 && rest[3] != ' ') return false;
    version_ = version;
    status_ = code;
    description_ = rest.size() > 4 ? std::string(rest.substr(4)) : std::string();
  }
  sawStartLine_ = true;
  return true;
}

bool HTTPMessage::takeFieldLine(std::string_view line) {
  if (line.front() == ' ' || line.front() == '\t') {
    // A folded line continues the previous field.
    if (fields_.empty()) return false;
    std::string_view more = trimBlanks(line);
    if (equalsIgnoreCase(fields_.back().first, "Content-Length")) return false;
    if (!more.empty()) {
      if (!fields_.back().second.empty()) fields_.back().second += ' ';
      fields_.back().second.append(more);
    }
    return true;
  }
  std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return false;
  std::string_view name = line.substr(0, colon);
  if (!isToken(name)) return false;
  std::string_view value = trimBlanks(line.substr(colon + 1));
  if (equalsIgnoreCase(name, "Content-Length")) {
    // Only plain digits, and only once: a length two parties read differently
    // is how requests get smuggled.
    if (value.empty() ||
        !std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      return false;
    }
    if (headerField(name)) return false;
  }
  for (auto& f : fields_) {
    if (equalsIgnoreCase(f.first, name)) {
      // Repeated fields read as one list; empty members add nothing.
      if (!value.empty()) {
        if (!f.second.empty()) f.second += ", ";
        f.second.append(value);
      }
      return true;
    }
  }
  fields_.emplace_back(std::string(name), std::string(value));
  return true;
}

std::optional<std::string> HTTPMessage::headerField(std::string_view name) const {
  for (const auto& f : fields_) {
    if (equalsIgnoreCase(f.first, name)) return f.second;
  }
  return std::nullopt;
}

void HTTPMessage::setHeaderField(std::string_view name, std::string value) {
  for (auto& f : fields_) {
    if (equalsIgnoreCase(f.first, name)) {
      f.second = std::move(value);
      return;
    }
  }
  fields_.emplace_back(std::string(name), std::move(value));
}

std::string HTTPMessage::messageData() const {
  std::string out;
  out.reserve(128 + body_.size());
  if (isRequest_) {
    out += method_ + " " + url_ + " " + version_ + "\r\n";
  } else {
    out += version_ + " " + std::to_string(status_) + " " + description_ + "\r\n";
  }
  for (const auto& [name, value] : fields_) {
    out += name;
    out += ": ";
    out += value;
    out += "\r\n";
  }
  out += "\r\n";
  out += body_;
  return out;
}

std::string HTTPMessage::reasonPhrase(int status) {
  switch (status) {
    case 100:
      return "Continue";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 204:
      return "No Content";
    case 206:
      return "Partial Content";
    case 207:
      return "Multi-Status";
    case 302:
      return "Found";
    case 304:
      return "Not Modified";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 409:
      return "Conflict";
    case 412:
      return "Precondition Failed";
    case 413:
      return "Payload Too Large";
    case 500:
      return "Internal Server Error";
    case 505:
      return "HTTP Version Not Supported";
    default:
      return "Unknown";
  }
}

}  // namespace harbor

// Reading a web archive from disk without holding its images: the bodies of
// large base64 parts are decoded, a piece at a time, straight into files of
// their own, and the text the parser sees carries a marker line in their
// place. Everything else reaches the parser as it stands.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "encoding/DetectorCharacter.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "viewers/mht/MhtFormatParser.h"

namespace harbor {
namespace {

bool isBase64Unit(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/' || c == '=';
}

// A line (with its line end) that a base64 body may hold: data, blanks and
// nothing else. Such a line can never hold a "--" delimiter.
bool isBase64Line(std::string_view line) {
  for (unsigned char c : line) {
    if (!isBase64Unit(c) && c != '\r' && c != '\n' && c != ' ' && c != '\t') return false;
  }
  return true;
}

std::u16string widen(std::string_view bytes) {
  std::u16string out(bytes.size(), u'\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    out[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
  return out;
}

constexpr const char* kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";

}  // namespace

void MhtFormatParser::Base64Stream::feed(std::string_view text, std::string& out) {
  static const auto table = [] {
    std::array<std::int8_t, 256> t{};
    t.fill(-1);
    // "=" is the 65th letter: it ends a group early.
    for (int i = 0; i < 65; ++i)
      t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    return t;
  }();
  for (unsigned char ch : text) {
    const int v = table[ch];
    if (v < 0) continue;
    quad_[n_++] = v;
    if (n_ < 4) continue;
    n_ = 0;
    if (quad_[0] == 64 || quad_[1] == 64) continue;
    out += static_cast<char>((quad_[0] << 2) | (quad_[1] >> 4));
    if (quad_[2] == 64) continue;
    out += static_cast<char>(((quad_[1] & 15) << 4) | (quad_[2] >> 2));
    if (quad_[3] == 64) continue;
    out += static_cast<char>(((quad_[2] & 3) << 6) | quad_[3]);
  }
}

void MhtFormatParser::Base64Stream::finish(std::string& out) {
  // A truncated last group still gives the bytes it holds in full, as atob.
  if (n_ >= 2 && quad_[0] != 64 && quad_[1] != 64) {
    out += static_cast<char>((quad_[0] << 2) | (quad_[1] >> 4));
    if (n_ == 3 && quad_[2] != 64)
      out += static_cast<char>(((quad_[1] & 15) << 4) | (quad_[2] >> 2));
  }
  n_ = 0;
}

std::string MhtFormatParser::Base64Stream::unfinished() const {
  std::string out;
  for (int i = 0; i < n_; ++i) out += kAlphabet[quad_[i]];
  return out;
}

namespace {

// One body being decoded to disk.
struct SpoolWriter {
  std::FILE* file = nullptr;
  std::string path;
  std::int64_t size = 0;
  std::string buffer;
  bool failed = false;

  void write(bool force) {
    if (buffer.empty() || (!force && buffer.size() < (1 << 16))) return;
    if (!failed && std::fwrite(buffer.data(), 1, buffer.size(), file) != buffer.size()) {
      failed = true;
    }
    size += static_cast<std::int64_t>(buffer.size());
    buffer.clear();
  }
};

}  // namespace

bool MhtFormatParser::readSpooled(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    HB_LOG("MhtFormatParser", "cannot read " + path);
    return false;
  }
  _spoolFolder = mhtTempDirectory() + "/.spool-" + detail::makeUUID();
  _spoolToken = "\x01" + detail::makeUUID() + ":";
  _spools.clear();
  _claimedSpools = 0;
  _fileHead.clear();

  // The line end is the archive's first, as the parser will find it.
  std::string rc;
  std::string skeleton;
  std::vector<std::string> boundaries;
  enum class State { Head, Body, Base64 } state = State::Head;
  std::string head;     // the current part's head lines
  std::string pending;  // base64 lines not yet known to be worth a file
  SpoolWriter spool;
  Base64Stream decoder;
  bool ok = true;

  auto isDelimiter = [&](std::string_view line) {
    if (rc.empty() || line.size() < 2 || line[0] != '-' || line[1] != '-') return false;
    const std::string_view rest = line.substr(2);
    for (const auto& b : boundaries) {
      if (!rest.starts_with(b)) continue;
      const std::string_view after = rest.substr(b.size());
      if (after == rc || after.starts_with("--")) return true;
    }
    return false;
  };
  // Decides at a head's end whether its body may go to disk, and learns
  // the boundaries of multiparts.
  auto bodyGoesToDisk = [&]() {
    const auto header = splitHeader(widen(head));
    auto it = header.find("content-type");
    const auto params = parseValue(it == header.end() ? u"text/html" : it->second, true);
    std::string type;
    if (auto t = params.find("_"); t != params.end()) type = trim(toUtf8(t->second));
    if (type.empty()) type = "text/html";
    if (toLower(type).starts_with("multipart/")) {
      if (auto b = params.find("boundary"); b != params.end() && !b->second.empty()) {
        boundaries.push_back(toUtf8(b->second));
      }
      return false;
    }
    auto te = header.find("content-transfer-encoding");
    return te != header.end() && toLower(trim(toUtf8(te->second))) == "base64" &&
           !equalsIgnoreCase(type, "text/html");
  };
  auto endBase64 = [&]() {
    if (spool.file) {
      // A group the run left unfinished is decoded with what follows the
      // marker, as the whole body would have been: atob skips whatever is
      // no base64 between its letters.
      const std::string carried = decoder.unfinished();
      spool.write(true);
      const bool failed = spool.failed || std::fclose(spool.file) != 0;
      spool.file = nullptr;
      if (failed) {
        HB_LOG("MhtFormatParser", "cannot write " + spool.path);
        ok = false;
      }
      skeleton += _spoolToken + std::to_string(_spools.size()) + rc;
      if (!carried.empty()) skeleton += carried + rc;
      _spools.push_back({spool.path, spool.size});
      spool = SpoolWriter{};
    } else {
      skeleton += pending;
    }
    pending.clear();
    decoder = Base64Stream{};
    state = State::Body;
  };
  auto onLine = [&](std::string_view line) {
    if (rc.empty()) {
      if (const auto nl = line.find('\n'); nl != std::string_view::npos) {
        rc = nl > 0 && line[nl - 1] == '\r' ? "\r\n" : "\n";
      }
    }
    if (state == State::Base64) {
      if (isBase64Line(line)) {
        if (spool.file) {
          decoder.feed(line, spool.buffer);
          spool.write(false);
          return;
        }
        pending += line;
        if (pending.size() < _minSpooledBody) return;
        if (!FileUtil::createFolder(_spoolFolder)) {
          ok = false;
          return;
        }
        spool.path = _spoolFolder + "/" + std::to_string(_spools.size());
        spool.file = std::fopen(spool.path.c_str(), "wbe");
        if (!spool.file) {
          HB_LOG("MhtFormatParser", "cannot write " + spool.path);
          ok = false;
          return;
        }
        decoder.feed(pending, spool.buffer);
        spool.write(false);
        pending.clear();
        return;
      }
      endBase64();
    }
    skeleton += line;
    if (state == State::Head) {
      if (isDelimiter(line)) {
        head.clear();
      } else if (line == rc) {
        state = bodyGoesToDisk() ? State::Base64 : State::Body;
        head.clear();
      } else {
        head += line;
      }
    } else if (isDelimiter(line)) {
      state = State::Head;
      head.clear();
    }
  };

  std::string buffer(1 << 20, '\0');
  std::string line;
  bool readFailed = false;
  while (ok) {
    if (isCurrentThreadCancelled()) {
      ok = false;
      break;
    }
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      readFailed = true;
      break;
    }
    if (n == 0) break;
    std::string_view chunk(buffer.data(), static_cast<std::size_t>(n));
    if (_fileHead.size() < DetectorCharacter::kSampleSize)
      _fileHead.append(chunk.substr(0, DetectorCharacter::kSampleSize - _fileHead.size()));
    while (!chunk.empty() && ok) {
      const std::size_t nl = chunk.find('\n');
      if (nl == std::string_view::npos) {
        line.append(chunk);
        break;
      }
      if (line.empty()) {
        onLine(chunk.substr(0, nl + 1));
      } else {
        line.append(chunk.substr(0, nl + 1));
        onLine(line);
        line.clear();
      }
      chunk.remove_prefix(nl + 1);
    }
  }
  ::close(fd);
  if (ok && !line.empty()) onLine(line);
  if (ok && state == State::Base64) endBase64();
  if (spool.file) std::fclose(spool.file);
  if (readFailed) HB_LOG("MhtFormatParser", "cannot read " + path);
  if (!ok || readFailed) {
    removeSpools();
    return false;
  }
  _data = std::move(skeleton);
  return true;
}

const MhtFormatParser::Spool* MhtFormatParser::spoolOfBody(std::u16string_view body,
                                                           std::u16string_view* rest) const {
  if (_spoolToken.empty() || body.size() <= _spoolToken.size()) return nullptr;
  if (body.substr(0, _spoolToken.size()) != widen(_spoolToken)) return nullptr;
  std::size_t at = _spoolToken.size(), index = 0;
  for (; at < body.size() && body[at] >= u'0' && body[at] <= u'9'; ++at) {
    if (index > _spools.size()) return nullptr;
    index = index * 10 + (body[at] - u'0');
  }
  if (at == _spoolToken.size() || index >= _spools.size()) return nullptr;
  // Anything after the marker line was not base64 data but still belongs
  // to the body.
  *rest = body.substr(at);
  return &_spools[index];
}

void MhtFormatParser::removeSpools() {
  if (_spoolFolder.empty()) return;
  std::error_code ec;
  std::filesystem::remove_all(_spoolFolder, ec);
}

}  // namespace harbor

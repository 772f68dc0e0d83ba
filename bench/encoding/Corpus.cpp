#include "Corpus.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <sstream>

namespace harbor::bench {
namespace fs = std::filesystem;
namespace {

// Printable UTF-8 text: no controls but tab, no C1, no byte order mark.
bool validUtf8Text(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      if ((c < 0x20 && c != '\t') || c == 0x7F) return false;
      ++i;
      continue;
    }
    std::size_t n;
    std::uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
      n = 1, cp = c & 0x1Fu;
    } else if (c >= 0xE0 && c <= 0xEF) {
      n = 2, cp = c & 0x0Fu;
    } else if (c >= 0xF0 && c <= 0xF4) {
      n = 3, cp = c & 0x07u;
    } else {
      return false;
    }
    if (i + n >= s.size()) return false;
    for (std::size_t k = 1; k <= n; ++k) {
      const unsigned char d = static_cast<unsigned char>(s[i + k]);
      if ((d & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (d & 0x3Fu);
    }
    if ((n == 2 && cp < 0x800) || (n == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
        (cp >= 0xD800 && cp <= 0xDFFF) || (cp >= 0x80 && cp <= 0x9F) || cp == 0xFEFF) {
      return false;
    }
    i += n + 1;
  }
  return true;
}

std::string gunzip(const fs::path& file) {
  std::string cmd = "gzip -dc '" + file.string() + "' 2>/dev/null";
  std::string out;
  if (FILE* pipe = popen(cmd.c_str(), "r")) {
    std::array<char, 65536> buf;
    std::size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) out.append(buf.data(), n);
    pclose(pipe);
  }
  return out;
}

// Past the argument of \f or \* at `i`: one letter, "(xx" or "[...]".
std::size_t skipEscapeArgument(std::string_view line, std::size_t i) {
  if (i + 1 < line.size() && line[i + 1] == '(') return i + 3;
  if (i + 1 < line.size() && line[i + 1] == '[') return std::min(line.size(), line.find(']', i));
  return i + 1;
}

// The words of a roff line: font changes, escapes and quoting dropped.
std::string roffText(std::string_view line) {
  std::string out;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      if (line[i] != '"') out += line[i];
      continue;
    }
    if (++i >= line.size()) break;
    switch (line[i]) {
      case 'f':  // \fB, \f(CW, \f[...]
        i = skipEscapeArgument(line, i);
        break;
      case '(':  // \(em and other specials: two letters
        i += 2;
        break;
      case '*':  // strings: \*x, \*(xx, \*[...]
        i = skipEscapeArgument(line, i);
        break;
      case '-':
        out += '-';
        break;
      case 'e':
      case '\\':
        out += '\\';
        break;
      case ' ':
      case '~':
        out += ' ';
        break;
      default:  // \& \, \/ \c \% \| \^ and the rest print nothing
        break;
    }
  }
  return out;
}

void appendManPage(const fs::path& file, std::string& text) {
  std::istringstream in(gunzip(file));
  std::string line;
  static const char* const kTextMacros[] = {".SH ", ".SS ", ".B ",  ".I ",  ".BR ",
                                            ".BI ", ".IB ", ".IR ", ".RB ", ".RI "};
  while (std::getline(in, line)) {
    std::string words;
    if (!line.empty() && (line[0] == '.' || line[0] == '\'')) {
      for (const char* m : kTextMacros) {
        if (line.rfind(m, 0) == 0) words = roffText(line.substr(std::strlen(m)));
      }
    } else {
      words = roffText(line);
    }
    while (!words.empty() && (words.back() == ' ' || words.back() == '\t')) words.pop_back();
    if (words.size() > 1 && validUtf8Text(words)) text += words + "\n";
  }
}

std::uint32_t read32(const std::string& s, std::size_t at, bool swap) {
  if (at + 4 > s.size()) return 0;
  std::uint32_t v;
  std::memcpy(&v, s.data() + at, 4);
  return swap ? __builtin_bswap32(v) : v;
}

// The translations of a gettext catalogue, when it is in UTF-8. With `po`
// each translation follows its English original, as in the .po file a
// translator edits: English and the language mixed line by line.
void appendCatalogue(const fs::path& file, std::string& text, bool po = false) {
  std::ifstream in(file, std::ios::binary);
  std::string mo((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::uint32_t magic = read32(mo, 0, false);
  const bool swap = magic == 0xde120495u;
  if (magic != 0x950412deu && !swap) return;
  const std::uint32_t count = read32(mo, 8, swap);
  const std::uint32_t originals = read32(mo, 12, swap), translations = read32(mo, 16, swap);
  auto poString = [](std::string s) {
    std::string out;
    for (char c : s) {
      if (c == '\n') {
        out += "\\n";
      } else if (c == '"') {
        out += "\\\"";
      } else if (c == '\0') {
        break;  // the plural forms after the first
      } else {
        out += c;
      }
    }
    return out;
  };
  std::string out;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t olen = read32(mo, originals + 8 * i, swap);
    const std::uint32_t oat = read32(mo, originals + 8 * i + 4, swap);
    const std::uint32_t len = read32(mo, translations + 8 * i, swap);
    const std::uint32_t at = read32(mo, translations + 8 * i + 4, swap);
    if (at + len > mo.size() || oat + olen > mo.size()) return;
    std::string s = mo.substr(at, len);
    if (olen == 0) {  // the header names the catalogue's charset
      std::string lower = s;
      std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
      if (lower.find("charset=utf-8") == std::string::npos) return;
      continue;
    }
    if (po) {
      const std::string id = poString(mo.substr(oat, olen)), str = poString(s);
      if (str.empty() || id == str || !validUtf8Text(id) || !validUtf8Text(str)) continue;
      out += "msgid \"" + id + "\"\nmsgstr \"" + str + "\"\n";
      continue;
    }
    std::replace(s.begin(), s.end(), '\0', '\n');
    std::istringstream lines(s);
    std::string line;
    while (std::getline(lines, line)) {
      if (line.size() > 1 && validUtf8Text(line)) out += line + "\n";
    }
  }
  text += out;
}

std::vector<fs::path> filesUnder(const fs::path& dir, std::string_view ext) {
  std::vector<fs::path> files;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (it->is_regular_file(ec) && it->path().extension() == ext) files.push_back(it->path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

LanguageText collectLanguageText(const std::string& language, std::size_t limit) {
  LanguageText result{language, {}, 0};
  std::vector<std::pair<fs::path, bool>> sources;  // (file, is manual page)
  for (const auto& f : filesUnder("/usr/share/man/" + language, ".gz"))
    sources.emplace_back(f, true);
  for (const auto& f : filesUnder("/usr/share/locale/" + language + "/LC_MESSAGES", ".mo")) {
    sources.emplace_back(f, false);
  }
  // A fixed shuffle, so a run is repeatable on the same machine.
  std::mt19937 rng(0x4841524Bu);
  std::shuffle(sources.begin(), sources.end(), rng);
  for (const auto& [file, manual] : sources) {
    if (result.text.size() >= limit) break;
    const std::size_t before = result.text.size();
    if (manual) {
      appendManPage(file, result.text);
    } else {
      appendCatalogue(file, result.text);
    }
    if (result.text.size() > before) ++result.files;
  }
  return result;
}

LanguageText collectCatalogueText(const std::string& language, std::size_t limit) {
  LanguageText result{language, {}, 0};
  std::vector<fs::path> files = filesUnder("/usr/share/locale/" + language + "/LC_MESSAGES", ".mo");
  std::mt19937 rng(0x4841524Bu);
  std::shuffle(files.begin(), files.end(), rng);
  for (const auto& file : files) {
    if (result.text.size() >= limit) break;
    const std::size_t before = result.text.size();
    appendCatalogue(file, result.text, true);
    if (result.text.size() > before) ++result.files;
  }
  return result;
}

std::vector<std::string> collectPageHeads(std::size_t maxSize) {
  std::vector<std::string> heads;
  for (const auto& file : filesUnder("/usr/share/doc", ".html")) {
    std::ifstream in(file, std::ios::binary);
    std::string page((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string lower = page;
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    const std::size_t body = lower.find("<body");
    const std::size_t head = lower.find("<head");
    if (body == std::string::npos || head == std::string::npos || head > body) continue;
    const std::size_t bodyEnd = lower.find('>', body);
    if (bodyEnd == std::string::npos) continue;
    // Its own declaration goes; the sample's is put right after <head>.
    std::string kept;
    std::size_t pos = 0;
    for (std::size_t meta; (meta = lower.find("<meta", pos)) < bodyEnd; pos = meta) {
      const std::size_t end = lower.find('>', meta);
      if (end == std::string::npos || end > bodyEnd) break;
      const std::string tag = lower.substr(meta, end - meta);
      kept += page.substr(pos, meta - pos);
      if (tag.find("charset") == std::string::npos) kept += page.substr(meta, end + 1 - meta);
      meta = end + 1;
    }
    kept += page.substr(pos, bodyEnd + 1 - pos);
    // So does an XML declaration's encoding: the page then says one thing.
    if (kept.rfind("<?xml", 0) == 0) kept.erase(0, kept.find('>') + 1);
    std::string keptLower = kept;
    std::transform(keptLower.begin(), keptLower.end(), keptLower.begin(), ::tolower);
    const std::size_t insertAt = keptLower.find('>', keptLower.find("<head")) + 1;
    if (kept.size() > maxSize || insertAt == 0) continue;
    if (std::any_of(kept.begin(), kept.end(),
                    [](char c) { return static_cast<unsigned char>(c) >= 0x80; })) {
      continue;  // every target encoding must carry the head unchanged
    }
    kept.insert(insertAt, "\n@DECLARATION@");
    heads.push_back(std::move(kept) + "\n");
  }
  return heads;
}

std::optional<std::string> iconvConvert(const std::string& to, const std::string& from,
                                        std::string_view in) {
  static std::mutex mutex;
  static std::map<std::pair<std::string, std::string>, iconv_t> open;
  std::lock_guard lock(mutex);
  auto key = std::make_pair(to, from);
  auto it = open.find(key);
  if (it == open.end()) {
    iconv_t cd = iconv_open(to.c_str(), from.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    it = open.emplace(key, cd).first;
  }
  iconv_t cd = it->second;
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  std::string out(in.size() * 4 + 16, '\0');
  char* src = const_cast<char*>(in.data());
  std::size_t srcLeft = in.size();
  char* dst = out.data();
  std::size_t dstLeft = out.size();
  if (iconv(cd, &src, &srcLeft, &dst, &dstLeft) == static_cast<std::size_t>(-1))
    return std::nullopt;
  if (iconv(cd, nullptr, nullptr, &dst, &dstLeft) == static_cast<std::size_t>(-1))
    return std::nullopt;
  out.resize(out.size() - dstLeft);
  return out;
}

}  // namespace harbor::bench

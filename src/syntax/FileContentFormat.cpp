#include "syntax/FileContentFormat.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <vector>

namespace harbor {
namespace {

constexpr std::size_t kHeadBytes = 4096;
constexpr std::size_t kTailBytes = 2048;
// vim reads modelines in this many lines at each end of a file.
constexpr int kModelineLines = 5;

struct Name {
  std::string_view name;
  std::string_view key;
  bool fileName = false;
};

// Interpreters, Emacs modes and vim file types, to the registry's keys. The
// three vocabularies overlap ("python", "perl", "sh"), so one table serves.
constexpr std::array<Name, 58> kNames{{
    {"sh", "sh"},
    {"bash", "sh"},
    {"zsh", "sh"},
    {"dash", "sh"},
    {"ksh", "sh"},
    {"mksh", "sh"},
    {"ash", "sh"},
    {"shell-script", "sh"},
    {"python", "py"},
    {"pypy", "py"},
    {"perl", "pl"},
    {"cperl", "pl"},
    {"ruby", "rb"},
    {"php", "php"},
    {"node", "js"},
    {"nodejs", "js"},
    {"js", "js"},
    {"js2", "js"},
    {"javascript", "js"},
    {"json", "json"},
    {"tclsh", "tcl"},
    {"wish", "tcl"},
    {"expect", "tcl"},
    {"tcl", "tcl"},
    {"c", "c"},
    {"c++", "cpp"},
    {"cpp", "cpp"},
    {"objc", "m"},
    {"java", "java"},
    {"html", "html"},
    {"xhtml", "html"},
    {"mhtml", "html"},
    {"xml", "xml"},
    {"nxml", "xml"},
    {"xslt", "xsl"},
    {"css", "css"},
    {"scss", "scss"},
    {"sql", "sql"},
    {"yaml", "yml"},
    {"conf", "conf"},
    {"cfg", "cfg"},
    {"dosini", "ini"},
    {"ini", "ini"},
    {"haskell", "hs"},
    {"erlang", "erl"},
    {"pascal", "pas"},
    {"scala", "scala"},
    {"groovy", "groovy"},
    {"csharp", "cs"},
    {"cs", "cs"},
    {"vb", "vb"},
    {"asm", "asm"},
    {"nasm", "asm"},
    {"m4", "m4"},
    {"proto", "proto"},
    {"make", "makefile", true},
    {"makefile", "makefile", true},
    {"cmake", "cmakelists.txt", true},
}};

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

std::string lower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(), lowerAscii);
  return out;
}

std::optional<FileContentFormat> lookup(std::string name, const char* rule) {
  name = lower(name);
  // Emacs's "makefile-gmake", "conf-unix": the family decides.
  for (std::string_view family : {"makefile", "conf"}) {
    if (name.rfind(std::string(family) + "-", 0) == 0) name = family;
  }
  if (name.size() > 5 && name.compare(name.size() - 5, 5, "-mode") == 0)
    name.resize(name.size() - 5);
  for (const Name& n : kNames) {
    if (n.name == name) return FileContentFormat{std::string(n.key), n.fileName, rule};
  }
  return std::nullopt;
}

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string_view> words(std::string_view line) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && isSpace(line[i])) ++i;
    const std::size_t start = i;
    while (i < line.size() && !isSpace(line[i])) ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

// "#!/usr/bin/python3.11", "#! /bin/sh -e", "#!/usr/bin/env -S perl -w".
std::optional<FileContentFormat> interpreter(std::string_view firstLine) {
  if (firstLine.substr(0, 2) != "#!") return std::nullopt;
  std::vector<std::string_view> argv = words(firstLine.substr(2));
  std::size_t at = 0;
  auto base = [](std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
  };
  if (at < argv.size() && base(argv[at]) == "env") {
    ++at;
    // env's own options and VAR=value settings come before the program.
    while (at < argv.size() &&
           (argv[at].front() == '-' || argv[at].find('=') != std::string_view::npos)) {
      ++at;
    }
  }
  if (at >= argv.size()) return std::nullopt;
  std::string name(base(argv[at]));
  // A version after the name: python3.11, tclsh8.6, perl5.36, php8.2.
  while (!name.empty() && ((name.back() >= '0' && name.back() <= '9') || name.back() == '.')) {
    name.pop_back();
  }
  return lookup(name, "interpreter");
}

// "-*- mode: python; coding: utf-8 -*-" or the short "-*- python -*-".
std::optional<FileContentFormat> emacsMode(std::string_view line) {
  const std::size_t open = line.find("-*-");
  if (open == std::string_view::npos) return std::nullopt;
  const std::size_t close = line.find("-*-", open + 3);
  if (close == std::string_view::npos) return std::nullopt;
  const std::string_view vars = line.substr(open + 3, close - open - 3);
  auto trim = [](std::string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    while (!s.empty() && (isSpace(s.back()) || s.back() == ';')) s.remove_suffix(1);
    return s;
  };
  if (vars.find(':') == std::string_view::npos)
    return lookup(std::string(trim(vars)), "emacs-mode");
  std::size_t start = 0;
  while (start <= vars.size()) {
    std::size_t end = vars.find(';', start);
    if (end == std::string_view::npos) end = vars.size();
    const std::string_view item = vars.substr(start, end - start);
    const std::size_t colon = item.find(':');
    if (colon != std::string_view::npos && lower(trim(item.substr(0, colon))) == "mode") {
      return lookup(std::string(trim(item.substr(colon + 1))), "emacs-mode");
    }
    start = end + 1;
  }
  return std::nullopt;
}

// "vim: set ft=python :", "# vi: filetype=sh", "/* vim: syntax=c */".
std::optional<FileContentFormat> vimModeline(std::string_view line) {
  for (std::string_view marker : {"vim:", "vi:", "ex:", "Vim:"}) {
    for (std::size_t at = 0; (at = line.find(marker, at)) != std::string_view::npos;
         at += marker.size()) {
      // The marker opens the line or follows white space ("index:" is not one).
      if (at > 0 && !isSpace(line[at - 1])) continue;
      std::string_view options = line.substr(at + marker.size());
      std::string token;
      auto option = [&]() -> std::optional<FileContentFormat> {
        const std::size_t eq = token.find('=');
        if (eq == std::string::npos) return std::nullopt;
        const std::string name = token.substr(0, eq);
        if (name == "ft" || name == "filetype" || name == "syntax" || name == "syn") {
          return lookup(token.substr(eq + 1), "vim-modeline");
        }
        return std::nullopt;
      };
      for (char c : options) {
        if (isSpace(c) || c == ':') {
          if (auto found = option()) return found;
          token.clear();
        } else {
          token += c;
        }
      }
      if (auto found = option()) return found;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<FileContentFormat> FileContentFormat::fromText(std::string_view head,
                                                             std::string_view tail) {
  if (head.substr(0, 3) == "\xEF\xBB\xBF") head.remove_prefix(3);
  const std::vector<std::string_view> lines = splitLines(head);
  if (lines.empty()) return std::nullopt;
  if (auto found = interpreter(lines[0])) return found;
  // Emacs reads the first line, or the second after a "#!" line.
  if (auto found = emacsMode(lines[0])) return found;
  if (lines[0].substr(0, 2) == "#!" && lines.size() > 1) {
    if (auto found = emacsMode(lines[1])) return found;
  }
  for (std::size_t i = 0; i < lines.size() && i < kModelineLines; ++i) {
    if (auto found = vimModeline(lines[i])) return found;
  }
  std::vector<std::string_view> last = splitLines(tail);
  const std::size_t from = last.size() > kModelineLines ? last.size() - kModelineLines : 0;
  for (std::size_t i = from; i < last.size(); ++i) {
    if (auto found = vimModeline(last[i])) return found;
  }
  return std::nullopt;
}

std::optional<FileContentFormat> FileContentFormat::fromFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string head(kHeadBytes, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(in.gcount()));
  if (head.empty()) return std::nullopt;
  std::string tail = head;
  if (head.size() == kHeadBytes) {
    in.clear();
    in.seekg(0, std::ios::end);
    const auto size = static_cast<std::size_t>(in.tellg());
    if (size > kHeadBytes) {
      const std::size_t from = size > kTailBytes ? size - kTailBytes : 0;
      in.seekg(static_cast<std::streamoff>(from));
      tail.assign(size - from, '\0');
      in.read(tail.data(), static_cast<std::streamsize>(tail.size()));
      tail.resize(static_cast<std::size_t>(in.gcount()));
    }
  }
  return fromText(head, tail);
}

}  // namespace harbor

// harbor find, replace and grep: the editor's search over one file or a tree.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "editor/FindTextBase.h"
#include "editor/FindTextInString.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/StringEncodings.h"
#include "filemanager/FilePropertyBase.h"
#include "platform/FileWrite.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

struct SearchFlags {
  bool regex = false;
  bool word = false;
  bool ignoreCase = false;

  void add(CLI::App* cmd) {
    cmd->add_flag("--regex", regex, "PATTERN is a regular expression ($1 in templates)");
    cmd->add_flag("--word", word, "Whole words only");
    cmd->add_flag("--ignore-case", ignoreCase, "Ignore case");
  }
  std::shared_ptr<FindTextOptions> options(const std::string& pattern) const {
    auto o = FindTextOptions::instanceWithString(toUtf16(pattern));
    o->_isRegex = regex;
    o->_isMatchWord = word;
    // The options read this flag as "ignore case".
    o->_isCaseSensitive = ignoreCase;
    return o;
  }
};

// 1-based line and column (UTF-16 units) of offsets met in ascending order.
class LineCounter {
 public:
  explicit LineCounter(std::u16string_view text) : text_(text) {}
  std::pair<std::size_t, std::size_t> at(std::size_t offset) {
    offset = std::min(offset, text_.size());
    if (offset < pos_) {
      pos_ = 0;
      line_ = 1;
      lineStart_ = 0;
    }
    for (; pos_ < offset; ++pos_) {
      if (text_[pos_] == u'\n') {
        ++line_;
        lineStart_ = pos_ + 1;
      }
    }
    return {line_, offset - lineStart_ + 1};
  }

 private:
  std::u16string_view text_;
  std::size_t pos_ = 0, line_ = 1, lineStart_ = 0;
};

// The shown line without its line ending, for one-line output.
std::string shownLine(std::u16string_view text) {
  std::u16string_view v = text;
  while (!v.empty() && (v.back() == u'\n' || v.back() == u'\r')) v.remove_suffix(1);
  return toUtf8(v);
}

ordered_json itemsJson(const std::vector<FindTextItem>& items) {
  ordered_json list = ordered_json::array();
  for (const auto& item : items) {
    list.push_back({{"location", item._range.location},
                    {"length", item._range.length},
                    {"showedLocation", item._showedRange.location},
                    {"showedLength", item._showedRange.length},
                    {"showedText", toUtf8(item._showedText)},
                    {"replacedText", toUtf8(item._replacedText)}});
  }
  return list;
}

std::optional<std::u16string> readDecoded(const std::string& command, const std::string& path) {
  if (auto problem = checkPath(path, PathNeed::File)) {
    fail(command, *problem);
    return std::nullopt;
  }
  Error error;
  auto text = DetectorCharacter::detectorWithFilePath(path, nullptr, &error);
  if (!text) {
    fail(command,
         error.message.empty() ? path + ": not text in any encoding Harbor reads" : error.message);
  }
  return text;
}

// ---- find and replace ------------------------------------------------------------

struct FindOptions {
  std::string file, pattern, templ;
  bool hasTemplate = false;
  bool json = false;
  bool inPlace = false;
  SearchFlags flags;
};

int runFind(const FindOptions& o) {
  auto text = readDecoded("find", o.file);
  if (!text) return 1;
  auto options = o.flags.options(o.pattern);
  options->_replaceString = toUtf16(o.templ);
  Error error;
  std::vector<FindTextItem> items = FindTextInString::findTextItems(*text, *options, &error);
  if (!error.message.empty()) return fail("find", error.message);
  if (o.json) {
    printJson(ordered_json{{"count", items.size()}, {"items", itemsJson(items)}});
    return 0;
  }
  LineCounter lines(*text);
  for (const auto& item : items) {
    const auto [line, col] = lines.at(item._range.location);
    std::cout << line << ':' << col << ':' << shownLine(item._showedText) << '\n';
  }
  std::cout.flush();
  return std::cout ? 0 : 1;
}

int runReplace(const FindOptions& o) {
  auto text = readDecoded("replace", o.file);
  if (!text) return 1;
  auto options = o.flags.options(o.pattern);
  options->_replaceString = toUtf16(o.templ);
  Error error;
  std::vector<FindTextItem> items = FindTextInString::findTextItems(*text, *options, &error);
  if (!error.message.empty()) return fail("replace", error.message);
  // Hits do not overlap and come in order, so one forward pass gives what
  // replacing from the last hit back gives, without moving the tail each time.
  std::u16string out;
  out.reserve(text->size());
  std::size_t at = 0;
  for (const auto& item : items) {
    out.append(*text, at, item._range.location - at);
    out += item._replacedText;
    at = item._range.end();
  }
  out.append(*text, at, std::u16string::npos);
  const std::string bytes = toUtf8(out);
  if (o.inPlace) {
    if (auto e = writeFileAtomically(o.file, bytes)) return fail("replace", e->message);
  } else {
    std::cout << bytes;
    std::cout.flush();
    if (!std::cout) return 1;
  }
  std::cerr << items.size() << '\n';
  return 0;
}

// ---- grep ------------------------------------------------------------------------

struct GrepOptions {
  std::string pattern;
  std::vector<std::string> paths;
  std::string encoding;
  bool json = false;
  SearchFlags flags;
};

// Every regular file at or below the paths, hidden ones too; links are not
// followed. Sorted, so the output does not depend on the directory order.
// Folders are read with the entry types the directory gives, so most
// entries cost no stat; a folder that may not be read is passed over.
std::vector<std::string> collectFiles(const std::vector<std::string>& roots, std::string& problem) {
  std::vector<std::string> files;
  std::vector<std::string> folders;
  for (const std::string& root : roots) {
    std::error_code ec;
    const fs::file_status st = fs::symlink_status(root, ec);
    if (ec || !fs::exists(st)) {
      problem = root + ": no such file or folder";
      return {};
    }
    if (fs::is_regular_file(st)) {
      files.push_back(root);
      continue;
    }
    if (!fs::is_directory(st)) continue;
    folders.push_back(root);
    while (!folders.empty()) {
      const std::string folder = std::move(folders.back());
      folders.pop_back();
      const bool read = detail::scanDirectory(folder, [&](int dirFd, const dirent& e) {
        unsigned char type = e.d_type;
        if (type == DT_UNKNOWN) {
          struct stat entry {};
          if (::fstatat(dirFd, e.d_name, &entry, AT_SYMLINK_NOFOLLOW) != 0) return true;
          type = S_ISREG(entry.st_mode) ? DT_REG : S_ISDIR(entry.st_mode) ? DT_DIR : DT_UNKNOWN;
        }
        if (type == DT_REG) {
          files.push_back(detail::joinPath(folder, e.d_name));
        } else if (type == DT_DIR) {
          folders.push_back(detail::joinPath(folder, e.d_name));
        }
        return true;
      });
      if (!read && errno != EACCES && errno != EPERM) {
        problem = folder + ": " + std::strerror(errno);
        return {};
      }
    }
  }
  std::sort(files.begin(), files.end());
  files.erase(std::unique(files.begin(), files.end()), files.end());
  return files;
}

// Tells about every file that could not be searched, not only the last.
class GrepSearch : public IFindTextBase {
 public:
  std::size_t errors = 0;
  void onFinishFindText(FindTextBase&) override {}
};

class ReportingProject : public FileTextInProject {
 public:
  std::atomic<std::size_t> errors{0};
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override {
    // Running out of room for hits stops the whole search; that is told
    // once, at the end.
    if (error && !FindTextInString::isTooManyItemsError(*error)) {
      ++errors;
      warn("grep", error->message);
    }
    FileTextInProject::onFinished(std::move(items), tag, error);
  }
};

int runGrep(const GrepOptions& o) {
  auto options = o.flags.options(o.pattern);
  if (o.encoding.empty() || equalsIgnoreCase(o.encoding, "Automatic")) {
    options->_isAutoEncoding = true;
  } else {
    if (StringEncodings::convertIANACharSetNameToEncoding(o.encoding) == kInvalidTableEncoding) {
      return fail("grep", "unknown encoding " + o.encoding + " (harbor encodings lists the names)",
                  2);
    }
    options->_encodingName = o.encoding;
  }
  if (o.flags.regex) {
    // A bad pattern is found once, not once per file.
    Error error;
    FindTextOptions probe = *options;
    FindTextInString::findTextWithRegex(u" ", probe, &error);
    if (!error.message.empty()) return fail("grep", error.message, 2);
  }
  std::string problem;
  std::vector<std::string> files = collectFiles(o.paths, problem);
  if (!problem.empty()) return fail("grep", problem, 2);

  GrepSearch delegate;
  auto search =
      FileTextInProject::instanceWithFiles<ReportingProject>(std::move(files), options, &delegate);
  search->execute();

  // Tags are indexes into the sorted file list.
  std::vector<std::int64_t> tags(search->_resultsObjects.begin(), search->_resultsObjects.end());
  std::sort(tags.begin(), tags.end());
  ordered_json list = ordered_json::array();
  std::string out;
  for (std::int64_t tag : tags) {
    const auto& items = search->_tagResults.at(tag);
    const std::string& path = search->_tagSource.at(tag);
    if (o.json) {
      list.push_back({{"path", path}, {"items", itemsJson(items)}});
      continue;
    }
    // One output line per line with hits, as grep prints them.
    std::size_t lastLine = 0;
    for (const auto& item : items) {
      if (item._lineNumber == lastLine) continue;
      lastLine = item._lineNumber;
      out += path;
      out += ':';
      out += std::to_string(item._lineNumber);
      out += ':';
      out += shownLine(item._showedText);
      out += '\n';
    }
    std::cout << out;
    out.clear();
  }
  if (o.json) {
    printJson(
        ordered_json{{"findResultNumber", search->findResultNumber}, {"files", std::move(list)}});
  }
  std::cout.flush();
  if (search->isFull()) return fail("grep", search->_error.message, 2);
  if (search->errors > 0) return 2;
  return search->findResultNumber > 0 ? 0 : 1;
}

void addFindCommands(CLI::App& app, int& exitCode) {
  auto f = std::make_shared<FindOptions>();
  CLI::App* find = app.add_subcommand(
      "find", "Find a text or pattern in a file: LINE:COL:TEXT, columns in UTF-16 units");
  find->add_option("FILE", f->file, "The file")->required();
  find->add_option("PATTERN", f->pattern, "Text, or a regular expression with --regex")->required();
  f->flags.add(find);
  find->add_option("--replace", f->templ, "What each hit would become (shown with --json)")
      ->type_name("TEMPLATE");
  addJsonFlag(find, f->json,
              "Print {count, items: [{location, length, showedLocation, showedLength, "
              "showedText, replacedText}]}");
  find->callback([f, &exitCode] { exitCode = runFind(*f); });

  auto r = std::make_shared<FindOptions>();
  CLI::App* replace = app.add_subcommand(
      "replace", "Replace every hit and print the new text; the count goes to standard error");
  replace->add_option("FILE", r->file, "The file")->required();
  replace->add_option("PATTERN", r->pattern, "Text, or a regular expression with --regex")
      ->required();
  replace->add_option("TEMPLATE", r->templ, "The replacement; $1 takes a group with --regex")
      ->required();
  r->flags.add(replace);
  replace->add_flag("--in-place", r->inPlace, "Save the new text into FILE as UTF-8");
  replace->callback([r, &exitCode] { exitCode = runReplace(*r); });

  auto g = std::make_shared<GrepOptions>();
  CLI::App* grep = app.add_subcommand(
      "grep", "Search every file below the paths: PATH:LINE:TEXT; exit 1 when nothing is found");
  grep->add_option("PATTERN", g->pattern, "Text, or a regular expression with --regex")->required();
  grep->add_option("PATH", g->paths, "Files and folders to search")->required();
  g->flags.add(grep);
  grep->add_option("--encoding", g->encoding,
                   "Decode every file with this charset instead of detecting it")
      ->type_name("NAME");
  addJsonFlag(grep, g->json, "Print {findResultNumber, files: [{path, items}]}, files by path");
  grep->callback([g, &exitCode] { exitCode = runGrep(*g); });
}

}  // namespace

const CommandRegistrar findCommands(27, addFindCommands);

}  // namespace harbor::cli

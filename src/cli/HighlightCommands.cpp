// highlight, syntax which, comment and uncomment: the colouring engine from
// the command line.
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "encoding/DetectorCharacter.h"
#include "platform/TextStorage.h"
#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

// The file's text as the editor reads it: through encoding detection.
std::optional<std::u16string> readText(const std::string& command, const std::string& path) {
  if (auto problem = checkPath(path, PathNeed::File)) {
    fail(command, *problem);
    return std::nullopt;
  }
  Error error;
  auto text = DetectorCharacter::detectorWithFilePath(path, nullptr, &error);
  if (!text) {
    fail(command, path + ": " +
                      (error.message.empty() ? std::string("not text in any encoding Harbor reads")
                                             : error.message));
  }
  return text;
}

std::string extensionOf(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  auto dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::shared_ptr<CodeFormatParser> parserFor(const std::string& file, const std::string& lang) {
  return CodeFactory::codeFormatParserWithExtension(lang.empty() ? extensionOf(file) : lang, "",
                                                    fs::absolute(file).string());
}

// Runs that carry a colour other than plain text's, in text order.
std::vector<std::pair<TextRange, Color>> colouredRuns(const TextStorage& storage) {
  std::vector<std::pair<TextRange, Color>> runs;
  storage.enumerateForegroundColor(TextRange{0, storage.length()}, false,
                                   [&](const std::optional<Color>& c, TextRange r, bool&) {
                                     if (c && *c != CodeFormatParser::editorDefaultColor())
                                       runs.emplace_back(r, *c);
                                   });
  return runs;
}

std::string htmlEscape(std::u16string_view s) {
  std::string out;
  for (char c : toUtf8(s)) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void writeAnsi(const TextStorage& storage, std::ostream& out) {
  const std::u16string& text = storage.string();
  std::size_t at = 0;
  for (const auto& [r, c] : colouredRuns(storage)) {
    out << toUtf8(std::u16string_view(text).substr(at, r.location - at));
    out << "\x1b[38;2;" << int(c.red) << ";" << int(c.green) << ";" << int(c.blue) << "m"
        << toUtf8(std::u16string_view(text).substr(r.location, r.length)) << "\x1b[0m";
    at = r.end();
  }
  out << toUtf8(std::u16string_view(text).substr(at));
}

void writeHtml(const TextStorage& storage, const std::string& title, std::ostream& out) {
  const std::u16string& text = storage.string();
  out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>"
      << htmlEscape(toUtf16(title))
      << "</title></head>\n<body><pre style=\"font-family:monospace\">";
  std::size_t at = 0;
  for (const auto& [r, c] : colouredRuns(storage)) {
    out << htmlEscape(std::u16string_view(text).substr(at, r.location - at));
    out << "<span style=\"color:" << c.hex() << "\">"
        << htmlEscape(std::u16string_view(text).substr(r.location, r.length)) << "</span>";
    at = r.end();
  }
  out << htmlEscape(std::u16string_view(text).substr(at)) << "</pre></body></html>\n";
}

void writeJson(const TextStorage& storage, std::ostream& out) {
  ordered_json runs = ordered_json::array();
  for (const auto& [r, c] : colouredRuns(storage)) {
    runs.push_back({{"location", r.location}, {"length", r.length}, {"color", c.hex()}});
  }
  out << jsonText(ordered_json{{"length", storage.length()}, {"runs", std::move(runs)}}) << "\n";
}

struct Options {
  std::string file;
  std::string lang;
  std::string format;
  std::string range;
  bool json = false;
};

int runHighlight(const Options& o) {
  auto text = readText("highlight", o.file);
  if (!text) return 1;
  TextStorage storage(std::move(*text));
  std::error_code ec;
  const auto bytes = fs::file_size(o.file, ec);
  if ((!ec && bytes > kHighlightCutOff) || storage.length() >= kHighlightCutOff) {
    // The editor shows such files plain; say so rather than look broken.
    warn("highlight", o.file + " is larger than " + std::to_string(kHighlightCutOff / 1024) +
                          " KiB; it is shown without colours, as the editor shows it");
  }
  auto parser = parserFor(o.file, o.lang);
  parser->parserSmart(storage);
  std::string format = o.format;
  if (o.json) {
    if (!format.empty() && format != "json") {
      return fail("highlight", "--json and --format " + format + " disagree", 2);
    }
    format = "json";
  }
  if (format.empty()) format = isatty(STDOUT_FILENO) ? "ansi" : "json";
  if (format == "html") {
    writeHtml(storage, fs::path(o.file).filename().string(), std::cout);
  } else if (format == "json") {
    writeJson(storage, std::cout);
  } else {
    writeAnsi(storage, std::cout);
  }
  return 0;
}

int runWhich(const Options& o) {
  auto parser = parserFor(o.file, o.lang);
  const auto& row = parser->codeConfigItem;
  const auto key = CodeFactory::getStxParserFlag(row);
  ordered_json j{{"class", parser->className()},
                 {"stxFilePath", row && !row->stxFilePath.empty() ? ordered_json(row->stxFilePath)
                                                                  : ordered_json(nullptr)},
                 {"configType", row ? ordered_json(row->configType) : ordered_json(nullptr)},
                 {"cacheKey", key ? ordered_json(*key) : ordered_json(nullptr)},
                 {"formatType", toUtf8(parser->formatType)},
                 {"formatInContainsType", toUtf8(parser->formatInContainsType)},
                 {"rule", CodeFactory::chooseFormat(o.lang.empty() ? extensionOf(o.file) : o.lang,
                                                    "", fs::absolute(o.file).string())
                              .rule}};
  if (o.json) {
    printJson(j);
  } else {
    for (auto& [k, v] : j.items()) {
      std::cout << k << ": " << (v.is_string() ? v.get<std::string>() : v.dump()) << "\n";
    }
  }
  return 0;
}

int runComment(const Options& o, bool uncomment) {
  const std::string command = uncomment ? "uncomment" : "comment";
  std::size_t location = 0, length = 0;
  char comma = 0;
  std::istringstream rs(o.range);
  if (!(rs >> location >> comma >> length) || comma != ',' || rs.peek() != EOF) {
    return fail(command, "--range takes LOCATION,LENGTH", 2);
  }
  auto text = readText(command, o.file);
  if (!text) return 1;
  TextStorage storage(std::move(*text));
  if (location + length > storage.length()) {
    return fail(command,
                "the range lies outside the text (" + std::to_string(storage.length()) + " units)");
  }
  auto parser = parserFor(o.file, o.lang);
  parser->parserValueWithTextStorage(storage);
  parser->changeInputAccessoryView(TextRange{location, length});
  auto result = uncomment ? parser->unComments(TextRange{location, length})
                          : parser->comments(TextRange{location, length});
  if (!result) {
    return fail(command,
                uncomment ? "the lines are not commented" : "this language has no comments");
  }
  std::cout << toUtf8(*result);
  return 0;
}

void addHighlightCommands(CLI::App& app, int& exitCode) {
  auto o = std::make_shared<Options>();

  CLI::App* hl = app.add_subcommand("highlight", "Colour a file as the editor does");
  hl->add_option("FILE", o->file, "The file")->required();
  hl->add_option("--lang", o->lang, "Colour as this extension instead of the file's")
      ->type_name("EXT");
  hl->add_option("--format", o->format, "ansi (default on a terminal), html or json")
      ->check(CLI::IsMember({"ansi", "html", "json"}));
  addJsonFlag(hl, o->json,
              "The same as --format json: {length, runs: [{location, length, color}]}");
  hl->callback([o, &exitCode] { exitCode = runHighlight(*o); });

  for (bool uncomment : {false, true}) {
    CLI::App* c = app.add_subcommand(uncomment ? "uncomment" : "comment",
                                     uncomment ? "Print the range with its comment markers removed"
                                               : "Print the range turned into comments");
    c->add_option("FILE", o->file, "The file")->required();
    c->add_option("--range", o->range, "The selection in UTF-16 units")
        ->type_name("L,N")
        ->required();
    c->add_option("--lang", o->lang, "Treat the file as this extension")->type_name("EXT");
    c->callback([o, uncomment, &exitCode] { exitCode = runComment(*o, uncomment); });
  }
}

void addWhichCommand(CLI::App& app, int& exitCode) {
  CLI::App* syntax = app.get_subcommand("syntax");
  auto o = std::make_shared<Options>();
  CLI::App* which = syntax->add_subcommand("which", "Which parser and syntax file a file gets");
  which->add_option("FILE", o->file, "The file (it need not exist)")->required();
  which->add_option("--lang", o->lang, "Look up this extension instead")->type_name("EXT");
  which->add_flag("--json", o->json, "Print JSON");
  which->callback([o, &exitCode] { exitCode = runWhich(*o); });
}

}  // namespace

const CommandRegistrar highlightCommands(25, addHighlightCommands);
const CommandRegistrar whichCommand(21, addWhichCommand);

}  // namespace harbor::cli

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "platform/Unicode.h"
#include "syntax/StxParser.h"

namespace harbor::cli {
namespace {

ordered_json dumpJson(const StxParser& p) {
  ordered_json info = ordered_json::object();
  for (const auto& [k, v] : p.formatInfo) info[toUtf8(k)] = toUtf8(v);
  ordered_json items = ordered_json::array();
  for (const auto& item : p.keywordItems) {
    ordered_json words = ordered_json::array();
    for (const auto& w : item->keywords) words.push_back(toUtf8(w));
    items.push_back({{"keywordType", item->keywordType},
                     {"title", toUtf8(item->title)},
                     {"comment", toUtf8(item->comment)},
                     {"indexTag", item->indexTag},
                     {"keywords", std::move(words)}});
  }
  std::vector<std::pair<std::string, int>> all;
  all.reserve(p.allKeywords.size());
  for (const auto& [w, tag] : p.allKeywords) all.emplace_back(toUtf8(w), tag);
  std::sort(all.begin(), all.end());
  ordered_json allJson = ordered_json::object();
  for (auto& [w, tag] : all) allJson[w] = tag;

  return ordered_json{{"formatInfo", std::move(info)},
                      {"continueQuote", p.continueQuote},
                      {"caseSensive", p.caseSensive},
                      {"isHtmlEmbeded", p.isHtmlEmbeded},
                      {"quotetion1", p.quotetion1},
                      {"quotetion2", p.quotetion2},
                      {"escape", toUtf8(p.escape)},
                      {"lineComment", toUtf8(p.lineComment)},
                      {"lineComment2", toUtf8(p.lineComment2)},
                      {"commentOn", toUtf8(p.commentOn)},
                      {"commentOff", toUtf8(p.commentOff)},
                      {"commentOn2", toUtf8(p.commentOn2)},
                      {"commentOff2", toUtf8(p.commentOff2)},
                      {"delimiter", toUtf8(p.delimiter)},
                      {"scriptBegin", toUtf8(p.scriptBegin)},
                      {"scriptEnd", toUtf8(p.scriptEnd)},
                      {"keywordItems", std::move(items)},
                      {"allKeywords", std::move(allJson)}};
}

std::string quoteChar(std::uint16_t c) {
  if (c == 0) return "(none)";
  return "'" + toUtf8(std::u16string(1, static_cast<char16_t>(c))) + "'";
}

void dumpText(const StxParser& p, std::ostream& out) {
  auto field = [&](const char* name, const std::u16string& v) {
    out << name << ": " << (v.empty() ? "(none)" : toUtf8(v)) << "\n";
  };
  out << "case sensitive: " << (p.caseSensive ? "yes" : "no") << "\n";
  out << "quotes continue over lines: " << (p.continueQuote ? "yes" : "no") << "\n";
  out << "quotation 1: " << quoteChar(p.quotetion1) << "\n";
  out << "quotation 2: " << quoteChar(p.quotetion2) << "\n";
  field("escape", p.escape);
  field("line comment", p.lineComment);
  field("line comment 2", p.lineComment2);
  field("block comment on", p.commentOn);
  field("block comment off", p.commentOff);
  field("block comment on 2", p.commentOn2);
  field("block comment off 2", p.commentOff2);
  field("delimiters", p.delimiter);
  out << "keyword sections: " << p.keywordItems.size() << "\n";
  for (const auto& item : p.keywordItems) {
    out << "  [" << item->indexTag << "] " << toUtf8(item->title) << " (type " << item->keywordType
        << ", " << item->keywords.size() << " words)";
    if (!item->comment.empty()) out << " ; " << toUtf8(item->comment);
    out << "\n";
  }
}

}  // namespace

namespace {
void addSyntaxCommands(CLI::App& app, int& exitCode) {
  CLI::App* syntax = app.add_subcommand("syntax", "Syntax definition (.stx) files");
  syntax->require_subcommand(1);

  CLI::App* dump = syntax->add_subcommand("dump", "Print the parsed definition of an .stx file");
  struct Options {
    std::string file;
    bool json = false;
  };
  auto opts = std::make_shared<Options>();
  dump->add_option("FILE", opts->file, "The .stx file")->required();
  dump->add_flag("--json", opts->json, "Print the definition as JSON");
  dump->callback([opts, &exitCode] {
    const std::string& file = opts->file;
    if (auto problem = checkPath(file, PathNeed::File)) {
      exitCode = fail("syntax dump", *problem);
      return;
    }
    StxParser parser(file);
    if (opts->json) {
      printJson(dumpJson(parser));
    } else {
      dumpText(parser, std::cout);
    }
  });
}

}  // namespace

const CommandRegistrar syntaxCommands(20, addSyntaxCommands);

}  // namespace harbor::cli

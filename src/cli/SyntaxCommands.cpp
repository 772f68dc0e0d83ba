#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "platform/ScreenPort.h"
#include "platform/Unicode.h"
#include "prefs/EditorUtils.h"
#include "syntax/CustomSyntaxController.h"
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

namespace {

// ---- syntax custom ----------------------------------------------------------------

// The screens' port for a command: whatever they would show is a failure
// message, and a closed screen means the save went through.
class CommandPort : public IScreenPort {
 public:
  std::string shown;
  bool closed = false;
  void showAlert(const ScreenAlert& alert, AlertReply) override { shown = alert.text; }
  void showSheet(const ScreenSheet&, SheetReply) override {}
  void showMessage(const std::string&, const std::string& text) override { shown = text; }
  void setTitle(const std::string&) override {}
  void setBusy(bool) override {}
  void close() override { closed = true; }
};

struct CustomOptions {
  bool onlyFile = false;
  bool json = false;
  std::string file;
  std::string values;
  std::string stx;
};

std::unique_ptr<CustomSyntaxBaseConroller> listScreen(CommandPort& port, bool onlyFile) {
  std::unique_ptr<CustomSyntaxBaseConroller> list;
  if (onlyFile) {
    list = std::make_unique<CustomSyntaxOnlyForFile>(&port);
  } else {
    list = std::make_unique<CustomSyntaxController>(&port);
  }
  list->viewDidLoad();
  return list;
}

std::optional<std::size_t> rowOf(const CustomSyntaxBaseConroller& list, const std::string& name) {
  auto it = std::find(list.sections.begin(), list.sections.end(), name);
  if (it == list.sections.end()) return std::nullopt;
  return static_cast<std::size_t>(it - list.sections.begin());
}

int runCustomList(const CustomOptions& o) {
  CommandPort port;
  auto list = listScreen(port, o.onlyFile);
  const auto folder = o.onlyFile ? EditorUtils::defulatEditorOnlyFileDirectory()
                                 : EditorUtils::defulatEditorDirectory();
  if (o.json) {
    ordered_json entries = ordered_json::array();
    for (const auto& [name, value] : list->rows()) {
      entries.push_back({{"stxFileName", name}, {"value", value}});
    }
    printJson(ordered_json{{"folder", folder.string()}, {"entries", std::move(entries)}});
    return 0;
  }
  for (const auto& [name, value] : list->rows()) std::cout << name << "\t" << value << "\n";
  return 0;
}

int runCustomSave(const CustomOptions& o, bool edit) {
  const char* command = edit ? "syntax custom edit" : "syntax custom add";
  CommandPort port;
  auto list = listScreen(port, o.onlyFile);
  std::shared_ptr<AddSyntaxViewController> screen;
  if (edit) {
    auto row = rowOf(*list, o.file);
    if (!row) return fail(command, o.file + ": no such custom syntax file");
    screen = list->didSelectRow(*row, &port);
  } else {
    screen = list->addSyntax(&port);
  }
  const std::string picked = edit ? o.stx : o.file;
  if (!picked.empty()) {
    if (auto problem = checkPath(picked, PathNeed::File)) return fail(command, *problem);
    if (!screen->pickStxFile(picked)) return fail(command, port.shown);
  }
  screen->value = o.values;
  if (!screen->saveContent()) return fail(command, port.shown);
  return 0;
}

int runCustomRemove(const CustomOptions& o) {
  CommandPort port;
  auto list = listScreen(port, o.onlyFile);
  auto row = rowOf(*list, o.file);
  if (!row) return fail("syntax custom remove", o.file + ": no such custom syntax file");
  if (!list->deleteRow(*row)) return fail("syntax custom remove", port.shown);
  return 0;
}

void addCustomSyntaxCommand(CLI::App& app, int& exitCode) {
  CLI::App* syntax = app.get_subcommand("syntax");
  auto o = std::make_shared<CustomOptions>();
  CLI::App* custom = syntax->add_subcommand(
      "custom", "Your own .stx files, assigned to extensions or (--only-file) to file names");
  custom->require_subcommand(1);
  custom->add_flag("--only-file", o->onlyFile,
                   "Work on the assignments by exact file name instead of by extension");

  CLI::App* list = custom->add_subcommand("list", "List the assignments");
  list->fallthrough();
  list->add_flag("--json", o->json, "Print {folder, entries: [{stxFileName, value}]}");
  list->callback([o, &exitCode] { exitCode = runCustomList(*o); });

  CLI::App* add = custom->add_subcommand("add", "Assign an .stx file to values");
  add->fallthrough();
  add->add_option("FILE", o->file, "The .stx file; it is copied in")->required();
  add->add_option("VALUES", o->values, "Extensions (or file names) separated by , or ;")
      ->required();
  add->callback([o, &exitCode] { exitCode = runCustomSave(*o, false); });

  CLI::App* edit = custom->add_subcommand("edit", "Change the values of an assignment");
  edit->fallthrough();
  edit->add_option("NAME", o->file, "The assigned .stx file's name")->required();
  edit->add_option("VALUES", o->values, "The new values")->required();
  edit->add_option("--stx", o->stx, "Replace the .stx file with this one")->type_name("FILE");
  edit->callback([o, &exitCode] { exitCode = runCustomSave(*o, true); });

  CLI::App* remove = custom->add_subcommand("remove", "Drop an assignment and its file");
  remove->fallthrough();
  remove->add_option("NAME", o->file, "The assigned .stx file's name")->required();
  remove->callback([o, &exitCode] { exitCode = runCustomRemove(*o); });
}

}  // namespace

const CommandRegistrar syntaxCommands(20, addSyntaxCommands);
const CommandRegistrar customSyntaxCommand(22, addCustomSyntaxCommand);

}  // namespace harbor::cli

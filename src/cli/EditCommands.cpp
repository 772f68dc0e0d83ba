// harbor journal: the editor's undo journal driven step by step from a script.
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "editor/UnDoManager.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace {

struct JournalOptions {
  std::string text;
  std::string steps;
  std::string load;
  std::string save;
};

// Reads a steps file, "-" for standard input; nothing when it cannot be read.
std::optional<std::string> readSteps(const std::string& path) {
  std::ostringstream out;
  if (path == "-") {
    out << std::cin.rdbuf();
    return out.str();
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  out << in.rdbuf();
  return out.str();
}

// One step per line, each a JSON array naming the step first.
std::optional<std::vector<nlohmann::json>> parseSteps(const std::string& text, std::string& why) {
  std::vector<nlohmann::json> steps;
  std::istringstream lines(text);
  std::string line;
  int number = 0;
  while (std::getline(lines, line)) {
    ++number;
    if (trim(std::string_view(line)).empty()) continue;
    auto step = nlohmann::json::parse(line, nullptr, false);
    if (step.is_discarded() || !step.is_array() || step.empty() || !step[0].is_string()) {
      why = "step " + std::to_string(number) + " is not a JSON array naming a step";
      return std::nullopt;
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

int runJournal(const JournalOptions& opts) {
  std::shared_ptr<UnDoManager> journal;
  if (!opts.load.empty()) {
    if (auto problem = checkPath(opts.load, PathNeed::File)) return fail("journal", *problem);
    std::ifstream in(opts.load, std::ios::binary);
    auto archive = nlohmann::json::parse(in, nullptr, false);
    Error error;
    if (!archive.is_discarded()) journal = UnDoManager::unarchive(archive, &error);
    if (!journal) {
      return fail("journal",
                  opts.load + ": " + (error.message.empty() ? "not JSON" : error.message));
    }
  } else {
    journal = UnDoManager::instanceWithString(toUtf16(opts.text));
  }
  auto stepsText = readSteps(opts.steps);
  if (!stepsText) {
    return fail("journal",
                checkPath(opts.steps, PathNeed::File).value_or(opts.steps + ": unreadable"));
  }
  std::string why;
  auto steps = parseSteps(*stepsText, why);
  if (!steps) return fail("journal", why, 2);

  ordered_json out = ordered_json::array();
  int number = 0;
  for (const nlohmann::json& step : *steps) {
    ++number;
    const std::string name = step[0].get<std::string>();
    auto bad = [&](const std::string& what) {
      return fail("journal", "step " + std::to_string(number) + ": " + what, 2);
    };
    if (name == "edit") {
      if (step.size() != 4 || !step[1].is_number_unsigned() || !step[2].is_number_unsigned() ||
          !step[3].is_string()) {
        return bad("edit takes a location, a length and a text");
      }
      if (!journal->addUndoItem(step[1].get<std::uint64_t>(), step[2].get<std::uint64_t>(),
                                toUtf16(step[3].get<std::string>()))) {
        return bad("the range lies outside the text");
      }
    } else if (step.size() != 1) {
      return bad(name + " takes no arguments");
    } else if (name == "start") {
      journal->startGrouping();
    } else if (name == "stop") {
      journal->stopGrouping();
    } else if (name == "undo") {
      journal->undo();
    } else if (name == "redo") {
      journal->redo();
    } else {
      return bad("unknown step \"" + name + "\"");
    }
    out.push_back({{"text", toUtf8(journal->getSourceString())},
                   {"undo", journal->undoStackSize()},
                   {"redo", journal->redoStackSize()}});
  }
  if (!opts.save.empty()) {
    // The open group is not part of the archive; close it so nothing is lost.
    journal->stopGrouping();
    std::ofstream file(opts.save, std::ios::binary | std::ios::trunc);
    file << jsonText(journal->archive()) << "\n";
    if (!file.flush()) return fail("journal", opts.save + ": cannot write");
  }
  printJson(out);
  return 0;
}

void addEditCommands(CLI::App& app, int& exitCode) {
  auto opts = std::make_shared<JournalOptions>();
  CLI::App* journal = app.add_subcommand(
      "journal", "Drive an undo journal over TEXT; print {text, undo, redo} after each step");
  journal->add_option("TEXT", opts->text, "The starting text");
  journal
      ->add_option("--steps", opts->steps,
                   "One JSON array per line: [\"edit\",L,N,S], [\"start\"], [\"stop\"], "
                   "[\"undo\"], [\"redo\"] (\"-\" reads standard input)")
      ->required()
      ->type_name("FILE|-");
  journal->add_option("--load", opts->load, "Start from a saved journal instead of TEXT")
      ->type_name("FILE");
  journal->add_option("--save", opts->save, "Save the journal after the last step")
      ->type_name("FILE");
  journal->callback([opts, &exitCode] { exitCode = runJournal(*opts); });
}

}  // namespace

const CommandRegistrar editCommands(60, addEditCommands);

}  // namespace harbor::cli

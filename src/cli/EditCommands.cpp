// harbor edit and harbor journal: the editor screen and its undo journal driven
// step by step from a script, with a port that records what the screen shows.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "editor/EditorBaseController.h"
#include "editor/UnDoManager.h"
#include "filemanager/CommonUtil.h"
#include "platform/MainQueue.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

struct JournalOptions {
  std::string text;
  std::string steps;
  std::string load;
  std::string save;
};

// One step per line, each a JSON array naming the step first, from a file or
// "-" for standard input. Nothing when the steps cannot be used; `exitCode`
// then says why: 1 unreadable, 2 not steps.
std::optional<std::vector<nlohmann::json>> loadSteps(const char* command, const std::string& path,
                                                     int& exitCode) {
  std::ostringstream text;
  if (path == "-") {
    text << std::cin.rdbuf();
  } else {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      exitCode = fail(command, checkPath(path, PathNeed::File).value_or(path + ": unreadable"));
      return std::nullopt;
    }
    text << in.rdbuf();
  }
  std::vector<nlohmann::json> steps;
  std::istringstream lines(text.str());
  std::string line;
  int number = 0;
  while (std::getline(lines, line)) {
    ++number;
    if (trim(std::string_view(line)).empty()) continue;
    auto step = nlohmann::json::parse(line, nullptr, false);
    if (step.is_discarded() || !step.is_array() || step.empty() || !step[0].is_string()) {
      exitCode =
          fail(command, "step " + std::to_string(number) + " is not a JSON array naming a step", 2);
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
  int refused = 0;
  auto steps = loadSteps("journal", opts.steps, refused);
  if (!steps) return refused;

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

// ---- harbor edit ------------------------------------------------------------------

// Answers the screen as a script says, recording everything it shows.
class RecordingPort : public IEditorView {
 public:
  ordered_json events = ordered_json::array();
  std::optional<ScreenAlert> alert;
  AlertReply alertReply;
  std::optional<ScreenSheet> sheet;
  SheetReply sheetReply;
  bool closed = false;

  void showAlert(const ScreenAlert& a, AlertReply reply) override {
    ordered_json fields = ordered_json::array();
    for (const auto& f : a.fields)
      fields.push_back({{"placeholder", f.placeholder}, {"text", f.text}});
    events.push_back({{"kind", "alert"},
                      {"tag", a.tag},
                      {"key", a.key},
                      {"text", a.text},
                      {"buttons", a.buttons},
                      {"fields", fields}});
    alert = a;
    alertReply = std::move(reply);
  }
  void showSheet(const ScreenSheet& s, SheetReply reply) override {
    events.push_back({{"kind", "sheet"}, {"tag", s.tag}, {"rows", s.rows}});
    sheet = s;
    sheetReply = std::move(reply);
  }
  void showMessage(const std::string& key, const std::string& text) override {
    events.push_back({{"kind", "message"}, {"key", key}, {"text", text}});
  }
  void setTitle(const std::string& title) override {
    events.push_back({{"kind", "title"}, {"text", title}});
  }
  void setBusy(bool) override {}
  void close() override {
    closed = true;
    events.push_back({{"kind", "close"}});
  }
  bool supportsRoute(ScreenRoute) const override { return true; }
  void openRoute(ScreenRoute, const std::string& path, const std::string& title) override {
    events.push_back({{"kind", "preview"}, {"path", path}, {"text", title}});
  }
  void showSuggestions(const std::vector<std::u16string>& items) override {
    ordered_json list = ordered_json::array();
    for (const auto& item : items) list.push_back(toUtf8(item));
    events.push_back({{"kind", "suggestions"}, {"items", list}});
  }
  void scrollToOffset(std::size_t offset) override {
    events.push_back({{"kind", "scroll"}, {"offset", offset}});
  }
};

ordered_json recordJson(const std::optional<PlistValue::Map>& record) {
  if (!record) return nullptr;
  ordered_json out = ordered_json::object();
  for (const auto& [key, value] : *record) {
    if (value.isBool()) {
      out[key] = *value.asBool();
    } else if (value.isInteger()) {
      out[key] = *value.asInteger();
    } else if (value.isReal()) {
      out[key] = *value.asReal();
    } else if (const std::string* text = value.asString()) {
      out[key] = *text;
    } else {
      out[key] = nullptr;
    }
  }
  return out;
}

ordered_json keyTitles(const EditorBaseController& editor) {
  ordered_json titles = ordered_json::array();
  for (const auto& key : editor.keys()) titles.push_back(key._textLabel);
  return titles;
}

ordered_json editorState(const EditorBaseController& editor) {
  TextRange sel = editor.selection();
  return {{"filePath", editor.filePath()},
          {"text", toUtf8(editor.text())},
          {"selection", {sel.location, sel.length}},
          {"encoding", editor.encodingString()},
          {"fontSize", editor.fontSize()},
          {"editable", editor.isEditable()},
          {"canUndo", editor.canUndo()},
          {"canRedo", editor.canRedo()},
          {"formatType", toUtf8(editor.formatType())},
          {"keys", keyTitles(editor)},
          {"lastOpen", recordJson(UWebViewUtil::getLastOpenByPath(editor.filePath()))},
          {"bookmark", recordJson(CommonUtil::getBookMarkByPath(editor.filePath()))}};
}

struct EditOptions {
  std::string file;
  std::string steps;
  bool isNew = false;
  bool bookmark = false;
};

int runEdit(const EditOptions& opts) {
  int refused = 0;
  auto steps = loadSteps("edit", opts.steps, refused);
  if (!steps) return refused;
  if (opts.isNew) {
    if (auto problem = checkPath(fs::path(opts.file).parent_path().empty()
                                     ? "."
                                     : fs::path(opts.file).parent_path().string(),
                                 PathNeed::Folder)) {
      return fail("edit", *problem);
    }
  }

  MainQueue& main = MainQueue::shared();
  main.adoptCurrentThread();
  // Timers wait for the script's ["timer"] steps, never for the wall clock.
  main.setManualClock(true);
  RecordingPort port;
  auto editor = EditorBaseController::instanceWithPath(fs::absolute(opts.file).string(), &port);
  editor->_isAddFile = opts.isNew;
  editor->_isLoadFromBookMark = opts.bookmark;
  auto drain = [&] {
    main.runUntil([&] { return !editor->isBusy(); }, std::chrono::seconds(60));
    main.runPending();
  };
  editor->viewDidLoad();
  editor->viewDidAppear();
  drain();

  int number = 0;
  for (const nlohmann::json& step : *steps) {
    ++number;
    const std::string name = step[0].get<std::string>();
    auto bad = [&](const std::string& what) {
      editor->endScreen();
      return fail("edit", "step " + std::to_string(number) + ": " + what, 2);
    };
    auto isText = [&](std::size_t i) { return step.size() > i && step[i].is_string(); };
    auto isCount = [&](std::size_t i) { return step.size() > i && step[i].is_number_unsigned(); };
    if (name == "edit" && step.size() == 2 && step[1].is_boolean()) {
      editor->setEditing(step[1].get<bool>());
    } else if (name == "type" && step.size() == 2 && isText(1)) {
      std::u16string text = toUtf16(step[1].get<std::string>());
      for (std::size_t i = 0; i < text.size();) {
        std::size_t n = (text[i] & 0xFC00) == 0xD800 && i + 1 < text.size() ? 2 : 1;
        editor->insertText(text.substr(i, n));
        i += n;
      }
    } else if (name == "paste" && step.size() == 2 && isText(1)) {
      editor->changeText(editor->selection(), toUtf16(step[1].get<std::string>()));
    } else if (name == "delete" && step.size() == 1) {
      editor->deleteBackward();
    } else if (name == "select" && step.size() == 3 && isCount(1) && isCount(2)) {
      editor->setSelectedRange(TextRange{step[1].get<std::size_t>(), step[2].get<std::size_t>()});
    } else if (name == "options" && (step.size() == 1 || (step.size() == 2 && isText(1)))) {
      editor->alertActionSheet();
      if (!port.sheet) return bad("no options sheet");
      auto rows = port.sheet->rows;
      std::string title = step.size() == 2 ? step[1].get<std::string>() : "Cancel";
      auto at = std::find(rows.begin(), rows.end(), title);
      if (at == rows.end()) return bad("no row \"" + title + "\"");
      auto reply = std::move(port.sheetReply);
      port.sheet.reset();
      if (reply) reply(static_cast<int>(at - rows.begin()));
    } else if (name == "alert" && step.size() >= 2 && step[1].is_number_integer()) {
      if (!port.alert) return bad("no alert is showing");
      int button = step[1].get<int>();
      if (button < 0 || static_cast<std::size_t>(button) >= port.alert->buttons.size()) {
        return bad("the alert has no button " + std::to_string(button));
      }
      std::vector<std::string> fields;
      for (std::size_t i = 2; i < step.size(); ++i) {
        if (!step[i].is_string()) return bad("alert fields are texts");
        fields.push_back(step[i].get<std::string>());
      }
      auto reply = std::move(port.alertReply);
      port.alert.reset();
      if (reply) reply(button, fields);
    } else if (name == "cancel" && step.size() == 1) {
      editor->cancelAct();
    } else if (name == "font" && step.size() == 2 && isText(1) &&
               (step[1] == "+" || step[1] == "-")) {
      step[1] == "+" ? editor->enlargeFontSize() : editor->reduceFontSize();
    } else if (name == "bookmark" && step.size() == 1) {
      editor->saveBookMark();
    } else if (name == "encoding" && step.size() == 2 && isText(1)) {
      editor->encodingChange(step[1].get<std::string>());
    } else if (name == "scroll" && step.size() == 2 && isCount(1)) {
      editor->setFirstVisibleOffset(step[1].get<std::size_t>());
    } else if (name == "undo" && step.size() == 1) {
      editor->undoAction();
    } else if (name == "redo" && step.size() == 1) {
      editor->redoAction();
    } else if (name == "state" && step.size() == 1) {
      port.events.push_back({{"kind", "state"}, {"state", editorState(*editor)}});
    } else if (name == "key" && step.size() == 3 && step[1].is_number_unsigned() && isText(2) &&
               (step[2] == "tap" || step[2] == "long")) {
      std::size_t index = step[1].get<std::size_t>();
      if (index >= editor->keys().size()) return bad("no key " + std::to_string(index));
      if (!editor->performKey(index, step[2] == "long")) {
        return bad("key " + std::to_string(index) + " has no " + step[2].get<std::string>() +
                   " action");
      }
    } else if (name == "lineno" && step.size() == 2 && isCount(1)) {
      std::size_t offset = step[1].get<std::size_t>();
      if (offset > editor->text().size()) return bad("offset past the end of the text");
      port.events.push_back(
          {{"kind", "lineno"}, {"offset", offset}, {"text", editor->lineNumberText(offset)}});
    } else if (name == "timer" && step.size() == 1) {
      // Six seconds pass: deferred formatting asked for by the parser runs.
      main.advanceClock(EditorBaseController::kFormatDelay);
    } else {
      return bad("not a step: " + step.dump());
    }
    drain();
  }
  ordered_json out{{"events", port.events}, {"state", editorState(*editor)}};
  editor->endScreen();
  printJson(out);
  return 0;
}

void addEditCommands(CLI::App& app, int& exitCode) {
  auto editOpts = std::make_shared<EditOptions>();
  CLI::App* edit = app.add_subcommand(
      "edit", "Drive the editor screen over FILE; print the events it showed and its state");
  edit->add_option("FILE", editOpts->file, "The document (for --new, the proposed path)")
      ->required();
  edit->add_flag("--new", editOpts->isNew,
                 "A new file: start from the template, save to a free name");
  edit->add_flag("--bookmark", editOpts->bookmark,
                 "Restore the position from the bookmark instead of the last-open record");
  edit->add_option("--steps", editOpts->steps,
                   "One JSON array per line, e.g. [\"type\",\"x\"], [\"options\",\"Save\"], "
                   "[\"alert\",1], [\"state\"] (\"-\" reads standard input)")
      ->required()
      ->type_name("FILE|-");
  edit->callback([editOpts, &exitCode] { exitCode = runEdit(*editOpts); });

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

// The editor screen's speed against its absolute targets (no headless peer
// colours text as an editor does): opening a 500 KiB C++ file to its first
// colours, keystrokes in its middle, undo and redo of them all, memory after
// many edits, and keystrokes in a 20 MiB file that gets no colours.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "editor/EditorBaseController.h"
#include "platform/MainQueue.h"
#include "platform/UserDefaults.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace harbor;

namespace {

struct NullPort : IEditorView {
  void showAlert(const ScreenAlert&, AlertReply) override {}
  void showSheet(const ScreenSheet&, SheetReply) override {}
  void showMessage(const std::string&, const std::string&) override {}
  void setTitle(const std::string&) override {}
  void setBusy(bool) override {}
  void close() override {}
};

double ms(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

// C++ text of about `bytes`, cut at a line end, from the compiler's own headers.
std::string cppText(std::size_t bytes) {
  std::string out;
  std::vector<fs::path> files;
  std::error_code ec;
  for (const char* dir : {"/usr/include/c++/12/bits", "/usr/include/c++/13/bits"}) {
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      if (it->path().extension() == ".h") files.push_back(it->path());
    }
  }
  std::sort(files.begin(), files.end());
  while (out.size() < bytes && !files.empty()) {
    for (const auto& f : files) {
      std::ifstream in(f, std::ios::binary);
      out.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
      if (out.size() >= bytes) break;
    }
  }
  out.resize(std::min(out.size(), bytes));
  out.erase(out.rfind('\n') + 1);
  return out;
}

std::shared_ptr<EditorBaseController> open(const fs::path& file, NullPort& port) {
  auto editor = EditorBaseController::instanceWithPath(file.string(), &port);
  editor->viewDidLoad();
  MainQueue::shared().runUntil([&] { return !editor->isLoading(); }, std::chrono::minutes(5));
  editor->setEditing(true);
  return editor;
}

struct Latency {
  double p50, p99, max;
};

Latency typeInMiddle(EditorBaseController& editor, int keys) {
  editor.setSelectedRange(TextRange{editor.text().size() / 2, 0});
  std::vector<double> each;
  each.reserve(keys);
  const std::u16string word = u"value = item + 1; ";
  for (int i = 0; i < keys; ++i) {
    auto t0 = Clock::now();
    editor.insertText(std::u16string(1, word[i % word.size()]));
    each.push_back(ms(Clock::now() - t0));
  }
  std::sort(each.begin(), each.end());
  return {each[each.size() / 2], each[each.size() * 99 / 100], each.back()};
}

long peakRssKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

int main() {
  fs::path root = fs::temp_directory_path() / ("harbor-editor-bench-" + std::to_string(getpid()));
  fs::create_directories(root);
  setenv("HARBOR_ROOT", root.c_str(), 1);
  UserDefaults::setStandard(std::make_shared<UserDefaults>());
  MainQueue::shared().adoptCurrentThread();
  NullPort port;
  int failures = 0;
  auto report = [&](const char* what, double value, double target, const char* unit) {
    bool ok = value < target;
    failures += !ok;
    std::printf("%-46s %10.2f %-4s target < %g %s  %s\n", what, value, unit, target, unit,
                ok ? "ok" : "MISSED");
  };

  fs::path cpp = root / "large.cpp";
  std::ofstream(cpp, std::ios::binary) << cppText(500 * 1024);
  std::printf("500 KiB C++ file: %ju bytes\n", static_cast<std::uintmax_t>(fs::file_size(cpp)));

  auto t0 = Clock::now();
  auto editor = open(cpp, port);
  report("open to first colours (ms)", ms(Clock::now() - t0), 100, "ms");

  Latency typing = typeInMiddle(*editor, 2000);
  std::printf("2,000 keystrokes in the middle: p50 %.3f ms, max %.3f ms\n", typing.p50, typing.max);
  report("keystroke p99 (ms)", typing.p99, 16, "ms");

  t0 = Clock::now();
  int steps = 0;
  while (editor->canUndo()) {
    editor->undoAction();
    ++steps;
  }
  double undoAll = ms(Clock::now() - t0);
  t0 = Clock::now();
  while (editor->canRedo()) editor->redoAction();
  std::printf("undo all (%d button presses) %.1f ms, redo all %.1f ms\n", steps, undoAll,
              ms(Clock::now() - t0));

  typeInMiddle(*editor, 8000);  // 10,000 edits in all
  report("peak RSS after 10,000 edits (MiB)", peakRssKiB() / 1024.0, 64, "MiB");
  editor->endScreen();
  editor.reset();

  fs::path big = root / "huge.cpp";
  {
    std::string chunk = cppText(1 << 20);
    std::ofstream out(big, std::ios::binary);
    for (int i = 0; i < 20; ++i) out << chunk;
  }
  auto huge = open(big, port);
  Latency hugeTyping = typeInMiddle(*huge, 500);
  std::printf("20 MiB file, 500 keystrokes: p50 %.3f ms, max %.3f ms\n", hugeTyping.p50,
              hugeTyping.max);
  report("20 MiB keystroke p99 (ms)", hugeTyping.p99, 16, "ms");
  huge->endScreen();

  std::error_code ec;
  fs::remove_all(root, ec);
  return failures == 0 ? 0 : 1;
}

// The colouring engine's speed: a full pass over large C++, HTML and
// JavaScript files, one keystroke's re-highlight in a 500 KiB document, and
// `harbor highlight --format html` against the peer highlighters on the same
// files. Ratios are the peer's time divided by ours: above 1 means faster.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "platform/TextStorage.h"
#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using harbor::CodeFactory;
using harbor::TextRange;
using harbor::TextStorage;

namespace {

constexpr std::size_t kFileBytes = 512 * 1024;

std::string readAll(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Cuts at the last line end before `limit` bytes, so the file stays below
// the editor's 524288-unit cut-off and still ends cleanly.
std::string cut(std::string s, std::size_t limit) {
  if (s.size() > limit) {
    s.resize(limit);
    s.erase(s.rfind('\n') + 1);
  }
  return s;
}

std::string cppCorpus() {
  std::string out;
  std::vector<fs::path> files;
  std::error_code ec;
  for (const char* dir : {"/usr/include/c++/12/bits", "/usr/include/c++/13/bits"}) {
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      if (it->path().extension() == ".h") files.push_back(it->path());
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& f : files) {
    if (out.size() > kFileBytes) break;
    out += readAll(f);
  }
  return cut(out, kFileBytes);
}

std::string jsCorpus() {
  std::string js = readAll("/usr/share/javascript/jquery/jquery.js");
  if (js.empty()) {
    for (int i = 0; js.size() < kFileBytes; ++i) {
      js += "function f" + std::to_string(i) +
            "(a, b) {\n  // adds\n  var s = 'x' + a;\n"
            "  if (a > b) { return /ab+c/.test(s); }\n  return a / b / 2;\n}\n";
    }
  }
  std::string out;
  while (out.size() < kFileBytes) out += js;
  return cut(out, kFileBytes);
}

std::string htmlCorpus(const std::string& js) {
  std::string out = "<!DOCTYPE html>\n<html>\n<head>\n<title>Report</title>\n";
  std::size_t jsAt = 0;
  for (int i = 0; out.size() < kFileBytes; ++i) {
    out += "<style>\n.c" + std::to_string(i) +
           " { color: #333; margin: 0 auto; font-family: sans-serif; }\n</style>\n";
    out += "<div class=\"row\" id=\"r" + std::to_string(i) +
           "\"><p>Some <b>bold</b> text &amp; a <a href=\"page.html\">link</a>.</p>\n"
           "<!-- a comment -->\n<img src=\"a.png\" alt='pic'><br/>\n</div>\n";
    out += "<script type=\"text/javascript\">\n" + js.substr(jsAt, 1500) + "\n</script>\n";
    jsAt = (jsAt + 1500) % (js.size() > 3000 ? js.size() - 3000 : 1);
  }
  return cut(out, kFileBytes - 64) + "</body></html>\n";
}

double seconds(Clock::duration d) {
  return std::chrono::duration<double>(d).count();
}

double bestOf(int runs, const std::function<void()>& f) {
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    auto t0 = Clock::now();
    f();
    best = std::min(best, seconds(Clock::now() - t0));
  }
  return best;
}

// Runs a command with its output discarded; nullopt when it is missing or fails.
std::optional<double> timeCommand(const std::string& cmd, int runs) {
  const std::string full = cmd + " >/dev/null 2>&1";
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    auto t0 = Clock::now();
    int status = std::system(full.c_str());
    double t = seconds(Clock::now() - t0);
    if (status != 0) return std::nullopt;
    best = std::min(best, t);
  }
  return best;
}

struct Sample {
  std::string name;
  std::string ext;
  fs::path file;
  std::string peerLang[4];  // source-highlight, pygmentize, highlight, kate
};

}  // namespace

int main(int argc, char** argv) {
  const fs::path dir =
      fs::temp_directory_path() / ("harbor-highlight-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const std::string js = jsCorpus();
  std::vector<Sample> samples = {
      {"C++", "cpp", dir / "big.cpp", {"cpp", "cpp", "cpp", "C++"}},
      {"HTML", "html", dir / "big.html", {"html", "html", "html", "HTML"}},
      {"JavaScript", "js", dir / "big.js", {"javascript", "javascript", "js", "JavaScript"}},
  };
  const std::string contents[] = {cppCorpus(), htmlCorpus(js), js};
  for (std::size_t i = 0; i < samples.size(); ++i) {
    std::ofstream(samples[i].file, std::ios::binary) << contents[i];
  }

  std::printf("Full pass (scan, runs, write), best of 5:\n");
  std::printf("  %-11s %9s %9s %10s %8s\n", "file", "KiB", "ms", "MB/s", "runs");
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::u16string text = harbor::toUtf16(contents[i]);
    std::size_t runs = 0;
    double t = bestOf(5, [&] {
      TextStorage storage(text);
      auto parser = CodeFactory::codeFormatParserWithExtension(samples[i].ext);
      parser->parserSmart(storage);
      runs = storage.runCount();
    });
    std::printf("  %-11s %9.0f %9.2f %10.1f %8zu\n", samples[i].name.c_str(),
                contents[i].size() / 1024.0, t * 1000, contents[i].size() / t / 1e6, runs);
  }

  {
    // Typing in the middle of a 500 KiB document: full rescan plus the
    // write of what changed.
    const std::string doc = cut(contents[0], 500 * 1024);
    TextStorage storage(harbor::toUtf16(doc));
    auto parser = CodeFactory::codeFormatParserWithExtension("cpp");
    parser->parserSmart(storage);
    std::size_t middle = storage.string().find(u'\n', storage.length() / 2) + 1;
    std::vector<double> times;
    std::uint64_t writes = 0;
    for (int i = 0; i < 40; ++i) {
      if (i % 2 == 0) {
        storage.replaceCharacters(TextRange{middle, 0}, u"x");
      } else {
        storage.replaceCharacters(TextRange{middle, 1}, u"");
      }
      const auto before = storage.attributeWriteCount();
      auto t0 = Clock::now();
      parser->parserSmart(storage);
      times.push_back(seconds(Clock::now() - t0) * 1000);
      writes += storage.attributeWriteCount() - before;
    }
    std::sort(times.begin(), times.end());
    std::printf(
        "\nKeystroke in a %zu KiB C++ document (40 edits): median %.2f ms, max %.2f ms, "
        "%.1f attribute writes per keystroke (target: under 16 ms)\n",
        doc.size() / 1024, times[times.size() / 2], times.back(), writes / 40.0);
  }

  // `harbor` beside this program's folder (build/bench -> build/bin).
  fs::path harbor = fs::canonical("/proc/self/exe").parent_path().parent_path() / "bin" / "harbor";
  if (argc > 1) harbor = argv[1];
  const int runs = 3;
  std::printf("\nWhole-file HTML output, best of %d (ratio = peer time / harbor time):\n", runs);
  std::printf("  %-11s %-22s %9s %9s\n", "file", "tool", "ms", "ratio");
  for (const auto& s : samples) {
    const std::string f = s.file.string();
    const std::string out = (dir / "out.html").string();
    auto ours = timeCommand(harbor.string() + " highlight --format html " + f, runs);
    if (!ours) {
      std::printf("  %-11s harbor failed (%s)\n", s.name.c_str(), harbor.c_str());
      continue;
    }
    std::printf("  %-11s %-22s %9.1f %9s\n", s.name.c_str(), "harbor", *ours * 1000, "1.00");
    const std::pair<const char*, std::string> peers[] = {
        {"source-highlight", "source-highlight --src-lang=" + s.peerLang[0] +
                                 " --out-format=html -i " + f + " -o " + out},
        {"pygmentize",
         "/usr/bin/pygmentize -l " + s.peerLang[1] + " -f html -O full -o " + out + " " + f},
        {"highlight", "highlight -S " + s.peerLang[2] + " -O html -i " + f + " -o " + out},
        {"kate-syntax-highlighter", "QT_QPA_PLATFORM=offscreen kate-syntax-highlighter -s " +
                                        s.peerLang[3] + " -f html -o " + out + " " + f},
    };
    for (const auto& [name, cmd] : peers) {
      auto t = timeCommand(cmd, runs);
      if (t) {
        std::printf("  %-11s %-22s %9.1f %9.2f\n", "", name, *t * 1000, *t / *ours);
      } else {
        std::printf("  %-11s %-22s %9s %9s\n", "", name, "n/a", "(not installed or failed)");
      }
    }
  }
  std::error_code ec;
  fs::remove_all(dir, ec);
  return 0;
}

// How often detection gives back the original text, and how fast, beside
// uchardet and enca on the same files. The corpus is built here from real
// text on the machine, converted with iconv. Each tool decodes its guess:
// Harbor through its own decoders (the editor's entry point), the peers
// through iconv. A sample is kept only when iconv round-trips it and
// Harbor's decoder for the true encoding reads it back unchanged, so a
// difference in mapping tables never counts as a detection error.
#include <benchmark/benchmark.h>
#include <enca.h>
#include <uchardet/uchardet.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Corpus.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/StringEncodings.h"
#include "platform/Unicode.h"

namespace harbor::bench {
namespace {

// Plain text of one language; message catalogues as .po files, English
// originals beside their translations; or web pages whose head declares the
// charset, built from the heads of HTML pages on this machine.
enum class Kind { text, po, page };

struct Target {
  const char* label;
  const char* iconvName;
  const char* harborName;  // Harbor's name for the true encoding
  std::string mark;        // written before the text
  std::vector<std::string> languages;
  Kind kind = Kind::text;
  const char* declared = "";  // pages: the label their declaration gives
};

const std::vector<std::string> kAllLanguages{"ja", "zh_CN", "zh_TW", "ko", "ru", "el", "pl", "cs",
                                             "fr", "de",    "es",    "hu", "uk", "he", "th"};

const std::vector<std::size_t> kSizes{100, 1024, 65536};
const std::vector<std::size_t> kPageSizes{4096, 65536};

std::vector<Target> targets() {
  const std::vector<std::string> western{"fr", "de", "es"};
  return {
      {"Shift_JIS", "SHIFT_JIS", "Shift_JIS", "", {"ja"}},
      {"EUC-JP", "EUC-JP", "EUC-JP", "", {"ja"}},
      {"ISO-2022-JP", "ISO-2022-JP", "ISO-2022-JP", "", {"ja"}},
      {"GBK", "GBK", "GBK", "", {"zh_CN"}},
      {"GB18030", "GB18030", "GB18030", "", {"zh_CN"}},
      {"Big5", "BIG5", "Big5", "", {"zh_TW"}},
      {"EUC-KR", "EUC-KR", "EUC-KR", "", {"ko"}},
      {"windows-1251", "WINDOWS-1251", "windows-1251", "", {"ru"}},
      {"KOI8-R", "KOI8-R", "KOI8-R", "", {"ru"}},
      {"ISO-8859-1", "ISO-8859-1", "ISO-8859-1", "", western},
      {"ISO-8859-2", "ISO-8859-2", "ISO-8859-2", "", {"pl", "cs", "hu"}},
      {"ISO-8859-7", "ISO-8859-7", "ISO-8859-7", "", {"el"}},
      {"windows-1252", "WINDOWS-1252", "windows-1252", "", western},
      {"UTF-16LE", "UTF-16LE", "UTF-16LE", "", kAllLanguages},
      {"UTF-16LE+BOM", "UTF-16LE", "UTF-16LE", "\xFF\xFE", kAllLanguages},
      {"UTF-16BE", "UTF-16BE", "UTF-16BE", "", kAllLanguages},
      {"UTF-16BE+BOM", "UTF-16BE", "UTF-16BE", "\xFE\xFF", kAllLanguages},
      {"UTF-8", "UTF-8", "UTF-8", "", kAllLanguages},
      {"UTF-8+BOM", "UTF-8", "UTF-8", "\xEF\xBB\xBF", kAllLanguages},
      // Single-byte tables of the DOS, Mac and Unix worlds.
      {"IBM866", "IBM866", "IBM866", "", {"ru"}},
      {"KOI8-U", "KOI8-U", "KOI8-U", "", {"uk"}},
      {"MacCyrillic", "MACCYRILLIC", "x-mac-cyrillic", "", {"ru", "uk"}},
      {"ISO-8859-5", "ISO-8859-5", "ISO-8859-5", "", {"ru"}},
      {"TIS-620", "TIS-620", "TIS-620", "", {"th"}},
      {"windows-1250", "WINDOWS-1250", "windows-1250", "", {"pl", "cs", "hu"}},
      {"windows-1253", "WINDOWS-1253", "windows-1253", "", {"el"}},
      {"ISO-8859-8", "ISO-8859-8", "ISO-8859-8", "", {"he"}},
      {"windows-1255", "WINDOWS-1255", "windows-1255", "", {"he"}},
      // English paragraphs mixed into the language.
      {"1251 po", "WINDOWS-1251", "windows-1251", "", {"ru"}, Kind::po},
      {"KOI8-R po", "KOI8-R", "KOI8-R", "", {"ru"}, Kind::po},
      {"8859-2 po", "ISO-8859-2", "ISO-8859-2", "", {"pl", "cs"}, Kind::po},
      {"1250 po", "WINDOWS-1250", "windows-1250", "", {"pl", "cs"}, Kind::po},
      {"8859-7 po", "ISO-8859-7", "ISO-8859-7", "", {"el"}, Kind::po},
      {"1253 po", "WINDOWS-1253", "windows-1253", "", {"el"}, Kind::po},
      {"8859-8 po", "ISO-8859-8", "ISO-8859-8", "", {"he"}, Kind::po},
      {"1255 po", "WINDOWS-1255", "windows-1255", "", {"he"}, Kind::po},
      // Web pages that say what they are.
      {"1251 page", "WINDOWS-1251", "windows-1251", "", {"ru"}, Kind::page, "windows-1251"},
      {"KOI8-R page", "KOI8-R", "KOI8-R", "", {"ru"}, Kind::page, "koi8-r"},
      {"8859-2 page", "ISO-8859-2", "ISO-8859-2", "", {"pl", "cs"}, Kind::page, "iso-8859-2"},
      {"1250 page", "WINDOWS-1250", "windows-1250", "", {"pl", "cs"}, Kind::page, "windows-1250"},
      {"8859-7 page", "ISO-8859-7", "ISO-8859-7", "", {"el"}, Kind::page, "iso-8859-7"},
      {"1255 page", "WINDOWS-1255", "windows-1255", "", {"he"}, Kind::page, "windows-1255"},
      {"1252 page", "WINDOWS-1252", "windows-1252", "", western, Kind::page, "windows-1252"},
      {"SJIS page", "SHIFT_JIS", "Shift_JIS", "", {"ja"}, Kind::page, "shift_jis"},
      {"GBK page", "GBK", "GBK", "", {"zh_CN"}, Kind::page, "gbk"},
      {"EUC-KR page", "EUC-KR", "EUC-KR", "", {"ko"}, Kind::page, "euc-kr"},
  };
}

// The key of a language's text pool for a kind of target.
std::string poolKey(const std::string& language, Kind kind) {
  return kind == Kind::po ? language + ":po" : kind == Kind::page ? language + ":page" : language;
}

// The lines of a text as paragraphs of a page.
LanguageText asParagraphs(const LanguageText& pool) {
  LanguageText out{pool.language, {}, pool.files};
  std::istringstream lines(pool.text);
  std::string line;
  while (std::getline(lines, line)) {
    std::string escaped;
    for (char c : line) {
      escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
    }
    out.text += "<p>" + escaped + "</p>\n";
  }
  return out;
}

std::vector<std::string> gPageHeads;

// The page around a sample's text, the declaration in two common forms.
std::pair<std::string, std::string> pageFrame(const Target& t, std::size_t n) {
  if (t.kind != Kind::page || gPageHeads.empty()) return {};
  std::string head = gPageHeads[n % gPageHeads.size()];
  const std::string declaration =
      n % 2 ? "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=" +
                  std::string(t.declared) + "\">"
            : "<meta charset=\"" + std::string(t.declared) + "\">";
  head.replace(head.find("@DECLARATION@"), 13, declaration);
  return {head, "</body>\n</html>\n"};
}

struct Sample {
  std::string original;  // UTF-8
  std::string bytes;     // as stored in the file
  std::string language;
};

struct Cell {
  std::string target;
  std::size_t size;
  std::vector<Sample> samples;
  double dropped = 0;  // share of the language's text the encoding cannot carry
  int harbor = 0, uchardet = 0, enca = 0;
};

// enca knows a few languages; elsewhere it only tells Unicode forms apart.
const char* encaLanguage(const std::string& language) {
  for (const char* l : {"ru", "uk", "pl", "cs", "hu", "zh"}) {
    if (language.rfind(l, 0) == 0) return l;
  }
  return "__";
}

std::string withoutMark(std::string s) {
  if (s.rfind("\xEF\xBB\xBF", 0) == 0) s.erase(0, 3);
  return s;
}

bool hasNonAscii(std::string_view s) {
  return std::any_of(s.begin(), s.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// The longest text from `start` whose encoded form fits in `size` bytes.
std::optional<Sample> makeSample(const Target& t, const LanguageText& pool, std::size_t start,
                                 std::size_t size, std::size_t n) {
  const auto [prefix, suffix] = pageFrame(t, n);
  const std::string_view text = std::string_view(pool.text).substr(start);
  std::vector<std::size_t> ends;  // character boundaries
  for (std::size_t i = 1; i <= text.size() && ends.size() < size; ++i) {
    if (i == text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ends.push_back(i);
  }
  std::size_t lo = 0, hi = ends.size();
  std::string best;
  while (lo < hi) {  // largest count whose encoding fits
    const std::size_t mid = (lo + hi + 1) / 2;
    auto enc = iconvConvert(t.iconvName, "UTF-8",
                            prefix + std::string(text.substr(0, ends[mid - 1])) + suffix);
    if (!enc) return std::nullopt;
    if (enc->size() + t.mark.size() <= size) {
      lo = mid;
      best = std::move(*enc);
    } else {
      hi = mid - 1;
    }
  }
  if (lo == 0) return std::nullopt;
  Sample s{prefix + std::string(text.substr(0, ends[lo - 1])) + suffix, t.mark + best,
           pool.language};
  // Sizes are what the table says, give or take one character.
  if (s.bytes.size() + 4 < size) return std::nullopt;
  return s;
}

// iconv carries the text there and back, and Harbor's decoder for the true
// encoding reads the same text: the two agree on every character.
bool carried(const Target& t, std::string_view original, std::string_view bytes) {
  auto back = iconvConvert("UTF-8", t.iconvName, bytes);
  if (!back || *back != original) return false;
  auto harbor =
      StringEncodings::decode(bytes, EncodingUtil::convertStringToNSStringEncoding(t.harborName));
  return harbor && toUtf8(*harbor) == original;
}

// The lines of a language that the target encoding carries; `dropped` gets
// the share of text left out.
LanguageText carriedLines(const Target& t, const LanguageText& pool, double& dropped) {
  LanguageText kept{pool.language, {}, pool.files};
  std::size_t pos = 0;
  while (pos < pool.text.size()) {
    std::size_t end = pool.text.find('\n', pos);
    if (end == std::string::npos) end = pool.text.size();
    const std::string_view line = std::string_view(pool.text).substr(pos, end - pos + 1);
    auto bytes = iconvConvert(t.iconvName, "UTF-8", line);
    if (bytes && carried(t, line, *bytes)) kept.text += line;
    pos = end + 1;
  }
  dropped = pool.text.empty() ? 0 : 1.0 - static_cast<double>(kept.text.size()) / pool.text.size();
  return kept;
}

std::vector<Cell> buildCorpus(const std::map<std::string, LanguageText>& pools, int scale) {
  const int wanted = 40 * scale;
  std::mt19937 rng(20240531);
  std::map<std::pair<std::string, std::string>, std::pair<LanguageText, double>> filtered;
  std::vector<Cell> cells;
  for (const Target& t : targets()) {
    // Unicode carries everything; legacy tables get the lines they can hold.
    std::vector<const LanguageText*> usable;
    double droppedSum = 0;
    for (const auto& l : t.languages) {
      auto it = pools.find(poolKey(l, t.kind));
      if (it == pools.end() || it->second.text.empty()) continue;
      if (std::string_view(t.iconvName).rfind("UTF-", 0) == 0) {
        usable.push_back(&it->second);
        continue;
      }
      auto key = std::make_pair(std::string(t.iconvName), poolKey(l, t.kind));
      auto f = filtered.find(key);
      if (f == filtered.end()) {
        double dropped = 0;
        LanguageText kept = carriedLines(t, it->second, dropped);
        f = filtered.emplace(key, std::make_pair(std::move(kept), dropped)).first;
      }
      droppedSum += f->second.second;
      usable.push_back(&f->second.first);
    }
    const double dropped = usable.empty() ? 0 : droppedSum / usable.size();
    for (std::size_t size : t.kind == Kind::page ? kPageSizes : kSizes) {
      Cell cell{t.label, size, {}, dropped};
      std::vector<const LanguageText*> big;
      for (const LanguageText* p : usable) {
        if (p->text.size() > 4 * size) big.push_back(p);
      }
      for (int attempt = 0;
           !big.empty() && static_cast<int>(cell.samples.size()) < wanted && attempt < wanted * 20;
           ++attempt) {
        const LanguageText& pool = *big[static_cast<std::size_t>(attempt) % big.size()];
        std::size_t start =
            std::uniform_int_distribution<std::size_t>(0, pool.text.size() - 2 * size)(rng);
        start = pool.text.find('\n', start);
        if (start == std::string::npos) continue;
        auto sample = makeSample(t, pool, start + 1, size, cell.samples.size());
        if (!sample || !hasNonAscii(sample->original)) continue;
        if (!carried(t, sample->original, std::string_view(sample->bytes).substr(t.mark.size()))) {
          continue;
        }
        cell.samples.push_back(std::move(*sample));
      }
      cells.push_back(std::move(cell));
    }
  }
  return cells;
}

// --- the three detectors, each decoding its own guess --------------------------

std::optional<std::string> iconvDecode(const std::string& charset, const std::string& bytes) {
  if (charset.empty()) return std::nullopt;
  auto text = iconvConvert("UTF-8", charset, bytes);
  if (!text) return std::nullopt;
  return withoutMark(std::move(*text));
}

std::optional<std::string> uchardetDecode(const std::string& bytes) {
  static uchardet_t detector = uchardet_new();
  uchardet_reset(detector);
  if (uchardet_handle_data(detector, bytes.data(), bytes.size()) != 0) return std::nullopt;
  uchardet_data_end(detector);
  const char* name = uchardet_get_charset(detector);
  return iconvDecode(name ? name : "", bytes);
}

std::optional<std::string> encaDecode(const std::string& bytes, const std::string& language) {
  static std::map<std::string, EncaAnalyser> analysers;
  const char* lang = encaLanguage(language);
  EncaAnalyser& analyser = analysers[lang];
  if (!analyser) analyser = enca_analyser_alloc(lang);
  if (!analyser) return std::nullopt;
  EncaEncoding e = enca_analyse_const(
      analyser, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  if (!enca_charset_is_known(e.charset)) return std::nullopt;
  const char* name = enca_charset_name(e.charset, ENCA_NAME_STYLE_ICONV);
  if (!name) return std::nullopt;
  std::string charset = name;
  // Two-byte Unicode with its bytes swapped is enca's little-endian.
  if (charset == "UCS-2" || charset == "UTF-16") {
    charset = (e.surface & ENCA_SURFACE_PERM_21) ? "UTF-16LE" : "UTF-16";
  }
  return iconvDecode(charset, bytes);
}

std::string percent(double hits, std::size_t total) {
  if (total == 0) return "-";
  char buf[16];
  std::snprintf(buf, sizeof buf, "%.1f%%", 100.0 * hits / static_cast<double>(total));
  return buf;
}

std::string sizeLabel(std::size_t size) {
  return size >= 1024 ? std::to_string(size / 1024) + " KiB" : std::to_string(size) + " B";
}

double threadSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

const char* const kTools[] = {"harbor", "uchardet", "enca"};

std::vector<Cell> gCells;
// Best processor time of one pass over the files of a size, by tool.
std::map<std::pair<std::string, std::size_t>, double> gSeconds;
std::map<std::size_t, std::size_t> gBytes, gFiles;

// What each tool does with a file in the timed passes: detection and
// decoding to its own text form (UTF-16 for Harbor, UTF-8 through iconv for
// the others).
bool runTool(const std::string& tool, const Sample& s) {
  if (tool == "harbor") {
    std::string name;
    return DetectorCharacter::detectorWithData(s.bytes, &name).has_value();
  }
  if (tool == "uchardet") return uchardetDecode(s.bytes).has_value();
  return encaDecode(s.bytes, s.language).has_value();
}

void throughput(benchmark::State& state, const std::string& tool, std::size_t size) {
  double best = 1e300;
  for (auto _ : state) {
    const double t0 = threadSeconds();
    for (const Cell& cell : gCells) {
      if (cell.size != size) continue;
      for (const Sample& s : cell.samples) benchmark::DoNotOptimize(runTool(tool, s));
    }
    best = std::min(best, threadSeconds() - t0);
  }
  gSeconds[{tool, size}] = best;
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * gBytes[size]));
}

}  // namespace
}  // namespace harbor::bench

int main(int argc, char** argv) {
  using namespace harbor;
  using namespace harbor::bench;
  // --scale=N multiplies the file count (40 per encoding and size);
  // --misses lists every file a tool got wrong, with its guess.
  int scale = 1;
  bool misses = false;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--scale=", 8) == 0) {
      scale = std::max(1, std::atoi(argv[i] + 8));
    } else if (std::strcmp(argv[i], "--misses") == 0) {
      misses = true;
    } else {
      args.push_back(argv[i]);
    }
  }
  int benchArgc = static_cast<int>(args.size());
  benchmark::Initialize(&benchArgc, args.data());

  std::map<std::string, LanguageText> pools;
  std::printf("Corpus text (manual pages and translations on this machine):\n");
  for (const auto& l : kAllLanguages) {
    LanguageText text = collectLanguageText(l, 3 << 20);
    LanguageText po = collectCatalogueText(l, 3 << 20);
    std::printf("  %-6s %8zu bytes from %zu files; as .po %8zu bytes from %zu files\n", l.c_str(),
                text.text.size(), text.files, po.text.size(), po.files);
    pools.emplace(poolKey(l, Kind::page), asParagraphs(text));
    pools.emplace(l, std::move(text));
    pools.emplace(poolKey(l, Kind::po), std::move(po));
  }
  gPageHeads = collectPageHeads(1536);
  std::printf("  page heads: %zu from /usr/share/doc\n", gPageHeads.size());
  gCells = buildCorpus(pools, scale);
  for (const Cell& c : gCells) {
    for (const Sample& s : c.samples) gBytes[c.size] += s.bytes.size();
    gFiles[c.size] += c.samples.size();
  }

  std::printf(
      "\nFiles whose decoded text equals the original (drop: share of the text\n"
      "the encoding cannot carry, left out of its samples):\n");
  std::printf("%-13s %7s %6s %5s %9s %9s %9s\n", "encoding", "size", "files", "drop", "harbor",
              "uchardet", "enca");
  int totalHarbor = 0, totalUchardet = 0, totalEnca = 0;
  std::size_t totalFiles = 0;
  for (Cell& c : gCells) {
    for (const Sample& s : c.samples) {
      std::string name;
      auto harbor = DetectorCharacter::detectorWithData(s.bytes, &name);
      const bool h = harbor && toUtf8(*harbor) == s.original;
      const bool u = uchardetDecode(s.bytes) == s.original;
      const bool e = encaDecode(s.bytes, s.language) == s.original;
      c.harbor += h;
      c.uchardet += u;
      c.enca += e;
      if (misses && (!h || !u)) {
        const char* guess = nullptr;
        static uchardet_t detector = uchardet_new();
        uchardet_reset(detector);
        uchardet_handle_data(detector, s.bytes.data(), s.bytes.size());
        uchardet_data_end(detector);
        guess = uchardet_get_charset(detector);
        std::printf("  miss %-13s %-6s %-7s harbor=%s%s uchardet=%s%s\n", c.target.c_str(),
                    sizeLabel(c.size).c_str(), s.language.c_str(), harbor ? name.c_str() : "(none)",
                    h ? "" : "(wrong)", guess ? guess : "(none)", u ? "" : "(wrong)");
      }
    }
    totalHarbor += c.harbor;
    totalUchardet += c.uchardet;
    totalEnca += c.enca;
    totalFiles += c.samples.size();
    std::printf("%-13s %7s %6zu %5s %9s %9s %9s\n", c.target.c_str(), sizeLabel(c.size).c_str(),
                c.samples.size(), percent(c.dropped, 1).c_str(),
                percent(c.harbor, c.samples.size()).c_str(),
                percent(c.uchardet, c.samples.size()).c_str(),
                percent(c.enca, c.samples.size()).c_str());
  }
  std::printf("%-13s %7s %6zu %5s %9s %9s %9s\n\n", "overall", "", totalFiles, "",
              percent(totalHarbor, totalFiles).c_str(), percent(totalUchardet, totalFiles).c_str(),
              percent(totalEnca, totalFiles).c_str());

  // The same by encoding, all sizes together; "<" marks a row where Harbor
  // is behind uchardet.
  std::printf("By encoding, all sizes:\n%-13s %6s %9s %9s %9s\n", "encoding", "files", "harbor",
              "uchardet", "enca");
  std::vector<std::string> order;
  std::map<std::string, std::array<int, 4>> byTarget;  // files, harbor, uchardet, enca
  for (const Cell& c : gCells) {
    if (!byTarget.count(c.target)) order.push_back(c.target);
    auto& row = byTarget[c.target];
    row[0] += static_cast<int>(c.samples.size());
    row[1] += c.harbor;
    row[2] += c.uchardet;
    row[3] += c.enca;
  }
  for (const std::string& target : order) {
    const auto& row = byTarget[target];
    const auto n = static_cast<std::size_t>(row[0]);
    std::printf("%-13s %6d %9s %9s %9s%s\n", target.c_str(), row[0], percent(row[1], n).c_str(),
                percent(row[2], n).c_str(), percent(row[3], n).c_str(),
                row[1] < row[2] ? "  <" : "");
  }
  std::printf("\n");
  std::fflush(stdout);

  for (std::size_t size : kSizes) {
    for (const char* tool : kTools) {
      const std::string name = std::string("throughput/") + tool + "/" + sizeLabel(size);
      benchmark::RegisterBenchmark(
          name.c_str(),
          [tool = std::string(tool), size](benchmark::State& st) { throughput(st, tool, size); })
          ->Iterations(2)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  // Processor time, so other work on the machine does not blur the ratio.
  std::printf(
      "\nThroughput in MiB/s of processor time (best of 2 passes), detection and decoding:\n");
  std::printf("%-8s %7s %10s %10s %10s %12s\n", "size", "files", "harbor", "uchardet", "enca",
              "vs uchardet");
  std::map<std::string, double> total;
  std::size_t allBytes = 0, allFiles = 0;
  auto mib = [](std::size_t bytes, double s) { return s > 0 ? bytes / s / (1 << 20) : 0.0; };
  for (std::size_t size : kSizes) {
    allBytes += gBytes[size];
    allFiles += gFiles[size];
    for (const char* tool : kTools) total[tool] += gSeconds[{tool, size}];
    const double h = gSeconds[{"harbor", size}], u = gSeconds[{"uchardet", size}];
    std::printf("%-8s %7zu %10.1f %10.1f %10.1f %11.2fx\n", sizeLabel(size).c_str(), gFiles[size],
                mib(gBytes[size], h), mib(gBytes[size], u),
                mib(gBytes[size], gSeconds[{"enca", size}]), h > 0 ? u / h : 0.0);
  }
  std::printf("%-8s %7zu %10.1f %10.1f %10.1f %11.2fx\n", "all", allFiles,
              mib(allBytes, total["harbor"]), mib(allBytes, total["uchardet"]),
              mib(allBytes, total["enca"]),
              total["harbor"] > 0 ? total["uchardet"] / total["harbor"] : 0.0);
  std::printf("\nAccuracy overall: harbor %s, uchardet %s, enca %s\n",
              percent(totalHarbor, totalFiles).c_str(), percent(totalUchardet, totalFiles).c_str(),
              percent(totalEnca, totalFiles).c_str());
  return 0;
}

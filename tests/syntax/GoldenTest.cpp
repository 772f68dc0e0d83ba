// Golden samples: one small file per language under tests/data/syntax/golden,
// each next to a hand-written list of the coloured runs the editor must show
// for it. The lists were worked out from the scanning rules, not recorded
// from the engine, so a change of behaviour shows up here as a failure.
//
// A .runs line reads `<location> <length> <kind> <text as JSON string>`,
// locations in UTF-16 units, one line per maximal run of one colour, in text
// order. Lines starting with '#' are notes; a first line
// `# KNOWN-DIFFERENCE: <why>` skips the sample until the engine is fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextStorage.h"
#include "platform/Unicode.h"
#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRunsSuffix = ".runs";
constexpr std::string_view kKnownDifference = "# KNOWN-DIFFERENCE:";
const std::set<std::string> kKinds = {"comment", "quote", "keyword", "attribute", "other"};

fs::path goldenDir() {
  return test::testData("syntax/golden");
}

bool endsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

// Every sample: each file of the folder that isn't a .runs list.
std::vector<std::string> samples() {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(goldenDir(), ec)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_regular_file() && !endsWith(name, kRunsSuffix)) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The colour table of the highlighting pass, written out here rather than
// taken from the engine so that a changed colour is caught too.
std::string kindOf(const Color& c) {
  const std::string hex = c.hex();
  if (hex == "#008000") return "comment";
  if (hex == "#B42985") return "quote";
  if (hex == "#3C3CEB") return "keyword";
  if (hex == "#8A2BE2") return "attribute";
  if (hex == "#DC14B4") return "other";
  return "colour " + hex;
}

struct ColourRun {
  std::size_t location = 0;
  std::size_t length = 0;
  std::string kind;
  std::u16string text;
  bool operator==(const ColourRun&) const = default;
};

std::string describe(const ColourRun& r) {
  return std::to_string(r.location) + " " + std::to_string(r.length) + " " + r.kind + " " +
         nlohmann::json(toUtf8(r.text)).dump();
}

std::string describe(const std::vector<ColourRun>& runs) {
  std::string out;
  for (const auto& r : runs) out += "  " + describe(r) + "\n";
  return out.empty() ? "  (none)\n" : out;
}

struct Expectation {
  std::string knownDifference;  // non-empty: skip, with this reason
  std::vector<ColourRun> runs;
  std::vector<std::string> errors;  // lines that don't parse
};

Expectation readRuns(const fs::path& file) {
  Expectation e;
  std::istringstream in(test::readFile(file));
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (number == 1 && line.rfind(kKnownDifference, 0) == 0) {
      e.knownDifference = line.substr(kKnownDifference.size());
      continue;
    }
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    ColourRun r;
    std::string json;
    const bool head = static_cast<bool>(fields >> r.location >> r.length >> r.kind);
    std::getline(fields >> std::ws, json);
    const auto text = nlohmann::json::parse(json, nullptr, false);
    if (!head || !kKinds.count(r.kind) || !text.is_string()) {
      e.errors.push_back("line " + std::to_string(number) + " doesn't parse: " + line);
      continue;
    }
    r.text = toUtf16(text.get<std::string>());
    e.runs.push_back(std::move(r));
  }
  return e;
}

// The runs the storage shows in a colour other than plain text's.
std::vector<ColourRun> colouredRuns(const TextStorage& storage) {
  std::vector<ColourRun> runs;
  storage.enumerateForegroundColor(
      TextRange{0, storage.length()}, false,
      [&](const std::optional<Color>& c, TextRange r, bool&) {
        if (!c || *c == Color::rgb(0, 0, 0)) return;
        runs.push_back(
            {r.location, r.length, kindOf(*c), storage.string().substr(r.location, r.length)});
      });
  return runs;
}

// The parser the editor picks for the file: by name first (Makefile,
// nginx.conf, ...), else by extension; an .erb template holds HTML here.
std::shared_ptr<CodeFormatParser> parserFor(const fs::path& path) {
  const std::string name = path.filename().string();
  const auto dot = name.rfind('.');
  const std::string ext = dot == std::string::npos ? std::string() : name.substr(dot + 1);
  return CodeFactory::codeFormatParserWithExtension(ext, ext == "erb" ? "html" : "", path.string());
}

class GoldenSample : public test::TempHome, public ::testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
    CodeFactory::removeAllCodeFormatContainer();
  }
};

TEST_P(GoldenSample, ColouredRunsMatchTheHandWrittenList) {
  const fs::path sample = goldenDir() / GetParam();
  const fs::path runsFile = goldenDir() / (GetParam() + std::string(kRunsSuffix));
  ASSERT_TRUE(fs::exists(runsFile)) << "no " << runsFile.filename() << " beside the sample";

  const Expectation expected = readRuns(runsFile);
  for (const auto& error : expected.errors) ADD_FAILURE() << runsFile.filename() << ": " << error;
  const std::u16string text = toUtf16(test::readFile(sample));

  // The list is checked against the sample first: a slip in counting
  // offsets by hand shows here, not as an engine fault.
  for (const auto& r : expected.runs) {
    const std::u16string actual =
        r.location + r.length <= text.size() ? text.substr(r.location, r.length) : u"(past end)";
    EXPECT_EQ(toUtf8(actual), toUtf8(r.text))
        << runsFile.filename() << ": the sample at " << r.location << "+" << r.length
        << " doesn't read as written";
    EXPECT_EQ(r.length, r.text.size()) << describe(r);
  }
  if (!expected.knownDifference.empty())
    GTEST_SKIP() << "known difference:" << expected.knownDifference;

  auto parser = parserFor(sample);
  ASSERT_TRUE(parser);
  TextStorage storage(text);
  parser->parserSmart(storage);
  const std::vector<ColourRun> actual = colouredRuns(storage);
  if (actual == expected.runs) return;

  std::vector<ColourRun> missing, unexpected;
  for (const auto& r : expected.runs) {
    if (std::find(actual.begin(), actual.end(), r) == actual.end()) missing.push_back(r);
  }
  for (const auto& r : actual) {
    if (std::find(expected.runs.begin(), expected.runs.end(), r) == expected.runs.end()) {
      unexpected.push_back(r);
    }
  }
  ADD_FAILURE() << GetParam() << " (" << parser->className() << ") is coloured differently.\n"
                << "expected but not shown:\n"
                << describe(missing) << "shown but not expected:\n"
                << describe(unexpected) << "all shown:\n"
                << describe(actual);
}

// Test names from file names, with '_' for anything but letters and digits.
std::string testName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name;
  for (char c : info.param) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Golden, GoldenSample, ::testing::ValuesIn(samples()), testName);

TEST(GoldenSamples, EveryListHasItsSampleAndTheFolderIsNotEmpty) {
  EXPECT_FALSE(samples().empty()) << goldenDir();
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(goldenDir(), ec)) {
    const std::string name = entry.path().filename().string();
    if (!endsWith(name, kRunsSuffix)) continue;
    EXPECT_TRUE(fs::exists(goldenDir() / name.substr(0, name.size() - kRunsSuffix.size())))
        << name << " lists runs for a sample that isn't there";
  }
}

}  // namespace
}  // namespace harbor

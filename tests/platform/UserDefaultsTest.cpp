#include "platform/UserDefaults.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <limits>
#include <thread>

#include "platform/Directories.h"
#include "platform/Log.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::ScratchDir;
using test::writeFile;

std::vector<fs::path> filesIn(const fs::path& dir) {
  std::vector<fs::path> out;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec)) out.push_back(e.path());
  std::sort(out.begin(), out.end());
  return out;
}

// Collects log lines for the duration of a test.
struct LogCapture {
  std::vector<std::string> lines;
  LogSink previous;
  LogCapture() {
    previous = setLogSink([this](const std::string& line) { lines.push_back(line); });
  }
  ~LogCapture() { setLogSink(previous); }
};

TEST(UserDefaults, EveryTypeSurvivesARestart) {
  ScratchDir dir;
  const fs::path file = dir / "not-yet/prefs.json";  // the folder is made on first write
  const auto date = PlistValue::Date(std::chrono::nanoseconds(1709294400123456789LL));
  const auto before1970 = PlistValue::Date(std::chrono::milliseconds(-86400500));
  PlistValue::Map nested{{"depth", 2}, {"list", PlistValue::Array{1, 2.5, "three"}}};
  // Maps that look like the file's tagged values must come back as maps.
  PlistValue::Map lookalike{{"$date", "2020-01-01T00:00:00Z"}};
  PlistValue::Map wrapLookalike{{"$map", PlistValue::Map{}}};
  {
    UserDefaults store(file);
    store.setObject("bool", true);
    store.setObject("int", 1);
    store.setObject("real", 1.0);
    store.setObject("min", std::numeric_limits<long long>::min());
    store.setObject("string", "héllo \"quoted\"\n");
    store.setObject("date", date);
    store.setObject("old", before1970);
    store.setObject("data", PlistValue::Data{0, 255, 10, 13});
    store.setObject("dataLengths",
                    PlistValue::Array{PlistValue::Data{}, PlistValue::Data{1},
                                      PlistValue::Data{1, 2}, PlistValue::Data{1, 2, 3, 4, 5}});
    store.setObject("array", PlistValue::Array{true, 0, 0.0, "x", PlistValue::Array{}});
    store.setObject("map", nested);
    store.setObject("lookalike", lookalike);
    store.setObject("wrap", wrapLookalike);
    store.setObject("inf", std::numeric_limits<double>::infinity());
    store.setObject("gone", "soon");
    store.removeObjectForKey("gone");
  }
  UserDefaults reread(file);
  auto all = reread.dictionaryRepresentation();
  EXPECT_EQ(all.size(), 14u);
  EXPECT_FALSE(reread.objectForKey("gone"));

  EXPECT_TRUE(reread.objectForKey("bool")->isBool());
  EXPECT_TRUE(reread.objectForKey("int")->isInteger());
  EXPECT_TRUE(reread.objectForKey("real")->isReal());
  EXPECT_EQ(reread.integerForKey("min"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(reread.stringForKey("string"), "héllo \"quoted\"\n");
  EXPECT_EQ(reread.dateForKey("date"), date);
  EXPECT_EQ(reread.dateForKey("old"), before1970);
  EXPECT_EQ(reread.dataForKey("data"), (PlistValue::Data{0, 255, 10, 13}));
  EXPECT_EQ(*reread.objectForKey("dataLengths"), all.at("dataLengths"));
  EXPECT_EQ(reread.arrayForKey("array"),
            (PlistValue::Array{true, 0, 0.0, "x", PlistValue::Array{}}));
  EXPECT_TRUE((*reread.arrayForKey("array"))[1].isInteger());
  EXPECT_TRUE((*reread.arrayForKey("array"))[2].isReal());
  EXPECT_EQ(reread.dictionaryForKey("map"), nested);
  EXPECT_EQ(reread.dictionaryForKey("lookalike"), lookalike);
  EXPECT_EQ(reread.dictionaryForKey("wrap"), wrapLookalike);
  EXPECT_EQ(reread.doubleForKey("inf"), std::numeric_limits<double>::infinity());
  // Nothing but the file itself is left in the folder (no temporary files).
  EXPECT_EQ(filesIn(file.parent_path()), std::vector<fs::path>{file});
}

TEST(UserDefaults, MissingOrWrongTypeGivesTheDefault) {
  UserDefaults store;
  store.setObject("yes", "YES");
  store.setObject("zero", 0);
  store.setObject("half", 0.5);
  store.setObject("text", "12");
  store.setObject("map", PlistValue::Map{{"a", 1}});

  // Only numbers read as booleans: a string is the default.
  EXPECT_FALSE(store.boolForKey("yes"));
  EXPECT_TRUE(store.boolForKey("yes", true));
  EXPECT_FALSE(store.boolForKey("zero", true));
  EXPECT_TRUE(store.boolForKey("half"));
  EXPECT_TRUE(store.boolForKey("missing", true));

  EXPECT_EQ(store.integerForKey("text", 7), 7);
  EXPECT_EQ(store.integerForKey("half", 7), 0);
  EXPECT_EQ(store.doubleForKey("zero", 3.0), 0.0);
  EXPECT_EQ(store.doubleForKey("map", 3.0), 3.0);
  EXPECT_EQ(store.stringForKey("zero", "dflt"), "dflt");
  EXPECT_EQ(store.stringForKey("text"), "12");
  EXPECT_FALSE(store.dateForKey("text"));
  EXPECT_FALSE(store.dataForKey("text"));
  EXPECT_FALSE(store.arrayForKey("map"));
  EXPECT_FALSE(store.dictionaryForKey("zero"));
  EXPECT_TRUE(store.dictionaryForKey("map"));

  store.setObject("text", PlistValue());  // setting nothing removes
  EXPECT_FALSE(store.objectForKey("text"));
  EXPECT_TRUE(store.synchronize());
}

TEST(UserDefaults, CorruptFileIsKeptAsideAndDefaultsApply) {
  ScratchDir dir;
  const fs::path file = dir / "prefs.json";
  const std::string garbage = "{\"theme\": \"dark\", oops";
  writeFile(file, garbage);
  LogCapture log;

  {
    UserDefaults store(file);
    EXPECT_TRUE(store.dictionaryRepresentation().empty());
    EXPECT_EQ(store.stringForKey("theme", "light"), "light");
    store.setObject("theme", "blue");
  }
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].rfind("UserDefaults:", 0), 0u) << log.lines[0];

  auto files = filesIn(dir.path());
  ASSERT_EQ(files.size(), 2u);
  const fs::path firstAside = files[1];
  EXPECT_EQ(firstAside.filename().string().rfind("prefs.json.corrupt-", 0), 0u);
  EXPECT_EQ(readFile(firstAside), garbage);
  EXPECT_EQ(UserDefaults(file).stringForKey("theme"), "blue");

  // Valid JSON that is not an object is damage too; the first copy stays.
  writeFile(file, "[1, 2]");
  UserDefaults again(file);
  EXPECT_FALSE(again.objectForKey("theme"));
  files = filesIn(dir.path());
  ASSERT_EQ(files.size(), 2u);  // prefs.json itself is gone until the next write
  ASSERT_EQ(std::count(files.begin(), files.end(), firstAside), 1);
  const fs::path secondAside = files[0] == firstAside ? files[1] : files[0];
  EXPECT_EQ(readFile(firstAside), garbage);
  EXPECT_EQ(readFile(secondAside), "[1, 2]");
}

TEST(UserDefaults, FailedWriteReportsFalseAndKeepsTheFileOnDisk) {
  LogCapture log;
  ScratchDir dir;
  {
    // The folder cannot be made: its parent is a file.
    writeFile(dir / "plain", "x");
    UserDefaults store(dir / "plain" / "prefs.json");
    store.setObject("k", 1);
    EXPECT_FALSE(store.synchronize());
    EXPECT_EQ(store.integerForKey("k"), 1);  // still there in memory
  }

  // The disk "fills up" half way through the write (works as root too).
  const fs::path file = dir / "prefs.json";
  UserDefaults store(file);
  store.setObject("kept", "value");
  const std::string onDisk = readFile(file);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit small = old;
  small.rlim_cur = onDisk.size() + 16;
  setrlimit(RLIMIT_FSIZE, &small);
  store.setObject("big", std::string(4096, 'b'));
  const bool synced = store.synchronize();
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);

  EXPECT_FALSE(synced);
  EXPECT_EQ(readFile(file), onDisk);
  EXPECT_EQ(filesIn(dir.path()), (std::vector<fs::path>{dir / "plain", file}));
  EXPECT_FALSE(log.lines.empty());
  // Once space is back, the pending change goes out.
  EXPECT_TRUE(store.synchronize());
  EXPECT_EQ(UserDefaults(file).stringForKey("big").size(), 4096u);
}

TEST(UserDefaults, ConcurrentWritersLeaveTheLastStateOnDisk) {
  // Writes reach the disk outside the store's lock: an older snapshot must
  // never land after a newer one.
  ScratchDir dir;
  const fs::path file = dir / "prefs.json";
  UserDefaults store(file);
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&store, t] {
      for (int i = 0; i < 25; ++i) {
        store.setObject("k" + std::to_string(t) + "-" + std::to_string(i), i);
        (void)store.integerForKey("k0-0");  // readers interleave
      }
    });
  }
  for (auto& w : writers) w.join();
  UserDefaults reread(file);
  EXPECT_EQ(reread.dictionaryRepresentation().size(), 100u);
  EXPECT_EQ(reread.integerForKey("k3-24"), 24);
}

class StandardUserDefaults : public test::TempHome {};

TEST_F(StandardUserDefaults, LazyFileStoreAndReset) {
  EXPECT_EQ(&UserDefaults::standard(), defaults().get());
  defaults()->setObject("where", "memory");

  UserDefaults::setStandard(nullptr);
  const fs::path file = Directories::configDirectory() / "preferences.json";
  EXPECT_EQ(UserDefaults::standard().file(), file);
  UserDefaults::standard().setObject("where", "file");
  EXPECT_EQ(UserDefaults(file).stringForKey("where"), "file");

  // A reset re-reads the file on the next use.
  writeFile(file, R"({"where": "edited"})");
  EXPECT_EQ(UserDefaults::standard().stringForKey("where"), "file");
  UserDefaults::resetStandardUserDefaults();
  EXPECT_EQ(UserDefaults::standard().stringForKey("where"), "edited");

  // A store set explicitly survives a reset.
  UserDefaults::setStandard(defaults());
  UserDefaults::resetStandardUserDefaults();
  EXPECT_EQ(UserDefaults::standard().stringForKey("where"), "memory");
  UserDefaults::setStandard(nullptr);
  UserDefaults::resetStandardUserDefaults();  // don't leave one pointing into this home
}

}  // namespace
}  // namespace harbor

#include "support/TestSupport.h"

#include "platform/ProcessUmask.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/Directories.h"
#include "platform/UserDefaults.h"

namespace harbor::test {
namespace fs = std::filesystem;

namespace {
fs::path makeTempDir() {
  std::string templ = (fs::temp_directory_path() / "harbor-test-XXXXXX").string();
  if (!mkdtemp(templ.data())) std::abort();
  return templ;
}
}  // namespace

void TempHome::SetUp() {
  savedEnv_.clear();
  for (const char* var : {"HARBOR_ROOT", "XDG_DATA_HOME", "XDG_CONFIG_HOME"}) {
    const char* v = std::getenv(var);
    savedEnv_.emplace_back(var, v ? std::optional<std::string>(v) : std::nullopt);
  }
  home_ = makeTempDir();
  setenv("XDG_DATA_HOME", (home_ / "data").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (home_ / "config").c_str(), 1);
  setenv("HARBOR_ROOT", (home_ / "Documents").c_str(), 1);
  Directories::setDocumentRootOverride({});
  defaults_ = std::make_shared<UserDefaults>();
  UserDefaults::setStandard(defaults_);
}

void TempHome::TearDown() {
  UserDefaults::setStandard(nullptr);
  Directories::setDocumentRootOverride({});
  // Later code must not recreate folders under the removed home.
  for (const auto& [var, value] : savedEnv_) {
    if (value) {
      setenv(var.c_str(), value->c_str(), 1);
    } else {
      unsetenv(var.c_str());
    }
  }
  std::error_code ec;
  fs::remove_all(home_, ec);
}

fs::path TempHome::root() const {
  return Directories::documentDirectory();
}

ScopedUmask::ScopedUmask(unsigned mask) : saved_(setProcessUmask(mask)) {}

ScopedUmask::~ScopedUmask() {
  setProcessUmask(saved_);
}

unsigned modeOf(const std::filesystem::path& p) {
  struct stat st;
  if (::lstat(p.c_str(), &st) != 0) return ~0u;
  return static_cast<unsigned>(st.st_mode & 07777);
}

ScratchDir::ScratchDir() : path_(makeTempDir()) {}
ScratchDir::~ScratchDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

void writeFile(const fs::path& p, std::string_view content) {
  fs::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string readFile(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

fs::path testData(const std::string& relative) {
  return fs::path(HARBOR_TEST_DATA) / relative;
}

namespace {
std::string shellQuote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}
}  // namespace

CliResult runHarbor(const std::vector<std::string>& args) {
  ScratchDir scratch;
  const fs::path errFile = scratch / "stderr.txt";
  std::string cmd = shellQuote(std::string(HARBOR_BINARY_DIR) + "/harbor");
  for (const auto& a : args) cmd += " " + shellQuote(a);
  cmd += " 2>" + shellQuote(errFile.string());
  CliResult r;
  FILE* pipe = popen(cmd.c_str(), "r");
  if (!pipe) return r;
  std::array<char, 4096> buf;
  std::size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) r.out.append(buf.data(), n);
  const int status = pclose(pipe);
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = readFile(errFile);
  return r;
}

}  // namespace harbor::test

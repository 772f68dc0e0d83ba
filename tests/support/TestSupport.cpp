#include "support/TestSupport.h"

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

}  // namespace harbor::test

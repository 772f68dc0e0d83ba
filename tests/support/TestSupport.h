#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace harbor {
class UserDefaults;
}

namespace harbor::test {

// A private home for one test: XDG_DATA_HOME, XDG_CONFIG_HOME and the
// document root point into a fresh temporary folder, and the process-wide
// preferences store is an in-memory one. Everything is put back afterwards.
class TempHome : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::filesystem::path home() const { return home_; }
  std::filesystem::path root() const;  // the document root
  std::shared_ptr<UserDefaults> defaults() const { return defaults_; }

 private:
  std::filesystem::path home_;
  std::shared_ptr<UserDefaults> defaults_;
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
};

// Sets the process umask while it lives.
class ScopedUmask {
 public:
  explicit ScopedUmask(unsigned mask);
  ~ScopedUmask();
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  unsigned saved_;
};

// The permission bits of `p` itself (links are not followed).
unsigned modeOf(const std::filesystem::path& p);

// A fresh empty folder, removed when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& p, std::string_view content);
std::string readFile(const std::filesystem::path& p);

// tests/data/<relative>
std::filesystem::path testData(const std::string& relative);

// The built `harbor` command run with `args`: its exit code and output.
struct CliResult {
  int code = -1;
  std::string out;
  std::string err;
};
CliResult runHarbor(const std::vector<std::string>& args);

}  // namespace harbor::test

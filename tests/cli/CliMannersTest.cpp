// What every command shares: one error form with the real reason, --root
// anywhere, --json everywhere in one style, and the ways to give a password.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::runHarbor;

class CliManners : public test::TempHome {
 protected:
  // A zip of one small file, encrypted with `password` by harbor itself.
  fs::path encryptedZip(const std::string& password) {
    test::writeFile(dir_ / "secret.txt", "the secret text");
    const fs::path zip = dir_ / "locked.zip";
    auto r = runHarbor({"archive", "create", zip.string(), (dir_ / "secret.txt").string(),
                        "--password", password});
    EXPECT_EQ(r.code, 0) << r.err;
    return zip;
  }
  test::ScratchDir dir_;
};

TEST_F(CliManners, ErrorsNameTheCommandAndTheRealReason) {
  fs::create_directories(dir_ / "folder");
  auto r = runHarbor({"archive", "list", (dir_ / "folder").string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.err.rfind("harbor: archive list: ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("is a folder"), std::string::npos) << r.err;

  r = runHarbor({"syntax", "dump", (dir_ / "folder").string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.err.rfind("harbor: syntax dump: ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("is a folder"), std::string::npos) << r.err;

  r = runHarbor({"syntax", "dump", (dir_ / "none.stx").string()});
  EXPECT_NE(r.err.find("no such file or folder"), std::string::npos) << r.err;

  // A relative path is shown as it was given, not made absolute.
  test::writeFile(dir_ / "plain.txt", "x");
  const fs::path cwd = fs::current_path();
  fs::current_path(dir_.path());
  r = runHarbor({"ls", "plain.txt"});
  fs::current_path(cwd);
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.err, "harbor: ls: plain.txt: not a folder\n");
}

TEST_F(CliManners, RootIsTakenBeforeOrAfterTheCommand) {
  test::writeFile(dir_ / "mine.txt", "x");
  for (const auto& args :
       std::vector<std::vector<std::string>>{{"--root", dir_.path().string(), "ls", "--json"},
                                             {"ls", "--root", dir_.path().string(), "--json"},
                                             {"ls", "--json", "--root", dir_.path().string()}}) {
    auto r = runHarbor(args);
    ASSERT_EQ(r.code, 0) << r.err;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["path"], dir_.path().string());
  }
  // Nested commands take it too.
  auto r = runHarbor({"syntax", "which", "a.cpp", "--root", dir_.path().string()});
  EXPECT_EQ(r.code, 0) << r.err;
}

TEST_F(CliManners, JsonEverywhereInOneStyle) {
  const fs::path code = dir_ / "a.cpp";
  test::writeFile(code, "int main() { return 0; } // done\n");
  auto viaFlag = runHarbor({"highlight", code.string(), "--json"});
  auto viaFormat = runHarbor({"highlight", code.string(), "--format", "json"});
  ASSERT_EQ(viaFlag.code, 0) << viaFlag.err;
  EXPECT_EQ(viaFlag.out, viaFormat.out);
  EXPECT_EQ(runHarbor({"highlight", code.string(), "--json", "--format", "html"}).code, 2);

  // Keys stay in the order they are written, the same in every run.
  const fs::path zip = dir_ / "plain.zip";
  ASSERT_EQ(runHarbor({"archive", "create", zip.string(), code.string()}).code, 0);
  auto list = runHarbor({"archive", "list", zip.string(), "--json"});
  ASSERT_EQ(list.code, 0) << list.err;
  const auto format = list.out.find("\"format\"");
  const auto entries = list.out.find("\"entries\"");
  EXPECT_LT(format, list.out.find("\"encrypted\""));
  EXPECT_LT(list.out.find("\"encrypted\""), entries);
  EXPECT_NE(list.out.find("\n  \"format\""), std::string::npos) << "two-space indent";

  // Commands that print data all take --json and print parseable JSON.
  const fs::path out = dir_ / "out";
  fs::create_directories(out);
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"--root", dir_.path().string(), "--json"},
           {"archive", "extract", zip.string(), (out / "x").string(), "--json"},
           {"cp", code.string(), out.string(), "--json"},
           {"import", code.string(), "--json"},
           {"du", code.string(), "--json"},
           {"detect", code.string(), "--json"},
           {"encodings", "--json"},
           {"syntax", "which", code.string(), "--json"}}) {
    auto r = runHarbor(args);
    EXPECT_EQ(r.code, 0) << args[0] << ": " << r.err;
    EXPECT_TRUE(nlohmann::json::accept(r.out)) << args[0] << ": " << r.out;
  }
}

TEST_F(CliManners, PasswordsFromFlagFileEnvironmentAndMissing) {
  const fs::path zip = encryptedZip("pa55");
  // Missing: exit 2, and the JSON still says the archive is encrypted.
  auto r = runHarbor({"archive", "list", zip.string(), "--json"});
  EXPECT_EQ(r.code, 2);
  auto j = nlohmann::json::parse(r.out);
  EXPECT_TRUE(j["encrypted"].get<bool>());
  EXPECT_TRUE(j["entries"].is_array());
  EXPECT_EQ(runHarbor({"archive", "list", zip.string(), "--password", "wrong"}).code, 2);

  test::writeFile(dir_ / "pw.txt", "pa55\n");
  EXPECT_EQ(
      runHarbor({"archive", "list", zip.string(), "--password-file", (dir_ / "pw.txt").string()})
          .code,
      0);
  r = runHarbor({"archive", "list", zip.string(), "--password-file", (dir_ / "no").string()});
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.err.find("password file"), std::string::npos) << r.err;
  EXPECT_EQ(runHarbor({"archive", "list", zip.string(), "--password", "pa55", "--password-file",
                       (dir_ / "pw.txt").string()})
                .code,
            2)
      << "two sources of one password";

  ::setenv("HARBOR_PASSWORD", "pa55", 1);
  r = runHarbor({"archive", "extract", zip.string(), (dir_ / "env").string()});
  ::unsetenv("HARBOR_PASSWORD");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(test::readFile(dir_ / "env" / "secret.txt"), "the secret text");
}

// Reads from the pty until `needle` shows or the deadline passes.
bool readUntil(int fd, std::string& seen, const std::string& needle) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (seen.find(needle) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) return false;
    char buf[512];
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n <= 0) return false;
    seen.append(buf, static_cast<std::size_t>(n));
  }
  return true;
}

TEST_F(CliManners, ATerminalIsAskedWithoutEcho) {
  const fs::path zip = encryptedZip("typed-secret");
  const std::string binary = std::string(HARBOR_BINARY_DIR) + "/harbor";
  const std::string dest = (dir_ / "asked").string();
  int master = -1;
  const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::unsetenv("HARBOR_PASSWORD");
    ::execl(binary.c_str(), binary.c_str(), "archive", "extract", zip.c_str(), dest.c_str(),
            static_cast<char*>(nullptr));
    ::_exit(127);
  }
  std::string seen;
  ASSERT_TRUE(readUntil(master, seen, "Password for ")) << seen;
  const std::string answer = "typed-secret\n";
  ASSERT_EQ(::write(master, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
  readUntil(master, seen, dest);  // the destination is printed on success
  int status = 0;
  ::waitpid(pid, &status, 0);
  ::close(master);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << seen;
  EXPECT_EQ(seen.find("typed-secret"), std::string::npos) << "the password was echoed: " << seen;
  EXPECT_EQ(test::readFile(dir_ / "asked" / "secret.txt"), "the secret text");
}

TEST_F(CliManners, HighlightSaysWhyALargeFileIsPlain) {
  const fs::path big = dir_ / "big.cpp";
  test::writeFile(big, std::string(600 * 1024, 'a') + "\nint x;\n");
  auto r = runHarbor({"highlight", big.string(), "--json"});
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.err.find("harbor: highlight: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("without colours"), std::string::npos) << r.err;
  EXPECT_EQ(nlohmann::json::parse(r.out)["runs"].size(), 0u);

  const fs::path small = dir_ / "small.cpp";
  test::writeFile(small, "int x;\n");
  EXPECT_EQ(runHarbor({"highlight", small.string(), "--json"}).err, "");
}

}  // namespace
}  // namespace harbor

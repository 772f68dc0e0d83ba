#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/TestSupport.h"

namespace harbor::test {
namespace {
namespace fs = std::filesystem;

class CloudCommandTest : public TempHome {
 protected:
  CliResult cloud(std::vector<std::string> args) {
    args.insert(args.begin(), {"cloud", "--cloud-dir", (home() / "drive").string()});
    return runHarbor(args);
  }
  fs::path docs() const { return home() / "drive/Documents"; }
};

TEST_F(CloudCommandTest, OperationsReportInOneShape) {
  writeFile(home() / "in.txt", "data");
  auto r = cloud({"upload", (home() / "in.txt").string(), "box/in.txt", "--json"});
  // The folder on the way doesn't exist yet: the copy fails with the message.
  EXPECT_EQ(r.code, 1);
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["error"]["domain"], "iCloud Drive error");
  EXPECT_FALSE(j["error"]["message"].get<std::string>().empty());

  ASSERT_EQ(cloud({"mkdir", "box"}).code, 0);
  r = cloud({"upload", (home() / "in.txt").string(), "box/in.txt", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  j = nlohmann::json::parse(r.out);
  EXPECT_TRUE(j["error"].is_null());
  EXPECT_EQ(j["destination"], (fs::weakly_canonical(docs()) / "box/in.txt").string());

  writeFile(docs() / ".later.txt.cloud", "3");
  r = cloud({"ls", "--recursive", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  j = nlohmann::json::parse(r.out);
  ASSERT_EQ(j.size(), 3u);
  EXPECT_EQ(j[1]["path"], "box/in.txt");
  EXPECT_EQ(j[1]["totalBytes"], 4);
  EXPECT_EQ(j[2]["filename"], "later.txt");
  EXPECT_EQ(j[2]["downloadingStatus"], "notDownloaded");
  for (const char* key :
       {"filename", "path", "isDirectory", "totalBytes", "lastModifiedDate", "downloadingStatus"})
    EXPECT_TRUE(j[0].contains(key)) << key;

  ASSERT_EQ(cloud({"download", "box/in.txt", (home() / "out.txt").string()}).code, 0);
  EXPECT_EQ(readFile(home() / "out.txt"), "data");
  EXPECT_EQ(cloud({"download", "box/in.txt", (home() / "out.txt").string()}).code, 1);
  EXPECT_EQ(cloud({"mv", "box/in.txt", "moved.txt"}).code, 0);
  EXPECT_EQ(cloud({"rm", "box"}).code, 0);
  EXPECT_FALSE(fs::exists(docs() / "box"));
}

TEST_F(CloudCommandTest, LeavingTheDriveAndMissingContainerAreRefused) {
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"rm", "../x"}, {"mkdir", "/tmp/x"}, {"mv", "a", "../b"}, {"ls", ".."}}) {
    auto r = cloud(args);
    EXPECT_EQ(r.code, 1) << args[0];
    EXPECT_NE(r.err.find("outside the cloud drive"), std::string::npos) << r.err;
  }
  unsetenv("HARBOR_CLOUD_DIR");
  EXPECT_EQ(runHarbor({"cloud", "ls"}).code, 2);
  EXPECT_EQ(runHarbor({"cloud", "rm", "x"}).code, 2);
}

TEST_F(CloudCommandTest, WatchPrintsOneLinePerChange) {
  fs::create_directories(docs());
  int out[2];
  ASSERT_EQ(pipe(out), 0);
  const std::string harbor = std::string(HARBOR_BINARY_DIR) + "/harbor";
  const std::string dir = (home() / "drive").string();
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(out[1], 1);
    close(out[0]);
    execl(harbor.c_str(), harbor.c_str(), "cloud", "--cloud-dir", dir.c_str(), "ls", "--watch",
          "--json", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  // The next line within `ms`, or "" when none came.
  std::string pending;
  auto nextLine = [&](int ms) -> std::string {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
      if (auto nl = pending.find('\n'); nl != std::string::npos) {
        std::string line = pending.substr(0, nl);
        pending.erase(0, nl + 1);
        return line;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          until - std::chrono::steady_clock::now());
      pollfd p{out[0], POLLIN, 0};
      if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return "";
      char buf[4096];
      const ssize_t n = read(out[0], buf, sizeof buf);
      if (n <= 0) return "";
      pending.append(buf, static_cast<std::size_t>(n));
    }
  };
  // Lines until one lists `name` under `key`; writes also report "changed".
  auto awaitListed = [&](const char* key, const std::string& name, int ms) {
    for (std::string line; !(line = nextLine(ms)).empty();) {
      auto j = nlohmann::json::parse(line);
      for (const auto& n : j[key])
        if (n == name) return true;
    }
    return false;
  };
  // The watch is live once a probe file shows up; a loaded machine may take
  // a while to start the command.
  bool live = false;
  for (int i = 0; i < 50 && !live; ++i) {
    writeFile(docs() / ("probe" + std::to_string(i)), "p");
    live = awaitListed("added", "probe" + std::to_string(i), 200);
  }
  ASSERT_TRUE(live);
  writeFile(docs() / "new.txt", "n");
  EXPECT_TRUE(awaitListed("added", "new.txt", 10000));
  writeFile(docs() / "new.txt", "longer");
  EXPECT_TRUE(awaitListed("changed", "new.txt", 10000)) << "a write into a file is a change";
  fs::remove(docs() / "new.txt");
  EXPECT_TRUE(awaitListed("removed", "new.txt", 10000));
  kill(child, SIGINT);
  int status = 0;
  waitpid(child, &status, 0);
  close(out[0]);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace harbor::test

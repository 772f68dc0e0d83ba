#include <gtest/gtest.h>
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
  FILE* lines = fdopen(out[0], "r");
  // The watch is running once an empty folder is watched; a moment to start.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  writeFile(docs() / "new.txt", "n");
  char buf[4096];
  ASSERT_TRUE(std::fgets(buf, sizeof buf, lines));
  auto j = nlohmann::json::parse(buf);
  EXPECT_EQ(j["added"], nlohmann::json({"new.txt"}));
  EXPECT_TRUE(j["removed"].empty());
  fs::remove(docs() / "new.txt");
  ASSERT_TRUE(std::fgets(buf, sizeof buf, lines));
  EXPECT_EQ(nlohmann::json::parse(buf)["removed"], nlohmann::json({"new.txt"}));
  kill(child, SIGINT);
  int status = 0;
  waitpid(child, &status, 0);
  fclose(lines);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace harbor::test

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "NetTestClient.h"
#include "support/TestSupport.h"

extern char** environ;

namespace harbor {
namespace {

// `harbor serve` as a child process whose output is read line by line.
class ServeProcess {
 public:
  explicit ServeProcess(std::vector<std::string> args) {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::string bin = std::string(HARBOR_BINARY_DIR) + "/harbor";
    args.insert(args.begin(), bin);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&pid_, bin.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    out_ = fds[0];
  }
  ~ServeProcess() {
    if (pid_ > 0 && !waited_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_);
  }
  std::string readLine(int timeoutMs = 10000) {
    std::string line;
    char c;
    while (true) {
      pollfd p{out_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) <= 0) return line;
      if (::read(out_, &c, 1) != 1 || c == '\n') return line;
      line += c;
    }
  }
  int stop(int signal) {
    ::kill(pid_, signal);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    waited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    waited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  bool waited_ = false;
};

std::uint16_t portOf(const std::string& line) {
  auto colon = line.rfind(':');
  return static_cast<std::uint16_t>(std::stoi(line.substr(colon + 1)));
}

class ServeCommandTest : public test::TempHome {};

TEST_F(ServeCommandTest, PrintsBothAddressesServesAndStopsCleanly) {
  test::writeFile(root() / "hello.txt", "hello");
  ServeProcess serve({"serve", "--port", "0", "--webdav-port", "0", "--bind", "127.0.0.1"});
  std::string web = serve.readLine();
  std::string dav = serve.readLine();
  ASSERT_EQ(web.rfind("web http://127.0.0.1:", 0), 0u) << web;
  ASSERT_EQ(dav.rfind("webdav http://127.0.0.1:", 0), 0u) << dav;
  test::RawClient c(portOf(web.substr(0, web.size() - 1)));
  c.send("GET /hello.txt?type=file HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(test::bodyOf(c.readAll()), "hello");
  test::RawClient d(portOf(dav.substr(0, dav.size() - 1)));
  d.send("GET /hello.txt HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(test::bodyOf(d.readAll()), "hello");
  EXPECT_EQ(serve.stop(SIGTERM), 0);
}

TEST_F(ServeCommandTest, RootAfterServeAndSigint) {
  test::ScratchDir other;
  test::writeFile(other / "there.txt", "there");
  ServeProcess serve({"serve", "--no-webdav", "--port", "0", "--bind", "127.0.0.1", "--root",
                      other.path().string()});
  std::string web = serve.readLine();
  test::RawClient c(portOf(web.substr(0, web.size() - 1)));
  c.send("GET /there.txt?type=file HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(test::bodyOf(c.readAll()), "there");
  EXPECT_EQ(serve.readLine(300), "");  // no webdav line
  EXPECT_EQ(serve.stop(SIGINT), 0);
}

TEST_F(ServeCommandTest, APortAlreadyTakenExitsTwo) {
  ServeProcess first({"serve", "--no-webdav", "--port", "0", "--bind", "127.0.0.1"});
  std::string web = first.readLine();
  std::string port = std::to_string(portOf(web.substr(0, web.size() - 1)));
  ServeProcess second({"serve", "--no-webdav", "--port", port, "--bind", "127.0.0.1"});
  EXPECT_EQ(second.wait(), 2);
  auto usage = test::runHarbor({"serve", "--port", "70000"});
  EXPECT_EQ(usage.code, 2);
  EXPECT_EQ(first.stop(SIGTERM), 0);
}

}  // namespace
}  // namespace harbor

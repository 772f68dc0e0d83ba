#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "NetTestClient.h"
#include "net/http/HTTPServer.h"

namespace harbor {
namespace {

// Answers every request from memory: no descriptor beyond the socket.
class MemoryConnection : public HTTPConnection {
 public:
  using HTTPConnection::HTTPConnection;
  std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string&,
                                                      const std::string&) override {
    return std::make_shared<HTTPDataResponse>("ok");
  }
};

// At the parent's first word connects `count` sockets, at its second sends
// a request on each and counts the replies that came back whole. Raw calls only: this
// runs in a child of a threaded process.
[[noreturn]] void clients(std::uint16_t port, int count, int go, int result) {
  std::vector<int> fds;
  char word;
  if (::read(go, &word, 1) != 1) _exit(3);
  for (int i = 0; i < count; ++i) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) _exit(2);
    fds.push_back(fd);
  }
  if (::read(go, &word, 1) != 1) _exit(3);
  static const char request[] = "GET / HTTP/1.1\r\nConnection: close\r\n\r\n";
  for (int fd : fds) {
    if (::send(fd, request, sizeof request - 1, MSG_NOSIGNAL) < 0) _exit(4);
  }
  char served = 0;
  for (int fd : fds) {
    char buf[4096];
    std::size_t got = 0;
    while (true) {
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, 10000) <= 0) break;
      ssize_t n = ::recv(fd, buf + got, sizeof buf - got, 0);
      if (n <= 0) break;
      got += static_cast<std::size_t>(n);
    }
    static const char ok[] = "HTTP/1.1 200 OK";
    if (got > sizeof ok && std::memcmp(buf, ok, sizeof ok - 1) == 0 &&
        std::memcmp(buf + got - 2, "ok", 2) == 0) {
      ++served;
    }
  }
  if (::write(result, &served, 1) != 1) _exit(5);
  _exit(0);
}

TEST(AcceptLimitTest, RunningOutOfDescriptorsPausesAcceptingUntilSomeAreFree) {
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizers' runtime opens descriptors of its own (reports, symbols)
  // and misreads memory once none are left; the ordinary build runs this.
  GTEST_SKIP() << "not with the sanitizers: they need free descriptors themselves";
#endif
  HTTPServer server;
  server.setPort(0);
  server.setInterface("127.0.0.1");
  server.setDocumentRoot("/");
  server.setConnectionClass([](auto s, auto c) -> std::shared_ptr<HTTPConnection> {
    return std::make_shared<MemoryConnection>(std::move(s), std::move(c));
  });
  Error e;
  ASSERT_TRUE(server.start(&e)) << e.message;
  const int kClients = 6, kRoom = 3;
  int go[2], result[2];
  ASSERT_EQ(::pipe(go), 0);
  ASSERT_EQ(::pipe(result), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) clients(server.listeningPort(), kClients, go[0], result[1]);

  // Fill every free number below the highest open one, then leave room for
  // exactly kRoom more. The server's threads may still hold a passing
  // descriptor (the C library reads /proc and /sys as a thread starts), so
  // the holes are filled again once the limit is down.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  int highest = 0;
  for (int fd = 0; fd < 4096; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1) highest = fd;
  }
  std::vector<int> fillers;
  auto fill = [&] {
    for (int fd = 0; fd <= highest; ++fd) {
      if (::fcntl(fd, F_GETFD) == -1) fillers.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
  };
  fill();
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  rlimit lowered = saved;
  lowered.rlim_cur = static_cast<rlim_t>(highest + 1 + kRoom);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  fill();
  ASSERT_EQ(::write(go[1], "c", 1), 1);

  // The clients are all connected and idle: the server holds what fits.
  for (int i = 0; i < 200 && server.numberOfHTTPConnections() < kRoom; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(server.numberOfHTTPConnections(), static_cast<std::size_t>(kRoom));
  EXPECT_TRUE(server.isRunning());

  // Replies free descriptors, and the waiting clients are taken in turn.
  ASSERT_EQ(::write(go[1], "g", 1), 1);
  char served = 0;
  ASSERT_EQ(::read(result[0], &served, 1), 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  ::setrlimit(RLIMIT_NOFILE, &saved);
  for (int fd : fillers) ::close(fd);
  for (int fd : {go[0], go[1], result[0], result[1]}) ::close(fd);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(served, kClients);
  server.stop();
}

}  // namespace
}  // namespace harbor

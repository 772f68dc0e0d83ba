#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

namespace harbor::test {

// A plain blocking client on 127.0.0.1 for sending exact bytes.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~RawClient() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  bool send(const std::string& data) {
    std::size_t sent = 0;
    while (sent < data.size()) {
      ssize_t n = ::send(fd_, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<std::size_t>(n);
    }
    return true;
  }
  // Everything until the peer closes or `timeoutMs` passes without data.
  std::string readAll(int timeoutMs = 3000) {
    std::string out;
    char buf[65536];
    while (true) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) <= 0) break;
      ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
      if (n <= 0) {
        closedByPeer_ = true;
        break;
      }
      out.append(buf, static_cast<std::size_t>(n));
    }
    return out;
  }
  // One response: head plus Content-Length bytes (or up to the chunked end).
  std::string readResponse(int timeoutMs = 3000) {
    std::string out;
    char buf[65536];
    auto complete = [&]() -> bool {
      std::size_t end = out.find("\r\n\r\n");
      if (end == std::string::npos) return false;
      std::string head = out.substr(0, end);
      std::size_t cl = head.find("Content-Length: ");
      if (cl != std::string::npos) {
        std::size_t len = std::stoull(head.substr(cl + 16));
        return out.size() >= end + 4 + len;
      }
      if (head.find("Transfer-Encoding: chunked") != std::string::npos) {
        return out.find("\r\n0\r\n\r\n", end) != std::string::npos ||
               out.compare(end + 4, 5, "0\r\n\r\n") == 0;
      }
      return true;
    };
    while (!complete()) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) <= 0) break;
      ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
      if (n <= 0) {
        closedByPeer_ = true;
        break;
      }
      out.append(buf, static_cast<std::size_t>(n));
    }
    return out;
  }
  bool peerClosed(int timeoutMs = 2000) {
    if (closedByPeer_) return true;
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    char c;
    ssize_t n = ::recv(fd_, &c, 1, MSG_PEEK);
    return n == 0 || (n < 0 && errno == ECONNRESET);
  }

 private:
  int fd_ = -1;
  bool closedByPeer_ = false;
};

inline std::string statusLine(const std::string& response) {
  return response.substr(0, response.find("\r\n"));
}

inline std::string bodyOf(const std::string& response) {
  std::size_t end = response.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : response.substr(end + 4);
}

inline std::string headerOf(const std::string& response, const std::string& name) {
  std::size_t end = response.find("\r\n\r\n");
  std::string head = response.substr(0, end);
  std::size_t pos = head.find("\r\n" + name + ": ");
  if (pos == std::string::npos) return {};
  pos += name.size() + 4;
  return head.substr(pos, head.find("\r\n", pos) - pos);
}

// Runs a shell command and returns its standard output.
inline std::string shell(const std::string& command, int* status = nullptr) {
  std::string out;
  FILE* f = ::popen(command.c_str(), "r");
  if (!f) return out;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  int rc = ::pclose(f);
  if (status) *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  return out;
}

}  // namespace harbor::test

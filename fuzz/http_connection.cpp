// The request machine over an in-memory socket: whatever a client sends,
// the connection answers with well-formed replies or drops it, and ends.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "net/http/HTTPConnection.h"
#include "net/http/MemorySocket.h"

namespace {

// Takes bodies and answers them, so POST paths run too.
class SinkConnection : public harbor::HTTPConnection {
 public:
  using HTTPConnection::HTTPConnection;
  bool supportsMethod(const std::string& m, const std::string& p) override {
    return m == "POST" || HTTPConnection::supportsMethod(m, p);
  }
  void processBodyData(std::string_view d) override { received_ += d.size(); }
  std::shared_ptr<harbor::HTTPResponse> httpResponseForMethod(const std::string& m,
                                                              const std::string& uri) override {
    if (m == "POST") return std::make_shared<harbor::HTTPDataResponse>(std::to_string(received_));
    return std::make_shared<harbor::HTTPDataResponse>("0123456789" + uri);
  }

 private:
  std::size_t received_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto config = std::make_shared<harbor::HTTPConfig>();
  config->documentRoot = "/nonexistent-root/";
  auto socket = std::make_shared<harbor::MemorySocket>(
      std::string(reinterpret_cast<const char*>(data), size));
  auto connection = std::make_shared<SinkConnection>(socket, config);
  bool died = false;
  connection->setDieHandler([&](harbor::HTTPConnection*) { died = true; });
  connection->start();
  socket->run(200000);
  // Input always runs out, so the machine must have reached its end.
  if (!died) __builtin_trap();
  const std::string& out = socket->output();
  if (!out.empty() && out.compare(0, 9, "HTTP/1.1 ") != 0) __builtin_trap();
  return 0;
}

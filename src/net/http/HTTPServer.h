#pragma once

#include <asio.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/http/HTTPConnection.h"
#include "net/http/WebSocket.h"
#include "platform/Error.h"

namespace harbor {

class BonjourPublisher;

// Owns the listening socket and the live connections, and announces the
// service on the local network. All socket work runs on one I/O thread:
// `serverQueue` and the shared `connectionQueue` are strands on it.
class HTTPServer {
 public:
  using ConnectionClass = std::function<std::shared_ptr<HTTPConnection>(
      std::shared_ptr<AsyncSocket>, std::shared_ptr<const HTTPConfig>)>;

  HTTPServer();
  ~HTTPServer();
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  // False with `error` set when the port cannot be bound.
  bool start(Error* error = nullptr);
  void stop(bool keepExistingConnections = false);
  bool isRunning() const;
  std::uint16_t listeningPort() const;
  std::size_t numberOfHTTPConnections() const;
  std::size_t numberOfWebSocketConnections() const;
  // Keeps an upgraded connection until it ends (called by connections).
  void addWebSocket(std::shared_ptr<WebSocket> webSocket);
  void republishBonjour();

  std::string documentRoot() const;
  void setDocumentRoot(const std::string& root);
  void setConnectionClass(ConnectionClass factory);
  std::string interface() const;
  void setInterface(const std::string& address);  // empty: all
  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  std::string domain() const;
  void setDomain(const std::string& domain);
  std::string name() const;
  void setName(const std::string& name);
  std::string type() const;
  void setType(const std::string& type);  // empty: not announced
  std::string publishedName() const;
  std::map<std::string, std::string> TXTRecordDictionary() const;
  void setTXTRecordDictionary(const std::map<std::string, std::string>& txt);
  void setNonceRegistry(std::shared_ptr<NonceRegistry> nonces);

 private:
  void startAccepting();
  void acceptedSocket(asio::ip::tcp::socket socket);
  void connectionDidDie(HTTPConnection* connection);
  void webSocketDidDie(WebSocket* webSocket);
  void publishBonjour();
  void unpublishBonjour();

  mutable std::mutex mutex_;  // the settings below
  std::string documentRoot_;
  ConnectionClass connectionClass_;
  std::string interface_;
  std::uint16_t port_ = 0;
  std::string domain_ = "local.";
  std::string type_;
  std::string name_;
  std::map<std::string, std::string> txtRecord_;
  std::shared_ptr<NonceRegistry> nonces_;

  std::unique_ptr<asio::io_context> io_;
  std::unique_ptr<asio::strand<asio::io_context::executor_type>> serverQueue_;
  std::unique_ptr<asio::strand<asio::io_context::executor_type>> connectionQueue_;
  std::unique_ptr<asio::ip::tcp::acceptor> acceptor_;
  std::unique_ptr<asio::steady_timer> acceptPause_;
  std::thread ioThread_;
  std::uint16_t boundPort_ = 0;
  bool isRunning_ = false;
  std::shared_ptr<const HTTPConfig> config_;

  mutable std::mutex connectionsLock_;
  std::vector<std::shared_ptr<HTTPConnection>> connections_;
  mutable std::mutex webSocketsLock_;
  std::vector<std::shared_ptr<WebSocket>> webSockets_;
  std::unique_ptr<BonjourPublisher> bonjour_;
};

}  // namespace harbor

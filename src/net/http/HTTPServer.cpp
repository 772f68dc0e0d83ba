#include "net/http/HTTPServer.h"

#include <csignal>
#include <filesystem>

#include "net/http/BonjourPublisher.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;

HTTPServer::HTTPServer() : bonjour_(std::make_unique<BonjourPublisher>()) {}

HTTPServer::~HTTPServer() {
  stop(false);
}

bool HTTPServer::start(Error* error) {
  std::lock_guard lock(mutex_);
  if (isRunning_) return true;
  // Files go out through sendfile, which has no MSG_NOSIGNAL: a client that
  // leaves mid-reply must end that reply, not the process.
  ::signal(SIGPIPE, SIG_IGN);
  auto fail = [&](const std::string& message, long code) {
    HB_LOG("HTTPServer", message);
    if (error) *error = Error{"HTTPServerErrorDomain", code, message};
    // Everything made on the context goes before the context itself.
    acceptPause_.reset();
    acceptor_.reset();
    serverQueue_.reset();
    connectionQueue_.reset();
    io_.reset();
    return false;
  };
  io_ = std::make_unique<asio::io_context>(1);
  serverQueue_ = std::make_unique<asio::strand<asio::io_context::executor_type>>(
      asio::make_strand(io_->get_executor()));
  connectionQueue_ = std::make_unique<asio::strand<asio::io_context::executor_type>>(
      asio::make_strand(io_->get_executor()));
  acceptor_ = std::make_unique<asio::ip::tcp::acceptor>(*serverQueue_);
  acceptPause_ = std::make_unique<asio::steady_timer>(*serverQueue_);

  std::error_code ec;
  asio::ip::address address;
  bool dualStack = false;
  if (interface_.empty()) {
    address = asio::ip::address_v6::any();
    dualStack = true;
  } else {
    std::string host = interface_ == "localhost" ? "127.0.0.1" : interface_;
    address = asio::ip::make_address(host, ec);
    if (ec) return fail("cannot use the address " + interface_, 1);
  }
  asio::ip::tcp::endpoint endpoint(address, port_);
  acceptor_->open(endpoint.protocol(), ec);
  if (ec && dualStack) {
    // No IPv6 on this machine: all IPv4 interfaces then.
    endpoint = asio::ip::tcp::endpoint(asio::ip::address_v4::any(), port_);
    dualStack = false;
    acceptor_->open(endpoint.protocol(), ec);
  }
  if (ec) return fail("cannot open a socket: " + ec.message(), ec.value());
  if (dualStack) acceptor_->set_option(asio::ip::v6_only(false), ec);
  acceptor_->set_option(asio::ip::tcp::acceptor::reuse_address(true), ec);
  acceptor_->bind(endpoint, ec);
  if (ec)
    return fail("cannot bind port " + std::to_string(port_) + ": " + ec.message(), ec.value());
  acceptor_->listen(asio::socket_base::max_listen_connections, ec);
  if (ec) return fail("cannot listen: " + ec.message(), ec.value());
  boundPort_ = acceptor_->local_endpoint(ec).port();

  auto config = std::make_shared<HTTPConfig>();
  config->server = this;
  std::string root =
      documentRoot_.empty() ? std::string() : fs::path(documentRoot_).lexically_normal().string();
  if (!root.empty() && root.back() != '/') root += '/';
  config->documentRoot = root;
  config->nonces = nonces_ ? nonces_ : NonceRegistry::shared();
  config_ = config;

  isRunning_ = true;
  asio::post(*serverQueue_, [this] { startAccepting(); });
  ioThread_ = std::thread([this] { io_->run(); });
  publishBonjour();
  return true;
}

void HTTPServer::startAccepting() {
  acceptor_->async_accept(
      *connectionQueue_, [this](std::error_code ec, asio::ip::tcp::socket socket) {
        if (!acceptor_->is_open()) return;
        if (ec == asio::error::no_descriptors || ec.value() == EMFILE || ec.value() == ENFILE ||
            ec == asio::error::no_buffer_space || ec == asio::error::no_memory) {
          // Out of descriptors: pause accepting until connections go away.
          acceptPause_->expires_after(std::chrono::milliseconds(100));
          acceptPause_->async_wait([this](std::error_code e) {
            if (!e && acceptor_->is_open()) startAccepting();
          });
          return;
        }
        if (!ec) acceptedSocket(std::move(socket));
        startAccepting();
      });
}

void HTTPServer::acceptedSocket(asio::ip::tcp::socket socket) {
  auto async = std::make_shared<AsioSocket>(std::move(socket), *connectionQueue_);
  ConnectionClass factory;
  {
    std::lock_guard lock(mutex_);
    factory = connectionClass_;
  }
  std::shared_ptr<HTTPConnection> connection =
      factory ? factory(async, config_) : std::make_shared<HTTPConnection>(async, config_);
  if (!connection) return;
  connection->setDieHandler([this](HTTPConnection* c) { connectionDidDie(c); });
  {
    std::lock_guard lock(connectionsLock_);
    connections_.push_back(connection);
  }
  connection->start();
}

void HTTPServer::connectionDidDie(HTTPConnection* connection) {
  std::shared_ptr<HTTPConnection> keep;  // released outside the lock
  std::lock_guard lock(connectionsLock_);
  for (auto it = connections_.begin(); it != connections_.end(); ++it) {
    if (it->get() == connection) {
      keep = std::move(*it);
      connections_.erase(it);
      break;
    }
  }
}

void HTTPServer::addWebSocket(std::shared_ptr<WebSocket> webSocket) {
  webSocket->setDieHandler([this](WebSocket* w) { webSocketDidDie(w); });
  std::lock_guard lock(webSocketsLock_);
  webSockets_.push_back(std::move(webSocket));
}

void HTTPServer::webSocketDidDie(WebSocket* webSocket) {
  std::shared_ptr<WebSocket> keep;  // released outside the lock
  std::lock_guard lock(webSocketsLock_);
  for (auto it = webSockets_.begin(); it != webSockets_.end(); ++it) {
    if (it->get() == webSocket) {
      keep = std::move(*it);
      webSockets_.erase(it);
      break;
    }
  }
}

std::size_t HTTPServer::numberOfWebSocketConnections() const {
  std::lock_guard lock(webSocketsLock_);
  return webSockets_.size();
}

void HTTPServer::stop(bool keepExistingConnections) {
  std::unique_lock lock(mutex_);
  if (!io_) return;
  unpublishBonjour();
  std::vector<std::shared_ptr<HTTPConnection>> old;
  {
    std::lock_guard c(connectionsLock_);
    old.swap(connections_);
  }
  std::vector<std::shared_ptr<WebSocket>> oldSockets;
  {
    std::lock_guard w(webSocketsLock_);
    oldSockets.swap(webSockets_);
  }
  asio::post(*serverQueue_, [this] {
    std::error_code ec;
    acceptor_->close(ec);
    acceptPause_->cancel();
  });
  if (!keepExistingConnections) {
    for (auto& c : old) c->stop();
    for (auto& w : oldSockets) w->stop();
  }
  // The I/O thread serves the connections to their end: stop it once they
  // have closed (kept ones too, with a bound on the wait).
  isRunning_ = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  lock.unlock();
  while (std::chrono::steady_clock::now() < deadline) {
    bool anyAlive = false;
    for (auto& c : old) {
      if (c.use_count() > 1) anyAlive = true;
    }
    for (auto& w : oldSockets) {
      if (w.use_count() > 1) anyAlive = true;
    }
    if (!anyAlive) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  lock.lock();
  io_->stop();
  if (ioThread_.joinable()) ioThread_.join();
  old.clear();
  oldSockets.clear();
  acceptor_.reset();
  acceptPause_.reset();
  serverQueue_.reset();
  connectionQueue_.reset();
  io_.reset();
  boundPort_ = 0;
}

bool HTTPServer::isRunning() const {
  std::lock_guard lock(mutex_);
  return isRunning_;
}

std::uint16_t HTTPServer::listeningPort() const {
  std::lock_guard lock(mutex_);
  return isRunning_ ? boundPort_ : 0;
}

std::size_t HTTPServer::numberOfHTTPConnections() const {
  std::lock_guard lock(connectionsLock_);
  return connections_.size();
}

void HTTPServer::publishBonjour() {
  if (type_.empty()) return;
  if (!bonjour_->publish(name_, type_, boundPort_, txtRecord_)) {
    HB_LOG("HTTPServer", "service not announced: no Avahi daemon");
  }
}

void HTTPServer::unpublishBonjour() {
  bonjour_->unpublish();
}

void HTTPServer::republishBonjour() {
  std::lock_guard lock(mutex_);
  if (!isRunning_) return;
  unpublishBonjour();
  publishBonjour();
}

std::string HTTPServer::documentRoot() const {
  std::lock_guard lock(mutex_);
  return documentRoot_;
}
void HTTPServer::setDocumentRoot(const std::string& root) {
  std::lock_guard lock(mutex_);
  documentRoot_ = root;
}
void HTTPServer::setConnectionClass(ConnectionClass factory) {
  std::lock_guard lock(mutex_);
  connectionClass_ = std::move(factory);
}
std::string HTTPServer::interface() const {
  std::lock_guard lock(mutex_);
  return interface_;
}
void HTTPServer::setInterface(const std::string& address) {
  std::lock_guard lock(mutex_);
  interface_ = address;
}
std::uint16_t HTTPServer::port() const {
  std::lock_guard lock(mutex_);
  return port_;
}
void HTTPServer::setPort(std::uint16_t port) {
  std::lock_guard lock(mutex_);
  port_ = port;
}
std::string HTTPServer::domain() const {
  std::lock_guard lock(mutex_);
  return domain_;
}
void HTTPServer::setDomain(const std::string& domain) {
  std::lock_guard lock(mutex_);
  domain_ = domain;
}
std::string HTTPServer::name() const {
  std::lock_guard lock(mutex_);
  return name_;
}
void HTTPServer::setName(const std::string& name) {
  std::lock_guard lock(mutex_);
  name_ = name;
}
std::string HTTPServer::type() const {
  std::lock_guard lock(mutex_);
  return type_;
}
void HTTPServer::setType(const std::string& type) {
  std::lock_guard lock(mutex_);
  type_ = type;
}
std::string HTTPServer::publishedName() const {
  return bonjour_->publishedName();
}
std::map<std::string, std::string> HTTPServer::TXTRecordDictionary() const {
  std::lock_guard lock(mutex_);
  return txtRecord_;
}
void HTTPServer::setTXTRecordDictionary(const std::map<std::string, std::string>& txt) {
  std::lock_guard lock(mutex_);
  txtRecord_ = txt;
  if (isRunning_) {
    unpublishBonjour();
    publishBonjour();
  }
}
void HTTPServer::setNonceRegistry(std::shared_ptr<NonceRegistry> nonces) {
  std::lock_guard lock(mutex_);
  nonces_ = std::move(nonces);
}

}  // namespace harbor

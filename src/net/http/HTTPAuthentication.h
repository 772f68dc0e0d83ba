#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>

namespace harbor {

// The fields of an "Authorization" header.
class HTTPAuthenticationRequest {
 public:
  explicit HTTPAuthenticationRequest(std::string_view header);

  bool isBasic() const { return isBasic_; }
  bool isDigest() const { return isDigest_; }
  const std::string& base64Credentials() const { return base64Credentials_; }
  const std::string& username() const { return username_; }
  const std::string& realm() const { return realm_; }
  const std::string& nonce() const { return nonce_; }
  const std::string& uri() const { return uri_; }
  const std::string& qop() const { return qop_; }
  const std::string& nc() const { return nc_; }
  const std::string& cnonce() const { return cnonce_; }
  const std::string& response() const { return response_; }

 private:
  bool isBasic_ = false;
  bool isDigest_ = false;
  std::string base64Credentials_, username_, realm_, nonce_, uri_, qop_, nc_, cnonce_, response_;
};

// The digest nonces this process handed out. A nonce lives 300 s, and the
// highest nonce count seen is kept per nonce for every connection, so a
// request replayed on a new connection is refused too. Only the registry's
// own strand touches the list: new nonces are added without waiting, and
// questions wait for their answer behind them.
class NonceRegistry {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;
  static constexpr std::chrono::seconds kLifetime{300};

  NonceRegistry();
  ~NonceRegistry();
  NonceRegistry(const NonceRegistry&) = delete;
  NonceRegistry& operator=(const NonceRegistry&) = delete;

  static std::shared_ptr<NonceRegistry> shared();
  // Called on the registry's thread.
  void setClock(Clock clock);

  std::string generateNonce();
  bool hasRecentNonce(const std::string& nonce);
  // True, and recorded, when `nc` is above every count seen for `nonce`.
  bool acceptNonceCount(const std::string& nonce, std::uint64_t nc);

 private:
  struct Entry {
    std::chrono::steady_clock::time_point created;
    std::uint64_t lastNC = 0;
  };
  void prune();
  std::chrono::steady_clock::time_point now() const;
  // Runs `work` on the strand and waits for its answer.
  template <class F>
  auto ask(F work) -> decltype(work());

  asio::thread_pool queue_{1};
  asio::strand<asio::thread_pool::executor_type> strand_;
  Clock clock_;
  std::map<std::string, Entry> nonces_;
};

}  // namespace harbor

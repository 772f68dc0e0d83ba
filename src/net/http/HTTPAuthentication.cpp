#include "net/http/HTTPAuthentication.h"

#include <cctype>
#include <future>

#include "net/http/HTTPMessage.h"
#include "net/http/HTTPUtil.h"

namespace harbor {
namespace {

std::string_view trimSpace(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// The first `name="` whose name starts the header or follows a blank or a
// comma, up to the next quote.
std::string quotedValue(std::string_view header, std::string_view name) {
  std::string key = std::string(name) + "=\"";
  std::size_t pos = 0;
  while ((pos = header.find(key, pos)) != std::string_view::npos) {
    if (pos == 0 || header[pos - 1] == ' ' || header[pos - 1] == ',' || header[pos - 1] == '\t') {
      std::size_t start = pos + key.size();
      std::size_t end = header.find('"', start);
      if (end == std::string_view::npos) return {};
      return std::string(header.substr(start, end - start));
    }
    pos += key.size();
  }
  return {};
}

std::string plainValue(std::string_view header, std::string_view name) {
  std::string key = std::string(name) + "=";
  std::size_t pos = 0;
  while ((pos = header.find(key, pos)) != std::string_view::npos) {
    if (pos == 0 || header[pos - 1] == ' ' || header[pos - 1] == ',' || header[pos - 1] == '\t') {
      std::size_t start = pos + key.size();
      if (start < header.size() && header[start] == '"') return quotedValue(header, name);
      std::size_t end = header.find(',', start);
      if (end == std::string_view::npos) end = header.find(' ', start);
      if (end == std::string_view::npos) end = header.size();
      return std::string(trimSpace(header.substr(start, end - start)));
    }
    pos += key.size();
  }
  return {};
}

}  // namespace

HTTPAuthenticationRequest::HTTPAuthenticationRequest(std::string_view header) {
  if (header.size() >= 6 && equalsIgnoreCase(header.substr(0, 6), "Basic ")) {
    isBasic_ = true;
    base64Credentials_ = std::string(trimSpace(header.substr(6)));
  } else if (header.size() >= 7 && equalsIgnoreCase(header.substr(0, 7), "Digest ")) {
    isDigest_ = true;
    std::string_view rest = header.substr(7);
    username_ = quotedValue(rest, "username");
    realm_ = quotedValue(rest, "realm");
    nonce_ = quotedValue(rest, "nonce");
    uri_ = quotedValue(rest, "uri");
    cnonce_ = quotedValue(rest, "cnonce");
    response_ = quotedValue(rest, "response");
    qop_ = plainValue(rest, "qop");
    nc_ = plainValue(rest, "nc");
  }
}

NonceRegistry::NonceRegistry() : strand_(asio::make_strand(queue_.get_executor())) {}

NonceRegistry::~NonceRegistry() {
  queue_.join();
}

template <class F>
auto NonceRegistry::ask(F work) -> decltype(work()) {
  // The promise lives with the posted work: the asker may be gone the
  // moment the answer is set.
  auto answer = std::make_shared<std::promise<decltype(work())>>();
  auto future = answer->get_future();
  asio::post(strand_, [answer, &work] { answer->set_value(work()); });
  return future.get();
}

std::shared_ptr<NonceRegistry> NonceRegistry::shared() {
  static auto registry = std::make_shared<NonceRegistry>();
  return registry;
}

void NonceRegistry::setClock(Clock clock) {
  ask([&] {
    clock_ = std::move(clock);
    return true;
  });
}

std::chrono::steady_clock::time_point NonceRegistry::now() const {
  return clock_ ? clock_() : std::chrono::steady_clock::now();
}

void NonceRegistry::prune() {
  auto t = now();
  std::erase_if(nonces_, [&](const auto& e) { return t - e.second.created > kLifetime; });
}

std::string NonceRegistry::generateNonce() {
  std::string nonce = HTTPUtil::uuidString();
  asio::post(strand_, [this, nonce] {
    prune();
    nonces_[nonce] = Entry{now(), 0};
  });
  return nonce;
}

bool NonceRegistry::hasRecentNonce(const std::string& nonce) {
  return ask([&] {
    prune();
    return nonces_.count(nonce) > 0;
  });
}

bool NonceRegistry::acceptNonceCount(const std::string& nonce, std::uint64_t nc) {
  return ask([&] {
    prune();
    auto it = nonces_.find(nonce);
    if (it == nonces_.end() || nc <= it->second.lastNC) return false;
    it->second.lastNC = nc;
    return true;
  });
}

}  // namespace harbor

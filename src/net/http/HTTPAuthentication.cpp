#include "net/http/HTTPAuthentication.h"

#include <cctype>

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

std::shared_ptr<NonceRegistry> NonceRegistry::shared() {
  static auto registry = std::make_shared<NonceRegistry>();
  return registry;
}

void NonceRegistry::setClock(Clock clock) {
  std::lock_guard lock(mutex_);
  clock_ = std::move(clock);
}

std::chrono::steady_clock::time_point NonceRegistry::now() const {
  return clock_ ? clock_() : std::chrono::steady_clock::now();
}

void NonceRegistry::pruneLocked(std::chrono::steady_clock::time_point t) {
  for (auto it = nonces_.begin(); it != nonces_.end();) {
    if (t - it->second.created > kLifetime) {
      it = nonces_.erase(it);
    } else {
      ++it;
    }
  }
}

std::string NonceRegistry::generateNonce() {
  std::string nonce = HTTPUtil::uuidString();
  std::lock_guard lock(mutex_);
  auto t = now();
  pruneLocked(t);
  nonces_[nonce] = Entry{t, 0};
  return nonce;
}

bool NonceRegistry::hasRecentNonce(const std::string& nonce) {
  std::lock_guard lock(mutex_);
  pruneLocked(now());
  return nonces_.count(nonce) > 0;
}

bool NonceRegistry::acceptNonceCount(const std::string& nonce, std::uint64_t nc) {
  std::lock_guard lock(mutex_);
  pruneLocked(now());
  auto it = nonces_.find(nonce);
  if (it == nonces_.end() || nc <= it->second.lastNC) return false;
  it->second.lastNC = nc;
  return true;
}

}  // namespace harbor

#include "DigestAuth.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cctype>
#include <cstdio>

#include "HttpMessage.h"

namespace camsim {

namespace {

constexpr size_t kMaxNonces = 4096;  // a client that never authenticates cannot grow the table
constexpr size_t kMaxCountsPerNonce = 1024;

std::string Hex(const unsigned char* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    out.push_back(kDigits[data[i] >> 4]);
    out.push_back(kDigits[data[i] & 0x0f]);
  }
  return out;
}

void SkipBlanks(std::string_view text, size_t& pos) {
  while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t' || text[pos] == ',')) ++pos;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) { return ToLower(a) == ToLower(b); }

}  // namespace

std::string Md5Hex(std::string_view data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(data.data(), data.size(), digest, &size, EVP_md5(), nullptr) != 1) return std::string();
  return Hex(digest, size);
}

std::optional<std::map<std::string, std::string>> ParseDigestAuthorization(std::string_view header) {
  size_t pos = 0;
  while (pos < header.size() && header[pos] == ' ') ++pos;
  if (header.size() - pos < 7 || !EqualsIgnoreCase(header.substr(pos, 6), "digest") || header[pos + 6] != ' ') {
    return std::nullopt;
  }
  pos += 7;
  std::map<std::string, std::string> params;
  while (true) {
    SkipBlanks(header, pos);
    if (pos >= header.size()) break;
    size_t eq = header.find('=', pos);
    if (eq == std::string_view::npos) return std::nullopt;
    std::string name = ToLower(header.substr(pos, eq - pos));
    while (!name.empty() && name.back() == ' ') name.pop_back();
    pos = eq + 1;
    while (pos < header.size() && header[pos] == ' ') ++pos;
    std::string value;
    if (pos < header.size() && header[pos] == '"') {
      ++pos;
      bool closed = false;
      while (pos < header.size()) {
        char c = header[pos++];
        if (c == '\\' && pos < header.size()) {
          value.push_back(header[pos++]);
        } else if (c == '"') {
          closed = true;
          break;
        } else {
          value.push_back(c);
        }
      }
      if (!closed) return std::nullopt;
    } else {
      size_t end = header.find(',', pos);
      if (end == std::string_view::npos) end = header.size();
      value = std::string(header.substr(pos, end - pos));
      while (!value.empty() && value.back() == ' ') value.pop_back();
      pos = end;
    }
    if (name.empty()) return std::nullopt;
    params[name] = std::move(value);
  }
  return params;
}

std::string DigestResponse(const std::string& user, const std::string& realm, const std::string& password,
                           const std::string& method, const std::string& uri, const std::string& nonce,
                           const std::string& nc, const std::string& cnonce, const std::string& qop) {
  const std::string ha1 = Md5Hex(user + ":" + realm + ":" + password);
  const std::string ha2 = Md5Hex(method + ":" + uri);
  return Md5Hex(ha1 + ":" + nonce + ":" + nc + ":" + cnonce + ":" + qop + ":" + ha2);
}

const char* ToString(DigestVerdict verdict) {
  switch (verdict) {
    case DigestVerdict::Accepted:
      return "accepted";
    case DigestVerdict::Missing:
      return "no digest credentials";
    case DigestVerdict::Malformed:
      return "malformed digest credentials";
    case DigestVerdict::UnknownNonce:
      return "unknown nonce";
    case DigestVerdict::StaleNonce:
      return "stale nonce";
    case DigestVerdict::ReplayedCount:
      return "replayed nonce count";
    case DigestVerdict::WrongUser:
      return "unknown user";
    case DigestVerdict::WrongResponse:
      return "wrong password";
  }
  return "?";
}

DigestAuthenticator::DigestAuthenticator(std::string realm, std::chrono::seconds nonceLifetime, Clock clock)
    : m_realm(std::move(realm)), m_lifetime(nonceLifetime), m_clock(std::move(clock)) {
  if (!m_clock) m_clock = [] { return std::chrono::steady_clock::now(); };
}

std::string DigestAuthenticator::Challenge(bool stale) {
  unsigned char random[16] = {};
  std::lock_guard<std::mutex> lock(m_mutex);
  if (RAND_bytes(random, sizeof(random)) != 1) {
    // Never expected; a counter still keeps nonces unique.
    for (size_t i = 0; i < sizeof(random); ++i) random[i] = static_cast<unsigned char>((m_counter >> (i % 8)) + i);
  }
  char counter[17];
  std::snprintf(counter, sizeof(counter), "%016llx", static_cast<unsigned long long>(++m_counter));
  std::string nonce = Hex(random, sizeof(random)) + counter;
  if (m_nonces.size() >= kMaxNonces) {
    auto oldest = m_nonces.begin();
    for (auto it = m_nonces.begin(); it != m_nonces.end(); ++it) {
      if (it->second.issued < oldest->second.issued) oldest = it;
    }
    m_nonces.erase(oldest);
  }
  m_nonces[nonce] = NonceState{m_clock(), {}};
  std::string challenge = "Digest realm=\"" + m_realm + "\", nonce=\"" + nonce + "\", algorithm=MD5, qop=\"auth\"";
  if (stale) challenge += ", stale=TRUE";
  return challenge;
}

DigestVerdict DigestAuthenticator::Verify(const std::string& method, const std::string& path,
                                          const std::string& authorization, const std::string& user,
                                          const std::string& password) {
  return Check(method, path, authorization, &user, &password);
}

DigestVerdict DigestAuthenticator::VerifyKnown(const std::string& method, const std::string& path,
                                               const std::string& authorization, const std::string& user,
                                               const std::string& password) {
  return Check(method, path, authorization, user.empty() ? nullptr : &user, password.empty() ? nullptr : &password);
}

DigestVerdict DigestAuthenticator::Check(const std::string& method, const std::string& path,
                                         const std::string& authorization, const std::string* user,
                                         const std::string* password) {
  auto params = ParseDigestAuthorization(authorization);
  if (!params) return DigestVerdict::Missing;
  auto get = [&](const char* name) -> std::string {
    auto it = params->find(name);
    return it == params->end() ? std::string() : it->second;
  };
  const std::string username = get("username"), realm = get("realm"), nonce = get("nonce"), uri = get("uri"),
                    response = get("response"), qop = get("qop"), nc = get("nc"), cnonce = get("cnonce"),
                    algorithm = get("algorithm");
  if (username.empty() || nonce.empty() || uri.empty() || response.empty() || nc.empty() || cnonce.empty()) {
    return DigestVerdict::Malformed;
  }
  if (realm != m_realm || qop != "auth" || (!algorithm.empty() && !EqualsIgnoreCase(algorithm, "MD5"))) {
    return DigestVerdict::Malformed;
  }
  // The digest covers the target the client asked for; it must be this request's.
  const std::string uriPath = UrlDecode(std::string_view(uri).substr(0, uri.find('?')), false);
  if (uriPath != path) return DigestVerdict::Malformed;

  if (user != nullptr && username != *user) return DigestVerdict::WrongUser;
  if (password != nullptr &&
      ToLower(response) != DigestResponse(username, m_realm, *password, method, uri, nonce, nc, cnonce, qop)) {
    return DigestVerdict::WrongResponse;
  }

  std::lock_guard<std::mutex> lock(m_mutex);
  auto it = m_nonces.find(nonce);
  if (it == m_nonces.end()) return DigestVerdict::UnknownNonce;
  if (m_clock() - it->second.issued > m_lifetime) {
    m_nonces.erase(it);
    return DigestVerdict::StaleNonce;
  }
  if (it->second.usedCounts.count(nc) != 0) return DigestVerdict::ReplayedCount;
  if (it->second.usedCounts.size() >= kMaxCountsPerNonce) return DigestVerdict::StaleNonce;
  it->second.usedCounts.insert(nc);
  return DigestVerdict::Accepted;
}

}  // namespace camsim

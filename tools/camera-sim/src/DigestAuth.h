// DigestAuth.h - HTTP Digest authentication (RFC 7616, MD5, qop=auth) as the
// cameras do it: realm "AXIS_<serial>", nonces the camera issued itself.
// Pure logic; the HTTP server only hands over the method, target and header.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace camsim {

std::string Md5Hex(std::string_view data);

// The parameters of an "Authorization: Digest ..." header (names lower-cased,
// quoted strings unescaped); empty when the header is not a Digest header.
std::optional<std::map<std::string, std::string>> ParseDigestAuthorization(std::string_view header);

// response = MD5(HA1:nonce:nc:cnonce:qop:HA2) with HA1 = MD5(user:realm:password), HA2 = MD5(method:uri).
std::string DigestResponse(const std::string& user, const std::string& realm, const std::string& password,
                           const std::string& method, const std::string& uri, const std::string& nonce,
                           const std::string& nc, const std::string& cnonce, const std::string& qop);

enum class DigestVerdict {
  Accepted,
  Missing,        // no Authorization header, or not Digest
  Malformed,      // a required parameter is missing or wrong (realm, qop, algorithm, uri)
  UnknownNonce,   // not issued here, or forgotten
  StaleNonce,     // issued here but expired: the client may retry with the new nonce
  ReplayedCount,  // the nonce count was used before
  WrongUser,
  WrongResponse,  // the password does not match
};
const char* ToString(DigestVerdict verdict);

class DigestAuthenticator {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit DigestAuthenticator(std::string realm, std::chrono::seconds nonceLifetime = std::chrono::seconds(300),
                               Clock clock = nullptr);

  const std::string& Realm() const { return m_realm; }

  // A WWW-Authenticate value with a fresh nonce.
  std::string Challenge(bool stale = false);

  // `path` is the decoded request path; the digest's uri must name it.
  DigestVerdict Verify(const std::string& method, const std::string& path, const std::string& authorization,
                       const std::string& user, const std::string& password);
  // The same where the camera knows no user (`user` empty: any) or no
  // password (`password` empty: any), as a replayed camera does: the form
  // and the nonce are still checked.
  DigestVerdict VerifyKnown(const std::string& method, const std::string& path, const std::string& authorization,
                            const std::string& user, const std::string& password);

 private:
  DigestVerdict Check(const std::string& method, const std::string& path, const std::string& authorization,
                      const std::string* user, const std::string* password);

  struct NonceState {
    std::chrono::steady_clock::time_point issued;
    std::set<std::string> usedCounts;
  };

  std::string m_realm;
  std::chrono::seconds m_lifetime;
  Clock m_clock;
  std::mutex m_mutex;
  std::map<std::string, NonceState> m_nonces;
  uint64_t m_counter = 0;
};

}  // namespace camsim

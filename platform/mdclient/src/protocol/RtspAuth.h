// RtspAuth.h - HTTP-style authentication for RTSP: Basic and Digest
// (RFC 2617, MD5 and MD5-sess, with or without qop).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mdclient {

struct AuthChallenge {
  enum class Scheme { kBasic, kDigest };
  Scheme scheme = Scheme::kDigest;
  std::string realm;
  std::string nonce;
  std::string opaque;
  std::string algorithm;  // "" means MD5
  std::string qop;        // the qop we answer with: "auth", "auth-int" or "" (RFC 2069 style)
  bool stale = false;
};

// One WWW-Authenticate value. nullopt for unknown schemes, unsupported
// algorithms and a Digest challenge without nonce.
std::optional<AuthChallenge> ParseAuthChallenge(std::string_view value);

// The strongest usable challenge among the values of every WWW-Authenticate
// header of an answer (Digest before Basic).
std::optional<AuthChallenge> ChooseAuthChallenge(const std::vector<const std::string*>& values);

struct DigestRequest {
  std::string_view user;
  std::string_view password;
  std::string_view method;
  std::string_view uri;
  uint32_t nonceCount = 1;
  std::string_view cnonce;
};

std::string Md5Hex(std::string_view data);

// The 32-digit "response" value of a Digest answer.
std::string DigestResponse(const AuthChallenge& challenge, const DigestRequest& request);

// The whole Authorization header value for a request.
std::string AuthorizationValue(const AuthChallenge& challenge, const DigestRequest& request);

std::string Base64Encode(std::string_view data);

}  // namespace mdclient

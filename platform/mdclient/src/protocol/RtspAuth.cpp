#include "protocol/RtspAuth.h"

#include <cctype>
#include <cstdio>

#include "protocol/Md5.h"
#include "protocol/Text.h"

namespace mdclient {
namespace {

void SkipBlanksAndCommas(std::string_view& text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == ',')) text.remove_prefix(1);
}

// Reads `name=value` or `name="quoted \" value"`; false at the end or on
// malformed input.
bool NextParameter(std::string_view& text, std::string* name, std::string* value) {
  SkipBlanksAndCommas(text);
  size_t equals = text.find('=');
  if (text.empty() || equals == std::string_view::npos) return false;
  std::string_view key = text.substr(0, equals);
  while (!key.empty() && (key.back() == ' ' || key.back() == '\t')) key.remove_suffix(1);
  *name = std::string(key);
  text.remove_prefix(equals + 1);
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  value->clear();
  if (!text.empty() && text.front() == '"') {
    text.remove_prefix(1);
    while (!text.empty() && text.front() != '"') {
      if (text.front() == '\\' && text.size() > 1) text.remove_prefix(1);
      value->push_back(text.front());
      text.remove_prefix(1);
    }
    if (text.empty()) return false;  // unterminated quote
    text.remove_prefix(1);
  } else {
    size_t end = text.find(',');
    std::string_view raw = text.substr(0, end);
    while (!raw.empty() && (raw.back() == ' ' || raw.back() == '\t')) raw.remove_suffix(1);
    *value = std::string(raw);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end);
  }
  return true;
}

bool ListContains(std::string_view list, std::string_view token) {
  while (!list.empty()) {
    size_t comma = list.find(',');
    std::string_view item = list.substr(0, comma);
    while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
    while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
    if (EqualsIgnoreCase(item, token)) return true;
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return false;
}

std::string QuotedString(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

}  // namespace

std::string Md5Hex(std::string_view data) {
  static const char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(32);
  for (const uint8_t byte : Md5(data)) {
    hex.push_back(kHex[byte >> 4]);
    hex.push_back(kHex[byte & 0x0f]);
  }
  return hex;
}

std::string Base64Encode(std::string_view data) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < data.size(); i += 3) {
    uint32_t v = (static_cast<uint8_t>(data[i]) << 16) | (static_cast<uint8_t>(data[i + 1]) << 8) |
                 static_cast<uint8_t>(data[i + 2]);
    out.push_back(kAlphabet[(v >> 18) & 63]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(kAlphabet[(v >> 6) & 63]);
    out.push_back(kAlphabet[v & 63]);
  }
  if (i < data.size()) {
    uint32_t v = static_cast<uint8_t>(data[i]) << 16;
    if (i + 1 < data.size()) v |= static_cast<uint8_t>(data[i + 1]) << 8;
    out.push_back(kAlphabet[(v >> 18) & 63]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(i + 1 < data.size() ? kAlphabet[(v >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<AuthChallenge> ParseAuthChallenge(std::string_view value) {
  while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  size_t space = value.find(' ');
  std::string_view scheme = value.substr(0, space);
  std::string_view params = space == std::string_view::npos ? std::string_view() : value.substr(space + 1);
  AuthChallenge challenge;
  if (EqualsIgnoreCase(scheme, "Basic")) {
    challenge.scheme = AuthChallenge::Scheme::kBasic;
  } else if (EqualsIgnoreCase(scheme, "Digest")) {
    challenge.scheme = AuthChallenge::Scheme::kDigest;
  } else {
    return std::nullopt;
  }
  std::string name;
  std::string text;
  std::string qopOptions;
  while (NextParameter(params, &name, &text)) {
    if (EqualsIgnoreCase(name, "realm")) {
      challenge.realm = text;
    } else if (EqualsIgnoreCase(name, "nonce")) {
      challenge.nonce = text;
    } else if (EqualsIgnoreCase(name, "opaque")) {
      challenge.opaque = text;
    } else if (EqualsIgnoreCase(name, "algorithm")) {
      challenge.algorithm = text;
    } else if (EqualsIgnoreCase(name, "qop")) {
      qopOptions = text;
    } else if (EqualsIgnoreCase(name, "stale")) {
      challenge.stale = EqualsIgnoreCase(text, "true");
    }
  }
  if (challenge.scheme == AuthChallenge::Scheme::kBasic) return challenge;
  if (challenge.nonce.empty()) return std::nullopt;
  if (!challenge.algorithm.empty() && !EqualsIgnoreCase(challenge.algorithm, "MD5") &&
      !EqualsIgnoreCase(challenge.algorithm, "MD5-sess")) {
    return std::nullopt;
  }
  if (!qopOptions.empty()) {
    if (ListContains(qopOptions, "auth")) {
      challenge.qop = "auth";
    } else if (ListContains(qopOptions, "auth-int")) {
      challenge.qop = "auth-int";
    } else {
      return std::nullopt;
    }
  }
  return challenge;
}

std::optional<AuthChallenge> ChooseAuthChallenge(const std::vector<const std::string*>& values) {
  std::optional<AuthChallenge> basic;
  for (const std::string* value : values) {
    std::optional<AuthChallenge> challenge = ParseAuthChallenge(*value);
    if (!challenge) continue;
    if (challenge->scheme == AuthChallenge::Scheme::kDigest) return challenge;
    if (!basic) basic = challenge;
  }
  return basic;
}

std::string DigestResponse(const AuthChallenge& challenge, const DigestRequest& request) {
  std::string ha1 = Md5Hex(std::string(request.user) + ":" + challenge.realm + ":" + std::string(request.password));
  if (EqualsIgnoreCase(challenge.algorithm, "MD5-sess")) {
    ha1 = Md5Hex(ha1 + ":" + challenge.nonce + ":" + std::string(request.cnonce));
  }
  std::string a2 = std::string(request.method) + ":" + std::string(request.uri);
  if (challenge.qop == "auth-int") a2 += ":" + Md5Hex("");  // our requests carry no body
  std::string ha2 = Md5Hex(a2);
  if (challenge.qop.empty()) return Md5Hex(ha1 + ":" + challenge.nonce + ":" + ha2);
  char nc[9];
  std::snprintf(nc, sizeof nc, "%08x", request.nonceCount);
  return Md5Hex(ha1 + ":" + challenge.nonce + ":" + nc + ":" + std::string(request.cnonce) + ":" + challenge.qop + ":" +
                ha2);
}

std::string AuthorizationValue(const AuthChallenge& challenge, const DigestRequest& request) {
  if (challenge.scheme == AuthChallenge::Scheme::kBasic) {
    return "Basic " + Base64Encode(std::string(request.user) + ":" + std::string(request.password));
  }
  std::string value = "Digest username=" + QuotedString(request.user) + ", realm=" + QuotedString(challenge.realm) +
                      ", nonce=" + QuotedString(challenge.nonce) + ", uri=" + QuotedString(request.uri) +
                      ", response=\"" + DigestResponse(challenge, request) + "\"";
  if (!challenge.algorithm.empty()) value += ", algorithm=" + challenge.algorithm;
  if (!challenge.opaque.empty()) value += ", opaque=" + QuotedString(challenge.opaque);
  if (!challenge.qop.empty()) {
    char nc[9];
    std::snprintf(nc, sizeof nc, "%08x", request.nonceCount);
    value += ", qop=" + challenge.qop + ", nc=" + nc + ", cnonce=" + QuotedString(request.cnonce);
  }
  return value;
}

}  // namespace mdclient

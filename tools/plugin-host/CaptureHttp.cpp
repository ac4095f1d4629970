#include "CaptureHttp.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

constexpr size_t kMaxHeadBytes = 64 * 1024;
constexpr size_t kMaxBodyBytes = 64 * 1024 * 1024;  // far above any answer the plug-in takes

bool EqualsIgnoreCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool ContainsToken(const std::string& value, const std::string& token) {
  std::string lower = value;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower.find(token) != std::string::npos;
}

}  // namespace

void HttpMessageReader::Feed(const char* data, size_t size) {
  if (m_state == State::Done || m_state == State::Failed) {
    m_raw.append(data, size);  // waits in Rest()
    return;
  }
  m_raw.append(data, size);
  Parse();
}

void HttpMessageReader::FeedEnd() {
  if (m_state == State::UntilClose) {
    m_body.append(m_raw, m_pos, std::string::npos);
    m_end = m_pos = m_raw.size();
    m_state = State::Done;
  } else if (m_state != State::Done && m_state != State::Failed) {
    Fail(m_raw.empty() ? "connection closed before any answer" : "connection closed in the middle of a message");
  }
}

void HttpMessageReader::Fail(const std::string& error) {
  m_state = State::Failed;
  m_error = error;
}

std::string HttpMessageReader::Header(const std::string& name) const {
  for (const auto& [key, value] : m_headers) {
    if (EqualsIgnoreCase(key, name)) return value;
  }
  return {};
}

int HttpMessageReader::Status() const {
  // "HTTP/1.1 200 OK"
  const size_t blank = m_startLine.find(' ');
  if (m_kind != Kind::Response || blank == std::string::npos) return 0;
  const int status = std::atoi(m_startLine.c_str() + blank + 1);
  return status >= 100 && status <= 999 ? status : 0;
}

bool HttpMessageReader::ParseHead(size_t headEnd) {
  size_t lineStart = 0;
  bool first = true;
  while (lineStart < headEnd) {
    size_t lineEnd = m_raw.find('\n', lineStart);
    if (lineEnd == std::string::npos || lineEnd > headEnd) lineEnd = headEnd;
    std::string line = m_raw.substr(lineStart, lineEnd - lineStart);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lineStart = lineEnd + 1;
    if (first) {
      m_startLine = line;
      first = false;
      continue;
    }
    if (line.empty()) continue;
    const size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0) {
      Fail("a header line without a name: " + line.substr(0, 80));
      return false;
    }
    m_headers.emplace_back(Trim(line.substr(0, colon)), Trim(line.substr(colon + 1)));
  }
  const bool requestLineOk = m_kind == Kind::Request && std::count(m_startLine.begin(), m_startLine.end(), ' ') >= 2;
  if (!requestLineOk && Status() == 0) {
    Fail("not an HTTP " + std::string(m_kind == Kind::Request ? "request" : "answer") + ": " +
         m_startLine.substr(0, 80));
    return false;
  }
  return true;
}

void HttpMessageReader::Parse() {
  while (true) {
    switch (m_state) {
      case State::Head: {
        const size_t blank = m_raw.find("\r\n\r\n");
        const size_t bareBlank = m_raw.find("\n\n");
        const size_t end = std::min(blank == std::string::npos ? std::string::npos : blank + 4,
                                    bareBlank == std::string::npos ? std::string::npos : bareBlank + 2);
        if (end == std::string::npos) {
          if (m_raw.size() > kMaxHeadBytes) Fail("a message head over 64 KiB");
          return;
        }
        if (!ParseHead(end)) return;
        m_pos = end;
        const int status = Status();
        const bool bodiless = m_noBody || (status >= 100 && status < 200) || status == 204 || status == 304;
        const std::string length = Header("Content-Length");
        if (bodiless) {
          m_state = State::Done;
        } else if (ContainsToken(Header("Transfer-Encoding"), "chunked")) {
          m_state = State::ChunkSize;
        } else if (!length.empty()) {
          char* stop = nullptr;
          const unsigned long long value = std::strtoull(length.c_str(), &stop, 10);
          if (*stop != '\0' || value > kMaxBodyBytes) return Fail("Content-Length unreadable or too large: " + length);
          m_left = static_cast<size_t>(value);
          m_state = m_left == 0 ? State::Done : State::Length;
        } else {
          // A request without a length has no body; an answer runs to the close.
          m_state = m_kind == Kind::Request ? State::Done : State::UntilClose;
        }
        break;
      }
      case State::Length: {
        const size_t take = std::min(m_left, m_raw.size() - m_pos);
        m_body.append(m_raw, m_pos, take);
        m_pos += take;
        m_left -= take;
        if (m_left != 0) return;
        m_state = State::Done;
        break;
      }
      case State::ChunkSize:
      case State::ChunkEnd:
      case State::Trailer: {
        const size_t lineEnd = m_raw.find('\n', m_pos);
        if (lineEnd == std::string::npos) {
          if (m_raw.size() - m_pos > 4096) Fail("a chunk line over 4 KiB");
          return;
        }
        const std::string line = Trim(m_raw.substr(m_pos, lineEnd - m_pos));
        m_pos = lineEnd + 1;
        if (m_state == State::ChunkEnd) {
          m_state = State::ChunkSize;
        } else if (m_state == State::Trailer) {
          if (line.empty()) m_state = State::Done;
        } else {
          char* stop = nullptr;
          const unsigned long long size = std::strtoull(line.c_str(), &stop, 16);
          if (stop == line.c_str() || m_body.size() + size > kMaxBodyBytes) return Fail("a bad chunk size: " + line);
          m_left = static_cast<size_t>(size);
          m_state = m_left == 0 ? State::Trailer : State::ChunkData;
        }
        break;
      }
      case State::ChunkData: {
        const size_t take = std::min(m_left, m_raw.size() - m_pos);
        m_body.append(m_raw, m_pos, take);
        m_pos += take;
        m_left -= take;
        if (m_left != 0) return;
        m_state = State::ChunkEnd;
        break;
      }
      case State::UntilClose:
        if (m_raw.size() - m_pos > kMaxBodyBytes) Fail("an answer over 64 MiB");
        return;
      case State::Done:
        m_end = m_pos;
        return;
      case State::Failed:
        return;
    }
  }
}

HttpHeaders KeptRequestHeaders(const HttpHeaders& headers) {
  HttpHeaders kept;
  for (const auto& header : headers) {
    for (const char* name : {"Content-Type", "SOAPAction"}) {
      if (EqualsIgnoreCase(header.first, name)) kept.push_back(header);
    }
  }
  return kept;
}

std::string ChallengeKind(const std::string& challenge) {
  // Digest realm="AXIS_..", nonce="..", algorithm=MD5, qop="auth"  ->  Digest realm="AXIS_..", algorithm=MD5,
  // qop="auth"
  const size_t blank = challenge.find(' ');
  std::string kind = challenge.substr(0, blank);
  if (blank == std::string::npos) return kind;
  std::string rest = challenge.substr(blank + 1);
  size_t at = 0;
  std::string separator = " ";
  while (at < rest.size()) {
    // One name=value, the value quoted or not.
    const size_t equals = rest.find('=', at);
    if (equals == std::string::npos) break;
    size_t end = equals + 1;
    if (end < rest.size() && rest[end] == '"') {
      end = rest.find('"', end + 1);
      end = end == std::string::npos ? rest.size() : end + 1;
    } else {
      end = std::min(rest.find(',', end), rest.size());
    }
    const std::string name = Trim(rest.substr(at, equals - at));
    if (EqualsIgnoreCase(name, "realm") || EqualsIgnoreCase(name, "qop") || EqualsIgnoreCase(name, "algorithm")) {
      kind += separator + name + "=" + rest.substr(equals + 1, end - equals - 1);
      separator = ", ";
    }
    at = rest.find_first_not_of(", ", end);
    if (at == std::string::npos) break;
  }
  return kind;
}

HttpHeaders KeptAnswerHeaders(const HttpHeaders& headers) {
  HttpHeaders kept;
  for (const auto& [name, value] : headers) {
    if (EqualsIgnoreCase(name, "WWW-Authenticate")) {
      kept.emplace_back(name, ChallengeKind(value));
      continue;
    }
    for (const char* wanted : {"Content-Type", "Location", "Retry-After", "Content-Disposition"}) {
      if (EqualsIgnoreCase(name, wanted)) kept.emplace_back(name, value);
    }
  }
  return kept;
}

bool IsAuthenticationLeg(const HttpMessageReader& request, int status) {
  return status == 401 && request.Header("Authorization").empty();
}

size_t Redact(std::string& text, const std::string& secret) {
  if (secret.empty()) return 0;
  size_t count = 0;
  for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 8)) {
    text.replace(at, secret.size(), "********");
    ++count;
  }
  return count;
}

std::string ForwardedRequest(const HttpMessageReader& request, const std::string* body) {
  const std::string& content = body != nullptr ? *body : request.Body();
  // Rebuilt from its parts: a chunked body goes on with a length, and an Expect
  // the relay answered itself is not passed on.
  std::string out = request.StartLine() + "\r\n";
  for (const auto& [name, value] : request.Headers()) {
    if (EqualsIgnoreCase(name, "Expect") || EqualsIgnoreCase(name, "Transfer-Encoding") ||
        EqualsIgnoreCase(name, "Content-Length")) {
      continue;
    }
    out += name + ": " + value + "\r\n";
  }
  if (!content.empty() || !request.Header("Content-Length").empty()) {
    out += "Content-Length: " + std::to_string(content.size()) + "\r\n";
  }
  out += "\r\n";
  out += content;
  return out;
}

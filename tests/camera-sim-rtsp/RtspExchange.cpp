#include "RtspExchange.h"

#include <arpa/inet.h>
#include <glib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstring>

namespace camsim_test {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Md5(const std::string& text) {
  gchar* hex = g_compute_checksum_for_string(G_CHECKSUM_MD5, text.c_str(), static_cast<gssize>(text.size()));
  std::string result(hex);
  g_free(hex);
  return result;
}

// The value of `name="..."` in a challenge.
std::string ChallengeParam(const std::string& challenge, const std::string& name) {
  const std::string key = name + "=\"";
  size_t start = challenge.find(key);
  if (start == std::string::npos) return {};
  start += key.size();
  size_t end = challenge.find('"', start);
  return end == std::string::npos ? std::string() : challenge.substr(start, end - start);
}

}  // namespace

std::string RtspAnswer::Header(const std::string& name) const {
  auto found = headers.find(Lower(name));
  return found == headers.end() ? std::string() : found->second;
}

std::string SessionId(const std::string& header) { return header.substr(0, header.find(';')); }

RtspExchange::RtspExchange(std::string user, std::string password)
    : m_user(std::move(user)), m_password(std::move(password)) {}

RtspExchange::~RtspExchange() {
  if (m_fd >= 0) ::close(m_fd);
}

bool RtspExchange::Connect(const std::string& address, uint16_t port) {
  m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (m_fd < 0) return false;
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &sa.sin_addr) != 1) return false;
  return ::connect(m_fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
}

bool RtspExchange::Fill(std::chrono::milliseconds timeout) {
  if (m_closed || m_fd < 0) return false;
  pollfd pfd{m_fd, POLLIN, 0};
  if (::poll(&pfd, 1, static_cast<int>(timeout.count())) <= 0) return false;
  char chunk[65536];
  ssize_t got = ::recv(m_fd, chunk, sizeof chunk, 0);
  if (got <= 0) {
    m_closed = true;
    return false;
  }
  m_buffer.append(chunk, static_cast<size_t>(got));
  return true;
}

bool RtspExchange::TakePacket(InterleavedPacket* packet) {
  if (m_buffer.size() < 4 || m_buffer[0] != '$') return false;
  const size_t length = (static_cast<uint8_t>(m_buffer[2]) << 8) | static_cast<uint8_t>(m_buffer[3]);
  if (m_buffer.size() < 4 + length) return false;
  packet->channel = static_cast<uint8_t>(m_buffer[1]);
  packet->data.assign(m_buffer.begin() + 4, m_buffer.begin() + 4 + static_cast<std::ptrdiff_t>(length));
  m_buffer.erase(0, 4 + length);
  return true;
}

bool RtspExchange::TakeAnswer(RtspAnswer* answer) {
  for (;;) {
    InterleavedPacket packet;
    if (!TakePacket(&packet)) break;
    m_pending.push_back(std::move(packet));
  }
  if (m_buffer.empty() || m_buffer[0] == '$') return false;
  const size_t headerEnd = m_buffer.find("\r\n\r\n");
  if (headerEnd == std::string::npos) return false;
  RtspAnswer parsed;
  size_t lineStart = 0;
  bool first = true;
  while (lineStart < headerEnd) {
    size_t lineEnd = m_buffer.find("\r\n", lineStart);
    std::string line = m_buffer.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 2;
    if (first) {
      first = false;
      if (line.compare(0, 9, "RTSP/1.0 ") != 0) return false;
      parsed.status = std::atoi(line.c_str() + 9);
      continue;
    }
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string value = line.substr(colon + 1);
    value.erase(0, value.find_first_not_of(' '));
    parsed.headers[Lower(line.substr(0, colon))] = value;
  }
  const size_t length = static_cast<size_t>(std::atoi(parsed.Header("content-length").c_str()));
  if (m_buffer.size() < headerEnd + 4 + length) return false;
  parsed.body = m_buffer.substr(headerEnd + 4, length);
  m_buffer.erase(0, headerEnd + 4 + length);
  *answer = std::move(parsed);
  return true;
}

std::string RtspExchange::DigestHeader(const std::string& method, const std::string& url) const {
  const std::string ha1 = Md5(m_user + ":" + m_realm + ":" + m_password);
  const std::string ha2 = Md5(method + ":" + url);
  const std::string response = Md5(ha1 + ":" + m_nonce + ":" + ha2);
  return "Authorization: Digest username=\"" + m_user + "\", realm=\"" + m_realm + "\", nonce=\"" + m_nonce +
         "\", uri=\"" + url + "\", response=\"" + response + "\"\r\n";
}

RtspAnswer RtspExchange::Request(const std::string& method, const std::string& url, const std::string& extraHeaders) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::string request = method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(++m_cseq) + "\r\n";
    if (!m_nonce.empty()) request += DigestHeader(method, url);
    if (!m_session.empty()) request += "Session: " + m_session + "\r\n";
    request += extraHeaders + "\r\n";
    if (::send(m_fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
      return {};
    }
    RtspAnswer answer;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!TakeAnswer(&answer)) {
      if (std::chrono::steady_clock::now() > deadline || !Fill(std::chrono::milliseconds(1000))) {
        if (m_closed || std::chrono::steady_clock::now() > deadline) return {};
      }
    }
    if (answer.status == 401 && attempt == 0) {
      const std::string challenge = answer.Header("www-authenticate");
      m_realm = ChallengeParam(challenge, "realm");
      m_nonce = ChallengeParam(challenge, "nonce");
      if (m_nonce.empty()) return answer;
      continue;
    }
    if (!answer.Header("session").empty()) m_session = SessionId(answer.Header("session"));
    return answer;
  }
  return {};
}

InterleavedPacket RtspExchange::Receive(std::chrono::milliseconds timeout) {
  if (!m_pending.empty()) {
    InterleavedPacket packet = std::move(m_pending.front());
    m_pending.erase(m_pending.begin());
    return packet;
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    InterleavedPacket packet;
    if (TakePacket(&packet)) return packet;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !Fill(left)) return {};
  }
}

}  // namespace camsim_test

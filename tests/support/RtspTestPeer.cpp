#include "RtspTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <stdexcept>
#include <utility>

#include "LoopbackAddress.h"

namespace netcam_test {
namespace {

using std::chrono::milliseconds;

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Md5(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr);
  std::string hex;
  for (unsigned int i = 0; i < length; ++i)
    hex += {"0123456789abcdef"[digest[i] >> 4], "0123456789abcdef"[digest[i] & 15]};
  return hex;
}

// The value of `name="..."` in a header.
std::string Quoted(const std::string& header, const std::string& name) {
  const size_t start = header.find(name + "=\"");
  return start == std::string::npos ? ""
                                    : header.substr(start + name.size() + 2, header.find('"', start + name.size() + 2) -
                                                                                 start - name.size() - 2);
}

std::string DigestAnswer(const std::string& user, const std::string& realm, const std::string& password,
                         const std::string& method, const std::string& uri, const std::string& nonce) {
  return Md5(Md5(user + ":" + realm + ":" + password) + ":" + nonce + ":" + Md5(method + ":" + uri));
}

}  // namespace

std::string RtspText::Header(const std::string& name) const {
  const size_t at = Lower(head).find("\r\n" + Lower(name) + ":");
  if (at == std::string::npos) return "";
  const size_t start = head.find_first_not_of(' ', at + name.size() + 3);
  return head.substr(start, head.find("\r\n", start) - start);
}

PeerConnection::~PeerConnection() {
  if (m_fd >= 0) ::close(m_fd);
}

bool PeerConnection::Send(const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool PeerConnection::SendInterleaved(uint8_t channel, const std::vector<uint8_t>& payload) {
  return Send(InterleavedFrame(channel, payload));
}

std::string InterleavedFrame(uint8_t channel, const std::vector<uint8_t>& payload) {
  std::string frame = {'$', static_cast<char>(channel), static_cast<char>(payload.size() >> 8),
                       static_cast<char>(payload.size() & 0xff)};
  return frame.append(payload.begin(), payload.end());
}

// Reads until one whole request is buffered, dropping '$'-framed packets on the way.
bool PeerConnection::NextMessage(RtspText* message, milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const size_t end = m_buffer.find("\r\n\r\n");
    if (m_buffer.size() >= 4 && m_buffer[0] == '$') {
      const size_t length = 4 + ((static_cast<uint8_t>(m_buffer[2]) << 8) | static_cast<uint8_t>(m_buffer[3]));
      if (m_buffer.size() >= length) {
        m_buffer.erase(0, length);
        continue;
      }
    } else if (!m_buffer.empty() && m_buffer[0] != '$' && end != std::string::npos) {
      message->head = m_buffer.substr(0, end + 2);
      const size_t length = static_cast<size_t>(std::atoi(message->Header("Content-Length").c_str()));
      if (m_buffer.size() >= end + 4 + length) {
        message->body = m_buffer.substr(end + 4, length);
        m_buffer.erase(0, end + 4 + length);
        const size_t space = message->head.find(' ');
        message->method = message->head.substr(0, space);
        message->uri = message->head.substr(space + 1, message->head.find(' ', space + 1) - space - 1);
        return true;
      }
    }
    const int left =
        static_cast<int>(std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now()).count());
    pollfd readable{m_fd, POLLIN, 0};
    char chunk[65536];
    if (m_closed || left <= 0 || ::poll(&readable, 1, left) <= 0) return false;
    const ssize_t got = ::recv(m_fd, chunk, sizeof chunk, 0);
    if (got <= 0) return !(m_closed = true);
    m_buffer.append(chunk, static_cast<size_t>(got));
  }
}

void PeerConnection::Reply(const RtspText& request, int status, const std::string& extraHeaders,
                           const std::string& body) {
  std::string text = "RTSP/1.0 " + std::to_string(status) + (status == 200 ? " OK" : " Error") +
                     "\r\nCSeq: " + request.Header("CSeq") + "\r\n" + extraHeaders;
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  Send(text + "\r\n" + body);
}

void PeerConnection::Close() {
  streaming = false;
  m_closed = true;
  ::shutdown(m_fd, SHUT_RDWR);
}

void PeerConnection::Reset() {
  streaming = false;
  m_closed = true;
  const linger abort{1, 0};
  ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  ::close(std::exchange(m_fd, -1));
}

ScriptedRtspPeer::ScriptedRtspPeer(Script script)
    : m_script(std::move(script)), m_address(UniqueLoopbackAddress(0)), m_listenFd(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ::inet_pton(AF_INET, m_address.c_str(), &address.sin_addr);
  socklen_t length = sizeof address;
  if (::bind(m_listenFd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(m_listenFd, 64) != 0 ||
      ::getsockname(m_listenFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(m_listenFd);
    throw std::runtime_error("scripted peer cannot listen");
  }
  m_port = ntohs(address.sin_port);
  m_acceptThread = std::thread([this] {
    while (!m_stop) {
      pollfd listening{m_listenFd, POLLIN, 0};
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const int fd =
          ::poll(&listening, 1, 20) > 0 ? ::accept(m_listenFd, reinterpret_cast<sockaddr*>(&from), &size) : -1;
      int one = 1;  // answers and packets go out at once, as from a camera
      if (fd < 0 || ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) != 0) continue;
      std::lock_guard<std::mutex> lock(m_mutex);
      m_connectionThreads.emplace_back([this, fd, peer = std::string(::inet_ntoa(from.sin_addr))] {
        PeerConnection connection(fd);
        for (uint16_t sequence = 0; !m_stop && !connection.Closed();) {
          RtspText request;
          if (connection.NextMessage(&request, milliseconds(connection.streaming ? 2 : 20))) {
            request.from = peer;
            std::unique_lock<std::mutex> record(m_mutex);
            m_requests.push_back(request);
            record.unlock();
            if (!connection.frozen) m_script(connection, request);
          }
          if (connection.streaming && !connection.frozen && !connection.SendInterleaved(0, RtpPacket(sequence++)))
            break;
        }
      });
    }
  });
}

ScriptedRtspPeer::~ScriptedRtspPeer() {
  m_stop = true;
  m_acceptThread.join();
  for (std::thread& thread : m_connectionThreads) thread.join();
  ::close(m_listenFd);
}

std::string ScriptedRtspPeer::Url(const std::string& userInfo) const {
  return "rtsp://" + (userInfo.empty() ? "" : userInfo + "@") + m_address + ":" + std::to_string(m_port) +
         "/axis-media/media.amp";
}

std::vector<RtspText> ScriptedRtspPeer::RequestsOf(const std::string& method) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<RtspText> found;
  for (const RtspText& request : m_requests) {
    if (method.empty() || request.method == method) found.push_back(request);
  }
  return found;
}

std::vector<uint8_t> RtpPacket(uint16_t sequence) {
  std::vector<uint8_t> packet(172, 0xAB);
  const uint32_t timestamp = sequence * 3600u;
  packet[0] = 0x80;
  packet[1] = 0x80 | 96;
  packet[2] = static_cast<uint8_t>(sequence >> 8);
  packet[3] = static_cast<uint8_t>(sequence);
  for (int i = 0; i < 4; ++i) packet[4 + i] = static_cast<uint8_t>(timestamp >> (24 - 8 * i));
  packet[12] = sequence % kKeyFrameInterval == 0 ? 0x65 : 0x41;  // NAL type 5 (IDR) or 1
  return packet;
}

ScriptedRtspPeer::Script CameraScript(CameraBehaviour behaviour) {
  static const std::string kRealm = "AXIS_TEST", kNonce = "0000a1b2c3d4e5f6";
  return [behaviour](PeerConnection& connection, const RtspText& request) {
    const std::string session = "Session: 8E2F1A;timeout=" + std::to_string(behaviour.sessionTimeout) + "\r\n";
    if (!behaviour.user.empty() && request.method != "OPTIONS" &&
        Quoted(request.Header("Authorization"), "response") !=
            DigestAnswer(behaviour.user, kRealm, behaviour.password, request.method, request.uri, kNonce)) {
      connection.Reply(request, 401, "WWW-Authenticate: Digest realm=\"" + kRealm + "\", nonce=\"" + kNonce + "\"\r\n");
    } else if (request.method == "OPTIONS") {
      connection.Reply(request, 200,
                       std::string("Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, ") +
                           (behaviour.offerGetParameter ? "GET_PARAMETER, " : "") + "TEARDOWN\r\n");
    } else if (request.method == "DESCRIBE") {
      connection.Reply(
          request, 200, "Content-Base: " + request.uri + "/\r\nContent-Type: application/sdp\r\n",
          "v=0\r\na=control:*\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:trackID=1\r\n" +
              std::string(behaviour.withAudio ? "m=audio 0 RTP/AVP 0\r\na=control:trackID=2\r\n" : ""));
    } else if (request.method == "SETUP") {
      connection.Reply(request, 200, "Transport: " + request.Header("Transport") + ";ssrc=1234\r\n" + session);
    } else if (request.method == "PLAY") {
      connection.Reply(request, 200, session + "Range: npt=0.000-\r\n");
      behaviour.afterPlay ? behaviour.afterPlay(connection) : void(connection.streaming = true);
    } else if (request.method == "PAUSE" || request.method == "GET_PARAMETER" || request.method == "TEARDOWN") {
      connection.streaming = connection.streaming && request.method == "GET_PARAMETER";
      connection.Reply(request, 200, session);
      if (request.method == "TEARDOWN") connection.Close();
    } else {
      connection.Reply(request, 501);
    }
  };
}

}  // namespace netcam_test

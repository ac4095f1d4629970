#include "ScriptedRtspPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "LoopbackAddress.h"
#include "protocol/RtspAuth.h"

namespace mdclient_test {

std::string PeerRequest::Header(const std::string& name) const {
  std::string needle = "\r\n" + name + ":";
  size_t at = text.find(needle);
  if (at == std::string::npos) return "";
  size_t start = at + needle.size();
  while (start < text.size() && text[start] == ' ') ++start;
  return text.substr(start, text.find("\r\n", start) - start);
}

bool PeerConnection::Send(const std::string& bytes) {
  std::lock_guard<std::mutex> lock(m_sendMutex);
  size_t sent = 0;
  while (sent < bytes.size()) {
    ssize_t n = ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

void PeerConnection::Reply(const PeerRequest& request, int status, const std::string& extraHeaders,
                           const std::string& body) {
  std::string reason = status == 200 ? "OK" : status == 401 ? "Unauthorized" : "Error";
  std::string text = "RTSP/1.0 " + std::to_string(status) + " " + reason + "\r\nCSeq: " + std::to_string(request.cseq) +
                     "\r\n" + extraHeaders;
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  text += "\r\n" + body;
  Send(text);
}

void PeerConnection::SendInterleaved(uint8_t channel, const std::vector<uint8_t>& payload) {
  std::string frame = {'$', static_cast<char>(channel), static_cast<char>(payload.size() >> 8),
                       static_cast<char>(payload.size() & 0xff)};
  frame.append(payload.begin(), payload.end());
  Send(frame);
}

void PeerConnection::Close() {
  std::lock_guard<std::mutex> lock(m_sendMutex);
  streaming = false;
  closed = true;
  ::shutdown(m_fd, SHUT_RDWR);
}

ScriptedRtspPeer::ScriptedRtspPeer(Script script) : m_script(std::move(script)) {
  m_address = netcam_test::UniqueLoopbackAddress(0);
  m_listenFd = ::socket(AF_INET, SOCK_STREAM, 0);
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
  m_acceptThread = std::thread([this] { AcceptLoop(); });
}

ScriptedRtspPeer::~ScriptedRtspPeer() {
  m_stop = true;
  m_acceptThread.join();
  std::vector<std::thread> threads;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    threads.swap(m_connectionThreads);
  }
  for (std::thread& thread : threads) thread.join();
  ::close(m_listenFd);
}

std::string ScriptedRtspPeer::Url(const std::string& userInfo, const std::string& path) const {
  return "rtsp://" + (userInfo.empty() ? "" : userInfo + "@") + m_address + ":" + std::to_string(m_port) + path;
}

std::vector<PeerRequest> ScriptedRtspPeer::Requests() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_requests;
}

std::vector<PeerRequest> ScriptedRtspPeer::RequestsOf(const std::string& method) const {
  std::vector<PeerRequest> found;
  for (const PeerRequest& request : Requests()) {
    if (request.method == method) found.push_back(request);
  }
  return found;
}

void ScriptedRtspPeer::AcceptLoop() {
  while (!m_stop) {
    pollfd listening{m_listenFd, POLLIN, 0};
    if (::poll(&listening, 1, 20) <= 0) continue;
    int fd = ::accept(m_listenFd, nullptr, nullptr);
    if (fd < 0) continue;
    int one = 1;  // answers and packets go out at once, as from a camera
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_connectionThreads.emplace_back([this, fd] { Serve(fd); });
  }
}

void ScriptedRtspPeer::Serve(int fd) {
  PeerConnection connection(fd);
  std::string received;
  uint16_t sequence = 0;
  char buffer[4096];
  while (!m_stop && !connection.closed) {
    pollfd readable{fd, POLLIN, 0};
    int ready = ::poll(&readable, 1, connection.streaming ? 2 : 20);
    if (ready > 0) {
      ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      received.append(buffer, static_cast<size_t>(n));
      for (size_t end; (end = received.find("\r\n\r\n")) != std::string::npos;) {
        PeerRequest request;
        request.text = received.substr(0, end + 4);
        received.erase(0, end + 4);
        size_t space = request.text.find(' ');
        request.method = request.text.substr(0, space);
        request.uri = request.text.substr(space + 1, request.text.find(' ', space + 1) - space - 1);
        std::string cseq = request.Header("CSeq");
        request.cseq = cseq.empty() ? -1 : std::stoi(cseq);
        {
          std::lock_guard<std::mutex> lock(m_mutex);
          m_requests.push_back(request);
        }
        m_script(connection, request);
      }
    }
    if (connection.streaming && !connection.Send([&] {
          std::vector<uint8_t> rtp = RtpPacket(sequence++);
          std::string frame = {'$', 0, static_cast<char>(rtp.size() >> 8), static_cast<char>(rtp.size() & 0xff)};
          return frame.append(rtp.begin(), rtp.end());
        }())) {
      break;
    }
  }
  ::close(fd);
}

std::vector<uint8_t> RtpPacket(uint16_t sequence, size_t payloadBytes) {
  std::vector<uint8_t> packet(12 + payloadBytes, 0xAB);
  packet[0] = 0x80;
  packet[1] = 96;
  packet[2] = static_cast<uint8_t>(sequence >> 8);
  packet[3] = static_cast<uint8_t>(sequence);
  return packet;
}

std::vector<uint8_t> RtcpBye() {
  std::vector<uint8_t> packet = {0x80, 200, 0, 6};  // SR, 28 bytes
  packet.resize(28, 0);
  const uint8_t bye[] = {0x81, 203, 0, 1, 0x12, 0x34, 0x56, 0x78};
  packet.insert(packet.end(), bye, bye + sizeof bye);
  return packet;
}

ScriptedRtspPeer::Script CameraScript(CameraBehaviour behaviour) {
  static const char kRealm[] = "AXIS_TEST";
  static const char kNonce[] = "0000a1b2c3d4e5f6";
  return [behaviour](PeerConnection& connection, const PeerRequest& request) {
    const std::string session = "Session: 8E2F1A;timeout=" + std::to_string(behaviour.sessionTimeout) + "\r\n";
    if (request.method == "OPTIONS") {
      connection.Reply(request, 200,
                       behaviour.offerGetParameter
                           ? "Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, GET_PARAMETER, TEARDOWN\r\n"
                           : "Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN\r\n");
      return;
    }
    if (!behaviour.user.empty()) {
      std::string authorization = request.Header("Authorization");
      bool valid;
      if (behaviour.digest) {
        mdclient::AuthChallenge challenge;
        challenge.realm = kRealm;
        challenge.nonce = kNonce;
        std::string expected = mdclient::DigestResponse(
            challenge, {behaviour.user, behaviour.password, request.method, request.uri, 1, ""});
        valid = authorization.find("response=\"" + expected + "\"") != std::string::npos;
      } else {
        valid = authorization == "Basic " + mdclient::Base64Encode(behaviour.user + ":" + behaviour.password);
      }
      if (!valid) {
        connection.Reply(request, 401,
                         behaviour.digest ? std::string("WWW-Authenticate: Digest realm=\"") + kRealm + "\", nonce=\"" +
                                                kNonce + "\"\r\n"
                                          : std::string("WWW-Authenticate: Basic realm=\"") + kRealm + "\"\r\n");
        return;
      }
    }
    if (request.method == "DESCRIBE") {
      std::string sdp =
          "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=Session\r\nt=0 0\r\na=control:*\r\n"
          "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:trackID=1\r\n";
      if (behaviour.withAudio) sdp += "m=audio 0 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=control:trackID=2\r\n";
      connection.Reply(request, 200, "Content-Base: " + request.uri + "/\r\nContent-Type: application/sdp\r\n", sdp);
    } else if (request.method == "SETUP") {
      connection.Reply(request, 200, "Transport: " + request.Header("Transport") + ";ssrc=1234\r\n" + session);
    } else if (request.method == "PLAY") {
      connection.Reply(request, 200, session + "Range: npt=0.000-\r\n");
      if (behaviour.afterPlay) {
        behaviour.afterPlay(connection);
      } else {
        connection.streaming = true;
      }
    } else if (request.method == "PAUSE") {
      connection.streaming = false;
      connection.Reply(request, 200, session);
    } else if (request.method == "GET_PARAMETER") {
      connection.Reply(request, 200, session);
    } else if (request.method == "TEARDOWN") {
      connection.Reply(request, 200, session);
      connection.Close();
    } else {
      connection.Reply(request, 501);
    }
  };
}

}  // namespace mdclient_test

// ScriptedRtspPeer.h - an RTSP server for tests whose every answer is
// scripted, to drive the client through faults a real server rarely shows.
// Listens on its own loopback address and an ephemeral port.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace mdclient_test {

struct PeerRequest {
  std::string method;
  std::string uri;
  std::string text;  // the whole request
  int cseq = -1;
  std::string Header(const std::string& name) const;  // "" when absent
};

class PeerConnection {
 public:
  explicit PeerConnection(int fd) : m_fd(fd) {}
  bool Send(const std::string& bytes);
  // "RTSP/1.0 <status>" with CSeq, the extra header lines and a body.
  void Reply(const PeerRequest& request, int status, const std::string& extraHeaders = "",
             const std::string& body = "");
  void SendInterleaved(uint8_t channel, const std::vector<uint8_t>& payload);
  void Close();
  // While set, the connection's loop sends an RTP packet on channel 0 every
  // few milliseconds.
  std::atomic<bool> streaming{false};
  bool closed = false;

 private:
  int m_fd;
  std::mutex m_sendMutex;
};

class ScriptedRtspPeer {
 public:
  using Script = std::function<void(PeerConnection&, const PeerRequest&)>;
  explicit ScriptedRtspPeer(Script script);
  ~ScriptedRtspPeer();
  ScriptedRtspPeer(const ScriptedRtspPeer&) = delete;
  ScriptedRtspPeer& operator=(const ScriptedRtspPeer&) = delete;

  // rtsp://[userInfo@]address:port/path
  std::string Url(const std::string& userInfo = "", const std::string& path = "/axis-media/media.amp") const;
  std::vector<PeerRequest> Requests() const;
  std::vector<PeerRequest> RequestsOf(const std::string& method) const;

 private:
  void AcceptLoop();
  void Serve(int fd);

  Script m_script;
  std::string m_address;
  uint16_t m_port = 0;
  int m_listenFd = -1;
  std::atomic<bool> m_stop{false};
  std::thread m_acceptThread;
  mutable std::mutex m_mutex;
  std::vector<std::thread> m_connectionThreads;
  std::vector<PeerRequest> m_requests;
};

// A camera-like script: OPTIONS, DESCRIBE, SETUP, PLAY (starts streaming),
// PAUSE, GET_PARAMETER, TEARDOWN, with optional authentication.
struct CameraBehaviour {
  std::string user;  // empty: no authentication
  std::string password;
  bool digest = true;  // else Basic
  bool withAudio = false;
  bool offerGetParameter = true;
  int sessionTimeout = 60;
  // Runs after PLAY was answered (fault injection); may block briefly.
  std::function<void(PeerConnection&)> afterPlay;
};
ScriptedRtspPeer::Script CameraScript(CameraBehaviour behaviour);

// A minimal RTP packet (version 2, payload type 96) with the given sequence.
std::vector<uint8_t> RtpPacket(uint16_t sequence, size_t payloadBytes = 160);
// An RTCP sender report followed by a BYE.
std::vector<uint8_t> RtcpBye();

}  // namespace mdclient_test

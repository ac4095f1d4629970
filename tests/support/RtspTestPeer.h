// RtspTestPeer.h - a scripted RTSP/1.0 server over TCP, for tests: it drives
// the media client through faults a real server rarely shows. Digest is
// computed here, independently of the code under test.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace netcam_test {

// One request as it came over the wire.
struct RtspText {
  std::string method, uri;
  std::string head, body;                             // head: start line and header lines
  std::string from;                                   // the sender's address, as the scripted peer saw it
  std::string Header(const std::string& name) const;  // any case; "" when absent
};

// The server end of one connection, handed to the script; the client's own
// '$'-framed packets are read and dropped.
class PeerConnection {
 public:
  explicit PeerConnection(int fd) : m_fd(fd) {}
  ~PeerConnection();
  PeerConnection(const PeerConnection&) = delete;
  PeerConnection& operator=(const PeerConnection&) = delete;
  bool Send(const std::string& bytes);
  bool SendInterleaved(uint8_t channel, const std::vector<uint8_t>& payload);
  // "RTSP/1.0 <status>" with the request's CSeq, extra header lines and a body.
  void Reply(const RtspText& request, int status, const std::string& extraHeaders = "", const std::string& body = "");
  void Close();
  void Reset();  // closes at once with a TCP reset, as a camera that reboots
  bool NextMessage(RtspText* message, std::chrono::milliseconds timeout);
  bool Closed() const { return m_closed; }
  std::atomic<bool> streaming{false};  // while set, an RTP packet goes out on channel 0 every few ms
  std::atomic<bool> frozen{false};     // a camera that hangs: requests are read, nothing is answered or sent

 private:
  int m_fd;
  bool m_closed = false;
  std::string m_buffer;
};

// Listens on a loopback address of its own and an ephemeral port; each
// connection runs the script on its own thread. It reads HTTP requests too.
class ScriptedRtspPeer {
 public:
  using Script = std::function<void(PeerConnection&, const RtspText&)>;
  explicit ScriptedRtspPeer(Script script);
  ~ScriptedRtspPeer();
  std::string Url(const std::string& userInfo = "") const;  // rtsp://[userInfo@]address:port/axis-media/media.amp
  std::vector<RtspText> RequestsOf(const std::string& method) const;  // "": all

 private:
  Script m_script;
  std::string m_address;
  uint16_t m_port = 0;
  int m_listenFd;
  std::atomic<bool> m_stop{false};
  mutable std::mutex m_mutex;
  std::vector<RtspText> m_requests;
  std::thread m_acceptThread;
  std::vector<std::thread> m_connectionThreads;
};

// A camera-like script: OPTIONS, DESCRIBE, SETUP, PLAY (starts streaming),
// PAUSE, GET_PARAMETER, TEARDOWN, with Digest authentication when a user is
// set.
struct CameraBehaviour {
  std::string user, password;
  bool withAudio = false;
  bool offerGetParameter = true;
  int sessionTimeout = 60;
  std::function<void(PeerConnection&)> afterPlay;  // fault injection after PLAY, instead of streaming
};
ScriptedRtspPeer::Script CameraScript(CameraBehaviour behaviour);

// A minimal RTP packet (payload type 96) with the given sequence: one H.264 picture, timestamp sequence * 3600,
// marker set, an IDR picture at every multiple of kKeyFrameInterval and a P picture otherwise.
constexpr uint16_t kKeyFrameInterval = 25;
std::vector<uint8_t> RtpPacket(uint16_t sequence);
// '$', channel, 16-bit length, payload: one packet as it travels in the RTSP connection.
std::string InterleavedFrame(uint8_t channel, const std::vector<uint8_t>& payload);

}  // namespace netcam_test

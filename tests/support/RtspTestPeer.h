// RtspTestPeer.h - both ends of an RTSP/1.0 conversation over TCP, for tests:
// a scripted server that drives the client through faults a real server
// rarely shows, and a hand-made client exchange for the simulator (ffmpeg
// cannot send a clock range). Digest is computed here, independently of the
// code under test.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace netcam_test {

// One request or answer as it came over the wire.
struct RtspText {
  std::string method, uri;                            // requests
  int status = 0;                                     // answers; 0: none came (closed or timed out)
  std::string head, body;                             // head: start line and header lines
  std::string from;                                   // the sender's address, as the scripted peer saw it
  std::string Header(const std::string& name) const;  // any case; "" when absent
};

struct InterleavedPacket {
  int channel = -1;  // -1: the connection closed or nothing came in time
  std::vector<uint8_t> data;
};

// A TCP connection carrying RTSP text and '$'-framed packets.
class RtspLink {
 public:
  explicit RtspLink(int fd = -1) : m_fd(fd) {}
  ~RtspLink();
  RtspLink(const RtspLink&) = delete;
  RtspLink& operator=(const RtspLink&) = delete;
  bool Send(const std::string& bytes);
  bool SendInterleaved(uint8_t channel, const std::vector<uint8_t>& payload);
  // The next message; packets that arrive meanwhile wait for Receive().
  bool NextMessage(RtspText* message, std::chrono::milliseconds timeout);
  InterleavedPacket Receive(std::chrono::milliseconds timeout);
  bool Closed() const { return m_closed; }

 protected:
  bool WaitFor(const std::function<bool()>& ready, std::chrono::milliseconds timeout);
  int m_fd;
  bool m_closed = false;
  std::string m_buffer;
  std::deque<RtspText> m_messages;
  std::deque<InterleavedPacket> m_packets;
};

// MD5 Digest without qop, as the cameras' RTSP servers ask for it.
std::string DigestAnswer(const std::string& user, const std::string& realm, const std::string& password,
                         const std::string& method, const std::string& uri, const std::string& nonce);

// The client end: adds CSeq, the Session once known, and Digest after a 401
// (retrying once).
class RtspExchange : public RtspLink {
 public:
  RtspExchange(std::string user, std::string password) : m_user(std::move(user)), m_password(std::move(password)) {}
  bool Connect(const std::string& address, uint16_t port);
  RtspText Request(const std::string& method, const std::string& url, const std::string& extraHeaders = "");

 private:
  std::string m_user, m_password, m_session, m_realm, m_nonce;
  int m_cseq = 0;
};

// The server end of one connection, handed to the script.
class PeerConnection : public RtspLink {
 public:
  using RtspLink::RtspLink;
  // "RTSP/1.0 <status>" with the request's CSeq, extra header lines and a body.
  void Reply(const RtspText& request, int status, const std::string& extraHeaders = "", const std::string& body = "");
  void Close();
  std::atomic<bool> streaming{false};  // while set, an RTP packet goes out on channel 0 every few ms
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

// A minimal RTP packet (version 2, payload type 96) with the given sequence.
std::vector<uint8_t> RtpPacket(uint16_t sequence);

}  // namespace netcam_test

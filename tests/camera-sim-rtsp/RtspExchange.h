// RtspExchange.h - the few RTSP requests the simulator's tests send by hand
// over a plain socket (ffmpeg cannot send a clock range): Digest answers,
// interleaved TCP data and nothing else.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace camsim_test {

struct RtspAnswer {
  int status = 0;                              // 0: no answer (closed or timed out)
  std::map<std::string, std::string> headers;  // names lower-cased
  std::string body;
  std::string Header(const std::string& name) const;
};

struct InterleavedPacket {
  int channel = -1;  // -1: the connection closed or nothing came in time
  std::vector<uint8_t> data;
};

class RtspExchange {
 public:
  RtspExchange(std::string user, std::string password);
  ~RtspExchange();
  RtspExchange(const RtspExchange&) = delete;
  RtspExchange& operator=(const RtspExchange&) = delete;

  bool Connect(const std::string& address, uint16_t port);
  // Sends one request (adding CSeq, Session once known, and Digest after a
  // 401 challenge, retrying once) and returns its answer. Interleaved packets
  // that arrive meanwhile are kept for Receive().
  RtspAnswer Request(const std::string& method, const std::string& url, const std::string& extraHeaders = "");
  // The next interleaved packet; channel -1 when the server closed the
  // connection or nothing came within `timeout`.
  InterleavedPacket Receive(std::chrono::milliseconds timeout);
  bool Closed() const { return m_closed; }

 private:
  bool Fill(std::chrono::milliseconds timeout);
  bool TakeAnswer(RtspAnswer* answer);
  bool TakePacket(InterleavedPacket* packet);
  std::string DigestHeader(const std::string& method, const std::string& url) const;

  std::string m_user, m_password;
  int m_fd = -1;
  bool m_closed = false;
  int m_cseq = 0;
  std::string m_session, m_realm, m_nonce;
  std::string m_buffer;
  std::vector<InterleavedPacket> m_pending;
};

// Session id without its ";timeout=" parameter.
std::string SessionId(const std::string& header);

}  // namespace camsim_test

// ReplayRtsp.h - the RTSP side of a replayed camera: each session answers
// with the captured handshake of the same URL (its SDP, its transport) and
// then sends the captured media, looped with continuous sequence numbers and
// timestamps for live video, once for a recording played back.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CaptureFolder.h"

namespace camsim {

class ReplayRtspServer {
 public:
  // `user`/`password` empty: any (see DigestAuthenticator::VerifyKnown).
  ReplayRtspServer(const std::vector<ReplaySession>& sessions, std::string realm, std::string user,
                   std::string password);
  ~ReplayRtspServer();  // stops
  ReplayRtspServer(const ReplayRtspServer&) = delete;
  ReplayRtspServer& operator=(const ReplayRtspServer&) = delete;

  bool Start(const std::string& address, uint16_t port, std::string* error);
  void Stop();
  uint16_t Port() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// The captured session that serves `url` (path and query): the same URL, or
// else the same path with the same query names; nullptr when none.
const ReplaySession* FindReplaySession(const std::vector<ReplaySession>& sessions, const std::string& url);

}  // namespace camsim

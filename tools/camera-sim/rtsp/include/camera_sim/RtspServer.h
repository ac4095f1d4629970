// RtspServer.h - the simulated camera's RTSP side on the GStreamer RTSP server.
//
//   /axis-media/media.amp?videocodec=h264|h265&camera=N   live video (shared per query)
//   /axis-media/media.amp?recordingid=ID                  one recording, Range: clock= honoured
//
// Digest authentication as the cameras do it. Media comes from clips encoded
// once (see MediaLibrary) and is shared between clients. Clients connect to a
// relay on the camera's port that applies the RTSP faults; the GStreamer
// server itself listens on an ephemeral port of the same address.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera_sim/FaultSet.h"

namespace camsim {

// A recording the camera holds, as the recording list announces it.
struct RecordingClip {
  std::string id;        // e.g. "20240621_151725_95E7_B8A44F9D7D55"
  int64_t startUtc = 0;  // seconds since 1970
  int64_t stopUtc = 0;   // seconds since 1970; the clip plays this span
  std::string codec = "h264";
};

struct RtspConfig {
  std::string address = "127.0.0.1";
  uint16_t port = 554;  // 0: an ephemeral port, see RtspServer::Port()
  std::string user = "root";
  std::string password = "pass";
  std::string serial = "B8A44F9D7D55";  // realm "AXIS_" + serial
  std::string mediaDir;                 // where the encoded clips are; "" = the built-in default
  // Looks a recording up by id; empty when the camera has no such recording.
  // Called on the server's own thread while a request waits: keep it quick and
  // never wait there for a lock held while calling into RtspServer.
  std::function<std::optional<RecordingClip>(const std::string& id)> findRecording;
  // The faults the RTSP side applies (those for FaultSide::Rtsp); null: the
  // server's own set, see RtspServer::Faults().
  std::shared_ptr<FaultSet> faults;
};

class RtspServer {
 public:
  explicit RtspServer(RtspConfig config);
  ~RtspServer();  // stops
  RtspServer(const RtspServer&) = delete;
  RtspServer& operator=(const RtspServer&) = delete;

  bool Start(std::string* error = nullptr);
  void Stop();
  uint16_t Port() const;
  // Clients connected right now (for tests and the 64-client measurement).
  int ClientCount() const;
  // Ends every live session as a camera that reboots would (tests of remote close).
  void DisconnectAll();
  // Path and query of every DESCRIBE received, in order ("/axis-media/media.amp?videocodec=h264&camera=1").
  std::vector<std::string> DescribedUrls() const;
  // Every PLAY and PAUSE received, in order: "PLAY clock=...-...", "PLAY" without a range, "PAUSE".
  std::vector<std::string> ControlRequests() const;
  // Switch RTSP faults on and off here; they act on the bytes between the
  // clients and the server (see FaultRelay).
  FaultSet& Faults();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace camsim

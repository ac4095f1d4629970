// FaultRelay.h - the camera's RTSP port: a TCP relay in front of the GStreamer
// RTSP server that applies the camera's RTSP faults to the bytes, at frame and
// message boundaries. Frozen, it passes nothing either way and keeps the
// connections open; it resets or cuts connections, answers requests itself
// (Status), holds them (Delay), slips garbage between frames and paces the
// media (Slow). With no fault switched on it passes the bytes through.
//
// It never holds the server back: what a client does not take in time waits
// here up to a bound, beyond which whole frames are dropped, as a camera's own
// send buffer would.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "camera_sim/FaultSet.h"

namespace camsim {

class FaultRelay {
 public:
  explicit FaultRelay(std::shared_ptr<FaultSet> faults);
  ~FaultRelay();  // stops
  FaultRelay(const FaultRelay&) = delete;
  FaultRelay& operator=(const FaultRelay&) = delete;

  // Listens on address:port (0: ephemeral) and relays to address:upstreamPort.
  bool Start(const std::string& address, uint16_t port, uint16_t upstreamPort, std::string* error);
  // Closes every connection and the port.
  void Stop();
  uint16_t Port() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace camsim

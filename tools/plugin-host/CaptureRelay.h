// CaptureRelay.h - the I/O half of a capture: a relay on a loopback address of
// its own that the plug-in is pointed at instead of the camera. It passes each
// HTTP request on to the camera and the answer back, unchanged, and hands
// every exchange to the capture writer; RTSP on port 554 is passed through to
// the camera's port 554 with each session's handshake and first media kept.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "CaptureWriter.h"

class CaptureRelay {
 public:
  CaptureRelay(CaptureWriter& writer, std::string cameraHost, uint16_t cameraHttpPort);
  ~CaptureRelay();  // stops
  CaptureRelay(const CaptureRelay&) = delete;
  CaptureRelay& operator=(const CaptureRelay&) = delete;

  // HTTP on an ephemeral port of `address`; RTSP on `rtspPort` of it when not 0.
  bool Start(const std::string& address, uint16_t rtspPort, std::string* error);
  // Ends every connection and waits for the relay's threads.
  void Stop();
  uint16_t HttpPort() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

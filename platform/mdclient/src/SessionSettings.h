// SessionSettings.h - the bounds every RTSP session works within. Sessions
// take the process-wide settings when MDC_Create makes them; tests shorten
// them to see a dead camera or a full queue in a second instead of ten.
#pragma once

#include <chrono>
#include <cstddef>

namespace mdclient {

struct SessionTimeouts {
  std::chrono::milliseconds connect{10000};
  std::chrono::milliseconds answer{10000};
  std::chrono::milliseconds teardown{500};
  // A dead camera: nothing received for this long while playing, or a
  // keep-alive unanswered for this long while paused.
  std::chrono::milliseconds silence{10000};
};

struct SessionSettings {
  SessionTimeouts timeouts;
  // Bytes of packets waiting for a slow consumer before the session drops up
  // to the next key frame: a few seconds of a high-rate camera.
  size_t deliveryQueueBytes = 4 * 1024 * 1024;
};

// The settings sessions made from now on start with.
SessionSettings DefaultSessionSettings();
void SetDefaultSessionSettings(const SessionSettings& settings);

}  // namespace mdclient

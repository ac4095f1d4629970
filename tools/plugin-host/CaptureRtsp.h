// CaptureRtsp.h - what a capture keeps of one RTSP connection: the handshake
// both ways without credentials, and the first seconds of interleaved media
// in whole frames (all of a recording played back, up to the bound). Fed the
// bytes as the relay passes them; no sockets here.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

#include "CaptureWriter.h"

class RtspSessionRecorder {
 public:
  static constexpr size_t kMaxMediaBytes = 8 * 1024 * 1024;
  static constexpr std::chrono::seconds kMediaLength{6};  // a key frame and a few seconds after it

  // Thread-safe: the two directions are fed from their own threads.
  void FromClient(const char* data, size_t size);
  void FromCamera(const char* data, size_t size);
  void Fail(const std::string& failure);
  CapturedRtspSession Take();

 private:
  // Takes whole messages and frames off the front of `buffer`.
  void Split(std::string& buffer, bool fromClient);
  void Message(std::string message, bool fromClient);

  std::mutex m_mutex;
  std::string m_client;  // bytes not yet a whole message or frame
  std::string m_camera;
  bool m_mediaStarted = false;
  bool m_mediaDone = false;
  std::chrono::steady_clock::time_point m_mediaStart;
  CapturedRtspSession m_session;
};

// The request's URL without "user:password@" ("rtsp://u:p@host/x" -> "rtsp://host/x").
std::string WithoutUserInfo(const std::string& url);

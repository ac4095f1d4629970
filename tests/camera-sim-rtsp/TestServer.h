// TestServer.h - a simulator RTSP server on its own loopback address for one
// test, with one known recording, and ffprobe to look at what it serves.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "LoopbackAddress.h"
#include "camera_sim/RtspServer.h"

namespace camsim_test {

constexpr const char* kRecordingId = "20240621_151725_95E7_B8A44F9D7D55";
constexpr const char* kH265RecordingId = "20240621_151725_95E8_B8A44F9D7D55";
constexpr int64_t kRecordingStart = 1718983045;  // 2024-06-21T15:17:25Z
constexpr int64_t kRecordingStop = kRecordingStart + 120;

inline camsim::RtspConfig TestConfig(const std::string& address) {
  camsim::RtspConfig config;
  config.address = address;
  config.port = 0;
  config.user = "root";
  config.password = "p@ss:word";
  config.findRecording = [](const std::string& id) -> std::optional<camsim::RecordingClip> {
    if (id != kRecordingId && id != kH265RecordingId) return std::nullopt;
    camsim::RecordingClip clip;
    clip.id = id;
    clip.codec = id == kH265RecordingId ? "h265" : "h264";
    clip.startUtc = kRecordingStart;
    clip.stopUtc = kRecordingStop;
    return clip;
  };
  return config;
}

class RtspServerFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    m_address = netcam_test::UniqueLoopbackAddress(0);
    m_server = std::make_unique<camsim::RtspServer>(TestConfig(m_address));
    std::string error;
    ASSERT_TRUE(m_server->Start(&error)) << error;
    ASSERT_NE(m_server->Port(), 0);
  }

  // rtsp://host:port/axis-media/media.amp?query, with or without credentials.
  std::string Url(const std::string& query, bool withCredentials = true) const {
    std::string credentials = withCredentials ? "root:p%40ss%3Aword@" : "";
    return "rtsp://" + credentials + m_address + ":" + std::to_string(m_server->Port()) + "/axis-media/media.amp?" +
           query;
  }

  std::string m_address;
  std::unique_ptr<camsim::RtspServer> m_server;
};

// Runs a shell command (bounded by `timeout`) and returns what it printed.
inline std::string RunCommand(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return "popen failed";
  char chunk[4096];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) output.append(chunk, got);
  ::pclose(pipe);
  return output;
}

// ffprobe over TCP-interleaved RTSP: the codec name and the duration, or the error.
inline std::string Probe(const std::string& url) {
  return RunCommand(
      "timeout 60 ffprobe -v error -rtsp_transport tcp -show_entries stream=codec_name:format=duration "
      "-of default=nw=1 '" +
      url + "'");
}

}  // namespace camsim_test

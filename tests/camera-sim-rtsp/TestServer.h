// TestServer.h - a simulator RTSP server on its own loopback address for one
// test, with one known recording.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "LoopbackAddress.h"
#include "camera_sim/RtspServer.h"

namespace camsim_test {

constexpr const char* kRecordingId = "20240621_151725_95E7_B8A44F9D7D55";
constexpr int64_t kRecordingStart = 1718983045;  // 2024-06-21T15:17:25Z, 120 s long

inline camsim::RtspConfig TestConfig(const std::string& address) {
  camsim::RtspConfig config;
  config.address = address;
  config.port = 0;
  config.user = "root";
  config.password = "p@ss:word";
  config.findRecording = [](const std::string& id) -> std::optional<camsim::RecordingClip> {
    if (id != kRecordingId) return std::nullopt;
    return camsim::RecordingClip{.id = id, .startUtc = kRecordingStart, .stopUtc = kRecordingStart + 120};
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
  }
  // rtsp://host:port/axis-media/media.amp?query, credentials left to the exchange.
  std::string Url(const std::string& query) const {
    return "rtsp://" + m_address + ":" + std::to_string(m_server->Port()) + "/axis-media/media.amp?" + query;
  }

  std::string m_address;
  std::unique_ptr<camsim::RtspServer> m_server;
};

}  // namespace camsim_test

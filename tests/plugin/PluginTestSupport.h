// PluginTestSupport.h - a simulated camera on its own loopback address and a
// login record pointing at it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "LoopbackAddress.h"
#include "camera_sim/Camera.h"
#include "netcam_plugin.h"
#include "session/axis_device_object_implement.h"

inline DeviceLoginParam MakeLogin(const std::string& ip, uint16_t port, const std::string& user,
                                  const std::string& password) {
  DeviceLoginParam login{};
  std::strncpy(login.ip, ip.c_str(), sizeof login.ip - 1);
  login.port = port;
  std::strncpy(login.user, user.c_str(), sizeof login.user - 1);
  std::strncpy(login.password, password.c_str(), sizeof login.password - 1);
  return login;
}

// Starts a camera (HTTP only unless told otherwise) on a fresh loopback address.
inline std::unique_ptr<camsim::Camera> StartCamera(camsim::CameraConfig config = {}) {
  config.address = netcam_test::UniqueLoopbackAddress(config.rtspPort);
  auto camera = std::make_unique<camsim::Camera>(config);
  std::string error;
  if (!camera->Start(&error)) {
    ADD_FAILURE() << "camera simulator did not start: " << error;
    return nullptr;
  }
  return camera;
}

inline camsim::CameraConfig HttpOnlyCamera() {
  camsim::CameraConfig config;
  config.rtspPort = 0;
  return config;
}

inline DeviceLoginParam LoginFor(const camsim::Camera& camera) {
  const camsim::CameraConfig& config = camera.Config();
  return MakeLogin(config.address, camera.HttpPort(), config.user, config.password);
}

// A device object opened on a fresh simulated camera (HTTP only), with the
// requests that got past authentication.
class OpenedCameraTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_camera = StartCamera(HttpOnlyCamera());
    ASSERT_NE(m_camera, nullptr);
    const DeviceLoginParam login = LoginFor(*m_camera);
    ASSERT_EQ(m_device.OpenDevice(&login), 0);
    m_camera->ClearRequests();
  }
  std::vector<camsim::ReceivedRequest> Authenticated() const {
    std::vector<camsim::ReceivedRequest> passed;
    for (const auto& r : m_camera->Requests())
      if (r.status != 401) passed.push_back(r);
    return passed;
  }
  std::unique_ptr<camsim::Camera> m_camera;
  CPlgDeviceObjectImplement m_device;
};

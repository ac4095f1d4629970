// PluginTestSupport.h - a simulated camera on its own loopback address and a
// login record pointing at it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "LoopbackAddress.h"
#include "camera_sim/Camera.h"
#include "netcam_plugin.h"

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

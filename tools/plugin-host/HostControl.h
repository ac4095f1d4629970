// HostControl.h - what the device-control commands (status, ability, snapshot,
// time, ntp, ptz) share: a camera opened for the length of one command, and
// the PTZ position read from the camera itself, which the plug-in's ABI does
// not hand out.
#pragma once

#include <string>

#include "HostCommand.h"

// Creates a device object and opens the camera; closes and destroys it at the end.
class OpenedCamera {
 public:
  explicit OpenedCamera(HostContext& context)
      : m_context(context),
        m_device(context.plugin),
        m_open(m_device.Handle() != nullptr && OpenCamera(context, m_device.Handle())) {
    if (m_device.Handle() == nullptr) context.Fail(1, "the plug-in could not create a device object");
  }
  ~OpenedCamera() {
    if (m_open) m_context.plugin.Query<PluginCommonTable>("common")->CloseDevice(m_device.Handle());
  }
  OpenedCamera(const OpenedCamera&) = delete;
  OpenedCamera& operator=(const OpenedCamera&) = delete;
  bool Open() const { return m_open; }
  PluginDeviceHandle Handle() const { return m_device.Handle(); }

 private:
  HostContext& m_context;
  DeviceInstance m_device;
  bool m_open;
};

// One request to the camera itself, beside the plug-in, with the camera's
// credentials (Digest or Basic): a GET, or a POST of `postBody`. The HTTP
// status, or 0 when there was no answer.
long CameraRequest(const CameraTarget& camera, const std::string& path, const std::string* postBody,
                   std::string* answer);

// "pan 12.50  tilt -3.00  zoom 800" as the camera answers ptz.cgi?query=position,
// or why it could not be read.
std::string CameraPtzPosition(const CameraTarget& camera);

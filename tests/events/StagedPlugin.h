// StagedPlugin.h - the plug-in loaded as the platform loads it, from a
// staging tree of its own (plugins/axis/netcam_plugin.so next to
// META_INFO/.../Setup.xml), with an alarm recorder for its callbacks.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "RawHttp.h"
#include "netcam_plugin.h"

namespace events_test {

struct Alarm {
  PluginDeviceHandle device;
  uint32_t type, value;
  PluginAlarmRecord record;
  intptr_t extra;
  void* user;
};

// Collects alarms; notes when two callbacks ever ran at once.
struct AlarmRecorder {
  std::mutex mutex;
  std::vector<Alarm> alarms;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};

  static int32_t NETCAM_CALL OnAlarm(PluginDeviceHandle device, uint32_t type, uint32_t value, const void* record,
                                     intptr_t extra, void* user);
  std::vector<Alarm> Take();
  size_t Count();
};

class StagedPlugin : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Writes Setup.xml; an empty text removes it.
  void WriteSetup(const std::string& text);
  static std::string SetupFor(uint16_t port);
  // A port on 127.0.0.1 the kernel just handed out.
  static uint16_t FreePort();
  // Init with a free port on 127.0.0.1; false when none could be had.
  bool StartCentre();
  // A device object opened (unsuccessfully, which keeps the address) on `ip`.
  PluginDeviceHandle Device(const std::string& ip);
  std::string Log() const;
  Reply Alarm(const std::string& from, const std::string& path = "/axis/uploadalarm/motiondetection");

  int32_t (*Init)(void*) = nullptr;
  int32_t (*Fini)() = nullptr;
  PluginDeviceHandle (*CreateInstance)() = nullptr;
  int32_t (*DestroyInstance)(PluginDeviceHandle) = nullptr;
  int32_t (*OpenDevice)(PluginDeviceHandle, const DeviceLoginParam*) = nullptr;
  int32_t (*SetEventCallBack)(PluginDeviceHandle, PluginAlarmCallback, void*) = nullptr;

  std::string m_stage;
  uint16_t m_port = 0;
  void* m_module = nullptr;
  bool m_initialised = false;
};

}  // namespace events_test

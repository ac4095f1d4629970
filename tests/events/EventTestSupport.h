// EventTestSupport.h - HTTP from any loopback source address (so a test can be
// any camera, or any misbehaving peer), and the plug-in loaded as the platform
// loads it, from a staging tree of its own with Setup.xml beside it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "SharedLibrary.h"
#include "TestEnvironment.h"
#include "TestSockets.h"
#include "netcam_plugin.h"

namespace events_test {

struct Reply {
  int status = 0;  // 0: closed without an answer
  std::string headers, body;
};

using netcam_test::CloseSocket;
using netcam_test::kNoSocket;
using netcam_test::Socket;

// A socket connected from `from` to `to`:`port`, or kNoSocket; reads time out after 30 s.
inline Socket Connect(const std::string& from, uint16_t port, const std::string& to = "127.0.0.1") {
  return netcam_test::ConnectFrom(from, port, to);
}

inline Reply Exchange(Socket socket, const std::string& request) {
  std::string text;
  char buffer[4096];
  netcam_test::SendBytes(socket, request.data(), request.size());
  for (;;) {
    const size_t end = text.find("\r\n\r\n"), length = text.find("Content-Length: ");
    if (end != std::string::npos && length < end && text.size() >= end + 4 + std::stoul(text.substr(length + 16)))
      return {std::atoi(text.c_str() + 9), text.substr(0, end), text.substr(end + 4)};
    const long got = netcam_test::ReceiveBytes(socket, buffer, sizeof buffer);
    if (got <= 0) return {};
    text.append(buffer, static_cast<size_t>(got));
  }
}

inline Reply Send(const std::string& from, uint16_t port, const std::string& request,
                  const std::string& to = "127.0.0.1") {
  const Socket socket = Connect(from, port, to);
  const Reply reply = socket == kNoSocket ? Reply{} : Exchange(socket, request);
  CloseSocket(socket);
  return reply;
}

inline std::string Post(const std::string& path, const std::string& body = "Motion detected camera=1\r\n") {
  return "POST " + path + " HTTP/1.1\r\nHost: plugin\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

constexpr char kMotion[] = "/axis/uploadalarm/motiondetection";

// Collects alarms and notes callbacks that overlap; its user value is the recorder itself.
struct Recorder {
  std::mutex mutex;
  std::vector<std::pair<PluginDeviceHandle, PluginAlarmRecord>> alarms;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};

  static int32_t NETCAM_CALL OnAlarm(PluginDeviceHandle device, uint32_t type, uint32_t value, const void* record,
                                     intptr_t extra, void* user) {
    auto* self = static_cast<Recorder*>(user);
    if (self->running++ != 0) self->overlapped = true;
    EXPECT_TRUE(type == 10000 && value == 1 && extra == 0) << type << " " << value << " " << extra;
    std::lock_guard<std::mutex> lock(self->mutex);
    self->alarms.emplace_back(device, *static_cast<const PluginAlarmRecord*>(record));
    --self->running;
    return 0;
  }
  std::vector<std::pair<PluginDeviceHandle, PluginAlarmRecord>> Take() {
    std::lock_guard<std::mutex> lock(mutex);
    return std::move(alarms);
  }
};

class StagedPlugin : public ::testing::Test {
 protected:
  void SetUp() override {
    m_stage = netcam_test::MakeTempDirectory("netcam-events");
    ASSERT_FALSE(m_stage.empty());
    std::filesystem::create_directories(m_stage + "/plugins/axis");
    std::filesystem::create_directories(m_stage + "/META_INFO/extdev_axis.d/runtime_script");
    const std::filesystem::path built(NETCAM_PLUGIN_PATH);
    const std::string module = m_stage + "/plugins/axis/" + built.filename().string();
#ifdef _WIN32
    std::filesystem::copy_file(built, module);  // a symbolic link needs a privilege on Windows
#else
    std::filesystem::create_symlink(built, module);
#endif
    netcam_test::SetEnvironment("NETCAM_LOG_FILE", (m_stage + "/plugin.log").c_str());
    netcam_test::SetEnvironment("NETCAM_LOG_LEVEL", "2");
    std::string error;
    ASSERT_TRUE(m_module.Open(module, &error)) << error;
    auto bind = [this](auto& entry, const char* name) { entry = m_module.Get<decltype(+entry)>(name); };
    bind(Init, "DeviceObject_Init"), bind(Fini, "DeviceObject_Fini"), bind(Create, "DeviceObject_CreateInstance");
    bind(Open, "DeviceObject_OpenDevice"), bind(Destroy, "DeviceObject_DestroyInstance");
    bind(SetEventCallBack, "DeviceObject_SetEventCallBack");
  }
  void TearDown() override {
    if (m_initialised) Fini();
    m_module.Close();
    std::error_code ignored;
    std::filesystem::remove_all(m_stage, ignored);
  }
  void WriteSetup(const std::string& text) {  // "" removes it
    const std::string path = m_stage + "/META_INFO/extdev_axis.d/runtime_script/Setup.xml";
    std::filesystem::remove(path);
    if (!text.empty()) std::ofstream(path) << text;
  }
  static std::string SetupFor(uint32_t port) {
    return "<?xml version=\"1.0\"?>\n<Configs><AxisPort><Event>" + std::to_string(port) +
           "</Event></AxisPort></Configs>";
  }
  // Init on a port of 127.0.0.1 the kernel just handed out (another if a parallel test took it).
  bool StartCentre() {
    for (int attempt = 0; attempt < 5; ++attempt) {
      m_port = netcam_test::EphemeralPort("127.0.0.1");
      WriteSetup(SetupFor(m_port));
      m_initialised = Init(nullptr) == 0;
      const Socket socket = Connect("127.0.0.1", m_port);
      if (socket != kNoSocket) {
        CloseSocket(socket);
        return true;
      }
      Fini();
    }
    return false;
  }
  // A device object opened (unsuccessfully: nothing answers there) on `ip`, which it keeps.
  PluginDeviceHandle Device(const std::string& ip, Recorder* recorder = nullptr) {
    PluginDeviceHandle device = Create();
    DeviceLoginParam login{};
    std::strncpy(login.ip, ip.c_str(), sizeof login.ip - 1);
    login.port = 1;
    Open(device, &login);
    if (recorder != nullptr) {
      EXPECT_EQ(SetEventCallBack(device, &Recorder::OnAlarm, recorder), 0);
    }
    return device;
  }
  Reply Alarm(const std::string& from, const std::string& path = kMotion) { return Send(from, m_port, Post(path)); }

  int32_t (*Init)(void*) = nullptr;
  int32_t (*Fini)() = nullptr;
  PluginDeviceHandle (*Create)() = nullptr;
  int32_t (*Open)(PluginDeviceHandle, const DeviceLoginParam*) = nullptr;
  int32_t (*Destroy)(PluginDeviceHandle) = nullptr;
  int32_t (*SetEventCallBack)(PluginDeviceHandle, PluginAlarmCallback, void*) = nullptr;
  std::string m_stage;
  uint16_t m_port = 0;
  SharedLibrary m_module;
  bool m_initialised = false;
};

}  // namespace events_test

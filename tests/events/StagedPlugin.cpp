#include "StagedPlugin.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "RawHttp.h"

namespace events_test {

namespace fs = std::filesystem;

int32_t NETCAM_CALL AlarmRecorder::OnAlarm(PluginDeviceHandle device, uint32_t type, uint32_t value, const void* record,
                                           intptr_t extra, void* user) {
  auto* recorder = static_cast<AlarmRecorder*>(user);
  if (recorder->running.fetch_add(1) != 0) recorder->overlapped = true;
  Alarm alarm{device, type, value, {}, extra, user};
  std::memcpy(&alarm.record, record, sizeof alarm.record);
  {
    std::lock_guard<std::mutex> lock(recorder->mutex);
    recorder->alarms.push_back(alarm);
  }
  recorder->running.fetch_sub(1);
  return 0;
}

std::vector<Alarm> AlarmRecorder::Take() {
  std::lock_guard<std::mutex> lock(mutex);
  return std::move(alarms);
}

size_t AlarmRecorder::Count() {
  std::lock_guard<std::mutex> lock(mutex);
  return alarms.size();
}

void StagedPlugin::SetUp() {
  char stage[] = "/tmp/netcam-events-XXXXXX";
  ASSERT_NE(mkdtemp(stage), nullptr);
  m_stage = stage;
  fs::create_directories(m_stage + "/plugins/axis");
  fs::create_directories(m_stage + "/META_INFO/extdev_axis.d/runtime_script");
  fs::create_symlink(NETCAM_PLUGIN_PATH, m_stage + "/plugins/axis/netcam_plugin.so");
  setenv("NETCAM_LOG_FILE", (m_stage + "/plugin.log").c_str(), 1);
  setenv("NETCAM_LOG_LEVEL", "2", 1);
  m_module = dlopen((m_stage + "/plugins/axis/netcam_plugin.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(m_module, nullptr) << dlerror();
  auto bind = [this](auto& function, const char* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(m_module, name));
    ASSERT_NE(function, nullptr) << name;
  };
  bind(Init, "DeviceObject_Init");
  bind(Fini, "DeviceObject_Fini");
  bind(CreateInstance, "DeviceObject_CreateInstance");
  bind(DestroyInstance, "DeviceObject_DestroyInstance");
  bind(OpenDevice, "DeviceObject_OpenDevice");
  bind(SetEventCallBack, "DeviceObject_SetEventCallBack");
}

void StagedPlugin::TearDown() {
  if (m_initialised) Fini();
  if (m_module != nullptr) dlclose(m_module);
  if (!m_stage.empty()) fs::remove_all(m_stage);
}

void StagedPlugin::WriteSetup(const std::string& text) {
  const std::string path = m_stage + "/META_INFO/extdev_axis.d/runtime_script/Setup.xml";
  if (text.empty()) {
    fs::remove(path);
    return;
  }
  std::ofstream(path) << text;
}

std::string StagedPlugin::SetupFor(uint16_t port) {
  return "<?xml version=\"1.0\"?>\n<Configs><AxisPort><Event>" + std::to_string(port) +
         "</Event></AxisPort></Configs>\n";
}

uint16_t StagedPlugin::FreePort() {
  const int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  close(probe);
  return ntohs(address.sin_port);
}

bool StagedPlugin::StartCentre() {
  for (int attempt = 0; attempt < 5; ++attempt) {
    // Another test may take the port first; then try another.
    m_port = FreePort();
    WriteSetup(SetupFor(m_port));
    EXPECT_EQ(Init(nullptr), 0);
    m_initialised = true;
    if (ListeningSockets().count("127.0.0.1:" + std::to_string(m_port)) != 0) return true;
    Fini();
    m_initialised = false;
  }
  return false;
}

PluginDeviceHandle StagedPlugin::Device(const std::string& ip) {
  PluginDeviceHandle device = CreateInstance();
  DeviceLoginParam login{};
  std::strncpy(login.ip, ip.c_str(), sizeof login.ip - 1);
  login.port = 1;  // nothing answers: the open fails at once but keeps the address
  OpenDevice(device, &login);
  return device;
}

std::string StagedPlugin::Log() const {
  std::ifstream file(m_stage + "/plugin.log");
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

Reply StagedPlugin::Alarm(const std::string& from, const std::string& path) {
  return Send(from, "127.0.0.1", m_port, Post(path));
}

}  // namespace events_test

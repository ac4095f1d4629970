// The built library as the platform sees it: its export table and the
// discovery record, reached through dlopen only.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "netcam_plugin.h"

namespace {

const std::set<std::string> kExpectedExports = {
    "ZPLUGIN_GetPluginInterface",    "DeviceObject_Init",
    "DeviceObject_Fini",             "DeviceObject_CreateInstance",
    "DeviceObject_DestroyInstance",  "DeviceObject_SetLogCB",
    "DeviceObject_GetLastError",     "DeviceObject_GetLastErrorEx",
    "DeviceObject_GetPluginAbility", "DeviceObject_OpenDevice",
    "DeviceObject_CloseDevice",      "DeviceObject_GetDeviceAbility",
    "DeviceObject_RebootDevice",     "DeviceObject_SetLocalIP",
    "DeviceObject_SendData",         "DeviceObject_StartStream",
    "DeviceObject_StopStream",       "DeviceObject_ForceIFrame",
    "DeviceObject_GetVideoParam",    "DeviceObject_SetVideoParam",
    "DeviceObject_GetVideoParamEx",  "DeviceObject_SetVideoParamEx",
    "DeviceObject_GetRecordConfig",  "DeviceObject_SetRecordConfig",
    "DeviceObject_FindRecordFiles",  "DeviceObject_FindNextRecordFile",
    "DeviceObject_CloseFindRecord",  "DeviceObject_StartPlayBack",
    "DeviceObject_StartPlayBackEx",  "DeviceObject_StopPlayBack",
    "DeviceObject_PauseStream",      "DeviceObject_ResumeStream",
    "DeviceObject_SetStreamScale",   "DeviceObject_SeekStreamByRelTime",
    "DeviceObject_SeekStreamByAbsTime", "DeviceObject_StartPlayBackByReverse",
    "DeviceObject_StopPlayBackByReverse", "DeviceObject_StartVoice",
    "DeviceObject_StopVoice",        "DeviceObject_SendVoiceData",
    "DeviceObject_StartVoiceEx",     "DeviceObject_StopVoiceEx",
    "DeviceObject_SendVoiceDataEx",  "DeviceObject_GetConfigParam",
    "DeviceObject_SetConfigParam",   "DeviceObject_PTZControl",
    "DeviceObject_GetPTZConfig",     "DeviceObject_SetPTZConfig",
    "DeviceObject_SetEventCallBack", "DeviceObject_SetAlarmOut",
    "DeviceObject_GetAlarmOut",      "DeviceObject_CapturePicture",
    "DeviceObject_GetWorkStatus",    "DeviceObject_FindDeviceLog",
    "DeviceObject_FindNextDeviceLog", "DeviceObject_CloseFindDeviceLog",
    "DeviceObject_TransMethod",      "DeviceObject_SetNtpCfg",
    "DeviceObject_GetNtpCfg",
};

std::set<std::string> DefinedDynamicSymbols(const std::string& library) {
  std::set<std::string> symbols;
  const std::string command = "nm -D --defined-only --format=posix '" + library + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return symbols;
  std::array<char, 1024> line{};
  while (fgets(line.data(), line.size(), pipe.get()) != nullptr) {
    std::string text(line.data());
    std::string name = text.substr(0, text.find(' '));
    symbols.insert(name);
  }
  return symbols;
}

class LoadedPlugin : public ::testing::Test {
 protected:
  void SetUp() override {
    m_module = dlopen(NETCAM_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(m_module, nullptr) << dlerror();
    auto getInterface = reinterpret_cast<const ZPLUGIN_Interface* (*)()>(dlsym(m_module, "ZPLUGIN_GetPluginInterface"));
    ASSERT_NE(getInterface, nullptr);
    m_interface = getInterface();
    ASSERT_NE(m_interface, nullptr);
  }
  void TearDown() override {
    if (m_module != nullptr) dlclose(m_module);
  }
  void* Symbol(const char* name) const { return dlsym(m_module, name); }

  void* m_module = nullptr;
  const ZPLUGIN_Interface* m_interface = nullptr;
};

// Compares every slot of a table with the export of the expected name.
template <typename Table, size_t N>
void ExpectSlots(void* module, const void* table, const std::array<const char*, N>& names) {
  static_assert(sizeof(Table) == N * sizeof(void*), "slot count");
  auto slots = static_cast<void* const*>(table);
  for (size_t i = 0; i < N; ++i) {
    if (names[i] == nullptr) continue;  // slot without an export of its own
    EXPECT_EQ(slots[i], dlsym(module, names[i])) << "slot " << i << " should be " << names[i];
  }
}

}  // namespace

TEST(PluginExports, ExactlyTheBoundaryNames) {
  std::set<std::string> exported = DefinedDynamicSymbols(NETCAM_PLUGIN_PATH);
  ASSERT_FALSE(exported.empty()) << "nm could not read " << NETCAM_PLUGIN_PATH;
  // Sanitizer builds add their runtime's interceptors; nothing of ours may leak.
  for (auto it = exported.begin(); it != exported.end();) {
    bool runtime = it->rfind("__asan", 0) == 0 || it->rfind("__ubsan", 0) == 0 || it->rfind("__sanitizer", 0) == 0 ||
                   it->rfind("__tsan", 0) == 0 || *it == "_init" || *it == "_fini";
    it = runtime ? exported.erase(it) : std::next(it);
  }
  EXPECT_EQ(exported, kExpectedExports);
  for (const std::string& name : exported) EXPECT_EQ(name.find("_Z"), std::string::npos) << name;
}

TEST_F(LoadedPlugin, RecordHasSevenFunctionsAndIsStable) {
  const void* const* slots = reinterpret_cast<const void* const*>(m_interface);
  for (int i = 0; i < 7; ++i) EXPECT_NE(slots[i], nullptr) << "slot " << i;
  auto getInterface = reinterpret_cast<const ZPLUGIN_Interface* (*)()>(Symbol("ZPLUGIN_GetPluginInterface"));
  EXPECT_EQ(getInterface(), m_interface);
  EXPECT_STREQ(m_interface->GetVersion(), "1.0.0.0");
  EXPECT_EQ(reinterpret_cast<void*>(m_interface->DestroyInstance), Symbol("DeviceObject_DestroyInstance"));
}

TEST_F(LoadedPlugin, KeyListAdvertisesSevenKeys) {
  const char* const* keys = m_interface->GetInterfaceKeys();
  const std::array<std::string, 7> expected = {"common", "stream", "record", "talk", "params", "ptz", "control"};
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_NE(keys[i], nullptr);
    EXPECT_EQ(keys[i], expected[i]);
  }
  EXPECT_EQ(keys[7], nullptr);
}

TEST_F(LoadedPlugin, QueryInterfaceAnswersEveryTableInSlotOrder) {
  ASSERT_EQ(m_interface->Init(), 0);
  const void* table = nullptr;

  ASSERT_EQ(m_interface->QueryInterface(nullptr, "common", &table), 0);
  ExpectSlots<PluginCommonTable>(m_module, table,
                                 std::array<const char*, 11>{"DeviceObject_SetLogCB", nullptr,
                                                             "DeviceObject_GetLastError",
                                                             "DeviceObject_GetPluginAbility", "DeviceObject_OpenDevice",
                                                             "DeviceObject_CloseDevice", "DeviceObject_GetDeviceAbility",
                                                             "DeviceObject_RebootDevice", "DeviceObject_SetLocalIP",
                                                             "DeviceObject_SendData", "DeviceObject_GetLastErrorEx"});
  // The environment slot is not exported by name but answers.
  auto initEnv = static_cast<const PluginCommonTable*>(table)->InitEnvParams;
  ASSERT_NE(initEnv, nullptr);
  EXPECT_EQ(initEnv(nullptr), 0);

  ASSERT_EQ(m_interface->QueryInterface(nullptr, "stream", &table), 0);
  ExpectSlots<PluginStreamTable>(
      m_module, table,
      std::array<const char*, 6>{"DeviceObject_StartStream", "DeviceObject_StopStream", "DeviceObject_GetVideoParam",
                                 "DeviceObject_SetVideoParam", "DeviceObject_GetVideoParamEx",
                                 "DeviceObject_SetVideoParamEx"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "record", &table), 0);
  ExpectSlots<PluginRecordTable>(
      m_module, table,
      std::array<const char*, 15>{
          "DeviceObject_GetRecordConfig", "DeviceObject_SetRecordConfig", "DeviceObject_FindRecordFiles",
          "DeviceObject_FindNextRecordFile", "DeviceObject_CloseFindRecord", "DeviceObject_StartPlayBack",
          "DeviceObject_StartPlayBackEx", "DeviceObject_StopPlayBack", "DeviceObject_PauseStream",
          "DeviceObject_ResumeStream", "DeviceObject_SetStreamScale", "DeviceObject_SeekStreamByRelTime",
          "DeviceObject_SeekStreamByAbsTime", "DeviceObject_StartPlayBackByReverse",
          "DeviceObject_StopPlayBackByReverse"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "talk", &table), 0);
  ExpectSlots<PluginTalkTable>(
      m_module, table,
      std::array<const char*, 3>{"DeviceObject_StartVoice", "DeviceObject_StopVoice", "DeviceObject_SendVoiceData"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "talk_ex", &table), 0);
  ExpectSlots<PluginTalkExTable>(m_module, table,
                                 std::array<const char*, 3>{"DeviceObject_StartVoiceEx", "DeviceObject_StopVoiceEx",
                                                            "DeviceObject_SendVoiceDataEx"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "params", &table), 0);
  ExpectSlots<PluginParamsTable>(
      m_module, table, std::array<const char*, 2>{"DeviceObject_GetConfigParam", "DeviceObject_SetConfigParam"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "ptz", &table), 0);
  ExpectSlots<PluginPtzTable>(m_module, table,
                              std::array<const char*, 3>{"DeviceObject_PTZControl", "DeviceObject_GetPTZConfig",
                                                         "DeviceObject_SetPTZConfig"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "control", &table), 0);
  ExpectSlots<PluginControlTable>(
      m_module, table,
      std::array<const char*, 4>{"DeviceObject_SetEventCallBack", "DeviceObject_SetAlarmOut",
                                 "DeviceObject_GetAlarmOut", "DeviceObject_CapturePicture"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "status", &table), 0);
  ExpectSlots<PluginStatusTable>(m_module, table, std::array<const char*, 1>{"DeviceObject_GetWorkStatus"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "log", &table), 0);
  ExpectSlots<PluginLogTable>(m_module, table,
                              std::array<const char*, 3>{"DeviceObject_FindDeviceLog", "DeviceObject_FindNextDeviceLog",
                                                         "DeviceObject_CloseFindDeviceLog"});
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "transmethod", &table), 0);
  ExpectSlots<PluginTransMethodTable>(m_module, table, std::array<const char*, 1>{"DeviceObject_TransMethod"});
  // "ntp" answers although the key list does not name it.
  ASSERT_EQ(m_interface->QueryInterface(nullptr, "ntp", &table), 0);
  ExpectSlots<PluginNtpTable>(m_module, table,
                              std::array<const char*, 2>{"DeviceObject_SetNtpCfg", "DeviceObject_GetNtpCfg"});
  EXPECT_EQ(m_interface->Fini(), 0);
}

TEST_F(LoadedPlugin, QueryInterfaceRefusesUnknownKeysAndNulls) {
  ASSERT_EQ(m_interface->Init(), 0);
  const void* table = reinterpret_cast<const void*>(0x1);
  EXPECT_EQ(m_interface->QueryInterface(nullptr, "Stream", &table), -1);
  EXPECT_EQ(table, nullptr);
  table = reinterpret_cast<const void*>(0x1);
  EXPECT_EQ(m_interface->QueryInterface(nullptr, nullptr, &table), -1);
  EXPECT_EQ(table, nullptr);
  EXPECT_EQ(m_interface->QueryInterface(nullptr, "stream", nullptr), -1);
  EXPECT_EQ(m_interface->QueryInterface(nullptr, "streams", &table), -1);
  // Init again: inserting present keys changes nothing.
  ASSERT_EQ(m_interface->Init(), 0);
  const void* first = nullptr;
  const void* second = nullptr;
  m_interface->QueryInterface(nullptr, "ptz", &first);
  m_interface->QueryInterface(nullptr, "ptz", &second);
  EXPECT_EQ(first, second);
  m_interface->Fini();
  m_interface->Fini();
}

TEST_F(LoadedPlugin, InstancesThroughTheRecord) {
  EXPECT_EQ(m_interface->CreateInstance(nullptr), -1);
  PluginDeviceHandle handle = reinterpret_cast<PluginDeviceHandle>(0x1);
  ASSERT_EQ(m_interface->CreateInstance(&handle), 0);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(m_interface->DestroyInstance(handle), 0);
  EXPECT_EQ(m_interface->DestroyInstance(nullptr), 0);
}

// The built library as the platform sees it: its export table and the
// discovery record, reached through the loaded module only.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "SharedLibrary.h"
#include "netcam_plugin.h"

namespace {

struct Table {
  const char* key;
  size_t size;                      // sizeof the table record: one pointer per slot
  std::vector<const char*> slots;   // the export each slot must be; nullptr: not exported by name
};

// The contract with the platform: every table, its slots in order.
const std::vector<Table> kTables = {
    {"common", sizeof(PluginCommonTable),
     {"DeviceObject_SetLogCB", nullptr, "DeviceObject_GetLastError", "DeviceObject_GetPluginAbility",
      "DeviceObject_OpenDevice", "DeviceObject_CloseDevice", "DeviceObject_GetDeviceAbility",
      "DeviceObject_RebootDevice", "DeviceObject_SetLocalIP", "DeviceObject_SendData", "DeviceObject_GetLastErrorEx"}},
    {"stream", sizeof(PluginStreamTable),
     {"DeviceObject_StartStream", "DeviceObject_StopStream", "DeviceObject_GetVideoParam", "DeviceObject_SetVideoParam",
      "DeviceObject_GetVideoParamEx", "DeviceObject_SetVideoParamEx"}},
    {"record", sizeof(PluginRecordTable),
     {"DeviceObject_GetRecordConfig", "DeviceObject_SetRecordConfig", "DeviceObject_FindRecordFiles",
      "DeviceObject_FindNextRecordFile", "DeviceObject_CloseFindRecord", "DeviceObject_StartPlayBack",
      "DeviceObject_StartPlayBackEx", "DeviceObject_StopPlayBack", "DeviceObject_PauseStream",
      "DeviceObject_ResumeStream", "DeviceObject_SetStreamScale", "DeviceObject_SeekStreamByRelTime",
      "DeviceObject_SeekStreamByAbsTime", "DeviceObject_StartPlayBackByReverse", "DeviceObject_StopPlayBackByReverse"}},
    {"talk", sizeof(PluginTalkTable),
     {"DeviceObject_StartVoice", "DeviceObject_StopVoice", "DeviceObject_SendVoiceData"}},
    {"talk_ex", sizeof(PluginTalkExTable),
     {"DeviceObject_StartVoiceEx", "DeviceObject_StopVoiceEx", "DeviceObject_SendVoiceDataEx"}},
    {"params", sizeof(PluginParamsTable), {"DeviceObject_GetConfigParam", "DeviceObject_SetConfigParam"}},
    {"ptz", sizeof(PluginPtzTable),
     {"DeviceObject_PTZControl", "DeviceObject_GetPTZConfig", "DeviceObject_SetPTZConfig"}},
    {"control", sizeof(PluginControlTable),
     {"DeviceObject_SetEventCallBack", "DeviceObject_SetAlarmOut", "DeviceObject_GetAlarmOut",
      "DeviceObject_CapturePicture"}},
    {"status", sizeof(PluginStatusTable), {"DeviceObject_GetWorkStatus"}},
    {"log", sizeof(PluginLogTable),
     {"DeviceObject_FindDeviceLog", "DeviceObject_FindNextDeviceLog", "DeviceObject_CloseFindDeviceLog"}},
    {"transmethod", sizeof(PluginTransMethodTable), {"DeviceObject_TransMethod"}},
    {"ntp", sizeof(PluginNtpTable), {"DeviceObject_SetNtpCfg", "DeviceObject_GetNtpCfg"}},  // answers, unadvertised
};

// Every table slot's export, and the names that stand in no table.
std::set<std::string> ExpectedExports() {
  std::set<std::string> names = {"ZPLUGIN_GetPluginInterface",  "DeviceObject_Init",          "DeviceObject_Fini",
                                 "DeviceObject_CreateInstance", "DeviceObject_DestroyInstance", "DeviceObject_ForceIFrame"};
  for (const Table& table : kTables)
    for (const char* name : table.slots)
      if (name != nullptr) names.insert(name);
  return names;
}

#ifdef _WIN32
// The names in the DLL's export directory, read from the mapped image.
std::set<std::string> DefinedDynamicSymbols(const std::string& library) {
  std::set<std::string> symbols;
  HMODULE module = LoadLibraryA(library.c_str());
  if (module == nullptr) return symbols;
  const auto* base = reinterpret_cast<const uint8_t*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.Size != 0) {
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directory.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) symbols.insert(reinterpret_cast<const char*>(base + names[i]));
  }
  FreeLibrary(module);
  return symbols;
}
#else
std::set<std::string> DefinedDynamicSymbols(const std::string& library) {
  std::set<std::string> symbols;
  const std::string command = "nm -D --defined-only --format=posix '" + library + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return symbols;
  std::array<char, 1024> line{};
  while (fgets(line.data(), line.size(), pipe.get()) != nullptr) {
    std::string text(line.data());
    // Sanitizer builds add their runtime's interceptors; nothing of ours may leak.
    const bool runtime = text.rfind("__asan", 0) == 0 || text.rfind("__ubsan", 0) == 0 ||
                         text.rfind("__sanitizer", 0) == 0 || text.rfind("__tsan", 0) == 0 ||
                         text.rfind("_init ", 0) == 0 || text.rfind("_fini ", 0) == 0;
    if (!runtime) symbols.insert(text.substr(0, text.find(' ')));
  }
  return symbols;
}
#endif

class LoadedPlugin : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(m_module.Open(NETCAM_PLUGIN_PATH, &error)) << error;
    auto getInterface = m_module.Get<const ZPLUGIN_Interface* (*)()>("ZPLUGIN_GetPluginInterface");
    ASSERT_NE(getInterface, nullptr);
    m_interface = getInterface();
    ASSERT_NE(m_interface, nullptr);
    EXPECT_EQ(getInterface(), m_interface);  // one record for the process
  }

  SharedLibrary m_module;
  const ZPLUGIN_Interface* m_interface = nullptr;
};

}  // namespace

TEST(PluginExports, ExactlyTheBoundaryNames) {
  const std::set<std::string> exported = DefinedDynamicSymbols(NETCAM_PLUGIN_PATH);
  ASSERT_FALSE(exported.empty()) << "nm could not read " << NETCAM_PLUGIN_PATH;
  EXPECT_EQ(exported, ExpectedExports());
}

TEST_F(LoadedPlugin, RecordVersionAndAdvertisedKeys) {
  const void* const* slots = reinterpret_cast<const void* const*>(m_interface);
  for (int i = 0; i < 7; ++i) EXPECT_NE(slots[i], nullptr) << "slot " << i;
  EXPECT_STREQ(m_interface->GetVersion(), "1.0.0.0");
  EXPECT_EQ(reinterpret_cast<void*>(m_interface->DestroyInstance), m_module.Symbol("DeviceObject_DestroyInstance"));

  std::vector<std::string> keys;
  for (const char* const* key = m_interface->GetInterfaceKeys(); *key != nullptr && keys.size() < 20; ++key)
    keys.emplace_back(*key);
  EXPECT_EQ(keys, (std::vector<std::string>{"common", "stream", "record", "talk", "params", "ptz", "control"}));
}

TEST_F(LoadedPlugin, QueryInterfaceAnswersEveryTableInSlotOrder) {
  ASSERT_EQ(m_interface->Init(), 0);
  ASSERT_EQ(m_interface->Init(), 0);  // again: present keys stay as they are
  for (const Table& table : kTables) {
    SCOPED_TRACE(table.key);
    const void* found = nullptr;
    ASSERT_EQ(m_interface->QueryInterface(nullptr, table.key, &found), 0);
    ASSERT_EQ(table.size, table.slots.size() * sizeof(void*));
    auto slots = static_cast<void* const*>(found);
    for (size_t i = 0; i < table.slots.size(); ++i) {
      if (table.slots[i] != nullptr) {
        EXPECT_EQ(slots[i], m_module.Symbol(table.slots[i])) << "slot " << i;
      }
    }
  }
  // The environment slot of "common" is not exported by name but answers.
  const void* common = nullptr;
  m_interface->QueryInterface(nullptr, "common", &common);
  EXPECT_EQ(static_cast<const PluginCommonTable*>(common)->InitEnvParams(nullptr), 0);

  for (const char* key : {"Stream", "streams", static_cast<const char*>(nullptr)}) {
    const void* table = reinterpret_cast<const void*>(0x1);
    EXPECT_EQ(m_interface->QueryInterface(nullptr, key, &table), -1) << (key ? key : "NULL");
    EXPECT_EQ(table, nullptr);
  }
  EXPECT_EQ(m_interface->QueryInterface(nullptr, "stream", nullptr), -1);
  EXPECT_EQ(m_interface->Fini(), 0);
  EXPECT_EQ(m_interface->Fini(), 0);
}

TEST_F(LoadedPlugin, InstancesThroughTheRecord) {
  EXPECT_EQ(m_interface->CreateInstance(nullptr), -1);
  PluginDeviceHandle handle = nullptr;
  ASSERT_EQ(m_interface->CreateInstance(&handle), 0);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(m_interface->DestroyInstance(handle), 0);
  EXPECT_EQ(m_interface->DestroyInstance(nullptr), 0);
}

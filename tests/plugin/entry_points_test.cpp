// Results of the flat entry points without a camera: NULL handles, operations
// this family does not offer, the last-error store, and the time conversions.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "netcam_plugin.h"
#include "session/TimeConversions.h"

namespace {

struct Row {
  const char* name;
  std::function<int32_t(PluginDeviceHandle)> call;
  int32_t expected;
};

}  // namespace

TEST(EntryPoints, NullHandleResultsKeepTheirAsymmetry) {
  // Operations that answer a NULL handle with -1 and those that answer 0.
  const std::vector<Row> rows = {
      {"OpenDevice",
       [](PluginDeviceHandle h) {
         DeviceLoginParam p{};
         return DeviceObject_OpenDevice(h, &p);
       },
       -1},
      {"CloseDevice", [](PluginDeviceHandle h) { return DeviceObject_CloseDevice(h); }, -1},
      {"GetDeviceAbility", [](PluginDeviceHandle h) { return DeviceObject_GetDeviceAbility(h, "", 0, nullptr, 0); },
       -1},
      {"RebootDevice", [](PluginDeviceHandle h) { return DeviceObject_RebootDevice(h); }, -1},
      {"StartStream",
       [](PluginDeviceHandle h) {
         PluginStreamRequest r{};
         return DeviceObject_StartStream(h, &r, nullptr, nullptr);
       },
       -1},
      {"ForceIFrame", [](PluginDeviceHandle h) { return DeviceObject_ForceIFrame(h, 0); }, -1},
      {"GetVideoParam", [](PluginDeviceHandle h) { return DeviceObject_GetVideoParam(h, 0, nullptr); }, -1},
      {"GetRecordConfig", [](PluginDeviceHandle h) { return DeviceObject_GetRecordConfig(h, nullptr); }, 0},
      {"SetRecordConfig", [](PluginDeviceHandle h) { return DeviceObject_SetRecordConfig(h, nullptr); }, 0},
      {"FindRecordFiles", [](PluginDeviceHandle h) { return DeviceObject_FindRecordFiles(h, nullptr); }, 0},
      {"FindNextRecordFile", [](PluginDeviceHandle h) { return DeviceObject_FindNextRecordFile(h, nullptr); }, 0},
      {"CloseFindRecord", [](PluginDeviceHandle h) { return DeviceObject_CloseFindRecord(h); }, 0},
      {"PauseStream", [](PluginDeviceHandle h) { return DeviceObject_PauseStream(h); }, -1},
      {"SetStreamScale", [](PluginDeviceHandle h) { return DeviceObject_SetStreamScale(h, 2.0); }, -1},
      {"StopVoice", [](PluginDeviceHandle h) { return DeviceObject_StopVoice(h); }, -1},
      {"GetConfigParam", [](PluginDeviceHandle h) { return DeviceObject_GetConfigParam(h, 4, nullptr, 0, nullptr); },
       -1},
      {"SetConfigParam", [](PluginDeviceHandle h) { return DeviceObject_SetConfigParam(h, 23, nullptr, 0, nullptr); },
       0},
      {"PTZControl", [](PluginDeviceHandle h) { return DeviceObject_PTZControl(h, 1, nullptr, 0, 0); }, 0},
      {"SetEventCallBack", [](PluginDeviceHandle h) { return DeviceObject_SetEventCallBack(h, nullptr, nullptr); }, 0},
      {"CapturePicture", [](PluginDeviceHandle h) { return DeviceObject_CapturePicture(h, 0, 0, nullptr, 0, nullptr); },
       0},
      {"GetWorkStatus", [](PluginDeviceHandle h) { return DeviceObject_GetWorkStatus(h, nullptr, 0); }, 0},
      {"TransMethod", [](PluginDeviceHandle h) { return DeviceObject_TransMethod(h, nullptr, 0, nullptr, nullptr); },
       0},
      {"SetNtpCfg", [](PluginDeviceHandle h) { return DeviceObject_SetNtpCfg(h, nullptr); }, 0},
      {"GetNtpCfg", [](PluginDeviceHandle h) { return DeviceObject_GetNtpCfg(h, nullptr); }, 0},
  };
  LogCapture log;
  for (const Row& row : rows) EXPECT_EQ(row.call(nullptr), row.expected) << row.name;
  EXPECT_TRUE(log.Lines().empty()) << log.All();
  // Stops with a NULL handle do nothing.
  DeviceObject_StopStream(nullptr);
  DeviceObject_StopPlayBack(nullptr);
  EXPECT_EQ(DeviceObject_DestroyInstance(nullptr), 0);
}

TEST(EntryPoints, NotSupportedRowsAnswerWithoutLogging) {
  PluginDeviceHandle handle = DeviceObject_CreateInstance();
  ASSERT_NE(handle, nullptr);
  LogCapture log;
  PluginPlaybackCondition condition{};
  int32_t state = 0;
  EXPECT_EQ(DeviceObject_RebootDevice(handle), -2);
  EXPECT_EQ(DeviceObject_SetLocalIP(handle, "10.0.0.1"), -2);
  EXPECT_EQ(DeviceObject_SendData(handle, "x", 1), -2);
  EXPECT_EQ(DeviceObject_GetVideoParamEx(handle, 0, nullptr), -2);
  EXPECT_EQ(DeviceObject_SetVideoParamEx(handle, 0, nullptr), -2);
  EXPECT_EQ(DeviceObject_SeekStreamByRelTime(handle, 10), -2);
  EXPECT_EQ(DeviceObject_SeekStreamByAbsTime(handle, nullptr), -2);
  EXPECT_EQ(DeviceObject_StartPlayBackByReverse(handle, &condition, nullptr, nullptr), -2);
  DeviceObject_StopPlayBackByReverse(handle);
  EXPECT_EQ(DeviceObject_SendVoiceData(handle, "x", 1), -2);
  EXPECT_EQ(DeviceObject_StartVoiceEx(handle, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(DeviceObject_StopVoiceEx(handle), -1);
  EXPECT_EQ(DeviceObject_SendVoiceDataEx(handle, "x", 1), -1);
  EXPECT_EQ(DeviceObject_SetAlarmOut(handle, 0, 1), -2);
  EXPECT_EQ(DeviceObject_GetAlarmOut(handle, 0, &state), -2);
  EXPECT_EQ(DeviceObject_FindDeviceLog(handle, nullptr), -2);
  EXPECT_EQ(DeviceObject_FindNextDeviceLog(handle, nullptr), -2);
  EXPECT_EQ(DeviceObject_CloseFindDeviceLog(handle), -2);
  EXPECT_EQ(DeviceObject_ForceIFrame(handle, 0), 0);
  EXPECT_TRUE(log.Lines().empty()) << log.All();

  // The named refusals do log, once each.
  EXPECT_EQ(DeviceObject_GetVideoParam(handle, 0, nullptr), -2);
  EXPECT_EQ(DeviceObject_SetVideoParam(handle, 0, nullptr), -2);
  PluginTalkRequest talk{};
  talk.address = "192.168.0.90";
  talk.port = 80;
  talk.channel = 2;
  EXPECT_EQ(DeviceObject_StartVoice(handle, &talk, nullptr, nullptr), -2);
  EXPECT_EQ(DeviceObject_StopVoice(handle), -2);
  ASSERT_EQ(log.Lines().size(), 4u) << log.All();
  EXPECT_EQ(log.Lines()[0].level, EVLOG_ERROR);
  EXPECT_NE(log.Lines()[0].text.find("[CPlgDeviceObjectImplement::GetVideoParam]CPlgDeviceObjectImplement "
                                     "GetVideoParam Fail, Not Support["),
            std::string::npos)
      << log.All();
  EXPECT_TRUE(log.Contains("StartVoiceTalk, Dev<192.168.0.90:80> Chan:2[")) << log.All();
  DeviceObject_DestroyInstance(handle);
}

TEST(EntryPoints, PluginAbilitySetsEveryFlag) {
  PluginAbility ability;
  std::memset(&ability, 0x7f, sizeof ability);
  EXPECT_EQ(DeviceObject_GetPluginAbility(&ability), 0);
  const int32_t* values = reinterpret_cast<const int32_t*>(&ability);
  for (size_t i = 0; i < sizeof ability / sizeof(int32_t); ++i) EXPECT_EQ(values[i], 1) << i;
}

TEST(EntryPoints, LogLinesCarryFunctionFileAndLine) {
  LogCapture log;
  DeviceObject_SetLogCB(nullptr);
  ASSERT_EQ(log.Lines().size(), 1u);
  const std::string line = log.Lines()[0].text;
  EXPECT_EQ(
      line.rfind("[DeviceObject_SetLogCB]DeviceObject_SetLogCB called.[src/boundary/axis_device_object_interface.cpp(",
                 0),
      0u)
      << line;
  EXPECT_EQ(line.back(), ']');
}

TEST(LastErrorStore, NothingRecordedAndShortOrMissingBuffers) {
  EXPECT_EQ(DeviceObject_GetLastError(), 0);
  char buffer[256];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(DeviceObject_GetLastErrorEx(buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "{\"errors\": [{\"name\":\"uplinksdk\", \"errCode\":\"0\",\"errMsg\":\"\"}]}");
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(DeviceObject_GetLastErrorEx(buffer, 10), 0);
  EXPECT_STREQ(buffer, "{\"errors\"");
  EXPECT_EQ(buffer[10], 'x');  // nothing beyond the given size
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(DeviceObject_GetLastErrorEx(buffer, 0), 0);
  EXPECT_EQ(DeviceObject_GetLastErrorEx(buffer, -5), 0);
  EXPECT_EQ(DeviceObject_GetLastErrorEx(nullptr, 100), 0);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_EQ(DeviceObject_GetLastErrorEx(buffer, 1), 0);
  EXPECT_EQ(buffer[0], '\0');
}

TEST(TimeConversions, ZonedTimesBecomeUtc) {
  // Either negative zone field makes the sign: -5 hours with +30 minutes reads as -05:30.
  const struct {
    PluginZonedTime zoned;
    const char* utc;
  } cases[] = {
      {{2024, 3, 1, 0, 30, 0, 0, 0, 8, 0}, "2024-02-29T16:30:00.000Z"},
      {{2024, 3, 5, 8, 0, 0, 0, 0, -5, 30}, "2024-03-05T13:30:00.000Z"},
      {{2024, 3, 5, 8, 0, 0, 0, 0, -3, -30}, "2024-03-05T11:30:00.000Z"},
      {{2024, 3, 5, 8, 0, 0, 0, 0, 0, -30}, "2024-03-05T08:30:00.000Z"},
      {{1970, 1, 1, 0, 0, 0, 0, 0, 8, 0}, "1969-12-31T16:00:00.000Z"},  // before 1970 in UTC
      {{1969, 12, 31, 23, 59, 59, 0, 0, 0, 0}, "1969-12-31T23:59:59.000Z"},
  };
  for (const auto& c : cases) {
    PluginTime utc{};
    ConvertUTCTime(&utc, &c.zoned);
    EXPECT_EQ(PluginTimeToUTCString(&utc), c.utc);
  }
  LogCapture log;
  PluginTime untouched{};
  untouched.year = 1999;
  ConvertUTCTime(&untouched, nullptr);
  EXPECT_EQ(untouched.year, 1999);
  EXPECT_TRUE(log.Contains("[ConvertUTCTime]Input param invalid.")) << log.All();

  PluginGlobalTime local{};
  const PluginZonedTime zoned{2024, 12, 31, 23, 59, 58, 7, 7, -12, 0};  // zone ignored
  ConvertTime(&local, &zoned);
  EXPECT_EQ(QLSystemTimeToString(&local), "2024-12-31 23:59:58");
}

TEST(TimeConversions, CameraTextsAndPlatformRecords) {
  int day = -1, hour = -1, minute = -1;
  EXPECT_TRUE(ParseTime("19700105T083000", day, hour, minute));
  EXPECT_EQ((std::vector<int>{day, hour, minute}), (std::vector<int>{5, 8, 30}));

  PluginTime time{};
  ConvertTimeToPluginTime("2024-03-05T08:09:10.123456Z", &time);
  EXPECT_EQ((std::vector<int>{time.year, time.month, time.day, time.hour, time.minute, time.second}),
            (std::vector<int>{2024, 3, 5, 8, 9, 10}));
  EXPECT_EQ(PluginTimeToUTCString(&time), "2024-03-05T08:09:10.000Z");
  EXPECT_EQ(PluginTimeToUTCString(nullptr), "");

  LogCapture log;
  EXPECT_EQ(QLSystemTimeToString(nullptr), "");
  EXPECT_TRUE(log.Contains("[`anonymous-namespace'::QLSystemTimeToString]pGlobalTime is null.")) << log.All();
  std::memset(&time, 0x55, sizeof time);
  ConvertTimeToPluginTime("", &time);
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&time);
  for (size_t i = 0; i < sizeof time; ++i) ASSERT_EQ(bytes[i], 0) << i;
  EXPECT_TRUE(log.Contains("[`anonymous-namespace'::ConvertTimeToPluginTime]ConvertTimeToPluginTime failed, time[]"))
      << log.All();
  EXPECT_FALSE(ParseTime("", day, hour, minute));
  EXPECT_TRUE(log.Contains("[`anonymous-namespace'::ParseTime]ParseTime failed, time[]")) << log.All();
}

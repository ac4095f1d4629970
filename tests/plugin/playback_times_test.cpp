// A playback span's times on their way to the camera: asked for in UTC, or
// refused before any request when they cannot be read.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "netcam_plugin.h"

TEST(TimeConversions, PlaybackSpansReachTheCameraInUtcOrAreRefused) {
  auto camera = StartCamera(HttpOnlyCamera());
  ASSERT_TRUE(camera);
  camera->Script("/axis-cgi/record/list.cgi", camsim::ScriptedAnswer{404, "text/plain", "none", {}});
  const std::string address = camera->Config().address;
  const PluginStreamRequest request{0, 0, 0, camera->HttpPort(), 0, 0, address.c_str(), "root", "pass", "", 0, 0};
  const PluginStreamDataCallback ignore = [](void*, int32_t, const PluginStreamBlock*, void*) { return 0; };
  PluginDeviceHandle device = DeviceObject_CreateInstance();
  // A readable start is asked for in UTC; an unreadable one never reaches the camera.
  const std::pair<PluginZonedTime, std::string> cases[] = {
      {{1970, 1, 1, 0, 0, 0, 0, 0, 8, 0}, "starttime=1969-12-31T16:00:00.000Z"},
      {{2024, 13, 1, 0, 0, 0, 0, 0, 0, 0}, "time[2024-13-01T00:00:00+00:00]"},
      {{2023, 2, 29, 0, 0, 0, 0, 0, 0, 0}, "time[2023-02-29T00:00:00+00:00]"},
      {{2024, 3, 1, 25, 0, 0, 0, 0, 0, 0}, "time[2024-03-01T25:00:00+00:00]"},
      {{2024, 3, 1, 0, 0, 0, 0, 0, 24, 0}, "time[2024-03-01T00:00:00+24:00]"},
  };
  const PluginZonedTime end{2024, 3, 2, 0, 0, 0, 0, 0, 0, 0};
  for (const auto& [start, expected] : cases) {
    camera->ClearRequests();
    LogCapture log;
    const PluginPlaybackConditionEx condition{&request, &start, &end, 0, 0, 0};
    EXPECT_EQ(DeviceObject_StartPlayBackEx(device, &condition, ignore, nullptr), -1);
    const auto requests = camera->Requests();
    if (expected.starts_with("starttime")) {
      EXPECT_TRUE(!requests.empty() && requests.back().query.find(expected) != std::string::npos) << expected;
    } else {
      EXPECT_TRUE(requests.empty()) << expected;
      EXPECT_EQ(log.Matching("[ConvertUTCTime]ConvertUTCTime failed, " + expected).size(), 1u) << log.All();
      EXPECT_EQ(log.Matching("", EVLOG_ERROR).size(), 1u) << log.All();
    }
  }
  DeviceObject_DestroyInstance(device);
}

// The event centre inside the loaded plug-in: where it listens, how alarms are
// routed and answered, their order, and its life across Init and Fini.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <regex>
#include <set>
#include <thread>

#include "LoopbackAddress.h"
#include "RawHttp.h"
#include "StagedPlugin.h"
#include "camera_sim/Camera.h"

namespace events_test {
namespace {

using EventCentre = StagedPlugin;

std::string Reply(const char* status, const char* message) {
  return std::string("{\n\t\"status\": \"") + status + "\",\n\t\"msg\": \"" + message + "\"\n}";
}

TEST_F(EventCentre, SetupXmlDecidesWhetherAndWhereItListens) {
  const uint16_t port = FreePort();
  const struct {
    std::string setup;
    std::set<std::string> listening;
  } cases[] = {
      {"", {}},
      {SetupFor(port), {"127.0.0.1:" + std::to_string(port)}},
      {"<Configs><AxisPort><Event> " + std::to_string(port + 65536) + "x</Event></AxisPort></Configs>",
       {"127.0.0.1:" + std::to_string(port)}},
      {"<Configs><Event>8090</Event></Configs>", {}},
      {"<Configs><AxisPort><Event>none</Event></AxisPort></Configs>", {}},
      {"not xml", {}},
  };
  for (const auto& c : cases) {
    WriteSetup(c.setup);
    EXPECT_EQ(Init(nullptr), 0) << c.setup;
    EXPECT_EQ(ListeningSockets(), c.listening) << c.setup;
    Fini();
  }
}

TEST_F(EventCentre, RoutesAlarmsBySenderAndAnswersEach) {
  ASSERT_TRUE(StartCentre());
  AlarmRecorder recorder;
  const std::string a = netcam_test::UniqueLoopbackAddress(), b = netcam_test::UniqueLoopbackAddress();
  PluginDeviceHandle first = Device(a), second = Device(a), other = Device(b), never = Device(b);
  int tag1 = 1, tag2 = 2;
  ASSERT_EQ(SetEventCallBack(first, &AlarmRecorder::OnAlarm, &tag1), 0);
  ASSERT_EQ(SetEventCallBack(second, &AlarmRecorder::OnAlarm, &recorder), 0);  // the later one wins
  ASSERT_EQ(SetEventCallBack(other, &AlarmRecorder::OnAlarm, &tag2), 0);
  ASSERT_EQ(SetEventCallBack(other, nullptr, nullptr), 0);
  ASSERT_EQ(SetEventCallBack(never, nullptr, nullptr), 0);  // unknown address: still success
  const std::string motion = "/axis/uploadalarm/motiondetection";
  const struct {
    std::string from, path, reply;
    size_t alarms;
  } cases[] = {
      {a, motion, Reply("Success", "Success"), 1},
      {b, motion, Reply("Failed", "No user subscribes"), 0},
      {a, motion + "?id=1", Reply("Failed", "Unsupported alarm"), 0},
      {a, motion + "/", Reply("Failed", "Unsupported alarm"), 0},
      {a, "/axis/uploadalarm/other", Reply("Failed", "Unsupported alarm"), 0},
  };
  for (const auto& c : cases) {
    const time_t before = time(nullptr);
    const events_test::Reply reply = Alarm(c.from, c.path);
    EXPECT_EQ(reply.status, 200) << c.path;
    EXPECT_EQ(reply.body, c.reply) << c.path;
    EXPECT_NE(reply.headers.find("Content-Type: application/xml; charset=\"UTF-8\""), std::string::npos);
    const std::vector<events_test::Alarm> alarms = recorder.Take();
    ASSERT_EQ(alarms.size(), c.alarms) << c.path;
    if (c.alarms == 0) continue;
    const events_test::Alarm& alarm = alarms[0];
    EXPECT_EQ(alarm.device, second);
    EXPECT_EQ(alarm.user, &recorder);
    EXPECT_EQ(alarm.type, 10000u);
    EXPECT_EQ(alarm.value, 1u);
    EXPECT_EQ(alarm.extra, 0);
    const PluginAlarmRecord& record = alarm.record;
    EXPECT_EQ(record.alarmKind, 131331);
    EXPECT_EQ(record.field1072, 3);
    EXPECT_EQ(record.field1076, 5);
    tm local{};
    local.tm_sec = record.localTime[1];
    local.tm_min = record.localTime[2];
    local.tm_hour = record.localTime[3];
    local.tm_mday = record.localTime[4];
    local.tm_mon = record.localTime[5];
    local.tm_year = record.localTime[6];
    local.tm_isdst = record.localTimeZone[0];
    const time_t received = mktime(&local);
    EXPECT_TRUE(received >= before && received <= time(nullptr)) << received << " " << before;
    EXPECT_EQ(record.localTimeZone[1], local.tm_gmtoff);
    PluginAlarmRecord rest = record, zero{};  // everything else stays zero
    std::memset(rest.localTime, 0, sizeof rest.localTime);
    rest.localTimeZone[0] = rest.localTimeZone[1] = rest.alarmKind = rest.field1072 = rest.field1076 = 0;
    EXPECT_EQ(std::memcmp(&rest, &zero, sizeof zero), 0);
  }
  // The simulator posts as a camera does, to the path the plug-in routes.
  camsim::CameraConfig config;
  config.address = a;
  config.httpPort = 0;
  config.rtspPort = 0;
  config.eventUrl = "http://127.0.0.1:" + std::to_string(m_port) + motion;
  camsim::Camera camera(config);
  std::string error;
  ASSERT_TRUE(camera.Start(&error)) << error;
  EXPECT_TRUE(camera.PostMotionAlarm());
  EXPECT_EQ(recorder.Take().size(), 1u);
  ASSERT_EQ(SetEventCallBack(second, nullptr, nullptr), 0);
  EXPECT_EQ(Alarm(a).body, Reply("Failed", "No user subscribes"));
  for (PluginDeviceHandle device : {first, second, other, never}) DestroyInstance(device);
}

TEST_F(EventCentre, DeliversOneAtATimeInArrivalOrderAndAnswersInThatOrder) {
  ASSERT_TRUE(StartCentre());
  AlarmRecorder recorder;
  std::vector<std::string> cameras;
  std::vector<PluginDeviceHandle> devices;
  for (int i = 0; i < 16; ++i) {
    cameras.push_back(netcam_test::UniqueLoopbackAddress());
    devices.push_back(Device(cameras.back()));
    SetEventCallBack(devices.back(), &AlarmRecorder::OnAlarm, &recorder);
  }
  std::vector<std::thread> posters;
  std::atomic<int> answered{0};
  for (const std::string& camera : cameras) {
    posters.emplace_back([&, camera] {
      for (int n = 0; n < 20; ++n) answered += Alarm(camera).body == Reply("Success", "Success");
    });
  }
  for (std::thread& poster : posters) poster.join();
  EXPECT_EQ(answered, 320);
  EXPECT_FALSE(recorder.overlapped);
  // The log's reception order, delivery order and reply order against the callbacks'.
  const std::string log = Log();
  auto column = [&log](const std::string& pattern) {
    std::vector<std::string> values;
    const std::regex expression(pattern);
    for (auto it = std::sregex_iterator(log.begin(), log.end(), expression); it != std::sregex_iterator(); ++it)
      values.push_back((*it)[1]);
    return values;
  };
  std::vector<std::string> delivered;
  for (const events_test::Alarm& alarm : recorder.Take())
    delivered.push_back(cameras[std::find(devices.begin(), devices.end(), alarm.device) - devices.begin()]);
  EXPECT_EQ(column(R"(Receive axis HTTP event, ip\[([0-9.]+)\])"), delivered);
  EXPECT_EQ(column(R"(InvokeEvent alarm begin, ip\[([0-9.]+)\])"), delivered);
  std::vector<int> links;
  for (const std::string& link : column(R"(HttpServerSynSend success, ret\[0\], handle\[([0-9]+)\])"))
    links.push_back(std::stoi(link));
  EXPECT_EQ(links.size(), 320u);
  EXPECT_TRUE(std::is_sorted(links.begin(), links.end()));
  for (PluginDeviceHandle device : devices) DestroyInstance(device);
}

// Alarms keep arriving while the plug-in starts and stops, and while device
// objects come and go: none reaches a destroyed object or arrives after Fini.
TEST_F(EventCentre, InitFiniCyclesWithAlarmsInFlight) {
  ASSERT_TRUE(StartCentre());
  static std::mutex liveMutex;
  static std::set<PluginDeviceHandle> live;
  static std::atomic<int> strayCalls{0}, calls{0};
  static std::atomic<bool> finished{false};
  auto callback = [](PluginDeviceHandle device, uint32_t, uint32_t, const void*, intptr_t, void*) -> int32_t {
    std::lock_guard<std::mutex> lock(liveMutex);
    if (finished || live.count(device) == 0) ++strayCalls;
    ++calls;
    return 0;
  };
  const std::string camera = netcam_test::UniqueLoopbackAddress();
  std::atomic<bool> stop{false};
  std::thread poster([&] {
    while (!stop)
      if (Alarm(camera).status == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  for (int cycle = 0; cycle < 200; ++cycle) {
    if (cycle > 0) {
      finished = false;
      ASSERT_EQ(Init(nullptr), 0);
    }
    PluginDeviceHandle device = Device(camera);
    {
      std::lock_guard<std::mutex> lock(liveMutex);
      live.insert(device);
    }
    SetEventCallBack(device, +callback, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 2 == 0 ? 5 : 0));
    if (cycle % 3 == 0) {
      Fini();  // destroyed after Fini every third cycle, before it otherwise
      finished = true;
    }
    DestroyInstance(device);
    {
      std::lock_guard<std::mutex> lock(liveMutex);
      live.erase(device);
    }
    if (cycle % 3 != 0) {
      Fini();
      finished = true;
    }
  }
  m_initialised = false;
  stop = true;
  poster.join();
  EXPECT_EQ(strayCalls, 0);
  EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace events_test
